// SPDX-License-Identifier: Apache-2.0
//
// Deleting, moving and copying trees: the checks before, and the change.
#include "providers/filestore/trees.h"

#include <cerrno>

#include "providers/filestore/access.h"
#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/node.h"
#include "providers/filestore/open_directories.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/purge.h"
#include "providers/filestore/rename.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/room.h"
#include "providers/filestore/transfer.h"
#include "providers/filestore/treecopy.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

// `missing` is the code for a directory that is not there. `near`, if given, may be in the same
// one.
TALSTATUS OpenPlace(const Volume& volume, std::string_view path, UINT16 missing,
                    const DirectoryEntry* near, DirectoryEntry* out)
{
    out->path = path;
    out->leaf = LeafOf(path);
    if (near && ParentOf(near->path) == ParentOf(path)) {
        out->directory = near->directory;
        return TAL_STATUS_SUCCESS;
    }
    const int error = volume.OpenParent(path, &out->directory);
    return error == ENOENT || error == ENOTDIR ? Failure(missing) : StatusFromErrno(error);
}

TALSTATUS Look(const Volume& volume, DirectoryEntry* place)
{
    const int error =
        volume.Fs().InspectAt(place->directory->Get(), place->leaf.c_str(), &place->info);
    place->exists = error == 0;
    return error == ENOENT ? TAL_STATUS_SUCCESS : StatusFromErrno(error);
}

