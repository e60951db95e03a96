// SPDX-License-Identifier: Apache-2.0
//
// One request of a resumable upload: the PUT that begins it, or a PATCH that goes on with it.
#pragma once

#include "standard/upload.h"
#include "standard/upload_fields.h"
#include "support/globals.h"
#include <kest/com.h>
#include <kest/dav/uploads_3.h>
#include <kest/io.h>

namespace standard {

class ResumableUpload {
  public:
    ResumableUpload(SCHANDLE session, const UNICODE_STRING& target, IKestIO_5* io)
        : session_(session), target_(target), io_(io)
    {
    }
    ResumableUpload(const ResumableUpload&) = delete;
    ResumableUpload& operator=(const ResumableUpload&) = delete;

    // Begins an upload with the body of a PUT. Replies, unless `isServed` comes back false: then
    // resuming is not offered for it, nothing was done, and the PUT is one like any other.
    TALSTATUS Create(const UploadFields& fields, bool& isServed);
    // Adds the body of a PATCH to the upload of a name. Replies.
    TALSTATUS Append(const UploadFields& fields, const DAV_TEXT& name);

  private:
    // What became of the body.
    struct Received {
        TALSTATUS status = TAL_STATUS_SUCCESS;
        HTTPSTATUS refusal = 0;
        UINT64 bytes = 0;
        bool isTooLong = false;
    };

    TALSTATUS FindLength(UINT64 start, bool& isConsistent);
    TALSTATUS Begin(bool& isServed);
    Received Receive(IKestDAVResource3& content, UINT64 start);
    TALSTATUS CheckWhole(IKestDAVResource3& content, UINT64 size);
    TALSTATUS Take(UINT64 start);
    TALSTATUS Finish(IKestDAVResource3& content, UINT64 size);
    TALSTATUS AnswerPart(UINT64 offset);
    TALSTATUS AnswerBroken(const Received& received);
    void SetPlace();
    void Cancel();

    const SCHANDLE session_;
    UNICODE_STRING target_;
    IKestIO_5* const io_;
    UploadFields fields_;
    bool isCreation_ = false;
    UINT64 length_ = kUploadLengthUnknown;
    Upload upload_;
    Ref<IKestDAVUploads3> uploads_;
    DAV_UPLOAD state_{};
    std::string_view location_; // of a creation; empty: not told
};

// The uploads of the provider that serves a path, or would serve it. The caller holds the
// providers' list. IsNotOffered of the status when it has none.
[[nodiscard]] TALSTATUS FindUploads(SCHANDLE session, const UNICODE_STRING& path,
                                    Ref<IKestDAVUploads3>& uploads);
constexpr bool IsNotOffered(TALSTATUS status) noexcept
{
    return Code(status) == kCodeNotImplemented || Code(status) == kCodeNotSupported;
}

} // namespace standard
