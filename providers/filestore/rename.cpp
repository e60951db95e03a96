// SPDX-License-Identifier: Apache-2.0
//
// Changing a name and the rows that follow it, or neither.
#include "providers/filestore/rename.h"

#include <cerrno>
#include <utility>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/room.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

std::string Join(std::string_view parent, const std::string& leaf)
{
    return parent.empty() ? leaf : std::string(parent) + "/" + leaf;
}

// A directory that moves is written to (its way up changes): being read-only must not keep it where
// it is. Moved or not, it ends as it was.
class MadeWritable {
  public:
    MadeWritable(FileSystem& fs, const std::string& path) : fs_(fs)
    {
        FileInfo info;
        if (fs.Open(path.c_str(), OpenFor::Locating, self_.Out(fs)) == 0 &&
            fs.Inspect(self_.Get(), &info) == 0 && info.isDirectory && IsReadOnly(info) &&
            fs.SetMode(self_.Get(), info.mode | 0200) == 0) {
            mode_ = info.mode;
            isChanged_ = true;
        }
    }
    ~MadeWritable()
    {
        if (isChanged_)
            (void)fs_.SetMode(self_.Get(), mode_); // else it stays writable, which loses nothing
    }
    MadeWritable(const MadeWritable&) = delete;
    MadeWritable& operator=(const MadeWritable&) = delete;
    bool IsChanged() const { return isChanged_; }

  private:
    FileSystem& fs_;
    OpenFile self_;
    UINT32 mode_ = 0;
    bool isChanged_ = false;
};

} // namespace

TALSTATUS RenameTransaction::To(std::string leaf)
{
    toLeaf_ = std::move(leaf);
    toPath_ = Join(toParent_, toLeaf_);
    std::unique_ptr<MetadataSession> session;
    bool any = restored != 0 || movesReplacedAside_;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (any || NeedsSession())
        status = Store::OpenMetadata(volume_, &session);
    if (!Failed(status) && session && !any && !added)
        status = HasMetadata(*session, &any);
    if (!Failed(status) && session && (any || added || volume_.MayHaveLocks()))
        status = LogIntent(*session, &any);
    if (Failed(status))
        return status;
    return Move(std::move(session), any);
}

TALSTATUS RenameTransaction::AsLogged(RenameIntent&& intent)
{
    intent_ = std::move(intent);
    toPath_ = intent_.to;
    toLeaf_ = LeafOf(intent_.to);
    movesReplacedAside_ = !intent_.aside.empty();
    asideLeaf_ = LeafOf(intent_.aside);
    std::unique_ptr<MetadataSession> session;
    const TALSTATUS status = Store::OpenMetadata(volume_, &session);
    return Failed(status) ? status : Move(std::move(session), true);
}

// What was to be done has been written down, where there is something to be written.
TALSTATUS RenameTransaction::Move(std::unique_ptr<MetadataSession> session, bool any)
{
    const TALSTATUS status = Protected([&] { return any ? MoveAll(*session) : MoveAlone(); });
    if (hasMoved_)
        open_directories::Forget(volume_, from_.path);
    else if (session && !isStuck_ && !isUnsure_)
        CancelIntent(*session);
    if (reverse && (!hasMoved_ || areRowsBehind_))
        reverse->id = 0; // it was not written down
    session.reset();     // whoever ends it needs a transaction
    if (isStuck_ || areRowsBehind_)
        volume_.Unfinished().Add(std::move(intent_), isStuck_);
    return status;
}

bool RenameTransaction::NeedsSession() const
{
    return added || volume_.MayHaveLocks() || volume_.MayHaveProperties() ||
           volume_.Meta()->MayHaveDeleted();
}

