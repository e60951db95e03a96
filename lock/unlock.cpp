// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "core/memory.h"
#include "core/reply.h"
#include "lock/lock.h"
#include "lock/token.h"
#include "props/multistatus.h"

// Finds the provider, and the token in the request, and gives the lock up. `http` is what the
// client is told: it never learns why a provider refused.
static TALSTATUS UnlockPath(SCHANDLE session, UNICODE_STRING* path, LOCK_REQ* request,
                            IKestIO_5* io, HTTPSTATUS& http)
{
    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    http = 404;
    if (Failed(ResolveUriToHandler(session, path, &type, &handler)))
        return TAL_STATUS_NOT_FOUND;
    http = 405;
    if (!handler->pIKestDav2)
        return TAL_STATUS_NOT_SUPPORTED;

    http = 400;
    char header[kTokenHeaderBytes + 1];
    if (!ReadTokenHeader(io, "Lock-Token", header))
        return TAL_STATUS_NOT_FOUND;
    UINT32 length = 0;
    const bool named = CopyToken(header, request->cToken, sizeof(request->cToken), &length);
    pITalpl->TalxInitString(&request->TokenS, named ? request->cToken : nullptr);

    const TALSTATUS status = handler->pIKestDav2->Unlock(session, path, &request->TokenS);
    http = Failed(status) ? 404 : 200;
    return status;
}

TALSTATUS KestDavUnlock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    const std::unique_ptr<LOCK_REQ, FreeLock> request(AllocLockRequest());
    if (!request)
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_INSUFFICIENT_RESOURCES);
    WCHAR root[2];
    UNICODE_STRING path = RequestPath(*pUrl, root);
    HTTPSTATUS http = 0;
    const TALSTATUS status = UnlockPath(hSession, &path, request.get(), pKestIo, http);
    return ReplyEmpty(pKestIo, http, status);
}
