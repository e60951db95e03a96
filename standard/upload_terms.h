// SPDX-License-Identifier: Apache-2.0
//
// What the first request of an upload says of the whole, kept with the upload for the last one:
// conditions and lock tokens, the date, digests.
#pragma once

#include <string_view>

#include <kest/dav/records_3.h>
#include <kest/io.h>
#include <kest/status.h>

namespace standard {

// The request's headers of that kind as one text, in request memory. Code 7 when they are longer
// than kMostUploadTerms, 5 when memory is short.
[[nodiscard]] TALSTATUS GatherTerms(IKestIO_5* io, DAV_TEXT& terms);

// Makes such a text's headers the request's own. What the request says itself counts only where
// the first one said nothing.
[[nodiscard]] TALSTATUS RestoreTerms(IKestIO_5* io, std::string_view terms);

} // namespace standard
