// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/node.h"

#include <cerrno>
#include <cstring>

#include "providers/filestore/failures.h"
#include "providers/filestore/upload.h"

namespace filestore {

namespace {

TALSTATUS Settle(const Volume& volume, FileHandle file, int error)
{
    if (error == 0 && volume.Sync() == SyncLevel::Full) {
        error = volume.Fs().Sync(file, true);
        if (error == EBADF) // opened without content: there is nothing to sync by
            error = 0;
    }
    return StatusFromErrno(error);
}

} // namespace

TALSTATUS PutName(std::string_view name, UNICODE_STRING* out)
{
    size_t units = 0;
    if (!out || !out->Buffer)
        return Failure(kCodeInvalidParameter);
    WCHAR wide[kMaxNameBytes];
    if (!ToUtf16(name.data(), name.size(), wide, kMaxNameBytes, &units))
        return Failure(kCodeUnsuccessful);
    if (units * sizeof(WCHAR) > out->MaximumLength)
        return Failure(kCodeBufferTooSmall);
    std::memcpy(out->Buffer, wide, units * sizeof(WCHAR));
    out->Length = static_cast<UINT16>(units * sizeof(WCHAR));
    return TAL_STATUS_SUCCESS;
}

DAV_ETAG ETagOf(const FileInfo& info)
{
    const UINT64 parts[2] = {info.modified, info.inode ^ info.size << 32 ^ info.size >> 32};
    DAV_ETAG etag;
    static_assert(sizeof parts == sizeof etag.Bytes);
    std::memcpy(etag.Bytes, parts, sizeof parts);
    return etag;
}

UINT32 AttributesOf(const FileInfo& info)
{
    return IsReadOnly(info) ? kAttributeReadOnly : 0;
}

TALSTATUS SetCreated(const Volume& volume, std::string_view path, FileHandle file, UINT64 date)
{
    if (!volume.IsWritable())
        return Failure(kCodeAccessDenied);
    OpenFile parent;
    int error = path.empty() ? volume.Fs().Open("", OpenFor::Directory, parent.Out(volume.Fs()))
                             : volume.OpenParent(path, &parent);
    if (error == 0)
        error = volume.KeepCreated(file, parent.Get(), date);
    return Settle(volume, file, error);
}

TALSTATUS SetModified(const Volume& volume, FileHandle file, UINT64 date)
{
    if (!volume.IsWritable())
        return Failure(kCodeAccessDenied);
    return Settle(volume, file, volume.Fs().SetModified(file, date));
}

TALSTATUS SetAttributes(const Volume& volume, FileHandle file, FileInfo* info, UINT32 attributes)
{
    if (!volume.IsWritable())
        return Failure(kCodeAccessDenied);
    const UINT32 mode = WithReadOnly(info->mode, (attributes & kAttributeReadOnly) != 0);
    if (mode == info->mode)
        return TAL_STATUS_SUCCESS;
    const int error = volume.Fs().SetMode(file, mode);
    if (error == 0)
        info->mode = mode;
    return Settle(volume, file, error);
}

} // namespace filestore
