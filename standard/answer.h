// SPDX-License-Identifier: Apache-2.0
//
// Replies without content of their own: refusals that programs and people can read.
#pragma once

#include <kest/io.h>
#include <kest/status.h>

namespace standard {

// Sends a refusal and hands `status` back. `precondition` is the local name of the element that
// "DAV:error" holds (RFC 4918 section 16). Null: a sentence, as a line of text for programs, which
// show it or pass it over, and on a page with a way up for a browser. HEAD is answered without.
TALSTATUS Refuse(IKestIO_5* io, HTTPSTATUS http, TALSTATUS status,
                 const char* precondition = nullptr);
// The same with the HTTP status that `status` means (kest::HttpStatusOfFailure).
TALSTATUS RefuseMapped(IKestIO_5* io, TALSTATUS status);

} // namespace standard
