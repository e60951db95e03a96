// SPDX-License-Identifier: Apache-2.0
//
// Space on a full disk: kept entries give way, and the reserve.
#include "providers/filestore/room.h"

#include <algorithm>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

// Beyond what is asked for: directories and the database grow, too.
constexpr UINT64 kSlack = 64 * 1024;

bool HasFree(Volume& volume, UINT64 bytes)
{
    UINT64 free = 0, total = 0;
    return volume.Fs().FreeSpace(&free, &total) == 0 && free >= bytes;
}

// Puts the oldest kept entry after the one numbered `*after` on its way out. False when there is
// none. Entries are numbered in the order in which they were deleted.
bool DropNext(Volume& volume, INT64* after)
{
    std::unique_ptr<MetadataSession> session;
    DeletedEntry entry;
    if (!volume.Meta() || !volume.Meta()->MayHaveDeleted() ||
        Failed(Store::OpenMetadata(volume, &session)) ||
        Failed(session->NextExpired(kNever, *after, &entry)) ||
        Failed(RetireEntries(volume, *session, {entry.id})))
        return false;
    *after = entry.id;
    return true;
}

// Removes entries one by one until `isEnough`, which is not asked before the first one.
template <class F> bool DropEntries(Volume& volume, const PurgePause& pause, F&& isEnough)
{
    const auto empty = [&] {
        const bool hasRemoved = EmptyPurge(volume, [&] {
            volume.Turns().TellRemoved();
            return pause() && !isEnough();
        });
        if (hasRemoved)
            volume.Turns().TellRemoved();
        return hasRemoved;
    };
    bool hasRemoved = empty();
    INT64 last = 0;
    while (!(hasRemoved && isEnough()) && pause() && DropNext(volume, &last))
        hasRemoved = empty() || hasRemoved;
    if (last)
        Log(kLogWarning, "volume '" + volume.Name() +
                             "': the disk is full, deleted entries up to number " +
                             std::to_string(last) + " are not kept any longer");
    return hasRemoved;
}

} // namespace

bool MakeRoom(const Store& store, Volume& volume, UINT64 bytes)
{
    call::HeldReports reports;
    const PurgePause goesOn = [] { return !call::IsCancelled(); };
    const RoomTurns::Turn turn(volume.Turns(), goesOn);
    if (!turn)
        return goesOn(); // somebody else has just made some
    const bool hasRemoved =
        DropEntries(volume, goesOn, [&] { return HasFree(volume, bytes + kSlack); });
    reports.Drop();     // what fails here is not what was asked for
    store.WakePurger(); // it goes on until as much is free as is wanted
    return hasRemoved;
}

TALSTATUS MakeRoomForBody(const Store& store, Volume& volume, UINT64 bytes)
{
    constexpr UINT64 kWorthAsking = 1u << 20;
    UINT64 free = 0, total = 0;
    if (bytes < kWorthAsking)
        return TAL_STATUS_SUCCESS;
    for (;;) {
        if (const int error = volume.Fs().FreeSpace(&free, &total))
            return StatusFromErrno(error);
        if (free >= bytes)
            return TAL_STATUS_SUCCESS;
        if (bytes > total || !MakeRoom(store, volume, bytes))
            return Failure(kCodeStorageFull);
    }
}

void KeepRoom(const Store& store, Volume& volume, const PurgePause& pause)
{
    constexpr UINT64 kLeastShare = 20; // of a small disk not more than a twentieth
    UINT64 free = 0, total = 0;
    const UINT64 setting = store.Settings().keepFreeBytes;
    const auto isEnough = [&] {
        return volume.Fs().FreeSpace(&free, &total) != 0 ||
               free >= std::min(setting, total / kLeastShare);
    };
    if (!volume.IsWritable() || setting == 0 || isEnough())
        return;
    if (const RoomTurns::Turn turn(volume.Turns(), pause); turn)
        (void)DropEntries(volume, pause, isEnough);
}

} // namespace filestore
