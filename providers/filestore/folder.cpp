// SPDX-License-Identifier: Apache-2.0
//
// A new collection, and taking it back where something fails.
#include "providers/filestore/folder.h"

#include <cerrno>
#include <string>

#include "providers/filestore/access.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/patch.h"
#include "providers/filestore/rename.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

class NewFolder {
  public:
    NewFolder(const Store& store, const Guard& guard, const Target& target)
        : store_(store), guard_(guard), volume_(*target.volume), path_(target.path.View()),
          leaf_(LeafOf(path_)), conditions_(guard.On(volume_, path_))
    {
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;
    ~NewFolder();

    TALSTATUS Make(std::span<DAV_PROPERTY_CHANGE> changes);

  private:
    TALSTATUS MakePlain();
    TALSTATUS MakeName();
    TALSTATUS MakeWithProperties(std::span<DAV_PROPERTY_CHANGE> changes);
    TALSTATUS MakeAside();
    TALSTATUS Change(std::span<DAV_PROPERTY_CHANGE> changes);
    TALSTATUS TakeName();

    const Store& store_;
    const Guard& guard_;
    Volume& volume_;
    const std::string_view path_;
    const std::string leaf_;
    const Conditions conditions_;
    DirectoryRef parent_;
    DirectoryEntry made_; // where it is, and
    bool isMade_ = false; // is to go again
    bool hasRows_ = false;
};

// It is empty: nothing is lost. What stays the next start removes.
NewFolder::~NewFolder()
{
    if (!isMade_)
        return;
    (void)volume_.Fs().RemoveDirectory(made_.directory->Get(), made_.leaf.c_str());
    if (hasRows_)
        (void)Protected([this] {
            std::unique_ptr<MetadataSession> session;
            const TALSTATUS status = Store::OpenMetadata(volume_, &session);
            return Failed(status) ? status : session->ForgetTree(made_.path);
        });
}

TALSTATUS NewFolder::Make(std::span<DAV_PROPERTY_CHANGE> changes)
{
    const int error = volume_.OpenParent(path_, &parent_);
    if (error)
        return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict)
                                                   : StatusFromErrno(error);
    const TALSTATUS status = changes.empty() ? MakePlain() : MakeWithProperties(changes);
    isMade_ = isMade_ && Failed(status);
    return Code(status) == kCodeObjectExists && conditions_.NeedFree()
               ? Failure(kCodePreconditionFailed)
               : status;
}

TALSTATUS NewFolder::MakePlain()
{
    made_.directory = parent_;
    made_.leaf = leaf_;
    if (!volume_.MayHaveLocks() && !volume_.MayHaveProperties())
        return MakeName();
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(volume_, &session);
    if (!Failed(status))
        status = session->Begin();
    if (!Failed(status))
        status = guard_.CheckLocks(volume_, *session, path_, Reach::Membership);
    if (!Failed(status))
        status = MakeName();
    if (!Failed(status) && volume_.MayHaveProperties())
        status = session->ForgetTree(path_); // of something that went without our doing
    return Failed(status) ? status : session->Commit();
}

TALSTATUS NewFolder::MakeName()
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
    isMade_ = error == 0;
    return StatusFromErrno(error ? error : volume_.SyncNames(parent_->Get()));
}

// It gets what it is to have beside the volume's tree, and is renamed into place with that: nobody
// ever finds it without.
TALSTATUS NewFolder::MakeWithProperties(std::span<DAV_PROPERTY_CHANGE> changes)
{
    TALSTATUS status = guard_.CheckConditions();
    if (!Failed(status))
        status = conditions_.JudgeName(volume_.Fs(), parent_->Get(), leaf_.c_str());
    if (!Failed(status))
        status = guard_.CheckLocks(volume_, path_, Reach::Membership);
    if (!Failed(status))
        status = MakeAside();
    if (!Failed(status))
        status = Change(changes);
    return Failed(status) ? status : TakeName();
}

TALSTATUS NewFolder::MakeAside()
{
    made_.leaf = volume_.UniqueName();
    made_.path = std::string(kPrivateDirectory) + "/tmp/" + made_.leaf;
    made_.exists = true;
    int error = volume_.OpenParent(made_.path, &made_.directory);
    if (error == 0)
        error = WithRoom(store_, volume_, 0, [&] {
            return volume_.Fs().MakeDirectory(made_.directory->Get(), made_.leaf.c_str());
        });
    isMade_ = error == 0;
    return StatusFromErrno(error);
}

TALSTATUS NewFolder::Change(std::span<DAV_PROPERTY_CHANGE> changes)
{
    FileSystem& fs = volume_.Fs();
    OpenFile folder;
    PropertyPatch patch(volume_, made_.path, changes);
    std::unique_ptr<MetadataSession> session;
    int error =
        fs.OpenAt(made_.directory->Get(), made_.leaf.c_str(), OpenFor::Directory, folder.Out(fs));
    if (error == 0)
        error = fs.Inspect(folder.Get(), &made_.info);
    TALSTATUS status = StatusFromErrno(error);
    if (!Failed(status))
        status = Store::OpenMetadata(volume_, &session);
    if (!Failed(status))
        status = session->Begin();
    hasRows_ = !Failed(status);
    if (!Failed(status))
        status = patch.ChangeRows(*session);
    if (!Failed(status))
        status = patch.ChangeFile(folder.Get(), made_.info);
    if (!Failed(status))
        status = session->Commit();
    return Failed(status) ? status : StatusFromErrno(volume_.SyncNames(folder.Get()));
}

TALSTATUS NewFolder::TakeName()
{
    (void)volume_.ExpectKeptDates(*parent_); // without it: the disk's dates
    RenameTransaction rename(guard_, volume_, made_, parent_->Get(), ParentOf(path_));
    const TALSTATUS status = rename.To(leaf_);
    // What has moved, or may have, is not where it would be removed.
    isMade_ = Failed(status) && !rename.HasMoved() && !rename.IsStuck();
    return status;
}

} // namespace

TALSTATUS MakeFolder(const Store& store, const Guard& guard, const Target& target,
                     std::span<DAV_PROPERTY_CHANGE> changes)
{
    if (target.IsVolumeTop())
        return Failure(kCodeObjectExists);
    if (!target.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (const TALSTATUS status = access::Require(*target.volume, target.path.View(), kRightCreate);
        Failed(status))
        return status;
    return NewFolder(store, guard, target).Make(changes);
}

} // namespace filestore
