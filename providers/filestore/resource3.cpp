// SPDX-License-Identifier: Apache-2.0
//
// Opening, reading, writing and publishing content.
#include "providers/filestore/resource3.h"

#include "providers/filestore/callcontext.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/operation.h"
#include "providers/filestore/publish.h"
#include "providers/filestore/request_cache.h"
#include "providers/filestore/room.h"

namespace filestore {

namespace {

bool HasAny(const DAV_PRECONDITIONS& given)
{
    return given.IfCount || given.Match.Length || given.NoneMatch.Length || given.UnmodifiedSince;
}

constexpr UINT64 kLastOffset = ~UINT64{0} >> 1; // that any file system counts to

} // namespace

void ResourceTearOff::Close()
{
    upload_.reset(); // drops what was not published
    guard_.reset();
    file_.Reset();
    isOpen_ = false;
}

TALSTATUS ResourceTearOff::Open(SCHANDLE hSession, UNICODE_STRING* path, UINT32 purpose,
                                INT64 expected, const DAV_PRECONDITIONS* preconditions,
                                IKestDAVFailures3* failures, DAV_OBJECT_INFO* info)
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

TALSTATUS ResourceTearOff::OpenForReading(SCHANDLE session, const UNICODE_STRING* path,
                                          DAV_OBJECT_INFO* info)
{
    Target target;
    if (const TALSTATUS status = store_.Locate(path, &target); Failed(status))
        return status;
    volume_ = target.volume;
    if (target.IsRoot()) {
        request_cache::Drop();
        info_ = {};
        info_.isDirectory = true;
        WriteRecord(DescribeRoot(store_), info);
        return TAL_STATUS_SUCCESS;
    }
    const auto asked = target.path.Length();
    TALSTATUS status = OpenFound(store_, &target, &file_, &info_);
    // What pages escape twice is found under a shorter name. No page sends HEAD: who does wants to
    // know whether the very name is free.
    if (!Failed(status) && target.path.Length() != asked && call::Method() == KestMethodHead)
        status = Failure(kCodeNotFound);
    if (!Failed(status) && HasAny(given_))
        status = JudgeReading(session, target);
    if (Failed(status))
        return status;
    path_ = target.path.View();
    WriteRecord(DescribeObject(store_.Now(), volume_, info_, false), info);
    return status;
}

// What is open now is what is read.
TALSTATUS ResourceTearOff::JudgeReading(SCHANDLE session, const Target& target)
{
    const Guard guard(store_, session, target, given_);
    const TALSTATUS status = guard.CheckConditions();
    return Failed(status) ? status : guard.On(*target.volume, target.path.View()).Judge(&info_);
}

TALSTATUS ResourceTearOff::OpenForWriting(SCHANDLE session, const UNICODE_STRING* path,
                                          UINT32 purpose, INT64 expected, DAV_OBJECT_INFO* info)
{
    request_cache::Drop();
    Target target;
    if (const TALSTATUS status = store_.LocateNew(path, &target); Failed(status))
        return status;
    volume_ = target.volume;
    path_ = target.path.View();
    guard_.emplace(store_, session, target, given_);
    if (const TALSTATUS status = guard_->CheckConditions(); Failed(status))
        return status;
    if (purpose == kOpenModify) {
        TALSTATUS status = store_.OpenExisting(&target, OpenFor::Reading, &file_, &info_);
        if (!Failed(status) && info_.isDirectory)
            status = Failure(kCodeMethodNotAllowed);
        if (Failed(status))
            return status;
    }
    if (const TALSTATUS status = Begin(purpose, expected); Failed(status) || !info)
        return status;
    DAV_OBJECT_INFO record{};
    record.Size = sizeof record;
    if (const FileInfo* const old = upload_->Old())
        record = DescribeObject(store_.Now(), volume_, *old, false);
    WriteRecord(record, info);
    return TAL_STATUS_SUCCESS;
}

// Locks are asked before a byte is taken: a client is not to send a long body in vain.
TALSTATUS ResourceTearOff::Begin(UINT32 purpose, INT64 expected)
{
    Volume& volume = *volume_;
    upload_.emplace(store_, volume);
    upload_->SetConditions(guard_->On(volume, path_));
    TALSTATUS status = purpose == kOpenModify
                           ? upload_->BeginWithContent(path_, file_.Get(), info_.size)
                           : upload_->Begin(path_, false);
    if (!Failed(status))
        status = guard_->CheckLocks(volume, path_,
                                    upload_->IsReplacing() ? Reach::Self : Reach::Membership);
    if (!Failed(status) && expected > 0)
        status = MakeRoomForBody(store_, volume, static_cast<UINT64>(expected));
    return status;
}

// A file that has only been looked at is opened when its content is wanted.
TALSTATUS ResourceTearOff::OpenContent()
{
    if (file_)
        return TAL_STATUS_SUCCESS;
    FileSystem& fs = volume_->Fs();
    return StatusFromErrno(fs.Open(path_.c_str(), OpenFor::Reading, file_.Out(fs)));
}

TALSTATUS ResourceTearOff::GetDescriptor(INT32* descriptor)
{
    if (!isOpen_ || upload_ || !descriptor)
        return Failure(kCodeInvalidParameter);
    if (info_.isDirectory)
        return Failure(kCodeMethodNotAllowed);
    return Protected([&] {
        if (const TALSTATUS status = OpenContent(); Failed(status))
            return status;
        *descriptor = volume_->Fs().Descriptor(file_.Get());
        return *descriptor < 0 ? Failure(kCodeNotImplemented) : TAL_STATUS_SUCCESS;
    });
}

TALSTATUS ResourceTearOff::Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read)
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
        if (const TALSTATUS status = OpenContent(); Failed(status))
            return status;
        size_t got = 0;
        const int error = volume_->Fs().Read(file_.Get(), offset, buffer, length, &got);
        *read = static_cast<UINT32>(got);
        return StatusFromErrno(error);
    });
}

