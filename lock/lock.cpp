// SPDX-License-Identifier: Apache-2.0
//
// LOCK in the classic dialect (RFC 4918 section 9.10): takes a lock, or refreshes one.
#include "lock/lock.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"

namespace {

// Seconds of a provider's time. Kept: also the infinite -1 is divided, to 0.
INT32 Seconds(INT64 timeout)
{
    constexpr INT64 kMost = std::numeric_limits<INT32>::max();
    return static_cast<INT32>(std::clamp(timeout / kUnitsPerSecond, -kMost, kMost));
}

// Takes over what a provider says about a lock, cut to what the request holds.
void Describe(LOCK_REQ* request, const DAV_LOCK_2& lock)
{
    request->Type = lock.Type;
    request->Scope = lock.Scope;
    request->Depth = static_cast<UINT32>(lock.Depth);
    request->Timeout = Seconds(lock.Timeout);
    const UINT32 owner = std::min<UINT32>(lock.OwnerLength, sizeof(request->szOwner) - 1);
    std::memcpy(request->szOwner, lock.Owner, owner);
    request->szOwner[owner] = 0;
}

Paged<UINT8> AllocLockRecord()
{
    Paged<UINT8> record = AllocPaged<UINT8>(kLockRecordBytes);
    if (record)
        std::memset(record.get(), 0, kLockRecordBytes);
    return record;
}

TALSTATUS Refresh(SCHANDLE session, IKestDAV2* provider, UNICODE_STRING* path, INT64 timeout,
                  LOCK_REQ* request)
{
    const Paged<UINT8> record = AllocLockRecord();
    if (!record)
        return TAL_STATUS_SUCCESS; // kept: answered from what the request says
    auto* lock = reinterpret_cast<DAV_LOCK_2*>(record.get());
    const TALSTATUS status = provider->LockRefresh(session, static_cast<DAV_DATETIME>(timeout),
                                                   path, &request->TokenS, lock);
    if (!Failed(status))
        Describe(request, *lock);
    return status;
}

TALSTATUS NewLock(SCHANDLE session, IKestDAV2* provider, UNICODE_STRING* path, INT64 timeout,
                  LOCK_REQ* request)
{
    STRING owner = {};
    pITalpl->TalxInitString(&owner, request->szOwner);
    DAV_ERROR_ID errorId = 0;
    const TALSTATUS status =
        provider->Lock(session, static_cast<INT32>(request->Depth), timeout, request->Scope,
                       request->Type, path, &owner, &request->TokenS, &errorId);
    request->TokenS.Length =
        std::min<UINT16>(request->TokenS.Length, UINT16{sizeof(request->cToken)});
    return status;
}

// Reads the first lock that stands in the way into the request.
TALSTATUS ReadBlockingLock(SCHANDLE session, const KESTDAV_HANDLER& handler, UNICODE_STRING* path,
                           LOCK_REQ* request)
{
    Ref<IKestDAVResource2> resource;
    if (const TALSTATUS status = Create(handler.ClassId, resource); Failed(status))
        return status;
    if (const TALSTATUS status =
            resource->Associate(session, FALSE, kAccessRead, 1, 0, path, nullptr);
        Failed(status))
        return status;
    const Paged<UINT8> record = AllocLockRecord();
    if (!record)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    auto* lock = reinterpret_cast<DAV_LOCK_2*>(record.get());
    UINT32 size = kLockRecordBytes;
    if (const TALSTATUS status = resource->GetFirstLock(&size, lock); Failed(status))
        return status;

    Describe(request, *lock);
    const UINT32 token = std::min<UINT32>(lock->TokenLength, sizeof(request->cToken));
    std::memcpy(request->cToken, record.get() + offsetof(DAV_LOCK_2, Token), token);
    request->TokenS.Length = static_cast<UINT16>(token);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS LockPath(SCHANDLE session, UNICODE_STRING* path, LOCK_REQ* request, IKestIO_5* io)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, path, &handler); Failed(status))
        return ReplyEmptyMapped(io, status);
    if (!handler->pIKestDav2)
        return ReplyEmpty(io, 405, TAL_STATUS_NOT_SUPPORTED);

    INT64 timeout = -1;
    if (request->Timeout != -1) {
        request->Timeout += kLockGraceSeconds;
        timeout = request->Timeout * kUnitsPerSecond;
    }
    const TALSTATUS status = request->Flags & kLockRefresh
                                 ? Refresh(session, handler->pIKestDav2, path, timeout, request)
                                 : NewLock(session, handler->pIKestDav2, path, timeout, request);
    if (!Failed(status)) {
        SendLockResponse(io, request, 200);
        return status;
    }
    if (Code(status) != kCodeLocked)
        return ReplyEmptyMapped(io, status);
    if (Failed(ReadBlockingLock(session, *handler, path, request)))
        return ReplyEmpty(io, 423, status);
    SendLockResponse(io, request, 423);
    return status;
}

} // namespace

