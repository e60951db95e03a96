// SPDX-License-Identifier: Apache-2.0
//
// Reads one table of the registry for the host, and tells all that is wrong with it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <kest/sdk/registry.h>
#include <kest/talpl.h>

namespace kestd {

// Reads the values of one key. A missing key or value, and one that is wrong, leaves the variable
// as it is. All problems are kept.
class RegistryReader {
  public:
    // `key` is a full path; it need not exist.
    RegistryReader(ITalpl& platform, const char16_t* key);

    // Each says whether it has read a value.
    bool Text(const char16_t* name, std::string& value);
    bool Texts(const char16_t* name, std::vector<std::string>& value);
    bool Flag(const char16_t* name, bool& value); // true and false, or 1 and 0
    bool Number(const char16_t* name, uint32_t& value, uint32_t least, uint32_t most);
    bool Number(const char16_t* name, uint64_t& value);
    template <class Rep, class Period>
    void Time(const char16_t* name, std::chrono::duration<Rep, Period>& value, uint32_t least,
              uint32_t most) // in the variable's unit
    {
        auto count = static_cast<uint32_t>(value.count());
        Number(name, count, least, most);
        value = std::chrono::duration<Rep, Period>(count);
    }
    bool Has(const char16_t* name);
    // All values of the key, which are texts, added to or replacing those of the same name.
    void AllTexts(std::vector<std::pair<std::string, std::string>>& values);

    // Adds a problem with a value that was read: "FILE:LINE: 'KEY' 'NAME': reason".
    void Refuse(const char16_t* name, const std::string& reason);
    // All of them, a line each; empty for none.
    const std::string& Problem() const { return problem_; }

  private:
    // Whether a value was read; what is wrong with it otherwise becomes the problem.
    bool Took(const char16_t* name, kest::ReadResult result, const char* expected);

    const char16_t* const key_;
    kest::RegistryKey open_;
    std::string problem_;
};

// Adds further problems to some, a line each.
void AddProblems(std::string& all, const std::string& more);

// The names of a table's settings. By name, since a value that nobody knows is to be reported as
// unread.
struct KnownNames {
    const char16_t* key;
    bool waits; // a change waits for the next start
    std::vector<const char16_t*> names;
};

// The full paths of the keys right below a key, in the order of the file. False when one cannot be
// read.
bool KeysBelow(ITalpl& platform, const char16_t* key, std::vector<std::u16string>& keys);
// Likewise the names of the values of a key.
bool NamesOf(ITalpl& platform, const char16_t* key, std::vector<std::u16string>& names);

// UTF-8 of a name, for people.
std::string NarrowedName(std::u16string_view name);

} // namespace kestd
