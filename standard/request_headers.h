// SPDX-License-Identifier: Apache-2.0
//
// The headers of the running request, as the handlers of the standard dialect read them.
#pragma once

#include <string_view>

#include "standard/conditions.h"
#include <kest/io.h>

namespace standard {

// A header's value, in request memory. data() is null when it has not been sent. Fails with code 5
// when memory is short, and as the host fails: then nobody knows, and the request is to be refused.
// A condition or a range that is passed over for want of memory would lose data.
[[nodiscard]] TALSTATUS ReadHeader(IKestIO_5* io, const char* name, std::string_view& value);

// The same as a date in any form of RFC 9110 section 5.6.7, in 100 ns units since 1601; 0 when it
// has not been sent or is no date.
[[nodiscard]] TALSTATUS ReadDateHeader(IKestIO_5* io, const char* name, UINT64& date);
// A text as a date; 0 when it is none.
UINT64 ReadDate(std::string_view text);

// The headers of RFC 9110 section 13.1 but "If-Range". "If-Modified-Since" counts for reading
// requests only and is not read otherwise.
[[nodiscard]] TALSTATUS ReadConditions(IKestIO_5* io, bool isReading, Conditions& conditions);

// Whether the body is of a media type ("Content-Type" without its parameters). Fails as ReadHeader.
[[nodiscard]] TALSTATUS ReadMediaType(IKestIO_5* io, std::string_view wanted, bool& isWanted);

// Whether the path as the client sent it ends with "/". Fails as the host does: nobody knows then.
[[nodiscard]] TALSTATUS ReadTrailingSlash(IKestIO_5* io, bool& endsWithSlash);

} // namespace standard
