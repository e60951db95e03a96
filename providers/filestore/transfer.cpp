// SPDX-License-Identifier: Apache-2.0
//
// Moving content and rows between volumes.
#include "providers/filestore/transfer.h"

#include <utility>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/purge.h"

namespace filestore {

namespace {

void LogLeftover(const Volume& volume, const std::string& path, const char* what, TALSTATUS status)
{
    Log(kLogError, "volume '" + volume.Name() + "': '" + path + "' " + what + ", code " +
                       std::to_string(Code(status)));
}

} // namespace

Transfer::Transfer(Store& store, const Guard& guard, const Target& from,
                   const DirectoryEntry& source, const Target& to,
                   const DirectoryEntry& destination)
    : store_(store), guard_(guard),
      from_(from), source_{*from.volume, source}, destination_{*to.volume, destination},
      copy_(store, *from.volume, *to.volume)
{
}

TALSTATUS Transfer::Run()
{
    CopyExtent all;
    all.unserved = true;
    TALSTATUS status = copy_.Make(from_, destination_.place.path, all);
    if (!Failed(status))
        status = CollectLocks(&source_);
    if (!Failed(status))
        status = CollectLocks(&destination_);
    if (!Failed(status))
        status = Publish();
    if (Failed(status))
        return status;
    // From here on there is something to take back, also where memory runs out.
    status = Protected([this] { return from_.deletedId ? RemoveEntry() : RemoveSource(); });
    if (Failed(status)) {
        (void)Protected([this] {
            TakeBack();
            return TAL_STATUS_SUCCESS;
        });
        return status;
    }
    ForgetReverse();
    const bool keep = store_.Settings().keepDeletedDays > 0;
    if (!keep)
        Retire(source_);
    // A file that gave way to a file is not kept either.
    if (!keep || !(copy_.IsDirectory() || destination_.place.info.isDirectory))
        Retire(destination_);
    return status;
}

TALSTATUS Transfer::CollectLocks(End* end) const
{
    if (!end->volume.MayHaveLocks())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    const TALSTATUS status = Store::OpenMetadata(end->volume, &session);
    return Failed(status) ? status
                          : session->LocksWithin(end->place.path, store_.Now(), &end->locks);
}

void Transfer::RestoreLocks(const End& end)
{
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (!end.locks.empty())
        status = Store::OpenMetadata(end.volume, &session);
    for (const LockRecord& lock : end.locks)
        if (!Failed(status))
            status = session->AddLock(lock);
    if (Failed(status))
        LogLeftover(end.volume, end.place.path, "has lost its locks in a move that failed", status);
}

// What the end's name bore, where it is now.
TALSTATUS Transfer::OpenEntry(const End& end, DirectoryEntry* out) const
{
    out->leaf = std::to_string(end.entry.id);
    out->path = PathOfDeleted(end.entry.id);
    out->exists = true;
    out->info = end.place.info;
    return StatusFromErrno(end.volume.OpenParent(out->path, &out->directory));
}

// What gives way is kept until it is sure that it has to.
TALSTATUS Transfer::Publish()
{
    Volume& volume = destination_.volume;
    const DirectoryEntry& place = destination_.place;
    (void)volume.ExpectKeptDates(*place.directory); // without it: the disk's dates
    DirectoryEntry made = copy_.Made();
    RenameTransaction rename(guard_, volume, made, place.directory->Get(), ParentOf(place.path));
    DeletedEntry entry{0, std::string(ParentOf(place.path)), place.leaf, store_.Now()};
    rename.reverse = &reverse_;
    if (place.exists) {
        rename.MoveReplacedAside();
        rename.added = &entry;
    }
    const TALSTATUS status = rename.To(place.leaf);
    if (!Failed(status) || rename.HasMoved()) {
        copy_.Keep();
        destination_.entry = std::move(entry);
        if (Failed(status))
            TakeBack();
    } else if (rename.IsStuck()) {
        copy_.Keep();
    }
    return status;
}

// Should it fail, the object is in both volumes, and nothing is lost.
void Transfer::TakeBack()
{
    Volume& volume = destination_.volume;
    DirectoryEntry made = destination_.place;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (destination_.entry.id) {
        DirectoryEntry old;
        status = OpenEntry(destination_, &old);
        RenameTransaction rename(guard_, volume, old, made.directory->Get(), ParentOf(made.path));
        rename.restored = destination_.entry.id;
        rename.forget = true;
        rename.MoveReplacedAside();
        if (!Failed(status))
            status = Reverse(rename, made.leaf);
    } else {
        made.info = copy_.Made().info;
        RenameTransaction rename(guard_, volume, made, volume.Purge(), kPurgeDirectory);
        rename.forget = true;
        rename.toServed = false;
        status = Reverse(rename, volume.UniqueName());
    }
    store_.WakePurger();
    if (Failed(status))
        LogLeftover(volume, made.path, "stays after a move that failed", status);
    else
        RestoreLocks(destination_);
}

// What was written down with the publication needs no room: a full disk is often why it fails.
TALSTATUS Transfer::Reverse(RenameTransaction& rename, const std::string& leaf)
{
    return reverse_.id ? rename.AsLogged(std::exchange(reverse_, {})) : rename.To(leaf);
}

// The move has happened: nothing is taken back any more, whatever comes of this.
void Transfer::ForgetReverse()
{
    if (!reverse_.id)
        return;
    call::HeldReports reports;
    const TALSTATUS status = Protected([&] {
        std::unique_ptr<MetadataSession> session;
        TALSTATUS removed = Store::OpenMetadata(destination_.volume, &session);
        if (!Failed(removed))
            removed = session->RemoveIntent(reverse_.id);
        return removed;
    });
    reports.Drop();
    if (Failed(status))
        destination_.volume.Pending().AddCancelled(reverse_.id);
}

// A deleted entry is restored in another volume. Nobody changes one.
TALSTATUS Transfer::RemoveEntry()
{
    Volume& volume = source_.volume;
    RenameTransaction rename(guard_, volume, source_.place, volume.Purge(), kPurgeDirectory);
    rename.restored = from_.deletedId;
    rename.forget = true;
    rename.toServed = false;
    const TALSTATUS status = rename.To(volume.UniqueName());
    store_.WakePurger();
    return rename.HasMoved() ? TAL_STATUS_SUCCESS : status;
}

// Puts the source away, where nobody changes it any more, and makes sure that it is what was
// copied: nothing that somebody has stored in it meanwhile goes with it.
TALSTATUS Transfer::RemoveSource()
{
    Volume& volume = source_.volume;
    const DirectoryEntry& place = source_.place;
    DeletedEntry entry{0, std::string(ParentOf(place.path)), place.leaf, store_.Now()};
    RenameTransaction rename(guard_, volume, source_.place, volume.Deleted(), kDeletedDirectory);
    rename.conditions = guard_.On(volume, place.path);
    rename.added = &entry;
    rename.toServed = false;
    TALSTATUS status = rename.To({});
    if (Failed(status) && !rename.HasMoved())
        return status;
    source_.entry = std::move(entry);
    areRowsBehind_ = rename.AreRowsBehind();
    if (!Failed(status))
        status = Protected([this] { return CompareSource(); });
    // One whose name has been taken meanwhile stays among the deleted entries.
    return Failed(status) && PutSourceBack() ? status : TAL_STATUS_SUCCESS;
}

TALSTATUS Transfer::CompareSource()
{
    DirectoryEntry aside;
    Fingerprint now;
    TALSTATUS status = OpenEntry(source_, &aside);
    if (!Failed(status))
        status =
            StatusFromErrno(now.AddTree(source_.volume.Fs(), aside.directory->Get(), aside.leaf));
    if (!Failed(status) && source_.volume.MayHaveProperties()) {
        std::unique_ptr<MetadataSession> session;
        status = Store::OpenMetadata(source_.volume, &session);
        if (!Failed(status))
            status = now.AddRows(*session, areRowsBehind_ ? source_.place.path : aside.path);
    }
    if (Failed(status))
        return status;
    return now == copy_.Source() ? TAL_STATUS_SUCCESS : Failure(kCodeConflict);
}

bool Transfer::PutSourceBack()
{
    const DirectoryEntry& place = source_.place;
    bool isBack = false;
    const TALSTATUS status = Protected([&] {
        DirectoryEntry aside;
        if (const TALSTATUS opened = OpenEntry(source_, &aside); Failed(opened))
            return opened;
        RenameTransaction rename(guard_, source_.volume, aside, place.directory->Get(),
                                 ParentOf(place.path));
        rename.restored = source_.entry.id;
        const TALSTATUS moved = rename.To(place.leaf);
        isBack = !Failed(moved) || rename.HasMoved();
        if (!isBack)
            LogLeftover(source_.volume, place.path, "stays among the deleted entries after a move",
                        moved);
        else
            RestoreLocks(source_);
        return moved;
    });
    if (Failed(status) && !isBack)
        source_.entry.id = 0; // it is kept whatever the setting says
    return isBack;
}

// The move has happened, whatever comes of this: what cannot be retired now goes when the list is
// looked through, at once where nothing is kept.
void Transfer::Retire(const End& end)
{
    if (!end.entry.id)
        return;
    call::HeldReports reports;
    const TALSTATUS status = Protected([&] {
        std::unique_ptr<MetadataSession> session;
        const TALSTATUS opened = Store::OpenMetadata(end.volume, &session);
        return Failed(opened) ? opened : RetireEntries(end.volume, *session, {end.entry.id});
    });
    reports.Drop();
    store_.WakePurger(Failed(status));
}

} // namespace filestore
