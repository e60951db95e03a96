// SPDX-License-Identifier: Apache-2.0
//
// Adding to an upload and publishing it.
#include "providers/filestore/upload_content.h"

#include "providers/filestore/operation.h"
#include "providers/filestore/request_cache.h"

namespace filestore {

UploadContent::UploadContent(const Store& store, SCHANDLE session, const Target& target,
                             std::string_view name, const DAV_PRECONDITIONS& given)
    : store_(store), volume_(*target.volume), given_(given), guard_(store, session, target, given_),
      hold_(HoldUpload(store, *target.volume, name))
{
}

// What has arrived is kept; what could not be recorded is sent again.
UploadContent::~UploadContent()
{
    (void)Protected([&] {
        PendingUpload& upload = **hold_;
        const std::lock_guard lock(upload.Mutex());
        return upload.IsHeldBy(holder_) ? upload.Checkpoint() : TAL_STATUS_SUCCESS;
    });
}

void UploadContent::Begin(PendingUpload& upload, UINT64 space)
{
    holder_ = upload.Take();
    start_ = upload.Offset();
    space_ = space;
}

// Code 33 when another request has taken it meanwhile.
template <class F> TALSTATUS UploadContent::WhileHeld(F&& use)
{
    return Protected([&] {
        PendingUpload& upload = **hold_;
        const std::lock_guard lock(upload.Mutex());
        return upload.IsHeldBy(holder_) ? use(upload) : Failure(kCodeConflict);
    });
}

TALSTATUS UploadContent::Open(SCHANDLE, UNICODE_STRING*, UINT32, INT64, const DAV_PRECONDITIONS*,
                              IKestDAVFailures3*, DAV_OBJECT_INFO*)
{
    return Failure(kCodeInvalidParameter);
}

TALSTATUS UploadContent::Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
{
    if (!read || (length && !buffer))
        return Failure(kCodeInvalidParameter);
    *read = 0;
    return WhileHeld(
        [&](PendingUpload& upload) { return upload.Read(offset, buffer, length, read); });
}

TALSTATUS UploadContent::Write(UINT64 offset, UINT32 length, const char* buffer)
{
    if (length && !buffer)
        return Failure(kCodeInvalidParameter);
    return WhileHeld([&](PendingUpload& upload) {
        if (offset != upload.Offset())
            return Failure(kCodeInvalidParameter);
        if (offset >= space_ || length > space_ - offset)
            return length ? Failure(kCodeStorageFull) : TAL_STATUS_SUCCESS;
        return upload.Append(buffer, length);
    });
}

TALSTATUS UploadContent::SetLength(UINT64 length)
{
    return WhileHeld([&](PendingUpload& upload) {
        return length < start_ ? Failure(kCodeInvalidParameter) : upload.CutTo(length);
    });
}

TALSTATUS UploadContent::Publish(DAV_DATETIME modified, DAV_DATETIME created,
                                 IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    FileInfo info;
    bool hasReplaced = false;
    const TALSTATUS status = WhileHeld([&](PendingUpload& upload) {
        request_cache::Drop();
        return upload.Publish(guard_, modified, created, &info, &hasReplaced);
    });
    return Protected([&] {
        if (Failed(status))
            TellRefusals(guard_, status, failures);
        else
            TellChange(hasReplaced, DescribeObject(store_.Now(), &volume_, info, false), change);
        return status;
    });
}

} // namespace filestore
