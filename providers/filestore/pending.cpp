// SPDX-License-Identifier: Apache-2.0
//
// Keeping what could not be written.
#include "providers/filestore/pending.h"

#include <algorithm>
#include <cstddef>

#include "providers/filestore/failures.h"

namespace filestore {

void PendingRows::AddRemoved(std::string_view path) noexcept
{
    (void)Protected([&] {
        const std::lock_guard lock(mutex_);
        if (rows_.removed.size() < kMost)
            rows_.removed.emplace_back(path);
        return TAL_STATUS_SUCCESS;
    });
}

void PendingRows::AddUnlisted(std::span<const INT64> ids) noexcept
{
    const std::lock_guard lock(mutex_);
    ids = ids.first(std::min(ids.size(), kMost - rows_.unlisted.size()));
    rows_.unlisted.insert(rows_.unlisted.end(), ids.begin(), ids.end());
}

void PendingRows::AddCancelled(INT64 intent) noexcept
{
    const std::lock_guard lock(mutex_);
    if (intent && rows_.cancelled.size() < kMost)
        rows_.cancelled.push_back(intent);
}

PendingRows::Rows PendingRows::Get() const
{
    const std::lock_guard lock(mutex_);
    return rows_;
}

void PendingRows::Drop(const Rows& written)
{
    const std::lock_guard lock(mutex_); // others have only been added behind them
    const auto dropFrom = [](auto& list, size_t count) {
        list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(count));
    };
    dropFrom(rows_.removed, written.removed.size());
    dropFrom(rows_.unlisted, written.unlisted.size());
    dropFrom(rows_.cancelled, written.cancelled.size());
}

} // namespace filestore
