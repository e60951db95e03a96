// SPDX-License-Identifier: Apache-2.0
//
// The methods of an upload resource: HEAD tells how far it has come, PATCH adds to it, DELETE drops
// it.
#include "standard/upload_requests.h"
#include "standard/answer.h"
#include "standard/new_name.h"
#include "standard/request_headers.h"
#include "standard/resumable_upload.h"
#include "standard/scan.h"
#include "support/memory.h"
#include "support/reply.h"

namespace standard {

namespace {

TALSTATUS RefuseMissing(IKestIO_5* io, TALSTATUS status)
{
    return IsNotOffered(status) ? Refuse(io, 404, status) : RefuseMapped(io, status);
}

} // namespace

bool NamesUpload(SCHANDLE session, const UNICODE_STRING& url, UploadResource& out)
{
    if (!IsUploadResource(url, out))
        return false;
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    return Failed(FindProviderOfNew(session, out.target, handler)) || handler->pIKestDav3;
}

TALSTATUS HeadUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io)
{
    UploadFields fields;
    Ref<IKestDAVUploads3> uploads;
    DAV_UPLOAD upload{};
    upload.Size = sizeof upload;
    const DAV_TEXT name = resource.Name();
    const ProviderGuard providers;
    TALSTATUS status = ReadUploadFields(io, fields);
    if (!Failed(status))
        status = FindUploads(session, resource.target, uploads);
    if (!Failed(status))
        status = uploads->Find(session, &resource.target, &name, nullptr, nullptr, &upload);
    SetHeader(io, "Cache-Control", "no-store");
    if (Failed(status))
        return RefuseMissing(io, status);
    SetUploadOffset(io, upload.Offset);
    SetUploadComplete(io, fields, (upload.Flags & kUploadComplete) != 0);
    if (upload.Length != kUploadLengthUnknown)
        SetUploadLength(io, upload.Length);
    SetUploadLimits(io, upload);
    return Reply(io, 204, status);
}

TALSTATUS PatchUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io)
{
    UploadFields fields;
    if (const TALSTATUS status = ReadUploadFields(io, fields); Failed(status))
        return RefuseMapped(io, status);
    bool isPart = false;
    if (const TALSTATUS status = ReadMediaType(io, "application/partial-upload", isPart);
        Failed(status))
        return RefuseMapped(io, status);
    if (fields.NeedsMediaType() && !isPart) {
        SetHeader(io, "Accept-Patch", "application/partial-upload");
        return Refuse(io, 415, TAL_STATUS_NOT_SUPPORTED);
    }
    if (!fields.isMarked && fields.version == kFirstInterop)
        fields.isMarked = fields.isComplete = fields.isOldForm = true;
    if (!fields.isMarked || !fields.hasOffset)
        return Refuse(io, 400, TAL_STATUS_INVALID_REQUEST);
    ResumableUpload upload(session, resource.target, io);
    return upload.Append(fields, resource.Name());
}

TALSTATUS DeleteUpload(SCHANDLE session, UploadResource& resource, IKestIO_5* io)
{
    Ref<IKestDAVUploads3> uploads;
    const DAV_TEXT name = resource.Name();
    const ProviderGuard providers;
    TALSTATUS status = FindUploads(session, resource.target, uploads);
    if (!Failed(status))
        status = uploads->Cancel(session, &resource.target, &name);
    return Failed(status) ? RefuseMissing(io, status) : Reply(io, 204, status);
}

TALSTATUS OptionsOfUpload(IKestIO_5* io)
{
    SetHeader(io, "Allow", "OPTIONS, HEAD, PATCH, DELETE");
    SetHeader(io, "Accept-Patch", "application/partial-upload");
    return ReplyEmpty(io, 200, TAL_STATUS_SUCCESS);
}

bool SetUploadOptions(SCHANDLE session, UNICODE_STRING path, KESTDAV_HANDLER* handler,
                      IKestIO_5* io)
{
    Ref<IKestDAVUploads3> uploads;
    DAV_UPLOAD limits{};
    limits.Size = sizeof limits;
    const TALSTATUS found =
        handler ? Query(handler->pIKestDav3, uploads) : FindUploads(session, path, uploads);
    if (Failed(found) || Failed(uploads->GetLimits(session, &path, &limits)))
        return false;
    SetUploadLimits(io, limits);
    return true;
}

} // namespace standard
