// SPDX-License-Identifier: Apache-2.0
//
// A new collection, and taking it back where something fails.
#include "providers/filestore/folder.h"

#include <cerrno>
#include <string>

#include "providers/filestore/failures.h"
#include "providers/filestore/patch.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

class NewFolder {
  public:
    NewFolder(const Store& store, const Guard& guard, const Target& target,
              std::span<DAV_PROPERTY_CHANGE> changes)
        : store_(store), guard_(guard), volume_(*target.volume), path_(target.path.View()),
          leaf_(LeafOf(path_)), conditions_(guard.On(volume_, path_)),
          patch_(volume_, path_, changes), hasChanges_(!changes.empty())
    {
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;
    ~NewFolder()
    {
        if (isMade_) // empty: nothing is lost
            (void)volume_.Fs().RemoveDirectory(parent_->Get(), leaf_.c_str());
    }

    TALSTATUS Make()
    {
        const int error = volume_.OpenParent(path_, &parent_);
        if (error)
            return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict)
                                                       : StatusFromErrno(error);
        const bool hasRows = hasChanges_ || volume_.MayHaveLocks() || volume_.MayHaveProperties();
        const TALSTATUS status = hasRows ? MakeInTransaction() : MakeName();
        isMade_ = isMade_ && Failed(status);
        return status;
    }

  private:
    TALSTATUS MakeInTransaction()
    {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS status = Store::OpenMetadata(volume_, &session);
        if (!Failed(status))
            status = session->Begin();
        if (!Failed(status))
            status = guard_.CheckLocks(volume_, *session, path_, Reach::Membership);
        if (!Failed(status))
            status = MakeWithRows(*session);
        return Failed(status) ? status : session->Commit();
    }
    TALSTATUS MakeWithRows(MetadataSession& session)
    {
        TALSTATUS status = MakeName();
        if (!Failed(status) && volume_.MayHaveProperties())
            status = session.ForgetTree(path_); // of something that went without our doing
        if (!Failed(status))
            status = patch_.ChangeRows(session);
        return Failed(status) || !hasChanges_ ? status : ChangeFolder();
    }
    TALSTATUS ChangeFolder()
    {
        FileSystem& fs = volume_.Fs();
        OpenFile folder;
        FileInfo info;
        int error = fs.OpenAt(parent_->Get(), leaf_.c_str(), OpenFor::Directory, folder.Out(fs));
        if (error == 0)
            error = fs.Inspect(folder.Get(), &info);
        return error ? StatusFromErrno(error) : patch_.ChangeFile(folder.Get(), info);
    }
    TALSTATUS MakeName()
    {
        FileSystem& fs = volume_.Fs();
        const NameGuard name(volume_.MutexOf(path_));
        if (const TALSTATUS status = guard_.CheckConditions(); Failed(status))
            return status;
        if (const TALSTATUS status = conditions_.JudgeName(fs, parent_->Get(), leaf_.c_str());
            Failed(status))
            return status;
        const int error = WithRoom(store_, volume_, 0,
                                   [&] { return fs.MakeDirectory(parent_->Get(), leaf_.c_str()); });
        if (error == EEXIST && conditions_.NeedFree())
            return Failure(kCodePreconditionFailed);
        isMade_ = error == 0;
        return StatusFromErrno(error ? error : volume_.SyncNames(parent_->Get()));
    }

    const Store& store_;
    const Guard& guard_;
    Volume& volume_;
    const std::string_view path_;
    const std::string leaf_;
    const Conditions conditions_;
    PropertyPatch patch_;
    const bool hasChanges_;
    DirectoryRef parent_;
    bool isMade_ = false; // and is to go again
};

} // namespace

TALSTATUS MakeFolder(const Store& store, const Guard& guard, const Target& target,
                     std::span<DAV_PROPERTY_CHANGE> changes)
{
    if (target.IsVolumeTop())
        return Failure(kCodeObjectExists);
    if (!target.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    return NewFolder(store, guard, target, changes).Make();
}

} // namespace filestore
