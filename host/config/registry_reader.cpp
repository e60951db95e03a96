// SPDX-License-Identifier: Apache-2.0
//
// The types and bounds of values, and the places of those that are wrong.
#include "host/config/registry_reader.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/utf.h"
#include <kest/registry_truth.h>
#include <kest/status.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

std::string PlaceOf(const char16_t* key, const char16_t* name)
{
    std::array<char, 4096> text{};
    UINT32 length = text.size() - 1;
    if (Failed(TolmRegistryWhere(key, name, text.data(), &length)))
        return {};
    return std::string(text.data(), length) + ": ";
}

// Calls `next` with 0, 1 ... until there is nothing any more. False when something cannot be read.
template <class Next>
bool Enumerate(std::vector<std::u16string>& all, const std::u16string& before, Next&& next)
{
    std::u16string name;
    for (UINT32 index = 0;; ++index) {
        const kest::ReadResult found = next(index, name);
        if (found != kest::ReadResult::Read)
            return found == kest::ReadResult::Missing;
        all.push_back(before + name);
    }
}

} // namespace

std::string NarrowedName(std::u16string_view name)
{
    return base::ToUtf8(name).value_or("?");
}

bool KeysBelow(ITalpl& platform, const char16_t* key, std::vector<std::u16string>& keys)
{
    kest::RegistryKey open(platform, key);
    return Enumerate(keys, std::u16string(key) + u"\\",
                     [&](UINT32 index, std::u16string& name) { return open.KeyAt(index, name); });
}

bool NamesOf(ITalpl& platform, const char16_t* key, std::vector<std::u16string>& names)
{
    kest::RegistryKey open(platform, key);
    return Enumerate(names, {},
                     [&](UINT32 index, std::u16string& name) { return open.NameAt(index, name); });
}

void AddProblems(std::string& all, const std::string& more)
{
    if (!all.empty() && !more.empty())
        all.push_back('\n');
    all.append(more);
}

RegistryReader::RegistryReader(ITalpl& platform, const char16_t* key)
    : key_(key), open_(platform, key)
{
}

bool RegistryReader::Took(const char16_t* name, kest::ReadResult result, const char* expected)
{
    switch (result) {
    case kest::ReadResult::Read:
        return true;
    case kest::ReadResult::Missing:
        return false;
    case kest::ReadResult::OtherType:
        Refuse(name, expected);
        return false;
    case kest::ReadResult::Malformed:
        Refuse(name, "expected valid Unicode text");
        return false;
    case kest::ReadResult::Unreadable:
        break;
    }
    Refuse(name, "the value cannot be read");
    return false;
}

void RegistryReader::Refuse(const char16_t* name, const std::string& reason)
{
    AddProblems(problem_, PlaceOf(key_, name) + "'" + NarrowedName(key_) + "' '" +
                              NarrowedName(name) + "': " + reason);
}

bool RegistryReader::Has(const char16_t* name)
{
    return open_.Find(name) == kest::ReadResult::Read;
}

bool RegistryReader::Text(const char16_t* name, std::string& value)
{
    return Took(name, open_.Text(name, value), "expected a text");
}

bool RegistryReader::Texts(const char16_t* name, std::vector<std::string>& value)
{
    return Took(name, open_.Texts(name, value), "expected a list of texts");
}

bool RegistryReader::Number(const char16_t* name, uint64_t& value)
{
    uint64_t number = 0;
    if (!Took(name, open_.Number(name, number), "expected a number"))
        return false;
    if (TolmRegistryIsTruth(key_, name)) {
        Refuse(name, "expected a number, not true or false");
        return false;
    }
    value = number;
    return true;
}

bool RegistryReader::Number(const char16_t* name, uint32_t& value, uint32_t least, uint32_t most)
{
    uint64_t number = 0;
    if (!Number(name, number))
        return false;
    if (number < least || number > most) {
        Refuse(name, "expected a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not " + std::to_string(number));
        return false;
    }
    value = static_cast<uint32_t>(number);
    return true;
}

bool RegistryReader::Flag(const char16_t* name, bool& value)
{
    return Took(name, open_.Flag(name, value), "expected true or false");
}

void RegistryReader::AllTexts(std::vector<std::pair<std::string, std::string>>& values)
{
    std::u16string name;
    for (UINT32 index = 0;; ++index) {
        const kest::ReadResult found = open_.NameAt(index, name);
        if (found == kest::ReadResult::Missing)
            return;
        if (found != kest::ReadResult::Read) {
            return AddProblems(problem_, "'" + NarrowedName(key_) + "': a value cannot be read");
        }
        std::string value;
        if (!Text(name.c_str(), value))
            continue;
        const std::string narrow = NarrowedName(name);
        const auto known = std::find_if(values.begin(), values.end(), [&](const auto& one) {
            return base::EqualsIgnoringCase(one.first, narrow);
        });
        if (known != values.end())
            known->second = value;
        else
            values.emplace_back(narrow, value);
    }
}

} // namespace kestd
