// SPDX-License-Identifier: Apache-2.0
//
// A move between two volumes: a copy that takes the destination's name, and the removal of the
// source after that.
#pragma once

#include <vector>

#include "providers/filestore/guard.h"
#include "providers/filestore/rename.h"
#include "providers/filestore/store.h"
#include "providers/filestore/treecopy.h"

namespace filestore {

class Transfer {
  public:
    // The ends have been looked at, and what bears the destination's name may be replaced.
    Transfer(Store& store, const Guard& guard, const Target& from, const DirectoryEntry& source,
             const Target& to, const DirectoryEntry& destination);

    // Whole or not at all. The source is removed only when all of it stands at the destination, on
    // the disk as the volumes want it, and is kept like a deleted entry. Where it cannot be
    // removed, or is not any more what was copied (code 33), what was published is taken back and
    // what that had replaced bears its name again. Other codes as MoveTree.
    TALSTATUS Run();

  private:
    // One end: a name in a volume, the deleted entry that what bore it has become, and its locks.
    struct End {
        Volume& volume;
        DirectoryEntry place;
        DeletedEntry entry = {}; // none while its id is 0
        std::vector<LockRecord> locks = {};
    };
    TALSTATUS CollectLocks(End* end) const;
    static void RestoreLocks(const End& end);
    TALSTATUS OpenEntry(const End& end, DirectoryEntry* out) const;

    TALSTATUS Publish();
    void TakeBack();
    TALSTATUS Reverse(RenameTransaction& rename, const std::string& leaf);
    void ForgetReverse();
    TALSTATUS RemoveSource();
    TALSTATUS RemoveEntry();
    TALSTATUS CompareSource();
    bool PutSourceBack();
    void Retire(const End& end);

    Store& store_;
    const Guard& guard_;
    const Target& from_;
    End source_;
    End destination_;
    TreeCopy copy_;
    RenameIntent reverse_;       // of the publication, until the move is sure
    bool areRowsBehind_ = false; // the source's metadata still stands under its path
};

} // namespace filestore
