// SPDX-License-Identifier: Apache-2.0
//
// The resource that stands for an upload under way: TARGET/.kest/upload/NAME, where TARGET is the
// path that is uploaded to. No provider serves such a name, so that it is nothing to who does not
// know of uploads; and who may not write TARGET may not write what lies below it.
#pragma once

#include <string_view>

#include "standard/upload_fields.h"
#include "support/globals.h"
#include <kest/dav/uploads_3.h>
#include <kest/io.h>

namespace standard {

// The parts of such a path.
struct UploadResource {
    UNICODE_STRING target{}; // provider path; shares the request path's buffer
    char name[kUploadNameBytes] = {};
    UINT32 nameLength = 0;

    DAV_TEXT Name() const noexcept { return {name, nameLength}; }
};

// Whether a request path is one. `out` is filled if it is.
[[nodiscard]] bool IsUploadResource(const UNICODE_STRING& url, UploadResource& out) noexcept;

// The resource's path as a URI reference, in request memory, NUL-terminated; empty when there is no
// memory for it. Its target is the request's own path, as the client spells it.
[[nodiscard]] std::string_view UploadLocation(IKestIO_5* io, const DAV_UPLOAD& upload);
// Sends 104 with that place, where the host and the client know interim replies.
void AnnounceUpload(IKestIO_5* io, const UploadFields& fields, const DAV_UPLOAD& upload,
                    std::string_view location);

// Sets what a reply says of an upload's state.
void SetUploadOffset(IKestIO_5* io, UINT64 offset);
void SetUploadComplete(IKestIO_5* io, const UploadFields& fields, bool isComplete);
void SetUploadLength(IKestIO_5* io, UINT64 length);
void SetUploadLimits(IKestIO_5* io, const DAV_UPLOAD& upload);

// Refusals by problem type (RFC 9457). Each hands `status` back.
TALSTATUS RefuseOffset(IKestIO_5* io, TALSTATUS status, UINT64 expected, UINT64 provided);
TALSTATUS RefuseLength(IKestIO_5* io, TALSTATUS status);
TALSTATUS RefuseCompleted(IKestIO_5* io, TALSTATUS status);

} // namespace standard
