// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/trees.h"

#include <cerrno>

#include "providers/filestore/failures.h"
#include "providers/filestore/node.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/purge.h"
#include "providers/filestore/treecopy.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

// A name in an open directory.
struct Place {
    OpenFile directory;
    std::string leaf;
    std::string path;
    bool exists = false;
    FileInfo info;
};

// `missing` is the code for a directory that is not there.
TALSTATUS Find(const Volume& volume, std::string_view path, UINT16 missing, Place* out)
{
    out->path = path;
    out->leaf = LeafOf(path);
    if (const int error = volume.OpenParent(path, &out->directory))
        return error == ENOENT || error == ENOTDIR ? Failure(missing) : StatusFromErrno(error);
    const int error = volume.Fs().InspectAt(out->directory.Get(), out->leaf.c_str(), &out->info);
    out->exists = error == 0;
    return error == ENOENT ? TAL_STATUS_SUCCESS : StatusFromErrno(error);
}

// One rename with the metadata that belongs to it. What there is no metadata for costs none.
class Rename {
  public:
    Rename(const Guard& guard, Volume& volume, Place& from, FileHandle toDirectory,
           std::string toLeaf, std::string toPath)
        : guard_(guard), volume_(volume), from_(from), toDirectory_(toDirectory),
          toLeaf_(std::move(toLeaf)), toPath_(std::move(toPath))
    {
    }
    bool replace = false;     // the new name may be taken by a file
    bool forget = false;      // the metadata goes instead of following
    INT64 removedEntry = 0;   // the one that it restores
    bool checksTarget = true; // locks at the new name count

    TALSTATUS Do(MetadataSession* session)
    {
        bool any = removedEntry != 0;
        if (session && !any)
            if (const TALSTATUS status = HasMetadata(*session, &any); Failed(status))
                return status;
        if (!session || (!any && !volume_.MayHaveLocks()))
            return StatusFromErrno(MoveName());
        if (const TALSTATUS status = Announce(*session); Failed(status))
            return status;
        const TALSTATUS status = MoveAll(*session);
        if (Failed(status)) {
            session->Rollback();
            (void)session->RemoveIntent(
                intent_.id); // else the next start sees that it came to nothing
        }
        return status;
    }

