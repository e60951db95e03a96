// SPDX-License-Identifier: Apache-2.0
//
// MOVE in the classic dialect (RFC 4918 section 9.9).
#include "methods/copy.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/provider.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

constexpr INT32 kDepthInfinity = -1;

// Whether a provider's answer to Move leaves the work to the module: it does not move, or it does
// not replace a collection by itself.
bool NeedsCopy(TALSTATUS moved, DAV_TYPE type, bool overwrite)
{
    if (Code(moved) == kCodeNotImplemented)
        return true;
    return type == Collection && overwrite && Code(moved) == kCodeObjectExists;
}

TALSTATUS MovePathTo(SCHANDLE session, const UNICODE_STRING& url, IKestIO_5* io)
{
    CopyPath source;
    CopyPath destination;
    if (const TALSTATUS status = source.Allocate(); Failed(status))
        return status;
    if (const TALSTATUS status = source.Set(ProviderPath(url)); Failed(status))
        return status;
    if (const TALSTATUS status = destination.Allocate(); Failed(status))
        return status;
    BOOLEAN overwrite = FALSE;
    UNICODE_STRING* target = nullptr;
    if (const TALSTATUS status = io->GetMoveInfo(&overwrite, &target); Code(status) != 0)
        return status;
    if (IsMissing(target))
        return TAL_STATUS_INVALID_PARAMETER;
    // Unlike COPY's, this destination is a path that begins with the moniker.
    if (const TALSTATUS status = destination.Set(ProviderPath(*target)); Failed(status))
        return status;

    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* sourceHandler = nullptr;
    KESTDAV_HANDLER* destinationHandler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(session, source.Get(), &type, &sourceHandler);
        Failed(status))
        return status;
    // Of a shorter one nothing would be left but a provider's root.
    if (target->Length < g_MonikerU.Length)
        return TAL_STATUS_INVALID_REQUEST;
    if (const TALSTATUS status = DavUriToHandler(session, destination.Get(), &destinationHandler);
        Failed(status))
        return status;
    if (sourceHandler == destinationHandler) {
        const TALSTATUS moved =
            DavNamespace(*sourceHandler)
                .Move(session, overwrite, kDepthInfinity, source.Get(), destination.Get(), nullptr);
        if (!NeedsCopy(moved, type, overwrite != FALSE))
            return moved;
    }
    return CopyByType(type, {session, overwrite != FALSE, true, nullptr, sourceHandler,
                             source.Get(), destinationHandler, destination.Get()});
}

} // namespace

TALSTATUS KestDavMove(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    if (IsMonikerRoot(*pUrl))
        return ReplyCopied(pKestIo, TAL_STATUS_ACCESS_DENIED);
    return ReplyCopied(pKestIo, MovePathTo(hSession, *pUrl, pKestIo));
}
