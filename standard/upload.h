// SPDX-License-Identifier: Apache-2.0
//
// The request's body on its way into a resource: what PUT and PATCH share.
#pragma once

#include <string_view>

#include "standard/failures.h"
#include "standard/object.h"
#include "standard/ranges.h"
#include <kest/io.h>

namespace standard {

// One upload: what the request says of it, and what became of it.
struct Upload {
    // Of the request.
    bool isPart = false; // of a file that is there; `range` says which
    UpdateRange range;
    bool hasBodyLength = false;
    UINT64 bodyLength = 0; // bytes that have to come, no more and no less
    UINT64 modified = 0;   // the date that the client wants, 0: now
    DAV_PRECONDITIONS conditions{};

    // Of the result.
    bool isServed = true;   // else the provider has no third generation, and nothing was done
    HTTPSTATUS refusal = 0; // when not 0, what to answer in place of the status's meaning
    UINT64 size = 0;        // of what was there, where the range does not fit it
    DAV_CHANGE change = EmptyChange();
    Failures failures;
};

// Fills what PUT and PATCH have in common from the request's headers. Code 16 for one that is
// malformed, or for two that contradict each other.
[[nodiscard]] TALSTATUS ReadUpload(IKestIO_5* io, Upload& upload);

// Writes the body and publishes the whole. Nothing has changed when it fails. Until it returns
// success nobody sees any of it.
[[nodiscard]] TALSTATUS StoreUpload(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io,
                                    Upload& upload);

// The reply for an upload that has ended with `status`.
TALSTATUS AnswerUpload(IKestIO_5* io, TALSTATUS status, const UNICODE_STRING& path,
                       const Upload& upload);

} // namespace standard
