// SPDX-License-Identifier: Apache-2.0
//
// MKCOL (RFC 4918 section 9.3), also with properties (RFC 5689).
#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/content_coding.h"
#include "standard/failures.h"
#include "standard/handlers.h"
#include "standard/new_name.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/property_changes.h"
#include "standard/propfind_request.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/uri.h"

namespace standard {

namespace {

// No client means more than this by the properties of a new collection. The host bounds the bodies
// of the methods that always have XML, and this is none of them.
constexpr UINT32 kMostBodyBytes = 1U << 20;

struct NewCollection {
    PropertyChanges changes;
    Failures failures;
    bool isServed = true;   // else the provider has no third generation, and nothing was done
    HTTPSTATUS refusal = 0; // when not 0, what to answer in place of the status's meaning
};

bool IsXml(std::string_view type)
{
    type = Trimmed(type.substr(0, type.find(';')));
    return EqualsIgnoringCase(type, "application/xml") || EqualsIgnoringCase(type, "text/xml");
}

TALSTATUS RefuseBody(NewCollection& made, HTTPSTATUS http)
{
    made.refusal = http;
    return TAL_STATUS_NOT_SUPPORTED;
}

// Reads the properties that the collection is to have (RFC 5689 section 3). A body of another kind
// is not understood (RFC 4918 section 9.3.1).
TALSTATUS ReadProperties(IKestIO_5* io, NewCollection& made)
{
    UINT32 available = 0;
    if (const TALSTATUS status = io->IsClientPayloadAvailable(&available); Code(status) != 0)
        return status;
    if (available == 0)
        return TAL_STATUS_SUCCESS;
    std::string_view type;
    if (const TALSTATUS status = ReadHeader(io, "Content-Type", type); Failed(status))
        return status;
    if (!IsXml(type))
        return RefuseBody(made, 415);
    if (available > kMostBodyBytes)
        return RefuseBody(made, 413);
    XmlBodyText body;
    if (const TALSTATUS status = ReadBody(io, body); Failed(status))
        return status;
    return made.changes.Read(body.Text(), "mkcol");
}

TALSTATUS MakeCollection(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, NewCollection& made)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = FindProviderOfNew(session, *path, handler); Failed(status))
        return status;
    made.isServed = handler->pIKestDav3 != nullptr;
    if (!made.isServed)
        return TAL_STATUS_SUCCESS;
    if (const TALSTATUS status = ReadProperties(io, made); Failed(status))
        return status;
    IKestDAV3& provider = *handler->pIKestDav3;
    DAV_OBJECT_INFO there = TypeOnly();
    if (made.changes.HasFailures()) // what is there matters more
        return Failed(provider.GetInfo(session, path, &there)) ? TAL_STATUS_ACCESS_DENIED
                                                               : TAL_STATUS_OBJECT_EXISTS;
    DAV_PRECONDITIONS preconditions;
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return status;
    DAV_CHANGE change = OutcomeOnly();
    const TALSTATUS status =
        provider.MakeCollection(session, path, &preconditions, made.changes.Count(),
                                made.changes.Records(), &made.failures, &change);
    return made.failures.Described(session, *path, status);
}

// What there is where something is: a collection, for all that is known when the look fails.
Kind KindInTheWay(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    bool isServed = true;
    const Kind kind = LookAt(session, url, io, isServed);
    return kind == Kind::Missing || kind == Kind::MissingCollection ? Kind::Collection : kind;
}

// Says which properties stood in the way (RFC 5689 section 5.2).
TALSTATUS AnswerProperties(IKestIO_5* io, TALSTATUS status, PropertyChanges& changes)
{
    SetHeader(io, "Cache-Control", "no-cache");
    SendXmlHead(io, 424);
    ReplyWriter out(io);
    out.Put("<D:mkcol-response xmlns:D=\"DAV:\">");
    changes.PutOutcome(out, 424);
    out.Put("</D:mkcol-response>\n");
    return status;
}

} // namespace

TALSTATUS MkCol(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_OBJECT_EXISTS);
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    UNICODE_STRING path = ProviderPath(*url);
    NewCollection made;
    const TALSTATUS status = MakeCollection(session, &path, io, made);
    if (!made.isServed)
        return KestDavMkCol(session, url, io);
    if (!Failed(status))
        return ReplyEmpty(io, 201, status);
    if (made.refusal)
        return Refuse(io, made.refusal, status);
    if (Code(status) == kCodeObjectExists)
        return RefuseMethod(io, KindInTheWay(session, url, io), status);
    if (made.changes.HasFailures())
        return AnswerProperties(io, status, made.changes);
    return AnswerFailure(io, status, made.failures, path);
}

} // namespace standard
