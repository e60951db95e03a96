// SPDX-License-Identifier: Apache-2.0
//
// One rename with the metadata that belongs to it.
#pragma once

#include <string>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

// A name in an open directory.
struct Place {
    DirectoryRef directory;
    std::string leaf;
    std::string path;
    bool exists = false; // or not looked at
    FileInfo info;
};

// What there is no metadata for costs none. Where there is some, the rename is written down first:
// if the process dies in between, the next start sees by the disk whether it happened.
class Rename {
  public:
    // `toDirectory` has the path `toParent`, and is within the same volume.
    Rename(const Guard& guard, Volume& volume, Place& from, FileHandle toDirectory,
           std::string_view toParent)
        : guard_(guard), volume_(volume), from_(from), toDirectory_(toDirectory),
          toParent_(toParent)
    {
    }

    bool replace = false;          // the new name may be taken by a file
    bool forget = false;           // the metadata goes instead of following
    bool toServed = true;          // clients see the new name: it can have locks and metadata
    INT64 restored = 0;            // the deleted entry that it takes out of the list
    DeletedEntry* added = nullptr; // the one that it makes, whose number is the new name

    // `leaf` counts without `added` only. Code 22 when the new name is taken, 37 when a lock stands
    // in the way; nothing has changed then.
    TALSTATUS To(std::string leaf);

  private:
    TALSTATUS HasMetadata(MetadataSession& session, bool* any) const;
    TALSTATUS Announce(MetadataSession& session, bool* any);
    TALSTATUS WriteDown(MetadataSession& session, bool* any);
    void Withdraw(MetadataSession& session) const;
    TALSTATUS MoveAll(MetadataSession& session);
    TALSTATUS MoveRows(MetadataSession& session) const;
    TALSTATUS CheckLocks(MetadataSession& session) const;
    int MoveName();

    const Guard& guard_;
    Volume& volume_;
    Place& from_;
    const FileHandle toDirectory_;
    const std::string_view toParent_;
    std::string toLeaf_;
    std::string toPath_;
    RenameIntent intent_;
};

} // namespace filestore
