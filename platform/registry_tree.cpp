// SPDX-License-Identifier: Apache-2.0
#include "platform/registry_tree.h"

#include <unicode/ustring.h>

#include <cstring>

#include "platform/caseless.h"

namespace tolm {

const RegistryValue* RegistryKey::Find(std::u16string_view foldedName) const
{
    for (const RegistryValue& value : values)
        if (value.folded == foldedName)
            return &value;
    return nullptr;
}

std::u16string_view RegistryKey::Name() const
{
    const std::size_t slash = path.rfind(u'\\');
    return slash == std::u16string::npos ? std::u16string_view(path)
                                         : std::u16string_view(path).substr(slash + 1);
}

const RegistryKey* RegistryTree::Find(const std::u16string& foldedPath) const
{
    const auto found = byFoldedPath.find(foldedPath);
    return found == byFoldedPath.end() ? nullptr : &keys[found->second];
}

RegistryKey& RegistryTree::Ensure(std::u16string_view path)
{
    const std::u16string folded = Folded(path);
    std::size_t parent = std::u16string::npos;
    for (std::size_t end = 0; end != path.size();) {
        end = path.find(u'\\', end == 0 ? 0 : end + 1);
        if (end == std::u16string_view::npos)
            end = path.size();
        const auto [entry, isNew] = byFoldedPath.try_emplace(folded.substr(0, end), keys.size());
        if (isNew) {
            keys.emplace_back().path = path.substr(0, end);
            if (parent != std::u16string::npos)
                keys[parent].children.push_back(entry->second);
        }
        parent = entry->second;
    }
    return keys[parent];
}

bool IsKeyPath(std::u16string_view path) noexcept
{
    return !path.empty() && path.size() <= kLongestPath && path.front() != u'\\' &&
           path.back() != u'\\' && path.find(u"\\\\") == std::u16string_view::npos &&
           path.find(u'\0') == std::u16string_view::npos;
}

std::u16string Widen(std::string_view text)
{
    std::u16string wide(text.size(), u'\0'); // UTF-8 never takes fewer bytes than UTF-16 units
    INT32 units = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8WithSub(wide.data(), static_cast<INT32>(wide.size()), &units, text.data(),
                         static_cast<INT32>(text.size()), 0xFFFD, nullptr, &error);
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

std::string Narrow(std::u16string_view text)
{
    std::string narrow(3 * text.size(), '\0');
    INT32 bytes = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(narrow.data(), static_cast<INT32>(narrow.size()), &bytes, text.data(),
                       static_cast<INT32>(text.size()), 0xFFFD, nullptr, &error);
    narrow.resize(static_cast<std::size_t>(bytes));
    return narrow;
}

std::vector<UINT8> EncodeString(std::u16string_view text)
{
    std::vector<UINT8> data((text.size() + 1) * sizeof(WCHAR));
    if (!text.empty())
        std::memcpy(data.data(), text.data(), text.size() * sizeof(WCHAR));
    return data;
}

} // namespace tolm
