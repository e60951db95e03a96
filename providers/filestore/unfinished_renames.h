// SPDX-License-Identifier: Apache-2.0
//
// Renames that this process has begun and could neither end nor take back: a disk that fails, no
// memory. They are ended before anybody uses their names, not at the next start only.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

#include <kest/status.h>

#include "providers/filestore/metadata.h"

namespace filestore {

class UnfinishedRenames {
  public:
    // Ends one; a failure leaves it as it is.
    using Recover = std::function<TALSTATUS(const RenameIntent&)>;

    UnfinishedRenames() { renames_.reserve(kMost); }

    // Of more than can be kept the next start ends the others. Takes no memory. `isBetween`: the
    // names are those of neither before nor after, else rows alone are behind.
    void Add(RenameIntent&& rename, bool isBetween) noexcept;
    // Whether one has to do with `path`: it or what lies above or below it moves.
    bool Has(std::string_view path) noexcept;
    bool IsEmpty() const noexcept { return count_.load(std::memory_order_acquire) == 0; }

    // Tries to end those that have to do with `path`. Fails when what is there cannot be told yet.
    TALSTATUS RecoverAround(std::string_view path, const Recover& recover);
    // Tries all.
    void RecoverAll(const Recover& recover) noexcept;

  private:
    struct Entry {
        RenameIntent rename;
        bool isBetween;
    };
    static constexpr size_t kMost = 100;
    template <class Wanted> TALSTATUS RecoverThose(const Wanted& areWanted, const Recover& recover);

    std::mutex mutex_; // held while one is ended; taken before a transaction is begun
    std::vector<Entry> renames_;
    std::atomic<size_t> count_{0};
};

} // namespace filestore
