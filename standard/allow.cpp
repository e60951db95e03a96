// SPDX-License-Identifier: Apache-2.0
//
// The methods of each kind of resource.
#include "standard/allow.h"

#include "standard/answer.h"
#include "standard/object.h"
#include "standard/request_headers.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

constexpr DAV_SHARE_MODE kShareAny = 3;

// Of an older provider: its GetType may say that a name is there which can only be made.
Kind KindOfOlder(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler)
{
    DAV_TYPE type = Resource;
    if (Failed(DavNamespace(handler).GetType(session, path, &type)))
        return Kind::Missing;
    if (type == Collection)
        return Kind::Collection;
    DavResource resource;
    const bool isThere = !Failed(resource.Open(handler)) &&
                         !Failed(resource.Associate(session, FALSE, kAccessAttributesOnly,
                                                    kShareAny, path, nullptr));
    return isThere ? Kind::File : Kind::Missing;
}

Kind KindAt(SCHANDLE session, UNICODE_STRING path, KESTDAV_HANDLER*& handler)
{
    if (Failed(DavUriToHandler(session, &path, &handler)))
        return Kind::Missing;
    if (!handler->pIKestDav3)
        return KindOfOlder(session, &path, *handler);
    DAV_OBJECT_INFO info = TypeOnly();
    if (Failed(handler->pIKestDav3->GetInfo(session, &path, &info)))
        return Kind::Missing;
    return KindOf(info.Type);
}

} // namespace

Kind LookAt(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, KESTDAV_HANDLER*& handler)
{
    handler = nullptr;
    if (IsMonikerRoot(*url))
        return Kind::Root;
    const Kind kind = KindAt(session, ProviderPath(*url), handler);
    bool endsWithSlash = false;
    const bool isKnown = !Failed(ReadTrailingSlash(io, endsWithSlash));
    if (kind == Kind::Collection || (isKnown && !endsWithSlash))
        return kind;
    return kind == Kind::File ? Kind::FileAsCollection : Kind::MissingCollection;
}

Kind LookAt(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, bool& isServed)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    const Kind kind = LookAt(session, url, io, handler);
    isServed = !handler || handler->pIKestDav3;
    return kind;
}

void SetAllow(IKestIO_5* io, Kind kind)
{
    switch (kind) {
    case Kind::Root:
        return SetHeader(io, "Allow", "OPTIONS, GET, HEAD, POST, PROPFIND");
    case Kind::Collection:
        return SetHeader(io, "Allow",
                         "OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, "
                         "UNLOCK");
    case Kind::File:
        return SetHeader(io, "Allow",
                         "OPTIONS, GET, HEAD, PUT, PATCH, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, "
                         "LOCK, UNLOCK");
    case Kind::FileAsCollection:
        return SetHeader(io, "Allow",
                         "OPTIONS, GET, HEAD, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, "
                         "UNLOCK");
    case Kind::Missing:
        return SetHeader(io, "Allow", "OPTIONS, PUT, MKCOL, LOCK");
    case Kind::MissingCollection:
        return SetHeader(io, "Allow", "OPTIONS, MKCOL, LOCK");
    }
}

void SetAllowOfOlder(IKestIO_5* io, Kind kind)
{
    if (kind != Kind::File)
        return SetAllow(io, kind);
    SetHeader(io, "Allow",
              "OPTIONS, GET, HEAD, PUT, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, UNLOCK");
}

TALSTATUS RefuseMethod(IKestIO_5* io, Kind kind, TALSTATUS status)
{
    SetAllow(io, kind);
    return Refuse(io, 405, status);
}

} // namespace standard
