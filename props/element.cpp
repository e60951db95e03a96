// SPDX-License-Identifier: Apache-2.0
//
// One response element per object (RFC 4918 section 14.24).
#include <algorithm>
#include <cstring>

#include "props/propfind.h"
#include "support/reply.h"

namespace {

void ClearMarks(PROPFIND_REQ* request)
{
    request->bRoot = FALSE;
    request->bExclusiveLocks = FALSE;
    request->bSharedLocks = FALSE;
}

// Each element is sent as soon as it is complete: memory does not grow with their number.
void EndResponse(BufferedIo* io)
{
    Put(io, "</a:response>");
    io->Flush();
}

void SendDeadPropsIfAny(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!pITalpl->TalxIsListEmpty(&request->lDeadProperties))
        (void)PropFindSendDeadProps(io, request); // a property that fails is left out
}

void SendUnreturnedIfAny(BufferedIo* io, const PROPFIND_REQ* request)
{
    if (request->LiveProperties != 0)
        (void)SendUnreturnedProperties(io, request->LiveProperties);
}

// The root's vitals: a collection as old as the process, named like the moniker without its "/".
void FillRootVitals(DAV_COMMON_ENUM& vitals)
{
    vitals.Type = Collection;
    vitals.Attributes = 0;
    vitals.ResourceSize = 0;
    vitals.CreationDate = g_StartupTime;
    vitals.ModificationDate = g_StartupTime;
    const UNICODE_STRING moniker = g_MonikerU; // once: an event may change it meanwhile
    const UINT32 length =
        moniker.Length < sizeof(WCHAR) ? 0 : moniker.Length - UINT32{sizeof(WCHAR)};
    vitals.DisplayNameLength = std::min(length, kDisplayNameBytes);
    if (length != 0)
        std::memcpy(vitals.DisplayName, moniker.Buffer + 1, vitals.DisplayNameLength);
}

} // namespace

TALSTATUS PropFindSendResource(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    Put(pKestIo, "\n<a:response>");
    const TALSTATUS status = PropFindBuildAndSendHRef(pKestIo, &pRequest->HRefU);
    if (Code(status) == kCodeSuccess) {
        pRequest->LiveProperties &= ~kLiveHRef;
        Put(pKestIo, "<a:propstat><a:prop>");
        ClearMarks(pRequest);
        pRequest->Enum.Type = Resource;
        (void)PropFindSendLiveProperties(pKestIo, pRequest);
        if ((pRequest->LiveProperties & kLiveLockDiscovery) &&
            !pITalpl->TalxIsListEmpty(&pRequest->lLocks)) {
            PropFindSendLocks(pKestIo, pRequest);
            pRequest->LiveProperties &= ~kLiveLockDiscovery;
        }
        SendDeadPropsIfAny(pKestIo, pRequest);
        // Kept: for a resource the status follows the properties.
        Put(pKestIo, "</a:prop><a:status>HTTP/1.1 200 OK</a:status>\n</a:propstat>");
        SendUnreturnedIfAny(pKestIo, pRequest);
    }
    EndResponse(pKestIo);
    return status;
}

TALSTATUS PropFindSendCollection(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    Put(pKestIo, "\n<a:response>");
    const TALSTATUS status = PropFindBuildAndSendHRef(pKestIo, &pRequest->HRefU);
    if (Code(status) == kCodeSuccess) {
        Put(pKestIo, "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop>");
        // Kept: a collection has no content type, and is not even told to lack one.
        pRequest->LiveProperties &= ~kLiveContentType;
        ClearMarks(pRequest);
        pRequest->Enum.Type = Collection;
        (void)PropFindSendLiveProperties(pKestIo, pRequest);
        SendDeadPropsIfAny(pKestIo, pRequest);
        Put(pKestIo, "</a:prop></a:propstat>");
        SendUnreturnedIfAny(pKestIo, pRequest);
    }
    EndResponse(pKestIo);
    return status;
}

TALSTATUS SendRootCollection(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    Put(pKestIo, "\n<a:response>");
    SendRootHRef(pKestIo);
    Put(pKestIo, "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop>");
    ClearMarks(pRequest);
    pRequest->bRoot = TRUE;
    FillRootVitals(pRequest->Enum);
    const TALSTATUS status = PropFindSendLiveProperties(pKestIo, pRequest);
    Put(pKestIo, "</a:prop></a:propstat>");
    EndResponse(pKestIo);
    return status;
}

TALSTATUS PropFindSendObjectNotFound(BufferedIo* pKestIo, UNICODE_STRING* pURI)
{
    Put(pKestIo, "\n<a:response>");
    const TALSTATUS status = PropFindBuildAndSendHRef(pKestIo, pURI);
    if (Code(status) == kCodeSuccess)
        Put(pKestIo, "<a:status>HTTP/1.1 404 Not Found</a:status>\n");
    EndResponse(pKestIo);
    return status;
}
