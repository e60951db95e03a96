// SPDX-License-Identifier: Apache-2.0
//
// MKCOL (RFC 4918 section 9.3).
#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/failures.h"
#include "standard/handlers.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

bool HasBody(IKestIO_5* io)
{
    UINT32 bytes = 0;
    return Failed(io->IsClientPayloadAvailable(&bytes)) || bytes != 0;
}

TALSTATUS MakeCollection(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, bool& isServed,
                         Failures& failures)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, path, &handler); Failed(status))
        return Code(status) == kCodeNotFound ? MissingParent(*path) : status;
    isServed = handler->pIKestDav3 != nullptr;
    if (!isServed)
        return TAL_STATUS_SUCCESS;
    DAV_PRECONDITIONS preconditions;
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return status;
    DAV_CHANGE change = EmptyChange();
    return handler->pIKestDav3->MakeCollection(session, path, &preconditions, 0, nullptr, &failures,
                                               &change);
}

} // namespace

TALSTATUS MkCol(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_OBJECT_EXISTS);
    UNICODE_STRING path = ProviderPath(*url);
    bool isServed = true;
    Failures failures;
    // No body is understood (RFC 4918 section 9.3.1).
    if (HasBody(io))
        return Refuse(io, 415, TAL_STATUS_NOT_SUPPORTED);
    const TALSTATUS status = MakeCollection(session, &path, io, isServed, failures);
    if (!isServed)
        return KestDavMkCol(session, url, io);
    if (Code(status) == kCodeObjectExists && Failed(status))
        return RefuseMethod(io, Kind::Collection, status);
    if (Failed(status))
        return AnswerFailure(io, status, failures, path);
    return ReplyEmpty(io, 201, status);
}

} // namespace standard
