// SPDX-License-Identifier: Apache-2.0
//
// DELETE (RFC 4918 section 9.6).
#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/failures.h"
#include "standard/handlers.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "standard/upload_requests.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

// A client that wants a collection without its members deleted cannot have that, and must not lose
// the members for it (RFC 4918 section 9.6.1). Code 16 then.
TALSTATUS JudgeDepth(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, IKestDAV3& provider)
{
    std::string_view depth;
    if (const TALSTATUS status = ReadHeader(io, "Depth", depth); Failed(status))
        return status;
    if (!depth.data() || EqualsIgnoringCase(depth, "infinity"))
        return TAL_STATUS_SUCCESS;
    DAV_OBJECT_INFO info = TypeOnly();
    if (const TALSTATUS status = provider.GetInfo(session, path, &info); Failed(status))
        return status;
    return info.Type == Collection ? TAL_STATUS_INVALID_REQUEST : TAL_STATUS_SUCCESS;
}

TALSTATUS DeleteTree(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, bool& isServed,
                     Failures& failures)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, path, &handler); Failed(status))
        return status;
    isServed = handler->pIKestDav3 != nullptr;
    if (!isServed)
        return TAL_STATUS_SUCCESS;
    if (const TALSTATUS status = JudgeDepth(session, path, io, *handler->pIKestDav3);
        Failed(status))
        return status;
    DAV_PRECONDITIONS preconditions;
    if (const TALSTATUS status = ReadPreconditions(io, preconditions); Failed(status))
        return status;
    return failures.Described(
        session, *path, handler->pIKestDav3->Delete(session, path, &preconditions, &failures));
}

} // namespace

TALSTATUS Delete(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_ACCESS_DENIED);
    if (UploadResource resource; NamesUpload(session, *url, resource))
        return DeleteUpload(session, resource, io);
    UNICODE_STRING path = ProviderPath(*url);
    bool isServed = true;
    Failures failures;
    const TALSTATUS status = DeleteTree(session, &path, io, isServed, failures);
    if (!isServed)
        return KestDavDelete(session, url, io);
    if (Failed(status))
        return AnswerFailure(io, status, failures, path);
    return Reply(io, 204, status);
}

} // namespace standard
