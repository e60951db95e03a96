// SPDX-License-Identifier: Apache-2.0
//
// What is done where a disk is full. Deleted entries that are kept give way, the oldest first; and
// a reserve that is given up piece by piece lets deletions and the ends of locks be written down.
#pragma once

#include <cerrno>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/purge.h"
#include "providers/filestore/store.h"

namespace filestore {

[[nodiscard]] constexpr bool IsFull(int error)
{
    return error == ENOSPC || error == EDQUOT;
}

// Removes what is on its way out, then the oldest kept entries, until `bytes` more can be written.
// False when there was nothing to remove.
[[nodiscard]] bool MakeRoom(const Store& store, Volume& volume, UINT64 bytes);
// The same for a body of that length before it is sent; code 35 when it cannot be kept.
TALSTATUS MakeRoomForBody(const Store& store, Volume& volume, UINT64 bytes);
// Removes the oldest kept entries until as much is free as the store's setting wants.
void KeepRoom(const Store& store, Volume& volume, const PurgePause& pause);

// How often room is made for one operation. It is enough each time as far as the system tells, so
// that what goes on failing fails for another reason, a directory that can take no more names for
// instance: kept entries do not help it. The account's quota is not told, so that there is no bound
// for it.
constexpr int kMostTries = 16;

// Runs an operation on files again as long as the disk is full and something gives way.
template <class F> int WithRoom(const Store& store, Volume& volume, UINT64 bytes, F&& operation)
{
    int error = operation();
    for (int tries = 0;
         IsFull(error) && (tries < kMostTries || error == EDQUOT) && MakeRoom(store, volume, bytes);
         ++tries)
        error = operation();
    return error;
}

// A try whose failure for lack of room is not reported: another one may follow.
template <class F> TALSTATUS TryForRoom(F&& change)
{
    call::HeldReports reports;
    const TALSTATUS status = change();
    if (Code(status) == kCodeStorageFull)
        reports.Drop();
    return status;
}

[[nodiscard]] inline TALSTATUS ReportIfFull(TALSTATUS status)
{
    if (Code(status) == kCodeStorageFull)
        call::ReportFailure(status);
    return status;
}

// The same as WithRoom for what ends with a status.
template <class F> TALSTATUS WithRoomForRows(const Store& store, Volume& volume, F&& change)
{
    TALSTATUS status = TryForRoom(change);
    for (int tries = 0;
         Code(status) == kCodeStorageFull && tries < kMostTries && MakeRoom(store, volume, 0);
         ++tries)
        status = TryForRoom(change);
    return ReportIfFull(status);
}

// The same for what has to work on a full disk: the reserve is given up first. That there is no
// room at all is not reported.
template <class F> TALSTATUS WithReserve(const Store& store, Volume& volume, F&& change)
{
    TALSTATUS status = TryForRoom(change);
    if (Code(status) != kCodeStorageFull)
        return status;
    while (Code(status) == kCodeStorageFull && volume.GiveUpReserve())
        status = TryForRoom(change);
    while (Code(status) == kCodeStorageFull && MakeRoom(store, volume, 0))
        status = TryForRoom(change);
    store.WakePurger(); // it makes room, and fills the reserve again
    return status;
}

} // namespace filestore
