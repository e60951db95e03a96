// SPDX-License-Identifier: Apache-2.0
//
// HEAD in the classic dialect (RFC 9110 section 9.3.2).
#include <algorithm>
#include <cstring>

#include "methods/opened_resource.h"
#include "support/dates.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

// HEAD's own reading of the "If" header. The token lies in `buffer`; empty when there is none.
constexpr UINT32 kIfHeaderBytes = 128;
STRING HeadToken(IKestIO_5* io, char (&buffer)[kIfHeaderBytes + 1])
{
    char name[] = "If";
    UINT32 length = kIfHeaderBytes;
    if (Failed(io->GetRequestHeader(name, &length, buffer)))
        return {};
    length = std::min(length, kIfHeaderBytes);
    buffer[length] = 0;
    if (!std::strstr(buffer, "opaquelocktoken"))
        return {};
    const std::string_view token = FindLockToken(buffer, length);
    const auto bytes = static_cast<UINT16>(token.size());
    return {bytes, bytes, const_cast<char*>(token.data())};
}

TALSTATUS HeadCollection(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                         IKestIO_5* io)
{
    DAV_DATETIME modified = 0;
    const TALSTATUS status =
        GetCollectionVitals(session, path, &handler, nullptr, nullptr, &modified);
    if (Failed(status))
        return Reply(io, 404, status);
    SetDateHeader(io, "Last-Modified", modified);
    return Reply(io, 200, status);
}

TALSTATUS HeadResource(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                       STRING* token, IKestIO_5* io)
{
    OpenedResource opened;
    const TALSTATUS status = OpenDavResource(session, path, handler, token, opened);
    if (Failed(status))
        return Reply(io, 404, status);
    SetContentType(io, path);
    SetDateHeader(io, "Last-Modified", opened.modified);
    SetHeader(io, "Accept-Ranges", "bytes");
    SetContentLength(io, opened.size);
    return Reply(io, 200, status);
}

} // namespace

TALSTATUS KestDavHead(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    UNICODE_STRING path = ProviderPath(*pUrl);
    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(hSession, &path, &type, &handler);
        Failed(status))
        return Reply(pKestIo, 404, status);

    char header[kIfHeaderBytes + 1];
    STRING token = HeadToken(pKestIo, header);
    if (type == Collection)
        return HeadCollection(hSession, &path, *handler, pKestIo);
    return HeadResource(hSession, &path, *handler, token.Length ? &token : nullptr, pKestIo);
}
