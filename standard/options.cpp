// SPDX-License-Identifier: Apache-2.0
//
// OPTIONS (RFC 9110 section 9.3.7, RFC 4918 section 18).
#include "standard/allow.h"
#include "standard/handlers.h"
#include "standard/object.h"
#include "standard/upload_requests.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

// What stands at a path. Every failure counts as nothing: OPTIONS is answered everywhere, clients
// ask for it before they know what there is. `isServed` is cleared for what a provider of an older
// generation serves.
Kind Look(SCHANDLE session, UNICODE_STRING* url, bool& isServed)
{
    isServed = true;
    if (IsMonikerRoot(*url))
        return Kind::Root;
    UNICODE_STRING path = ProviderPath(*url);
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (Failed(DavUriToHandler(session, &path, &handler)))
        return Kind::Missing;
    isServed = handler->pIKestDav3 != nullptr;
    DAV_OBJECT_INFO info = EmptyInfo();
    if (!isServed || Failed(handler->pIKestDav3->GetInfo(session, &path, &info)))
        return Kind::Missing;
    return KindOf(info.Type);
}

} // namespace

TALSTATUS Options(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (UploadResource resource; IsUploadResource(*url, resource))
        return OptionsOfUpload(io);
    bool isServed = true;
    const Kind kind = Look(session, url, isServed);
    SetHeader(io, "MS-Author-Via", "DAV"); // Office saves nothing without it
    if (!isServed)
        return KestDavOptions(session, url, io);
    SetAllow(io, kind);
    SetHeader(io, "DAV", "1, 2, 3, extended-mkcol, sabredav-partialupdate");
    const bool isPutHere = kind == Kind::File || kind == Kind::Missing;
    if (isPutHere && SetUploadOptions(session, ProviderPath(*url), io))
        SetHeader(io, "Accept-Patch",
                  "application/x-sabredav-partialupdate, application/partial-upload");
    else
        SetHeader(io, "Accept-Patch", "application/x-sabredav-partialupdate");
    return ReplyEmpty(io, 200, TAL_STATUS_SUCCESS);
}

} // namespace standard
