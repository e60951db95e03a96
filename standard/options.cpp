// SPDX-License-Identifier: Apache-2.0
//
// OPTIONS (RFC 9110 section 9.3.7, RFC 4918 section 18).
#include "standard/allow.h"
#include "standard/handlers.h"
#include "standard/upload_requests.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/uri.h"

namespace standard {

TALSTATUS Options(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (UploadResource resource; NamesUpload(session, *url, resource))
        return OptionsOfUpload(io);
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    const Kind kind = LookAt(session, url, io, handler);
    SetHeader(io, "MS-Author-Via", "DAV"); // Office saves nothing without it
    if (handler && !handler->pIKestDav3) {
        SetAllowOfOlder(io, kind);
        SetHeader(io, "DAV", "1, 2"); // answered as ever: not what class 3 asks for
        return ReplyEmpty(io, 200, TAL_STATUS_SUCCESS);
    }
    SetAllow(io, kind);
    SetHeader(io, "DAV", "1, 2, 3, extended-mkcol, sabredav-partialupdate");
    const bool isPutHere = kind == Kind::File || kind == Kind::Missing;
    if (isPutHere && SetUploadOptions(session, ProviderPath(*url), handler, io))
        SetHeader(io, "Accept-Patch",
                  "application/x-sabredav-partialupdate, application/partial-upload");
    else if (isPutHere) // RFC 5789 section 3.1: of what has PATCH
        SetHeader(io, "Accept-Patch", "application/x-sabredav-partialupdate");
    return ReplyEmpty(io, 200, TAL_STATUS_SUCCESS);
}

} // namespace standard
