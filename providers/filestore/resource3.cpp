// SPDX-License-Identifier: Apache-2.0
//
// Opening, reading, writing and publishing content.
#include "providers/filestore/resource3.h"

#include "providers/filestore/callcontext.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/operation.h"
#include "providers/filestore/publish.h"
#include "providers/filestore/recent.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

constexpr UINT64 kLastOffset = ~UINT64{0} >> 1; // that any file system counts to

} // namespace

void ContentFace::Close()
{
    upload_.reset(); // drops what was not published
    guard_.reset();
    file_.Reset();
    isOpen_ = false;
}

TALSTATUS ContentFace::Open(SCHANDLE hSession, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                            const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                            DAV_OBJECT_INFO* info)
{
    if (purpose > kOpenModify || expected < -1)
        return Failure(kCodeInvalidParameter);
    const TALSTATUS status = Protected([&] {
        Close();
        if (!ReadRecord(preconditions, &given_) || !AreReadable(given_))
            return Failure(kCodeInvalidParameter);
        return purpose == kOpenRead ? OpenForReading(hSession, path, info)
                                    : OpenForWriting(hSession, path, purpose, expected, info);
    });
    isOpen_ = !Failed(status);
    if (Failed(status)) {
        if (guard_)
            (void)Protected([&] {
                TellRefusals(*guard_, status, failures);
                return status;
            });
        Close();
    }
    return status;
}

TALSTATUS ContentFace::OpenForReading(SCHANDLE session, const UNICODE_STRING* path,
                                      DAV_OBJECT_INFO* info)
{
    if (const TALSTATUS status = store_.Locate(path, &target_); Failed(status))
        return status;
    if (target_.IsRoot()) {
        recent::Drop();
        info_ = {};
        info_.isDirectory = true;
        WriteRecord(DescribeRoot(store_), info);
        return TAL_STATUS_SUCCESS;
    }
    guard_.emplace(store_, session, target_, given_);
    TALSTATUS status = OpenFound(store_, &target_, &file_, &info_);
    if (!Failed(status))
        status = guard_->CheckConditions();
    if (!Failed(status))
        status = guard_->On(*target_.volume, target_.path.View()).Judge(&info_);
    if (!Failed(status))
        WriteRecord(DescribeObject(store_, target_.volume, info_, false), info);
    return status;
}

TALSTATUS ContentFace::OpenForWriting(SCHANDLE session, const UNICODE_STRING* path, UINT32 purpose,
                                      INT64 expected, DAV_OBJECT_INFO* info)
{
    recent::Drop();
    if (const TALSTATUS status = store_.LocateNew(path, &target_); Failed(status))
        return status;
    guard_.emplace(store_, session, target_, given_);
    if (const TALSTATUS status = guard_->CheckConditions(); Failed(status))
        return status;
    if (purpose == kOpenModify) {
        TALSTATUS status = store_.OpenExisting(&target_, OpenFor::Reading, &file_, &info_);
        if (!Failed(status) && info_.isDirectory)
            status = Failure(kCodeMethodNotAllowed);
        if (Failed(status))
            return status;
    }
    if (const TALSTATUS status = Begin(purpose, expected); Failed(status))
        return status;
    DAV_OBJECT_INFO told{};
    told.Size = sizeof told;
    if (const FileInfo* const old = upload_->Old())
        told = DescribeObject(store_, target_.volume, *old, false);
    WriteRecord(told, info);
    return TAL_STATUS_SUCCESS;
}

// Locks are asked before a byte is taken: a client is not to send a long body in vain.
TALSTATUS ContentFace::Begin(UINT32 purpose, INT64 expected)
{
    Volume& volume = *target_.volume;
    const std::string_view path = target_.path.View();
    upload_.emplace(store_, volume);
    upload_->SetConditions(guard_->On(volume, path));
    TALSTATUS status = purpose == kOpenModify
                           ? upload_->BeginWithContent(path, file_.Get(), info_.size)
                           : upload_->Begin(path, false);
    if (!Failed(status))
        status = guard_->CheckLocks(volume, path,
                                    upload_->IsReplacing() ? Reach::Self : Reach::Membership);
    if (!Failed(status) && expected > 0)
        status = MakeRoomFor(static_cast<UINT64>(expected));
    return status;
}

