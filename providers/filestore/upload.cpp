// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/upload.h"

#include <cerrno>

#include "providers/filestore/failures.h"

namespace filestore {

UINT32 WithReadOnly(UINT32 mode, bool on)
{
    // Made writable again it is the owner's; wider rights are not for a client to give.
    return on ? mode & ~0222u : (mode & 0222 ? mode : mode | 0200);
}

TALSTATUS Upload::Begin(std::string_view path)
{
    if (!volume_.IsWritable())
        return Failure(kCodeAccessDenied);
    if (path.empty())
        return Failure(kCodeMethodNotAllowed);
    FileSystem& fs = volume_.Fs();
    if (const int error = volume_.OpenParent(path, &parent_))
        return error == ENOENT || error == ENOTDIR ? Failure(kCodeConflict)
                                                   : StatusFromErrno(error);
    leaf_ = LeafOf(path);
    FileInfo info;
    const int error = fs.InspectAt(parent_.Get(), leaf_.c_str(), &info);
    if (error && error != ENOENT)
        return StatusFromErrno(error);
    if (error == 0) {
        if (info.isDirectory)
            return Failure(kCodeMethodNotAllowed);
        if (!info.isRegular && !info.isLink)
            return Failure(kCodeAccessDenied); // a device or a pipe is not replaced by a file
        if (info.isRegular && IsReadOnly(info))
            return Failure(kCodeAccessDenied);
        replaces_ = true;
        if (info.isRegular)
            old_ = info;
    }
    std::string name = volume_.UniqueName();
    if (const int made = fs.CreateFile(volume_.Tmp(), name.c_str(), file_.Out(fs)))
        return StatusFromErrno(made);
    tmpName_ = std::move(name);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Upload::BeginWithContent(std::string_view path, FileHandle content, UINT64 size)
{
    if (const TALSTATUS status = Begin(path); Failed(status))
        return status;
    return StatusFromErrno(volume_.Fs().CopyContent(content, file_.Get(), size));
}

TALSTATUS Upload::Write(UINT64 offset, const void* data, UINT32 size)
{
    if (tmpName_.empty())
        return Failure(kCodeAccessDenied);
    const TALSTATUS status = StatusFromErrno(volume_.Fs().Write(file_.Get(), offset, data, size));
    if (Failed(status) && !Failed(failed_))
        failed_ = status;
    return status;
}

// Gives the new file what the old one had, and what the caller asked for.
int Upload::ApplyAttributes()
{
    FileSystem& fs = volume_.Fs();
    UINT32 mode = fs.NewFileMode();
    if (old_) {
        FileInfo made;
        if (const int error = fs.Inspect(file_.Get(), &made))
            return error;
        // The owner stays if the serving account may give files away.
        if (made.owner != old_->owner || made.group != old_->group)
            (void)fs.SetOwner(file_.Get(), old_->owner, old_->group);
        mode = old_->mode;
        if (!created_)
            created_ = volume_.HasKeptDates(parent_.Get())
                           ? volume_.CreatedOfChild(parent_.Get(), leaf_.c_str(), *old_)
                           : old_->created;
    }
    if (readOnly_)
        mode = WithReadOnly(mode, *readOnly_);
    if (mode != fs.NewFileMode())
        if (const int error = fs.SetMode(file_.Get(), mode))
            return error;
    if (created_) {
        // A file system without tags shows its own date: that is no reason to refuse content.
        const int error = volume_.KeepCreated(file_.Get(), parent_.Get(), *created_);
        if (error && error != EOPNOTSUPP)
            return error;
    }
    return modified_ ? fs.SetModified(file_.Get(), *modified_) : 0;
}

TALSTATUS Upload::Finish()
{
    if (Failed(failed_))
        return failed_;
    int error = ApplyAttributes();
    if (error == 0 && volume_.Sync() != SyncLevel::None)
        error = volume_.Fs().Sync(file_.Get(), volume_.Sync() == SyncLevel::Full);
    return StatusFromErrno(error);
}

TALSTATUS Upload::Publish()
{
    if (tmpName_.empty())
        return Failure(kCodeAccessDenied);
    int error =
        volume_.Fs().Rename(volume_.Tmp(), tmpName_.c_str(), parent_.Get(), leaf_.c_str(), true);
    if (error == 0) {
        tmpName_.clear();
        error = volume_.SyncNames(parent_.Get());
    }
    // The leaf became a directory, or its directory went, while the content arrived.
    if (error == EISDIR || error == ENOENT)
        return Failure(kCodeConflict);
    // Another file system is mounted inside the volume: no rename reaches it.
    return error == EXDEV ? Failure(kCodeAccessDenied) : StatusFromErrno(error);
}

void Upload::Discard()
{
    if (!tmpName_.empty())
        (void)volume_.Fs().RemoveFile(volume_.Tmp(), tmpName_.c_str()); // else the next start does
    tmpName_.clear();
    file_.Reset();
}

} // namespace filestore
