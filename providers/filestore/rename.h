// SPDX-License-Identifier: Apache-2.0
//
// One rename with the metadata that belongs to it.
#pragma once

#include <string>

#include "providers/filestore/conditions.h"
#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

// A name in an open directory.
struct DirectoryEntry {
    DirectoryRef directory;
    std::string leaf;
    std::string path;
    bool exists = false; // or not looked at
    FileInfo info;
};

// What there is no metadata for costs none. Where there is some, the rename is written down first,
// and the names are on the disk, as the volume's setting wants it, before the metadata follows: if
// the process dies or the power fails in between, the next start sees by the disk whether it
// happened (rename_recovery.h).
class RenameTransaction {
  public:
    // `toDirectory` has the path `toParent`, and is within the same volume.
    RenameTransaction(const Guard& guard, Volume& volume, DirectoryEntry& from,
                      FileHandle toDirectory, std::string_view toParent)
        : guard_(guard), volume_(volume), from_(from), toDirectory_(toDirectory),
          toParent_(toParent)
    {
    }

    bool replace = false;  // the new name may be taken by a file
    bool forget = false;   // the metadata goes instead of following, also that of what is put aside
    bool toServed = true;  // clients see the new name: it can have locks and metadata
    bool isBare = false;   // nothing is kept under the old name, which nothing else has borne
    Conditions conditions; // on what moves, judged when it does
    INT64 restored = 0;    // the deleted entry that it takes out of the list
    // The deleted entry that it makes. Its number becomes a name: the new one, or that of what is
    // put aside.
    DeletedEntry* added = nullptr;
    // Where there is metadata: becomes the rename that takes this one back, what had given way
    // bearing its name again and what had moved on its way out. It is written down with this one's
    // end, so that it needs no room to begin (AsLogged), and stands until its id is removed. None
    // was while its id is 0.
    RenameIntent* reverse = nullptr;

    // What bears the new name trades it with what moves, and is put aside with its metadata: under
    // `added`'s number among the deleted entries, or else on its way out. Nobody finds the name
    // free in between. `from` has been looked at.
    void MoveReplacedAside() { movesReplacedAside_ = true; }

    // `leaf` counts without `added` only, or with MoveReplacedAside. Code 22 when the new name is
    // taken, 37 when a lock stands in the way, 40 when the conditions do not hold; nothing has
    // changed then. A failure of the sync is reported when everything has moved.
    TALSTATUS To(std::string leaf);
    // The same for one that has been written down (`reverse` of another), whatever room there is.
    TALSTATUS AsLogged(RenameIntent&& intent);
    // After a failure: the names have changed all the same, and the sync has failed.
    bool HasMoved() const { return hasMoved_; }
    // After a success: the metadata stays behind until it can be written (unfinished_renames.h).
    bool AreRowsBehind() const { return areRowsBehind_; }
    // After a failure: what was to be put aside bears the old name, or is aside. Both are to be
    // left as they are: it is ended before the names are used (unfinished_renames.h).
    bool IsStuck() const { return isStuck_; }

  private:
    bool NeedsSession() const;
    TALSTATUS HasMetadata(MetadataSession& session, bool* any) const;
    TALSTATUS LogIntent(MetadataSession& session, bool* any);
    TALSTATUS AddIntent(MetadataSession& session, bool* any);
    void CancelIntent(MetadataSession& session) const;
    TALSTATUS RemoveIntent(MetadataSession& session) const;
    TALSTATUS Move(std::unique_ptr<MetadataSession> session, bool any);
    TALSTATUS MoveAlone();
    TALSTATUS MoveAll(MetadataSession& session);
    TALSTATUS FollowAtLast(MetadataSession& session);
    TALSTATUS MoveRows(MetadataSession& session) const;
    void DescribeReverse() const;
    void FindReplaced() const noexcept;
    TALSTATUS CheckLocks(MetadataSession& session) const;
    TALSTATUS MoveName();
    TALSTATUS Follow(MetadataSession& session) const;
    bool MoveBack();
    int RenameOrTrade();
    int TradeNames();
    int MoveAsideFirst();
    FileHandle AsideDirectory() const { return added ? volume_.Deleted() : volume_.Purge(); }
    int SyncNames(bool rowsFollow) const;

    const Guard& guard_;
    Volume& volume_;
    DirectoryEntry& from_;
    const FileHandle toDirectory_;
    const std::string_view toParent_;
    std::string toLeaf_;
    std::string toPath_;
    bool movesReplacedAside_ = false;
    std::string asideLeaf_;
    RenameIntent intent_;
    bool hasMoved_ = false;
    bool isStuck_ = false;
    bool areRowsBehind_ = false;
    // The names are back, and not synced: the intent stays, since a power cut may show them moved.
    bool isUnsure_ = false;
};

} // namespace filestore
