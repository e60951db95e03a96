// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/resource.h"

#include "providers/filestore/callcontext.h"
#include "providers/filestore/node.h"
#include "providers/filestore/recent.h"

namespace filestore {

FileResource::~FileResource()
{
    CloseAll();
}

void FileResource::CloseAll()
{
    if (upload_) {
        TALSTATUS status = Failure(kCodeInvalidRequest); // a body that broke off
        if (call::UploadArrived())
            status = Protected([&] { return upload_->Commit(); });
        if (Failed(status))
            call::ReportFailure(status);
        upload_.reset();
    }
    file_.Reset();
    volume_ = nullptr;
}

TALSTATUS FileResource::Ready() const
{
    return volume_ ? TAL_STATUS_SUCCESS : Failure(kCodeInvalidParameter);
}

TALSTATUS FileResource::Associate(SCHANDLE, BOOLEAN create, DAV_OPEN_ACCESS access, DAV_SHARE_MODE,
                                  DAV_OPEN_FLAGS, UNICODE_STRING* path, DAV_LOCK_TOKEN*)
{
    return Protected([&] {
        CloseAll(); // a second Associate, as after a probe, starts over
        return create ? Create(path) : Open(access, path);
    });
}

TALSTATUS FileResource::Open(DAV_OPEN_ACCESS access, const UNICODE_STRING* path)
{
    Target target;
    if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
        return status;
    if (target.IsRoot())
        return Failure(kCodeMethodNotAllowed);
    if (!recent::Take(target, &file_, &info_))
        if (const TALSTATUS status = store_.OpenExisting(&target, OpenFor::Reading, &file_, &info_);
            Failed(status))
            return status;
    if (info_.isDirectory && access == kAccessReadContent) {
        file_.Reset();
        return Failure(kCodeMethodNotAllowed);
    }
    path_ = target.path.View();
    volume_ = target.volume;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::Create(const UNICODE_STRING* path)
{
    recent::Drop();
    Target target;
    if (const TALSTATUS status = store_.LocateNew(path, &target); Failed(status))
        return status;
    path_ = target.path.View();
    volume_ = target.volume;
    const TALSTATUS status = StartUpload(false);
    if (Failed(status))
        volume_ = nullptr;
    return status;
}

TALSTATUS FileResource::StartUpload(bool keepContent)
{
    upload_.emplace(*volume_);
    const TALSTATUS status = keepContent ? upload_->BeginWithContent(path_, file_.Get(), info_.size)
                                         : upload_->Begin(path_);
    if (Failed(status))
        upload_.reset();
    return status;
}

TALSTATUS FileResource::GetCreationDate(DAV_DATETIME* date)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    if (upload_ && upload_->Created()) {
        *date = *upload_->Created();
        return TAL_STATUS_SUCCESS;
    }
    return StatusFromErrno(volume_->GetCreated(upload_ ? upload_->File() : file_.Get(), date));
}

TALSTATUS FileResource::GetDisplayName(UNICODE_STRING* name)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    return PutName(path_.empty() ? std::string_view(volume_->Name()) : LeafOf(path_), name);
}

TALSTATUS FileResource::GetETag(DAV_ETAG* etag)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    FileInfo info = info_;
    if (upload_)
        if (const int error = volume_->Fs().Inspect(upload_->File(), &info))
            return StatusFromErrno(error);
    *etag = ETagOf(info);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetModificationDate(DAV_DATETIME* date)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    FileInfo info = info_;
    if (upload_)
        if (const int error = volume_->Fs().Inspect(upload_->File(), &info))
            return StatusFromErrno(error);
    *date = info.modified;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetResourceSize(UINT64* size)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    FileInfo info = info_;
    if (upload_)
        if (const int error = volume_->Fs().Inspect(upload_->File(), &info))
            return StatusFromErrno(error);
    *size = info.isDirectory ? 0 : info.size;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    size_t got = 0;
    const int error =
        volume_->Fs().Read(upload_ ? upload_->File() : file_.Get(), offset, buffer, length, &got);
    *read = static_cast<UINT32>(got);
    return StatusFromErrno(error);
}

TALSTATUS FileResource::Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written)
{
    *written = 0;
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    return Protected([&] {
        if (!upload_) {
            if (info_.isDirectory)
                return Failure(kCodeMethodNotAllowed);
            if (const TALSTATUS status = StartUpload(true); Failed(status))
                return status;
        }
        const TALSTATUS status = upload_->Write(offset, buffer, length);
        if (!Failed(status))
            *written = length;
        return status;
    });
}

TALSTATUS FileResource::SetCreationDate(DAV_DATETIME date)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    if (!upload_)
        return SetCreated(*volume_, path_, file_.Get(), date);
    upload_->SetCreated(date);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::SetModificationDate(DAV_DATETIME date)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    if (!upload_)
        return SetModified(*volume_, file_.Get(), date);
    upload_->SetModified(date);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetLiveAttributes(UINT32* attributes)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    *attributes = AttributesOf(info_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::SetLiveAttributes(UINT32 attributes)
{
    if (const TALSTATUS status = Ready(); Failed(status))
        return status;
    if (!upload_)
        return SetAttributes(*volume_, file_.Get(), &info_, attributes);
    upload_->SetReadOnly((attributes & kAttributeReadOnly) != 0);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS FileResource::GetFirstLock(UINT32*, DAV_LOCK_2*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileResource::GetNextLock(UINT32*, DAV_LOCK_2*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileResource::GetFirstProperty(UINT32*, DAV_NAMED_PROPERTY*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileResource::GetNextProperty(UINT32*, DAV_NAMED_PROPERTY*)
{
    return Failure(kCodeNoMoreEntries);
}

TALSTATUS FileResource::GetNamedProperty(UNICODE_STRING*, UINT32*, char*)
{
    return Failure(kCodeNotFound);
}

TALSTATUS FileResource::SetNamedProperty(UNICODE_STRING*, UINT32, char*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileResource::SetNamedPropertyEnh(UNICODE_STRING*, UINT32, char*, UINT32*, char*)
{
    return Failure(kCodeNotImplemented);
}

TALSTATUS FileResource::IoctlRequest(SCHANDLE, UINT32, UINT32, void*, UINT32*, void*)
{
    return Failure(kCodeNotImplemented);
}

} // namespace filestore