// A body that cannot be kept is refused before it is sent.
TALSTATUS ContentFace::MakeRoomFor(UINT64 bytes)
{
    constexpr UINT64 kWorthAsking = 1u << 20;
    Volume& volume = *target_.volume;
    UINT64 free = 0, total = 0;
    if (bytes < kWorthAsking)
        return TAL_STATUS_SUCCESS;
    for (;;) {
        if (const int error = volume.Fs().FreeSpace(&free, &total))
            return StatusFromErrno(error);
        if (free >= bytes)
            return TAL_STATUS_SUCCESS;
        if (bytes > total || !MakeRoom(store_, volume, bytes))
            return Failure(kCodeStorageFull);
    }
}

TALSTATUS ContentFace::Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
{
    if (!isOpen_ || upload_ || !read || (length && !buffer))
        return Failure(kCodeInvalidParameter);
    *read = 0;
    if (info_.isDirectory)
        return Failure(kCodeMethodNotAllowed);
    if (offset > kLastOffset)
        return TAL_STATUS_SUCCESS; // behind any end
    if (offset != 0 && call::IsCancelled())
        return Failure(kCodeUnsuccessful);
    return Protected([&] {
        FileSystem& fs = target_.volume->Fs();
        size_t got = 0;
        if (!file_) // it has only been looked at
            if (const int error = fs.Open(target_.path.CStr(), OpenFor::Reading, file_.Out(fs)))
                return StatusFromErrno(error);
        const int error = fs.Read(file_.Get(), offset, buffer, length, &got);
        *read = static_cast<UINT32>(got);
        return StatusFromErrno(error);
    });
}

TALSTATUS ContentFace::Write(UINT64 offset, UINT32 length, const char* buffer)
{
    if (!isOpen_ || !upload_ || (length && !buffer))
        return Failure(kCodeInvalidParameter);
    if (offset > kLastOffset - length)
        return Failure(kCodeStorageFull);
    return Protected([&] { return upload_->Write(offset, buffer, length); });
}

TALSTATUS ContentFace::SetLength(UINT64 length)
{
    if (!isOpen_ || !upload_)
        return Failure(kCodeInvalidParameter);
    return Protected([&] { return upload_->SetLength(length); });
}

TALSTATUS ContentFace::Finish(DAV_DATETIME modified, DAV_DATETIME created)
{
    Volume& volume = *target_.volume;
    upload_->SetModified(modified ? StampedDate(modified, true) : StampedDate(store_.Now(), false));
    if (created)
        upload_->SetCreated(created);
    // What may take long comes before the locks are asked again.
    TALSTATUS status = WithRoomForRows(store_, volume, [&] { return upload_->Finish(); });
    if (!Failed(status))
        status = WithRoomForRows(store_, volume, [&] {
            return PublishUpload(*guard_, volume, target_.path.View(), guard_->HasConditions(),
                                 &*upload_);
        });
    return Failed(status) ? status : StatusFromErrno(volume.Fs().Inspect(upload_->File(), &info_));
}

TALSTATUS ContentFace::Publish(DAV_DATETIME modified, DAV_DATETIME created,
                               IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    if (!isOpen_ || !upload_)
        return Failure(kCodeInvalidParameter);
    const TALSTATUS status = Protected([&] {
        recent::Drop();
        const TALSTATUS published = Finish(modified, created);
        if (Failed(published))
            TellRefusals(*guard_, published, failures);
        else
            TellChange(upload_->IsReplacing(), DescribeObject(store_, target_.volume, info_, false),
                       change);
        return published;
    });
    Close();
    return status;
}

} // namespace filestore
