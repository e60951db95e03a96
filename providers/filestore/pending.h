// SPDX-License-Identifier: Apache-2.0
//
// What the metadata still has to be told of files that have gone and renames that have not
// happened, because it could not be written then: on a disk that is full, or fails. WritePending
// (purge.h) tries again.
#pragma once

#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <kest/types.h>

namespace filestore {

class PendingRows {
  public:
    PendingRows() // often memory is what was missing
    {
        rows_.unlisted.reserve(kMost);
        rows_.cancelled.reserve(kMost);
    }

    struct Rows {
        std::vector<std::string> removed; // paths of what is not there any more
        std::vector<INT64> unlisted;      // deleted entries whose files have gone
        std::vector<INT64> cancelled;     // intents of renames that came to nothing
        bool IsEmpty() const { return removed.empty() && unlisted.empty() && cancelled.empty(); }
    };

    // They keep a bounded number; of more than that the rows stay. The last two take no memory. A
    // name that is made again has none of them: whoever makes one forgets what is there about it.
    void AddRemoved(std::string_view path) noexcept;
    void AddUnlisted(std::span<const INT64> ids) noexcept;
    void AddCancelled(INT64 intent) noexcept; // 0: none

    Rows Get() const;
    // The first ones, as Get gave them, are written.
    void Drop(const Rows& written);
    // Held by who writes: one at a time.
    std::mutex& Writing() { return writing_; }

  private:
    static constexpr size_t kMost = 1000; // of each kind

    std::mutex writing_;
    mutable std::mutex mutex_; // never held over a call of the database
    Rows rows_;
};

} // namespace filestore