// What is to be moved or deleted: as GetType has just seen it, if it has.
TALSTATUS FindSource(const Target& target, DirectoryEntry* out)
{
    const std::string_view path = target.path.View();
    if (request_cache::TakeParent(target, &out->directory, &out->info)) {
        out->path = path;
        out->leaf = LeafOf(path);
        out->exists = true;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS status = OpenPlace(*target.volume, path, kCodeNotFound, nullptr, out);
    if (!Failed(status))
        status = Look(*target.volume, out);
    return Failed(status) || out->exists ? status : Failure(kCodeNotFound);
}

// Removes what is on its way out under `name`, where that is one step and a short one: the purger
// would have to look for it. False where it is left to the purger.
bool RemoveAtOnce(const Volume& volume, const char* name, const FileInfo& info)
{
    constexpr UINT64 kLargest = 16 << 20; // file systems take their time over the blocks of more
    if (info.isDirectory)                 // one with members stays
        return volume.Fs().RemoveDirectory(volume.Purge(), name) == 0;
    return info.size <= kLargest && volume.Fs().RemoveFile(volume.Purge(), name) == 0;
}

// Puts the object at `from` into the list of deleted entries, or on its way out.
TALSTATUS PutAside(Store& store, const Guard& guard, Volume& volume, DirectoryEntry& from)
{
    const bool keep = store.Settings().keepDeletedDays > 0;
    DeletedEntry entry{0, std::string(ParentOf(from.path)), from.leaf, store.Now()};
    RenameTransaction rename(guard, volume, from, keep ? volume.Deleted() : volume.Purge(),
                             keep ? kDeletedDirectory : kPurgeDirectory);
    rename.added = keep ? &entry : nullptr;
    rename.forget = !keep;
    rename.toServed = false;
    rename.conditions = guard.On(volume, from.path);
    const std::string name = keep ? std::string() : volume.UniqueName();
    const TALSTATUS status = rename.To(name);
    if (!Failed(status) && !keep && !RemoveAtOnce(volume, name.c_str(), from.info))
        store.WakePurger();
    return status;
}

// What goes without a trace of its metadata is forgotten as soon as there is room again: nothing
// that is made under its name later shows it.
void ForgetRemoved(Volume& volume, const DirectoryEntry& from)
{
    call::HeldReports reports;
    volume.Pending().AddRemoved(from.path);
    const TALSTATUS status = WritePending(volume);
    reports.Drop(); // the deletion has happened
    Log(kLogWarning, "volume '" + volume.Name() + "': the disk is full, '" + from.path +
                         "' has been removed for good, code " + std::to_string(Code(status)));
}

// Removes the object at `from` and what is in it, without writing anything down before.
TALSTATUS RemoveForGood(const Store& store, const Guard& guard, Volume& volume,
                        const DirectoryEntry& from)
{
    if (const TALSTATUS status = guard.CheckLocks(volume, from.path, Reach::Tree); Failed(status))
        return status;
    FileSystem& fs = volume.Fs();
    const FileHandle directory = from.directory->Get();
    {
        const NameGuard name(volume.MutexOf(from.path));
        if (const TALSTATUS status =
                guard.On(volume, from.path).JudgeName(fs, directory, from.leaf.c_str());
            Failed(status))
            return status;
        int error = fs.Rename(directory, from.leaf.c_str(), volume.Purge(),
                              volume.UniqueName().c_str(), false);
        if (IsFull(error) && !from.info.isDirectory) // even for one name more
            error = fs.RemoveFile(directory, from.leaf.c_str());
        if (error)
            return StatusFromErrno(error);
    }
    open_directories::Forget(volume, from.path);
    (void)EmptyPurge(volume, [] { return !call::IsCancelled(); }); // else the purger does
    ForgetRemoved(volume, from);
    store.WakePurger();
    return StatusFromErrno(volume.SyncNames(directory));
}

// What both a move and a copy ask of their two ends.
TALSTATUS CheckEnds(const Target& from, const Target& to)
{
    if (from.IsRoot() || to.IsRoot() || to.IsVolumeTop())
        return Failure(kCodeAccessDenied);
    if (!to.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (from.volume == to.volume && from.path.View() != to.path.View() &&
        (IsWithin(to.path.View(), from.path.View()) || IsWithin(from.path.View(), to.path.View())))
        return Failure(kCodeAccessDenied);
    return TAL_STATUS_SUCCESS;
}

// Whether what is at the destination may give way.
TALSTATUS CheckReplaceable(bool overwrite, const DirectoryEntry& to)
{
    if (!to.exists)
        return TAL_STATUS_SUCCESS;
    if (!overwrite)
        return Failure(kCodeObjectExists);
    return to.info.isRegular && IsReadOnly(to.info) ? Failure(kCodeAccessDenied)
                                                    : TAL_STATUS_SUCCESS;
}

// Members that are moved are shown and read at their new place, and gone from the old one.
constexpr UINT32 kMembersCopy = kRightList | kRightRead;
constexpr UINT32 kMembersMove = kMembersCopy | kRightDelete;

// Whether the user may bring an object to a place.
TALSTATUS CheckArrival(const Volume& volume, const DirectoryEntry& to, const FileInfo& source,
                       bool members)
{
    access::Arrival arrival;
    arrival.isTree = source.isDirectory && members;
    arrival.replaces = to.exists;
    arrival.isFileForFile = !source.isDirectory && !to.info.isDirectory;
    return access::RequireArrival(volume, to.path, arrival);
}

// Whether the user may read what is to be copied. `info` tells what that is only where there are
// rules to ask for.
TALSTATUS CheckReadable(const Store& store, const Target& from, const CopyExtent& extent,
                        FileInfo* info)
{
    if (!access::IsRestricted())
        return TAL_STATUS_SUCCESS;
    Target source = from;
    OpenFile file;
    TALSTATUS status = access::RequireTree(from, kRightRead, 0);
    if (!Failed(status))
        status = store.OpenExisting(&source, OpenFor::Locating, &file, info);
    if (!Failed(status) && info->isDirectory && extent.members)
        status = access::RequireTree(from, 0, kMembersCopy);
    return status;
}

// Renames to a name that is free, or that a file gives to a file, or whose bearer is put aside: a
// collection is not lost because something takes its place.
TALSTATUS TakeName(Store& store, const DirectoryEntry& from, const DirectoryEntry& to,
                   RenameTransaction* rename)
{
    const bool keep = store.Settings().keepDeletedDays > 0;
    DeletedEntry entry{0, std::string(ParentOf(to.path)), to.leaf, store.Now()};
    rename->replace = to.exists && !from.info.isDirectory && !to.info.isDirectory;
    const bool putsAside = to.exists && !rename->replace;
    if (putsAside) {
        rename->MoveReplacedAside();
        rename->added = keep ? &entry : nullptr;
        rename->forget = !keep;
    }
    const TALSTATUS status = rename->To(to.leaf);
    if (!Failed(status) && putsAside && !keep)
        store.WakePurger();
    return status;
}

} // namespace

TALSTATUS DeleteTree(Store& store, const Guard& guard, const Target& target)
{
    if (target.IsRoot() || target.IsVolumeTop() || !target.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (const TALSTATUS status = access::RequireTree(target, kRightDelete, kRightDelete);
        Failed(status))
        return status;
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *target.volume;
    if (target.IsDeletedEntry()) {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS status = Store::OpenMetadata(volume, &session);
        if (!Failed(status))
            status = RetireEntries(volume, *session, {target.deletedId});
        store.WakePurger();
        return status;
    }
    if (target.deletedId)
        return Failure(kCodeAccessDenied); // a deleted entry is kept, restored or dropped whole
    DirectoryEntry from;
    TALSTATUS status = FindSource(target, &from);
    if (Failed(status))
        return status;
    status = WithReserve(store, volume, [&] { return PutAside(store, guard, volume, from); });
    // There is no room to write down what could be brought back: it goes all the same.
    return Code(status) == kCodeStorageFull ? RemoveForGood(store, guard, volume, from) : status;
}

TALSTATUS MoveTree(Store& store, const Guard& guard, bool overwrite, const Target& from,
                   const Target& to, bool* replaced)
{
    if (const TALSTATUS status = CheckEnds(from, to); Failed(status))
        return status;
    if (from.IsVolumeTop() || !from.volume->IsWritable())
        return Failure(kCodeAccessDenied);
    if (from.deletedId && !from.IsDeletedEntry())
        return Failure(kCodeAccessDenied);
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *from.volume;
    const bool isWithin = &volume == to.volume;
    DirectoryEntry source, destination;
    TALSTATUS status = access::RequireTree(from, kRightRead | kRightDelete, 0);
    if (!Failed(status))
        status = FindSource(from, &source);
    if (!Failed(status) && source.info.isDirectory)
        status = access::RequireTree(from, 0, kMembersMove);
    if (!Failed(status))
        status = OpenPlace(*to.volume, to.path.View(), kCodeConflict, isWithin ? &source : nullptr,
                           &destination);
    // A rename that replaces nothing tells by itself whether the name was free; a copy would be
    // made in vain.
    if (!Failed(status) && (overwrite || !isWithin))
        status = Look(*to.volume, &destination);
    if (Failed(status))
        return status;
    if (isWithin && source.path == destination.path)
        return overwrite ? TAL_STATUS_SUCCESS : Failure(kCodeObjectExists);

    // Nothing gives way before it is sure that the move is allowed.
    status = guard.CheckLocks(volume, source.path, Reach::Tree);
    if (!Failed(status))
        status = guard.CheckLocks(*to.volume, destination.path, Reach::Tree);
    if (!Failed(status))
        status = CheckReplaceable(overwrite, destination);
    if (!Failed(status))
        status = CheckArrival(*to.volume, destination, source.info, true);
    if (Failed(status))
        return status;
    if (replaced)
        *replaced = destination.exists;
    if (!isWithin)
        return Transfer(store, guard, from, source, to, destination).Run();
    bool keepsDates = from.deletedId != 0;
    if (!keepsDates && source.directory != destination.directory)
        (void)volume.HasKeptDates(*source.directory, &keepsDates); // as with what follows
    if (keepsDates && source.directory != destination.directory)
        (void)volume.ExpectKeptDates(*destination.directory); // without it: the disk's dates
    RenameTransaction rename(guard, volume, source, destination.directory->Get(),
                             ParentOf(destination.path));
    rename.restored = from.deletedId;
    rename.conditions = guard.On(volume, source.path);
    return TakeName(store, source, destination, &rename);
}

TALSTATUS CopyTree(Store& store, const Guard& guard, bool overwrite, const CopyExtent& extent,
                   const Target& from, const Target& to, bool* replaced)
{
    if (const TALSTATUS status = CheckEnds(from, to); Failed(status))
        return status;
    if (const TALSTATUS status = guard.CheckConditions(); Failed(status))
        return status;
    Volume& volume = *to.volume;
    DirectoryEntry destination;
    FileInfo source;
    TALSTATUS status = CheckReadable(store, from, extent, &source);
    if (!Failed(status))
        status = OpenPlace(volume, to.path.View(), kCodeConflict, nullptr, &destination);
    if (!Failed(status))
        status = Look(volume, &destination);
    if (!Failed(status))
        status = guard.CheckLocks(volume, destination.path, Reach::Tree);
    if (Failed(status))
        return status;
    if (from.volume == to.volume && from.path.View() == to.path.View())
        return TAL_STATUS_SUCCESS;
    status = CheckReplaceable(overwrite, destination);
    if (!Failed(status))
        status = CheckArrival(volume, destination, source, extent.members);
    if (Failed(status))
        return status;
    if (replaced)
        *replaced = destination.exists;

    TreeCopy copy(store, *from.volume, volume);
    if (status = copy.Make(from, to.path.View(), extent); Failed(status))
        return status;
    if (guard.IsGiven()) // what has been copied is what they are about
        status = guard.On(*from.volume, from.path.View()).Judge(&copy.SourceInfo());
    if (Failed(status))
        return status;
    (void)volume.ExpectKeptDates(*destination.directory); // without it: the disk's dates
    DirectoryEntry made = copy.Made();
    RenameTransaction rename(guard, volume, made, destination.directory->Get(),
                             ParentOf(destination.path));
    rename.isBare = !copy.HasProperties();
    status = TakeName(store, made, destination, &rename);
    if (!Failed(status) || rename.IsStuck())
        copy.Keep();
    return status;
}

} // namespace filestore