  private:
    TALSTATUS HasMetadata(MetadataSession& session, bool* any) const
    {
        if (!volume_.MayHaveProperties() && !volume_.Meta()->MayHaveDeleted())
            return TAL_STATUS_SUCCESS;
        TALSTATUS status = session.HasAny(from_.path, any);
        if (!Failed(status) && !*any)
            status = session.HasAny(toPath_, any);
        return status;
    }
    // The locks are looked at before anything is written down, and again when it counts.
    TALSTATUS Announce(MetadataSession& session)
    {
        TALSTATUS status = session.Begin();
        if (!Failed(status))
            status = CheckLocks(session);
        intent_ = {0, volume_.Token(), from_.path, toPath_};
        if (!Failed(status))
            status = session.AddIntent(&intent_);
        if (!Failed(status))
            status = session.Commit();
        if (Failed(status))
            session.Rollback();
        return status;
    }
    TALSTATUS MoveAll(MetadataSession& session)
    {
        TALSTATUS status = session.Begin();
        if (!Failed(status))
            status = CheckLocks(session);
        if (!Failed(status))
            status = StatusFromErrno(MoveName());
        if (Failed(status))
            return status;
        status = MoveRows(session);
        if (!Failed(status))
            status = session.Commit();
        // The name has moved, and the intent stands: the metadata follows at the next start.
        if (Failed(status)) {
            session.Rollback();
            Log(kLogError, "volume '" + volume_.Name() + "': the properties of '" + from_.path +
                               "' stay behind until the next start, code " +
                               std::to_string(Code(status)));
        }
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS MoveRows(MetadataSession& session) const
    {
        TALSTATUS status = session.ForgetTree(forget ? from_.path : toPath_);
        if (!Failed(status) && !forget)
            status = session.RenameTree(from_.path, toPath_);
        for (const std::string_view tree :
             {std::string_view(from_.path), std::string_view(toPath_)})
            if (!Failed(status))
                status = session.RemoveLocksWithin(tree);
        if (!Failed(status) && removedEntry)
            status = session.RemoveDeleted(removedEntry);
        return Failed(status) ? status : session.RemoveIntent(intent_.id);
    }
    TALSTATUS CheckLocks(MetadataSession& session) const
    {
        const TALSTATUS status = guard_.CheckLocks(session, from_.path, Reach::Tree);
        return Failed(status) || !checksTarget ? status
                                               : guard_.CheckLocks(session, toPath_, Reach::Tree);
    }
    int MoveName()
    {
        FileSystem& fs = volume_.Fs();
        const auto rename = [&] {
            return fs.Rename(from_.directory.Get(), from_.leaf.c_str(), toDirectory_,
                             toLeaf_.c_str(), replace);
        };
        int error = rename();
        // A directory that moves is written to (its way up changes): being read-only must not keep
        // it where it is.
        OpenFile self;
        if (error == EACCES && from_.info.isDirectory && IsReadOnly(from_.info) &&
            fs.Open(from_.path.c_str(), OpenFor::Locating, self.Out(fs)) == 0 &&
            fs.SetMode(self.Get(), from_.info.mode | 0200) == 0) {
            error = rename();
            (void)fs.SetMode(self.Get(), from_.info.mode); // moved or not, it is as it was
        }
        return error;
    }

    const Guard& guard_;
    Volume& volume_;
    Place& from_;
    const FileHandle toDirectory_;
    const std::string toLeaf_;
    const std::string toPath_;
    RenameIntent intent_;
};

// Puts the object at `from` into the list of deleted entries, or on its way out.
TALSTATUS PutAside(Store& store, const Guard& guard, Volume& volume, Place& from)
{
    std::unique_ptr<MetadataSession> session;
    if (const TALSTATUS status = Store::OpenMetadata(volume, &session); Failed(status))
        return status;
    if (volume.MayHaveLocks()) // before the list of deleted entries is touched
        if (const TALSTATUS status = guard.CheckLocks(*session, from.path, Reach::Tree);
            Failed(status))
            return status;
    DeletedEntry entry;
    const bool keep = store.Settings().keepDeletedDays > 0;
    if (keep) {
        entry.parent = ParentOf(from.path);
        entry.name = from.leaf;
        entry.time = store.Now();
        // First the list, then the rename: an entry without its files is harmless, files without
        // an entry would be lost.
        if (const TALSTATUS status = session->AddDeleted(&entry); Failed(status))
            return status;
    }
    const std::string leaf = keep ? std::to_string(entry.id) : volume.UniqueName();
    Rename rename(guard, volume, from, keep ? volume.Deleted() : volume.Purge(), leaf,
                  (keep ? ".kest/deleted/" : ".kest/purge/") + leaf);
    rename.forget = !keep;
    rename.checksTarget = false;
    const TALSTATUS status = rename.Do(session.get());
    if (Failed(status) && keep)
        (void)session->RemoveDeleted(entry.id); // else it is retired in time
    if (!Failed(status) && !keep)
        store.WakePurger();
    return status;
}

TALSTATUS SyncPlaces(const Volume& volume, const Place& changed, const Place* other)
{
    int error = volume.SyncNames(changed.directory.Get());
    if (error == 0 && other && volume.Sync() == SyncLevel::Full)
        error = volume.SyncNames(other->directory.Get());
    return StatusFromErrno(error);
}

// What both a move and a copy ask of their two ends.
TALSTATUS CheckEnds(const Target& from, const Target& to)
{
    if (from.IsRoot() || from.IsVolumeTop() || to.IsRoot() || to.IsVolumeTop())
        return Failure(kCodeAccessDenied);
    if (!to.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (from.volume == to.volume && from.path.View() != to.path.View() &&
        (IsWithin(to.path.View(), from.path.View()) || IsWithin(from.path.View(), to.path.View())))
        return Failure(kCodeAccessDenied);
    return TAL_STATUS_SUCCESS;
}

// Decides about what is at the destination. `*inPlace` is set when a rename may replace it; else it
// is put aside if it is there.
TALSTATUS ClearDestination(Store& store, const Guard& guard, Volume& volume, bool overwrite,
                           bool isDirectory, Place& to, bool* inPlace)
{
    *inPlace = false;
    if (!to.exists)
        return TAL_STATUS_SUCCESS;
    if (!overwrite)
        return Failure(kCodeObjectExists);
    if (to.info.isRegular && IsReadOnly(to.info))
        return Failure(kCodeAccessDenied);
    *inPlace = !isDirectory && !to.info.isDirectory;
    return *inPlace ? TAL_STATUS_SUCCESS : PutAside(store, guard, volume, to);
}

} // namespace

TALSTATUS DeleteTree(Store& store, const Guard& guard, const Target& target)
{
    if (target.IsRoot() || target.IsVolumeTop() || !target.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *target.volume;
    if (target.IsDeletedEntry()) {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS status = Store::OpenMetadata(volume, &session);
        if (!Failed(status))
            status = RetireEntry(volume, *session, target.deletedId);
        store.WakePurger();
        return status;
    }
    if (target.deletedId)
        return Failure(kCodeAccessDenied); // a deleted entry is kept, restored or dropped whole
    Place from;
    if (const TALSTATUS status = Find(volume, target.path.View(), kCodeNotFound, &from);
        Failed(status))
        return status;
    if (!from.exists)
        return Failure(kCodeNotFound);
    const TALSTATUS status = PutAside(store, guard, volume, from);
    return Failed(status) ? status : SyncPlaces(volume, from, nullptr);
}

TALSTATUS MoveTree(Store& store, const Guard& guard, bool overwrite, const Target& from,
                   const Target& to)
{
    if (const TALSTATUS status = CheckEnds(from, to); Failed(status))
        return status;
    if (from.volume != to.volume)
        return Failure(kCodeNotImplemented);
    if (from.deletedId && !from.IsDeletedEntry())
        return Failure(kCodeAccessDenied);
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *from.volume;
    Place source, destination;
    TALSTATUS status = Find(volume, from.path.View(), kCodeNotFound, &source);
    if (!Failed(status) && !source.exists)
        status = Failure(kCodeNotFound);
    if (!Failed(status))
        status = Find(volume, to.path.View(), kCodeConflict, &destination);
    if (Failed(status))
        return status;
    if (source.path == destination.path)
        return overwrite ? TAL_STATUS_SUCCESS : Failure(kCodeObjectExists);

    // Nothing gives way before it is sure that the move is allowed.
    for (const std::string* path : {&source.path, &destination.path})
        if (status = guard.CheckLocks(volume, *path, Reach::Tree); Failed(status))
            return status;
    bool inPlace = false;
    status = ClearDestination(store, guard, volume, overwrite, source.info.isDirectory, destination,
                              &inPlace);
    if (Failed(status))
        return status;
    if (from.deletedId || volume.HasKeptDates(source.directory.Get()))
        (void)volume.ExpectKeptDates(destination.directory.Get()); // without it: the disk's dates
    std::unique_ptr<MetadataSession> session;
    if (status = Store::OpenMetadata(volume, &session); Failed(status))
        return status;
    Rename rename(guard, volume, source, destination.directory.Get(), destination.leaf,
                  destination.path);
    rename.replace = inPlace;
    rename.removedEntry = from.deletedId;
    status = rename.Do(session.get());
    return Failed(status) ? status : SyncPlaces(volume, destination, &source);
}

TALSTATUS CopyTree(Store& store, const Guard& guard, bool overwrite, bool shallow,
                   const Target& from, const Target& to)
{
    if (const TALSTATUS status = CheckEnds(from, to); Failed(status))
        return status;
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *to.volume;
    Place destination;
    TALSTATUS status = Find(volume, to.path.View(), kCodeConflict, &destination);
    if (!Failed(status))
        status = guard.CheckLocks(volume, destination.path, Reach::Tree);
    if (Failed(status))
        return status;
    if (from.volume == to.volume && from.path.View() == to.path.View())
        return TAL_STATUS_SUCCESS;
    if (destination.exists && !overwrite)
        return Failure(kCodeObjectExists);

    TreeCopy copy(store, *from.volume, volume);
    if (status = copy.Make(from, shallow); Failed(status))
        return status;
    bool inPlace = false;
    status = ClearDestination(store, guard, volume, overwrite, copy.IsDirectory(), destination,
                              &inPlace);
    if (!Failed(status))
        status = copy.Publish(guard, destination.directory.Get(), destination.path, inPlace);
    return Failed(status) ? status : SyncPlaces(volume, destination, nullptr);
}

} // namespace filestore
