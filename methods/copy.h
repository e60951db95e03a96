// SPDX-License-Identifier: Apache-2.0
//
// What COPY and MOVE share.
#pragma once

#include "support/globals.h"
#include "support/memory.h"
#include "support/reply.h"

// Bytes of a source or destination path.
inline constexpr UINT32 kCopyPathBytes = 4168;

// A provider path of its own, NUL-terminated, that a walk extends in place.
class CopyPath {
  public:
    // Code 5 when memory is short.
    [[nodiscard]] TALSTATUS Allocate()
    {
        buffer_ = AllocPaged<WCHAR>(kCopyPathBytes / sizeof(WCHAR) + 1);
        path_ = {0, kCopyPathBytes, buffer_.get()};
        return buffer_ ? TAL_STATUS_SUCCESS : TAL_STATUS_INSUFFICIENT_RESOURCES;
    }
    // Code 38 for a path that does not fit: cut, it would name something else.
    [[nodiscard]] TALSTATUS Set(const UNICODE_STRING& from)
    {
        if (from.Length > kCopyPathBytes)
            return TAL_STATUS_NAME_TOO_LONG;
        pITalpl->TalxCopyUnicodeString(&path_, &from);
        buffer_[path_.Length / sizeof(WCHAR)] = 0;
        return TAL_STATUS_SUCCESS;
    }
    UNICODE_STRING* Get() { return &path_; }

  private:
    Paged<WCHAR> buffer_;
    UNICODE_STRING path_{};
};

// One copy, or move by copying. The paths have kCopyPathBytes of room and one code unit more.
struct CopyJob {
    SCHANDLE session;
    bool overwrite;
    bool deleteSource;
    DAV_LOCK_TOKEN* token;
    KESTDAV_HANDLER* sourceHandler;
    UNICODE_STRING* source;
    KESTDAV_HANDLER* destinationHandler;
    UNICODE_STRING* destination;
};

// Copies content, attributes and dates of one resource; with deleteSource the source goes after a
// successful copy. A destination that was begun and not finished is deleted again. Code 22 when the
// destination exists and must not be overwritten.
TALSTATUS CopyAResource2(const CopyJob& job);

// Copies a tree; with deleteSource the source tree goes afterwards. With overwrite the destination
// must exist and is merged into (else code 33); the status is then the provider's "exists". A child
// that fails is left out.
TALSTATUS CopyACollection(const CopyJob& job, LIST_ENTRY* multiStatus);

// Copies whatever the source is.
TALSTATUS CopyByType(DAV_TYPE type, const CopyJob& job);

// The reply of both methods.
inline TALSTATUS ReplyCopied(IKestIO_5* io, TALSTATUS status)
{
    SetHeader(io, "Content-Length", "");
    return ReplyMapped(io, status);
}
