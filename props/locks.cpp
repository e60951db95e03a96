// SPDX-License-Identifier: Apache-2.0
//
// Collects a resource's locks from its provider and writes "lockdiscovery" (RFC 4918 section 15.8).
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "props/propfind.h"
#include "support/escape.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/time_units.h"

namespace {

constexpr UINT32 kTokenRoom = kLockRecordBytes - offsetof(DAV_LOCK_2, Token);

// `buffer` holds kLockRecordBytes, with a lock at its start.
TALSTATUS KeepLock(PROPFIND_REQ* request, const UINT8* buffer)
{
    const auto* lock = reinterpret_cast<const DAV_LOCK_2*>(buffer);
    const UINT32 tokenBytes = std::min(lock->TokenLength, kTokenRoom);
    const UINT32 recordBytes =
        std::max<UINT32>(offsetof(DAV_LOCK_2, Token) + tokenBytes, sizeof(DAV_LOCK_2));
    Paged<UINT8> memory = AllocPaged<UINT8>(offsetof(PROPFIND_LOCK_RECORD, Lock) + recordBytes);
    if (!memory)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    auto* kept = reinterpret_cast<PROPFIND_LOCK_RECORD*>(memory.release());
    std::memcpy(static_cast<void*>(&kept->Lock), buffer, recordBytes);
    kept->Lock.TokenLength = tokenBytes;
    kept->Lock.OwnerLength = std::min(lock->OwnerLength, kLockOwnerBytes);
    pITalpl->TalxInsertTailList(&request->lLocks, &kept->ListLink);
    return TAL_STATUS_SUCCESS;
}

void SendTimeout(BufferedIo* io, INT64 timeout)
{
    if (timeout == -1) {
        Put(io, "Infinite");
        return;
    }
    // Kept: what is left of the last minute wraps around, and no "Second-" stands in front.
    char digits[kU64Digits];
    const INT32 length =
        U64ToAscii(static_cast<UINT64>(timeout / kUnitsPerSecond - kLockGraceSeconds), 10, digits);
    PutBytes(io, digits, static_cast<UINT32>(length));
}

void SendLock(BufferedIo* io, const DAV_LOCK_2& lock)
{
    // Kept: the type is always write.
    Put(io, "<a:activelock>\n<a:locktype><a:write/></a:locktype>\n");
    if (lock.Scope == Exclusive)
        Put(io, "<a:lockscope><a:exclusive/></a:lockscope>\n");
    else
        Put(io, "<a:lockscope><a:shared/></a:lockscope>\n");
    char depth[16];
    const int length = std::snprintf(depth, sizeof(depth), "%d", lock.Depth);
    Put(io, "<a:depth>");
    PutBytes(io, depth, static_cast<UINT32>(length));
    Put(io, "</a:depth>\n<a:owner>");
    PutBytes(io, lock.Owner, lock.OwnerLength);
    Put(io, "</a:owner>\n<a:timeout>");
    SendTimeout(io, lock.Timeout);
    Put(io, "</a:timeout>\n<a:locktoken>\n<a:href>opaquelocktoken:");
    PutBytes(io, lock.Token, lock.TokenLength);
    Put(io, "</a:href>\n</a:locktoken>\n</a:activelock>");
}

} // namespace

TALSTATUS PropFindGetLocks(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest)
{
    alignas(DAV_LOCK_2) UINT8 buffer[kLockRecordBytes];
    auto* lock = reinterpret_cast<DAV_LOCK_2*>(buffer);
    for (bool first = true;; first = false) {
        std::memset(buffer, 0, sizeof(buffer));
        UINT32 size = sizeof(buffer);
        const TALSTATUS status =
            first ? pIResource->GetFirstLock(&size, lock) : pIResource->GetNextLock(&size, lock);
        if (Code(status) == kCodeNoMoreEntries)
            return TAL_STATUS_SUCCESS;
        if (Failed(status))
            return status;
        if (const TALSTATUS kept = KeepLock(pRequest, buffer); Failed(kept))
            return kept;
    }
}

void PropFindSendLocks(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    Put(pKestIo, "<a:lockdiscovery>\n");
    const LIST_ENTRY* const head = &pRequest->lLocks;
    for (const LIST_ENTRY* entry = head->Flink; entry != head; entry = entry->Flink) {
        const DAV_LOCK_2& lock = reinterpret_cast<const PROPFIND_LOCK_RECORD*>(entry)->Lock;
        (lock.Scope == Exclusive ? pRequest->bExclusiveLocks : pRequest->bSharedLocks) = TRUE;
        SendLock(pKestIo, lock);
    }
    Put(pKestIo, "</a:lockdiscovery>");
}
