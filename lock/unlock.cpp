// SPDX-License-Identifier: Apache-2.0
//
// UNLOCK in the classic dialect (RFC 4918 section 9.11).
#include <memory>

#include "lock/lock.h"
#include "support/lock_token.h"
#include "support/memory.h"
#include "support/multistatus.h"
#include "support/reply.h"

// Finds the provider, and the token in the request, gives the lock up and answers.
static TALSTATUS UnlockPath(SCHANDLE session, UNICODE_STRING* path, LOCK_REQ* request,
                            IKestIO_5* io)
{
    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    if (Failed(ResolveUriToHandler(session, path, &type, &handler)))
        return Reply(io, 404, TAL_STATUS_NOT_FOUND);
    if (!handler->pIKestDav2)
        return Reply(io, 405, TAL_STATUS_NOT_SUPPORTED);

    char header[kTokenHeaderBytes + 1];
    if (!ReadTokenHeader(io, "Lock-Token", header))
        return Reply(io, 400, TAL_STATUS_NOT_FOUND);
    UINT32 length = 0;
    const bool named = CopyToken(header, request->cToken, sizeof(request->cToken), &length);
    pITalpl->TalxInitString(&request->TokenS, named ? request->cToken : nullptr);

    const TALSTATUS status = handler->pIKestDav2->Unlock(session, path, &request->TokenS);
    // Kept: the client never learns why a provider refused.
    return Reply(io, Failed(status) ? 404 : 200, status);
}

TALSTATUS KestDavUnlock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    const std::unique_ptr<LOCK_REQ, FreeLock> request(AllocLockRequest());
    if (!request)
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_INSUFFICIENT_RESOURCES);
    SetNoContent(pKestIo); // every reply from here on has no body
    WCHAR root[2];
    UNICODE_STRING path = RequestPath(*pUrl, root);
    return UnlockPath(hSession, &path, request.get(), pKestIo);
}
