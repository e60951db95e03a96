// SPDX-License-Identifier: Apache-2.0
//
// What the store uses of the platform layer: settings, time, upper case, the log.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include <kest/talpl.h>
#include <kest/tolm.h>

namespace filestore {

// The platform layer, created at the first use and kept; null when it cannot be had.
[[nodiscard]] ITalpl* Platform();

// 100 ns units since 1601-01-01 UTC.
[[nodiscard]] UINT64 SystemTime();

// Simple upper-casing of code units, as UpperCase of name_list.h.
void UpperCaseUnits(WCHAR* text, UINT32 units);

// One line in the log under the store's name.
void Log(UINT32 severity, const std::string& text);

// The same for what many requests meet at once, such as a full disk: one line a minute. Any thread.
class RateLimitedLog {
  public:
    // `before` and `reason` make up the line. Dropped when there is no memory for it.
    void Write(UINT32 severity, std::string_view before, std::string_view reason) noexcept;

  private:
    std::atomic<INT64> tellsAgain_{0}; // steady time
};

// Registry values; false when the value is not set or of another type.
[[nodiscard]] bool ReadText(const WCHAR* key, const WCHAR* name, std::string* out);
[[nodiscard]] bool ReadNumber(const WCHAR* key, const WCHAR* name, UINT32* out);

struct NamedText {
    std::string name;
    std::string value;
};
// Every text value of a key, in the registry's order.
[[nodiscard]] std::vector<NamedText> ReadTexts(const WCHAR* key);

// The URI path under which the module serves: its top-level moniker.
[[nodiscard]] std::string ModulePath();

} // namespace filestore
