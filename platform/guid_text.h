// SPDX-License-Identifier: Apache-2.0
//
// Identifiers as text: "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}".
#pragma once

#include <string_view>

#include <kest/types.h>

namespace tolm {

inline constexpr std::size_t kGuidText = 38;

// Strict: braces, dashes and hexadecimal digits (either case) at their places, nothing else.
bool ParseGuid(std::u16string_view text, GUID& out) noexcept;

// Lower case; `out` gets kGuidText characters and a terminator.
void FormatGuid(const GUID& guid, char (&out)[kGuidText + 1]) noexcept;

} // namespace tolm
