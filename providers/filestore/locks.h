// SPDX-License-Identifier: Apache-2.0
//
// Taking, refreshing and giving up locks. A lock is on a path, not on what is there: it does not
// move or copy with it, and goes with it.
#pragma once

#include <functional>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

struct LockRequest {
    INT32 depth = 0;    // 0, or anything else for a collection with all in it
    INT64 timeout = -1; // 100 ns units, -1 without end
    DAV_LOCK_SCOPE scope = Exclusive;
    DAV_LOCK_TYPE type = Write;
    std::string_view owner;
    bool isMarkup = false; // the owner is XML as the third generation has it, and is kept as it is
};

// Says of a lock that is about to stand all that its client is to be told: when it fails, or finds
// no memory, there is no lock. `isNew`: it makes an empty file, too, which is there already.
using LockReporter = std::function<TALSTATUS(const LockRecord& lock, bool isNew)>;

// Makes a lock, and an empty file where the path is free. Code 37 when another lock is in the way,
// 33 when the path's parent is missing, 4 for a timeout that is not positive. What `report` does is
// the last that can fail before the lock stands, and nothing can afterwards.
TALSTATUS MakeLock(const Store& store, const Guard& guard, const Target& target,
                   const LockRequest& request, const LockReporter& report);

// Extends the lock that covers `target` and whose token was given, to `timeout` from `now`. Code 40
// when there is none, 6 when it is somebody else's, 4 for a timeout that is not positive.
TALSTATUS RefreshLock(const Guard& guard, const Target& target, UINT64 now, INT64 timeout,
                      LockRecord* out);

// Code 11 for a token that covers nothing at `target`, 6 when the lock is somebody else's.
TALSTATUS ReleaseLock(const Store& store, const Guard& guard, const Target& target,
                      std::string_view token);

// Describes a lock in `out`. *size is the room on entry and what was used on return; code 7 when
// that is too little.
TALSTATUS DescribeLock(const LockRecord& lock, UINT64 now, UINT32* size, DAV_LOCK_2* out);

// The next lock of all volumes behind *place, for administrators; moves *place to it. `volume` is
// where it is. Code 9 past the last.
TALSTATUS NextLock(const Store& store, DAV_LOCK_PLACE* place, LockRecord* out,
                   const Volume** volume);
// Removes a lock of any user. Code 11 for an unknown token.
TALSTATUS BreakLock(const Store& store, std::string_view token);

} // namespace filestore
