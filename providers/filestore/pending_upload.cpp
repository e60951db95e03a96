// SPDX-License-Identifier: Apache-2.0
//
// Reading, adding to and publishing an upload's two files.
#include "providers/filestore/pending_upload.h"

#include <algorithm>
#include <cerrno>

#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/publish.h"
#include "providers/filestore/room.h"
#include "providers/filestore/upload.h"
#include "providers/filestore/whole_read.h"

namespace filestore {

namespace {

// What is sent again, at most, after a power cut or a kill.
constexpr UINT64 kCheckpointBytes = UINT64{8} << 20;
// A slow client's upload must not pass for one to which nothing comes.
constexpr UINT64 kCheckpointShare = 4; // of the time for which it is kept

} // namespace

bool PendingUpload::IsExpired() const
{
    return store_.Now() >= record_.touched + store_.Settings().uploadSeconds * kTicksPerSecond;
}

void PendingUpload::Forget()
{
    recordFile_.Reset();
    content_.Reset();
    isLoaded_ = isComplete_ = hasNewLength_ = false;
}

TALSTATUS PendingUpload::ReadRecord()
{
    FileSystem& fs = volume_.Fs();
    FileHandle directory = kNoFile;
    if (const int error = volume_.OpenUploads(false, &directory))
        return StatusFromErrno(error);
    const std::string name = name_ + std::string(kUploadRecordSuffix);
    if (const int error =
            fs.OpenAt(directory, name.c_str(), OpenFor::Changing, recordFile_.Out(fs)))
        return StatusFromErrno(error);
    if (const int error = fs.TryLock(recordFile_.Get()))
        return error == EWOULDBLOCK ? Failure(kCodeTimeout) : StatusFromErrno(error);
    FileInfo info;
    if (const int error = fs.Inspect(recordFile_.Get(), &info))
        return StatusFromErrno(error);
    std::string text(std::min<UINT64>(info.size, kMostUploadRecordBytes), '\0');
    if (const int error = ReadWhole(fs, recordFile_.Get(), &text))
        return StatusFromErrno(error);
    return ReadUploadText(text, &record_) ? TAL_STATUS_SUCCESS : Failure(kCodeNotFound);
}

// The target first: a power cut can leave the content under both names.
TALSTATUS PendingUpload::FindContent()
{
    FileSystem& fs = volume_.Fs();
    FileHandle directory = kNoFile;
    FileInfo info;
    OpenFile target;
    int error = fs.Open(record_.path.c_str(), OpenFor::Locating, target.Out(fs));
    if (error == 0)
        error = fs.Inspect(target.Get(), &info);
    if (IsFault(error))
        return StatusFromErrno(error);
    isComplete_ = error == 0 && info.inode == record_.inode && info.size >= record_.offset;
    offset_ = isComplete_ ? info.size : record_.offset;
    if (isComplete_)
        return TAL_STATUS_SUCCESS;
    error = volume_.OpenUploads(false, &directory);
    if (error == 0)
        error = fs.OpenAt(directory, name_.c_str(), OpenFor::Changing, content_.Out(fs));
    if (error == 0)
        error = fs.Inspect(content_.Get(), &info);
    if (error)
        return StatusFromErrno(error);
    // Shorter than what was recorded: it was lost with the power, where nothing is synced.
    return info.inode == record_.inode && info.size >= record_.offset ? TAL_STATUS_SUCCESS
                                                                      : Failure(kCodeNotFound);
}

TALSTATUS PendingUpload::Load()
{
    if (isLoaded_)
        return TAL_STATUS_SUCCESS;
    TALSTATUS status = ReadRecord();
    if (!Failed(status) && IsExpired())
        status = Failure(kCodeNotFound);
    if (!Failed(status))
        status = FindContent();
    isLoaded_ = !Failed(status);
    if (!isLoaded_)
        Forget(); // what is there of it is swept in its time
    return status;
}

TALSTATUS PendingUpload::Append(const void* data, UINT32 size)
{
    if (size > record_.length - std::min(offset_, record_.length))
        return Failure(kCodeInvalidRequest);
    if (const int error = WithRoom(store_, volume_, size, [&] {
            return volume_.Fs().Write(content_.Get(), offset_, data, size);
        }))
        return StatusFromErrno(error);
    offset_ += size;
    const UINT64 kept = store_.Settings().uploadSeconds * kTicksPerSecond;
    const bool isDue = offset_ - record_.offset >= kCheckpointBytes ||
                       store_.Now() - record_.touched >= kept / kCheckpointShare;
    return isDue ? Checkpoint() : TAL_STATUS_SUCCESS;
}

TALSTATUS PendingUpload::CutTo(UINT64 offset)
{
    if (offset > offset_)
        return Failure(kCodeInvalidParameter);
    if (offset < record_.offset) { // before other content takes its place
        UploadRecord cut = record_;
        cut.offset = offset;
        if (const TALSTATUS status = WriteHead(std::move(cut)); Failed(status))
            return status;
    }
    offset_ = offset;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PendingUpload::WriteHead(UploadRecord next)
{
    FileSystem& fs = volume_.Fs();
    const std::string head = UploadHead(next);
    int error = fs.Write(recordFile_.Get(), 0, head.data(), head.size());
    if (error == 0 && volume_.Sync() != SyncLevel::None)
        error = fs.Sync(recordFile_.Get(), false);
    if (error)
        return StatusFromErrno(error);
    record_ = std::move(next);
    hasNewLength_ = false;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PendingUpload::Read(UINT64 offset, void* buffer, UINT32 size, UINT32* read)
{
    size_t got = 0;
    const auto wanted =
        static_cast<size_t>(std::min<UINT64>(size, offset_ - std::min(offset, offset_)));
    const int error = wanted ? volume_.Fs().Read(content_.Get(), offset, buffer, wanted, &got) : 0;
    *read = static_cast<UINT32>(got);
    return StatusFromErrno(error);
}

TALSTATUS PendingUpload::SetWholeLength(UINT64 length)
{
    if (length == kUploadLengthUnknown || length == record_.length)
        return TAL_STATUS_SUCCESS;
    if (record_.length != kUploadLengthUnknown || length < offset_)
        return Failure(kCodeInvalidRequest);
    record_.length = length; // written with the next checkpoint
    hasNewLength_ = true;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PendingUpload::Checkpoint()
{
    if (!content_ || (offset_ == record_.offset && !hasNewLength_))
        return TAL_STATUS_SUCCESS;
    if (volume_.Sync() != SyncLevel::None)
        if (const int error = volume_.Fs().Sync(content_.Get(), false))
            return StatusFromErrno(error);
    UploadRecord next = record_;
    next.offset = offset_;
    next.touched = store_.Now();
    return WriteHead(std::move(next));
}

TALSTATUS PendingUpload::Publish(const Guard& guard, DAV_DATETIME modified, DAV_DATETIME created,
                                 FileInfo* published, bool* replaced)
{
    if (record_.length != kUploadLengthUnknown && record_.length != offset_)
        return Failure(kCodeInvalidRequest);
    FileSystem& fs = volume_.Fs();
    FileHandle directory = kNoFile;
    FileInfo info;
    int error = fs.Inspect(content_.Get(), &info);
    if (error == 0 && info.size != offset_) // a rest that does not count
        error = fs.SetSize(content_.Get(), offset_);
    if (error == 0)
        error = volume_.OpenUploads(false, &directory);
    if (error)
        return StatusFromErrno(error);
    Upload upload(store_, volume_);
    upload.SetConditions(guard.On(volume_, record_.path));
    upload.SetModified(modified ? StampedDate(modified, true) : StampedDate(store_.Now(), false));
    if (created)
        upload.SetCreated(created);
    upload.SetDescribed(); // before: once it is published nothing is told as failed any more
    TALSTATUS status = upload.BeginWithFile(record_.path, directory, name_);
    if (!Failed(status))
        status = WithRoomForRows(store_, volume_, [&] { return upload.Finish(); });
    if (!Failed(status))
        status = WithRoomForRows(store_, volume_, [&] {
            return PublishUpload(guard, volume_, record_.path, guard.HasConditions(), &upload);
        });
    if (Failed(status))
        return status;
    *replaced = upload.IsReplacing();
    *published = upload.Made();
    content_.Reset();
    isComplete_ = true;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PendingUpload::Remove()
{
    FileSystem& fs = volume_.Fs();
    FileHandle directory = kNoFile;
    if (const int error = volume_.OpenUploads(false, &directory))
        return StatusFromErrno(error);
    // The record first: content without one is nobody's, but a record whose inode is free again
    // could be taken for that of another file.
    for (const std::string& name : {name_ + std::string(kUploadRecordSuffix), name_}) {
        const int error = fs.RemoveFile(directory, name.c_str());
        if (error && error != ENOENT)
            return StatusFromErrno(error);
    }
    Forget();
    return TAL_STATUS_SUCCESS;
}

std::unique_ptr<UploadRegistry::Hold> HoldUpload(const Store& store, Volume& volume,
                                                 std::string_view name)
{
    return std::make_unique<UploadRegistry::Hold>(volume.Uploads(), name, [&] {
        return std::make_shared<PendingUpload>(store, volume, std::string(name));
    });
}

} // namespace filestore