TALSTATUS KestDavLock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    const std::unique_ptr<LOCK_REQ, FreeLock> request(AllocLockRequest());
    if (!request)
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_INSUFFICIENT_RESOURCES);
    // Without memory for the body nobody knows which lock was asked for: none is granted.
    if (const TALSTATUS status = ParseDavLockRequest(pKestIo, request.get()); Failed(status))
        return ReplyEmptyMapped(pKestIo, status);
    request->Depth = 0; // kept: locks never reach below their resource, whatever is asked for
    if (IsMonikerRoot(*pUrl))
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_ACCESS_DENIED);

    UNICODE_STRING path = ProviderPath(*pUrl);
    return LockPath(hSession, &path, request.get(), pKestIo);
}

void SendLockResponse(IKestIO_5* pKestIo, const LOCK_REQ* pRequest, HTTPSTATUS HttpStatus)
{
    char number[16];
    SetHeader(pKestIo, "Transfer-Encoding", "chunked");
    SetHeader(pKestIo, "Content-Type", "text/xml");
    (void)pKestIo->SendHeader(HttpStatus);
    Put(pKestIo, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
                 "<a:prop xmlns:a=\"DAV:\">"
                 "<a:lockdiscovery>\n"
                 "<a:activelock>\n");
    Put(pKestIo, pRequest->Type == Write ? "<a:locktype><a:write/></a:locktype>\n"
                                         : "<a:locktype><a:read/></a:locktype>\n");
    Put(pKestIo, pRequest->Scope == Shared ? "<a:lockscope><a:shared/></a:lockscope>\n"
                                           : "<a:lockscope><a:exclusive/></a:lockscope>\n");
    std::snprintf(number, sizeof(number), "%d", static_cast<INT32>(pRequest->Depth));
    Put(pKestIo, "<a:depth>");
    Put(pKestIo, number);
    Put(pKestIo, "</a:depth>\n");
    if (pRequest->szOwner[0]) {
        Put(pKestIo, "<a:owner>");
        Put(pKestIo, pRequest->szOwner);
        Put(pKestIo, "</a:owner>\n");
    }
    Put(pKestIo, "<a:timeout>");
    if (pRequest->Timeout == -1) {
        Put(pKestIo, "Inifinite"); // kept: the spelling that clients have always been sent
    } else {
        // 64 bits: a provider's negative time must not overflow.
        std::snprintf(number, sizeof(number), "%lld",
                      static_cast<long long>(INT64{pRequest->Timeout} - kLockGraceSeconds));
        Put(pKestIo, "Second-");
        Put(pKestIo, number);
    }
    Put(pKestIo, "</a:timeout>\n"
                 "<a:locktoken>\n"
                 "<a:href>opaquelocktoken:");
    PutBytes(pKestIo, pRequest->cToken, pRequest->TokenS.Length);
    Put(pKestIo, "</a:href>\n"
                 "</a:locktoken>\n"
                 "</a:activelock></a:lockdiscovery></a:prop>");
}
