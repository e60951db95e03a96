// SPDX-License-Identifier: Apache-2.0
//
// COPY in the classic dialect (RFC 4918 section 9.8).
#include "methods/copy.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

// Where the segment that begins at `start` ends: at the next "/" or the end.
size_t SegmentEnd(const UNICODE_STRING& text, size_t start)
{
    const size_t units = text.Length / sizeof(WCHAR);
    size_t end = start + 1;
    while (end < units && text.Buffer[end] != u'/')
        ++end;
    return end;
}

bool IsMoniker(const UNICODE_STRING& text, size_t start, size_t end)
{
    const auto bytes = static_cast<UINT16>((end - start) * sizeof(WCHAR));
    const UNICODE_STRING segment = {bytes, bytes, text.Buffer + start};
    return pITalpl->TalxEqualUnicodeString(&segment, &g_MonikerU, TRUE);
}

// Turns a full destination URL into a provider path: what follows the first segment that equals the
// moniker, unescaped. Code 16 when there is none or nothing follows.
TALSTATUS ParseCopyRequest(const UNICODE_STRING* fullPath, UNICODE_STRING* destination)
{
    if (!fullPath || !fullPath->Buffer || fullPath->Length < sizeof(WCHAR))
        return TAL_STATUS_INVALID_PARAMETER;
    const size_t units = fullPath->Length / sizeof(WCHAR);
    size_t at = 0;
    while (at < units && fullPath->Buffer[at] != u'/')
        ++at;
    while (at < units) {
        const size_t end = SegmentEnd(*fullPath, at);
        if (IsMoniker(*fullPath, at, end)) {
            at = end;
            break;
        }
        at = end;
    }
    if (at >= units)
        return TAL_STATUS_INVALID_REQUEST;
    const auto bytes = static_cast<UINT16>((units - at) * sizeof(WCHAR));
    if (bytes > kCopyPathBytes)
        return TAL_STATUS_NAME_TOO_LONG;
    UNICODE_STRING rest = {bytes, bytes, fullPath->Buffer + at};
    return ConvertUriToDavStoreUri(&rest, destination);
}

// Kept: looks one character further than the end of the common prefix, so that of the destinations
// inside the source's name space only those one character away are refused. The destination is
// NUL-terminated.
bool Overlaps(const UNICODE_STRING& source, const UNICODE_STRING& destination)
{
    if (destination.Length <= source.Length)
        return false;
    const UNICODE_STRING prefix = {source.Length, source.Length, destination.Buffer};
    if (!pITalpl->TalxEqualUnicodeString(&prefix, &source, TRUE))
        return false;
    const WCHAR next = destination.Buffer[source.Length / sizeof(WCHAR) + 1];
    return next == 0 || next == u'/';
}

TALSTATUS CopyPathTo(SCHANDLE session, const UNICODE_STRING& url, IKestIO_5* io)
{
    CopyPath source;
    if (const TALSTATUS status = source.Allocate(); Failed(status))
        return status;
    if (const TALSTATUS status = source.Set(ProviderPath(url)); Failed(status))
        return status;

    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* sourceHandler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(session, source.Get(), &type, &sourceHandler);
        Failed(status))
        return status;

    BOOLEAN overwrite = FALSE;
    INT32 depth = 0; // kept: collections are always copied whole
    UNICODE_STRING* fullPath = nullptr;
    if (const TALSTATUS status = io->GetCopyInfo(&overwrite, &depth, &fullPath); Code(status) != 0)
        return status;
    CopyPath destination;
    if (const TALSTATUS status = destination.Allocate(); Failed(status))
        return status;
    if (const TALSTATUS status = ParseCopyRequest(fullPath, destination.Get()); Failed(status))
        return status;
    if (Overlaps(*source.Get(), *destination.Get()))
        return TAL_STATUS_INVALID_REQUEST;

    KESTDAV_HANDLER* destinationHandler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, destination.Get(), &destinationHandler);
        Failed(status))
        return status;
    return CopyByType(type, {session, overwrite != FALSE, false, nullptr, sourceHandler,
                             source.Get(), destinationHandler, destination.Get()});
}

} // namespace

TALSTATUS KestDavCopy(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    if (IsMonikerRoot(*pUrl))
        return ReplyCopied(pKestIo, TAL_STATUS_ACCESS_DENIED);
    return ReplyCopied(pKestIo, CopyPathTo(hSession, *pUrl, pKestIo));
}
