// SPDX-License-Identifier: Apache-2.0
//
// Remembering which lock has made which file.
#include "providers/filestore/locked_names.h"

#include <algorithm>

namespace filestore {

void LockedNames::Add(std::string_view token, UINT64 inode) noexcept
{
    if (token.size() > kTokenBytes)
        return;
    const std::lock_guard lock(mutex_);
    Made& place = made_[next_];
    std::copy(token.begin(), token.end(), place.token.begin());
    place.size = token.size();
    place.inode = inode;
    next_ = (next_ + 1) % kMost;
}

std::optional<UINT64> LockedNames::Take(std::string_view token)
{
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(made_.begin(), made_.end(), [&](const Made& each) {
        return std::string_view(each.token.data(), each.size) == token;
    });
    if (token.empty() || found == made_.end())
        return std::nullopt;
    found->size = 0;
    return found->inode;
}

} // namespace filestore
