// SPDX-License-Identifier: Apache-2.0
//
// PUT (RFC 9110 section 9.3.4), also of a part by "Content-Range" (section 14.5), and PATCH with
// SabreDAV's partial updates (application/x-sabredav-partialupdate).
#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/content_coding.h"
#include "standard/handlers.h"
#include "standard/request_headers.h"
#include "standard/resumable_upload.h"
#include "standard/scan.h"
#include "standard/upload.h"
#include "standard/upload_requests.h"
#include "support/handlers.h"
#include "support/reply.h"
#include "support/uri.h"

namespace standard {

namespace {

// Taking a part for the whole would destroy the rest: a range that is not understood is refused.
TALSTATUS ReadPart(IKestIO_5* io, Upload& upload)
{
    std::string_view range;
    if (const TALSTATUS status = ReadHeader(io, "Content-Range", range);
        Failed(status) || !range.data())
        return status;
    upload.isPart = true;
    return ReadContentRange(range, upload.range) ? TAL_STATUS_SUCCESS : TAL_STATUS_INVALID_REQUEST;
}

TALSTATUS ReadUpdate(IKestIO_5* io, Upload& upload)
{
    std::string_view range;
    if (const TALSTATUS status = ReadHeader(io, "X-Update-Range", range); Failed(status))
        return status;
    upload.isPart = true;
    return ReadUpdateRange(range, upload.range) ? TAL_STATUS_SUCCESS : TAL_STATUS_INVALID_REQUEST;
}

bool HasBodyArrived()
{
    Ref<IKestCallContext> context;
    BOOLEAN isComplete = FALSE;
    return !Failed(Create(CLSID_KestCallContext, context)) &&
           !Failed(context->IsBodyComplete(&isComplete)) && isComplete;
}

// The steps of both methods once it is known what the body is for.
TALSTATUS Run(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, Upload& upload)
{
    UNICODE_STRING path = ProviderPath(*url);
    TALSTATUS status = ReadUpload(io, upload);
    if (!Failed(status))
        status = StoreUpload(session, &path, io, upload);
    return upload.isServed ? AnswerUpload(io, status, path, upload) : status;
}

// A PUT that may go on in other requests. One whose body is here already needs none.
TALSTATUS PutResumable(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, bool isPart,
                       bool& isServed)
{
    UploadFields fields;
    isServed = true;
    if (const TALSTATUS status = ReadUploadFields(io, fields); Failed(status))
        return RefuseMapped(io, status);
    if (isPart) // parts of parts: not taken
        return Refuse(io, 400, TAL_STATUS_INVALID_REQUEST);
    isServed = !(fields.isComplete && HasBodyArrived());
    if (!isServed)
        return TAL_STATUS_SUCCESS;
    ResumableUpload upload(session, ProviderPath(*url), io);
    return upload.Create(fields, isServed);
}

// A provider of an older generation changes no parts, and no collection has any: neither is a
// matter of the body's type.
TALSTATUS RefuseUpdate(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    bool isServed = true;
    const Kind kind = LookAt(session, url, io, isServed);
    if (!isServed && kind == Kind::Missing)
        return Refuse(io, 404, TAL_STATUS_NOT_FOUND);
    if (!isServed) {
        SetAllowOfOlder(io, kind);
        return Refuse(io, 405, TAL_STATUS_NOT_SUPPORTED);
    }
    if (kind != Kind::File && kind != Kind::Missing)
        return RefuseMethod(io, kind, TAL_STATUS_NOT_SUPPORTED);
    SetHeader(io, "Accept-Patch", "application/x-sabredav-partialupdate");
    return Refuse(io, 415, TAL_STATUS_NOT_SUPPORTED);
}

} // namespace

TALSTATUS Put(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_ACCESS_DENIED);
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    bool isCollection = false;
    if (const TALSTATUS status = ReadTrailingSlash(io, isCollection); Failed(status))
        return RefuseMapped(io, status);
    if (isCollection) { // by its name
        bool isServed = true;
        return RefuseMethod(io, LookAt(session, url, io, isServed), TAL_STATUS_ACCESS_DENIED);
    }
    Upload upload;
    if (const TALSTATUS status = ReadPart(io, upload); Failed(status))
        return RefuseMapped(io, status);
    UploadFields fields;
    if (const TALSTATUS status = ReadUploadMark(io, fields); Failed(status))
        return RefuseMapped(io, status);
    bool isServed = false;
    if (fields.isMarked)
        if (const TALSTATUS status = PutResumable(session, url, io, upload.isPart, isServed);
            isServed)
            return status;
    const TALSTATUS status = Run(session, url, io, upload);
    if (upload.isServed)
        return status;
    return upload.isPart ? Refuse(io, 400, TAL_STATUS_NOT_SUPPORTED) // only the third generation
                         : KestDavPut(session, url, io);
}

TALSTATUS Patch(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (IsMonikerRoot(*url))
        return RefuseMethod(io, Kind::Root, TAL_STATUS_ACCESS_DENIED);
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    if (UploadResource resource; NamesUpload(session, *url, resource))
        return PatchUpload(session, resource, io);
    bool isUpdate = false; // the one kind of body that is taken
    if (const TALSTATUS status =
            ReadMediaType(io, "application/x-sabredav-partialupdate", isUpdate);
        Failed(status))
        return RefuseMapped(io, status);
    bool isCollection = false;
    if (const TALSTATUS status = ReadTrailingSlash(io, isCollection); Failed(status))
        return RefuseMapped(io, status);
    if (!isUpdate || isCollection)
        return RefuseUpdate(session, url, io);
    Upload upload;
    if (const TALSTATUS status = ReadUpdate(io, upload); Failed(status))
        return RefuseMapped(io, status);
    const TALSTATUS status = Run(session, url, io, upload);
    return upload.isServed ? status : RefuseUpdate(session, url, io);
}

} // namespace standard