TALSTATUS RenameTransaction::HasMetadata(MetadataSession& session, bool* any) const
{
    if (!volume_.MayHaveProperties() && !volume_.Meta()->MayHaveDeleted())
        return TAL_STATUS_SUCCESS;
    TALSTATUS status = isBare ? TAL_STATUS_SUCCESS : session.HasAny(from_.path, any);
    if (!Failed(status) && !*any && toServed)
        status = session.HasAny(toPath_, any);
    return status;
}

// `*any`: there is metadata, or there are locks, which come after the rename.
TALSTATUS RenameTransaction::LogIntent(MetadataSession& session, bool* any)
{
    TALSTATUS status = session.Begin();
    if (!Failed(status))
        status = AddIntent(session, any);
    if (!Failed(status))
        status = session.Commit();
    if (Failed(status))
        session.Rollback();
    return status;
}

// The locks are looked at before anything is written down, and again when it counts. First the list
// of deleted entries, then the rename: an entry without its files is harmless, files without an
// entry would be lost.
TALSTATUS RenameTransaction::AddIntent(MetadataSession& session, bool* any)
{
    TALSTATUS status = CheckLocks(session);
    if (!Failed(status) && !*any)
        status = HasMetadata(session, any);
    *any = *any || volume_.MayHaveLocks();
    if (!Failed(status) && added)
        status = session.AddDeleted(added);
    if (Failed(status))
        return status;
    if (movesReplacedAside_) {
        asideLeaf_ = added ? std::to_string(added->id) : volume_.UniqueName();
    } else if (added) {
        toLeaf_ = std::to_string(added->id);
        toPath_ = Join(toParent_, toLeaf_);
    }
    if (!*any)
        return status;
    intent_ = {0, volume_.Token(), from_.path, toPath_, {}, from_.info.inode};
    if (movesReplacedAside_)
        intent_.aside = Join(added ? kDeletedDirectory : kPurgeDirectory, asideLeaf_);
    if (reverse)
        DescribeReverse();
    return session.AddIntent(&intent_);
}

// It has come to nothing.
void RenameTransaction::CancelIntent(MetadataSession& session) const
{
    if (!added && !intent_.id)
        return;
    call::HeldReports reports; // there is another one to be reported
    const auto cancel = [&] { return Protected([&] { return RemoveIntent(session); }); };
    if (Failed(cancel()) && Failed(cancel())) { // once more, then when there is room
        if (added)
            volume_.Pending().AddUnlisted({&added->id, 1});
        volume_.Pending().AddCancelled(intent_.id);
    }
    reports.Drop();
}

TALSTATUS RenameTransaction::RemoveIntent(MetadataSession& session) const
{
    session.Rollback();
    TALSTATUS status = session.Begin();
    if (!Failed(status) && added)
        status = session.RemoveDeleted(added->id);
    if (!Failed(status) && intent_.id)
        status = session.RemoveIntent(intent_.id);
    return Failed(status) ? status : session.Commit();
}

TALSTATUS RenameTransaction::MoveAlone()
{
    const TALSTATUS status = MoveName();
    return Failed(status) ? status : StatusFromErrno(SyncNames(false));
}

// The names are on the disk before the metadata says so, and the intent stands until then: whatever
// a power cut leaves of either, the two can be brought together again.
TALSTATUS RenameTransaction::MoveAll(MetadataSession& session)
{
    TALSTATUS status = session.Begin();
    if (!Failed(status))
        status = CheckLocks(session);
    if (!Failed(status))
        status = MoveName();
    if (Failed(status))
        return status;
    const int notSynced = SyncNames(true);
    if (reverse && movesReplacedAside_)
        FindReplaced();
    status = FollowAtLast(session);
    if (!Failed(status))
        return StatusFromErrno(notSynced);
    if (MoveBack())
        return status;
    // The name has moved, and the intent stands: the metadata follows when it can be written.
    areRowsBehind_ = true;
    Log(kLogError, "volume '" + volume_.Name() + "': the properties of '" + from_.path +
                       "' stay behind for now, code " + std::to_string(Code(status)));
    return StatusFromErrno(notSynced);
}