TALSTATUS ResourceTearOff::Write(UINT64 offset, UINT32 length, const char* buffer)
{
    if (!isOpen_ || !upload_ || (length && !buffer))
        return Failure(kCodeInvalidParameter);
    if (offset > kLastOffset - length)
        return Failure(kCodeStorageFull);
    return Protected([&] { return upload_->Write(offset, buffer, length); });
}

TALSTATUS ResourceTearOff::SetLength(UINT64 length)
{
    if (!isOpen_ || !upload_)
        return Failure(kCodeInvalidParameter);
    return Protected([&] { return upload_->SetLength(length); });
}

TALSTATUS ResourceTearOff::Finish(DAV_DATETIME modified, DAV_DATETIME created)
{
    Volume& volume = *volume_;
    upload_->SetModified(modified ? StampedDate(modified, true) : StampedDate(store_.Now(), false));
    if (created)
        upload_->SetCreated(created);
    upload_->SetDescribed();
    // What may take long comes before the locks are asked again.
    TALSTATUS status = WithRoomForRows(store_, volume, [&] { return upload_->Finish(); });
    if (!Failed(status))
        status = WithRoomForRows(store_, volume, [&] {
            return PublishUpload(*guard_, volume, path_, guard_->HasConditions(), &*upload_);
        });
    if (!Failed(status))
        info_ = upload_->Made();
    return status;
}

TALSTATUS ResourceTearOff::Publish(DAV_DATETIME modified, DAV_DATETIME created,
                                   IKestDAVFailures3* failures, DAV_CHANGE* change)
{
    if (!isOpen_ || !upload_)
        return Failure(kCodeInvalidParameter);
    const TALSTATUS status = Protected([&] {
        request_cache::Drop();
        const TALSTATUS published = Finish(modified, created);
        if (Failed(published))
            TellRefusals(*guard_, published, failures);
        else
            TellChange(upload_->IsReplacing(), DescribeObject(store_.Now(), volume_, info_, false),
                       change);
        return published;
    });
    Close();
    return status;
}

} // namespace filestore
