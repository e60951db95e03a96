// SPDX-License-Identifier: Apache-2.0
//
// Keys and values in memory.
#include "platform/registry_tree.h"

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

std::vector<UINT8> EncodeString(std::u16string_view text)
{
    std::vector<UINT8> data((text.size() + 1) * sizeof(WCHAR));
    if (!text.empty())
        std::memcpy(data.data(), text.data(), text.size() * sizeof(WCHAR));
    return data;
}

} // namespace tolm