// Tried once more: what has moved cannot always be taken back. A full disk is worth the reserve.
TALSTATUS RenameTransaction::FollowAtLast(MetadataSession& session)
{
    call::HeldReports reports;
    TALSTATUS status = Follow(session);
    for (bool goesOn = true; Failed(status) && goesOn;) {
        goesOn = Code(status) == kCodeStorageFull && volume_.GiveUpReserve();
        status = session.Begin();
        if (!Failed(status))
            status = Follow(session);
    }
    if (!Failed(status))
        reports.Drop();
    return status;
}

// Ends the transaction with the rows where the names are; a failure rolls it back.
TALSTATUS RenameTransaction::Follow(MetadataSession& session) const
{
    const TALSTATUS status = Protected([&] {
        const TALSTATUS moved = MoveRows(session);
        return Failed(moved) ? moved : session.Commit();
    });
    if (Failed(status))
        session.Rollback();
    return status;
}

// Takes the names back to where the metadata still has them. False where they stay as they are:
// what a file has replaced is gone, and what is on its way out may be gone in part.
bool RenameTransaction::MoveBack()
{
    if (replace || toDirectory_ == volume_.Purge() ||
        (movesReplacedAside_ && AsideDirectory() == volume_.Purge()))
        return false;
    FileSystem& fs = volume_.Fs();
    const FileHandle fromDirectory = from_.directory->Get();
    const NameGuard names(volume_.MutexOf(from_.path), volume_.MutexOf(toPath_));
    int error = 0;
    if (movesReplacedAside_) {
        error = fs.Rename(AsideDirectory(), asideLeaf_.c_str(), fromDirectory, from_.leaf.c_str(),
                          false);
        if (error == 0)
            error = fs.Exchange(fromDirectory, from_.leaf.c_str(), toDirectory_, toLeaf_.c_str());
    } else {
        error = fs.Rename(toDirectory_, toLeaf_.c_str(), fromDirectory, from_.leaf.c_str(), false);
    }
    if (error)
        return false;
    hasMoved_ = false;
    isUnsure_ = SyncNames(true) != 0;
    return true;
}

TALSTATUS RenameTransaction::MoveRows(MetadataSession& session) const
{
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (movesReplacedAside_ && !forget)
        status = session.RenameTree(toPath_, intent_.aside);
    if (!Failed(status))
        status = session.ForgetTree(forget && !movesReplacedAside_ ? from_.path : toPath_);
    if (!Failed(status) && (movesReplacedAside_ || !forget))
        status = session.RenameTree(from_.path, toPath_);
    for (const std::string_view tree : {std::string_view(from_.path), std::string_view(toPath_)})
        if (!Failed(status))
            status = session.RemoveLocksWithin(tree);
    if (!Failed(status) && restored)
        status = session.RemoveDeleted(restored);
    if (!Failed(status))
        status = session.RemoveIntent(intent_.id);
    return Failed(status) || !reverse || reverse->to.empty() ? status : session.AddIntent(reverse);
}

// Before anything has moved: this takes memory.
void RenameTransaction::DescribeReverse() const
{
    std::string away = Join(kPurgeDirectory, volume_.UniqueName());
    if (movesReplacedAside_)
        *reverse = {0, volume_.Token(), intent_.aside, toPath_, std::move(away)};
    else
        *reverse = {0, volume_.Token(), toPath_, std::move(away), {}, from_.info.inode};
}

// What is aside now is what the reverse brings back. Where it cannot be looked at there is none.
void RenameTransaction::FindReplaced() const noexcept
{
    OpenFile aside;
    FileInfo old;
    FileSystem& fs = volume_.Fs();
    if (fs.Open(intent_.aside.c_str(), OpenFor::Locating, aside.Out(fs)) == 0 &&
        fs.Inspect(aside.Get(), &old) == 0)
        reverse->inode = old.inode;
    else
        reverse->to.clear();
}

TALSTATUS RenameTransaction::CheckLocks(MetadataSession& session) const
{
    if (!volume_.MayHaveLocks()) // in a transaction the answer is exact
        return TAL_STATUS_SUCCESS;
    const TALSTATUS status = guard_.CheckLocks(volume_, session, from_.path, Reach::Tree);
    return Failed(status) || !toServed ? status
                                       : guard_.CheckLocks(volume_, session, toPath_, Reach::Tree);
}

TALSTATUS RenameTransaction::MoveName()
{
    const NameGuard names(volume_.MutexOf(from_.path), volume_.MutexOf(toPath_));
    if (const TALSTATUS status =
            conditions.JudgeName(volume_.Fs(), from_.directory->Get(), from_.leaf.c_str());
        Failed(status))
        return status;
    if (guard_.IsJudgedInStep())
        if (const TALSTATUS status = guard_.CheckConditions(); Failed(status))
            return status;
    int error = RenameOrTrade();
    if (error == EACCES) {
        const MadeWritable moving(volume_.Fs(), from_.path);
        const MadeWritable replaced(volume_.Fs(), movesReplacedAside_ ? toPath_ : from_.path);
        if (moving.IsChanged() || replaced.IsChanged())
            error = RenameOrTrade();
    }
    hasMoved_ = error == 0;
    // With more room another try would begin from what this one has left.
    return StatusFromErrno(isStuck_ && IsFull(error) ? EIO : error);
}

int RenameTransaction::RenameOrTrade()
{
    return movesReplacedAside_ ? TradeNames()
                               : volume_.Fs().Rename(from_.directory->Get(), from_.leaf.c_str(),
                                                     toDirectory_, toLeaf_.c_str(), replace);
}

// Both names are borne by one or the other all the time.
int RenameTransaction::TradeNames()
{
    FileSystem& fs = volume_.Fs();
    const FileHandle fromDirectory = from_.directory->Get();
    const auto trade = [&] {
        return fs.Exchange(fromDirectory, from_.leaf.c_str(), toDirectory_, toLeaf_.c_str());
    };
    int error = trade();
    if (error == EOPNOTSUPP)
        return MoveAsideFirst();
    if (error)
        return error;
    error =
        fs.Rename(fromDirectory, from_.leaf.c_str(), AsideDirectory(), asideLeaf_.c_str(), false);
    if (error)
        isStuck_ = trade() != 0;
    return error;
}

// The same where names cannot be traded: in between the new name is free.
int RenameTransaction::MoveAsideFirst()
{
    FileSystem& fs = volume_.Fs();
    if (const int error =
            fs.Rename(toDirectory_, toLeaf_.c_str(), AsideDirectory(), asideLeaf_.c_str(), false))
        return error;
    const int error =
        fs.Rename(from_.directory->Get(), from_.leaf.c_str(), toDirectory_, toLeaf_.c_str(), false);
    if (error)
        isStuck_ =
            fs.Rename(AsideDirectory(), asideLeaf_.c_str(), toDirectory_, toLeaf_.c_str(), false);
    return error;
}

// The new name first: no power cut leaves neither. Without metadata the end that clients see is
// enough, unless the setting wants both.
int RenameTransaction::SyncNames(bool rowsFollow) const
{
    const FileHandle fromDirectory = from_.directory->Get();
    const bool wantsBoth = rowsFollow || (toServed && volume_.Sync() == SyncLevel::Full);
    int error = toServed || wantsBoth ? volume_.SyncNames(toDirectory_) : 0;
    if (error == 0 && movesReplacedAside_)
        error = volume_.SyncNames(AsideDirectory());
    if (error == 0 && (!toServed || wantsBoth) && fromDirectory != toDirectory_)
        error = volume_.SyncNames(fromDirectory);
    // Everything has moved: more room would help nobody, and trying again would find nothing.
    return IsFull(error) ? EIO : error;
}

} // namespace filestore
