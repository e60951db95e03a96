// SPDX-License-Identifier: Apache-2.0
//
// Content on its way to the client: the whole, one range, or several as "multipart/byteranges" (RFC
// 9110 sections 14 and 15.3.7).
#pragma once

#include "standard/ranges.h"
#include <kest/dav/resource_3.h>
#include <kest/io.h>

namespace standard {

// Sends `range` of an opened resource as body. Ends early when the client has gone or the provider
// fails: the reply is then short of its announced length, and the host breaks the connection.
TALSTATUS SendBytes(IKestIO_5* io, IKestDAVResource3& resource, ByteRange range);

// Sends status 206 with its headers and body. `type` is the content's media type.
TALSTATUS SendPart(IKestIO_5* io, IKestDAVResource3& resource, const ByteRange& range, UINT64 size);
TALSTATUS SendParts(IKestIO_5* io, IKestDAVResource3& resource, const RangeSet& set, UINT64 size,
                    const char* type);

// Sets "Content-Range" for what cannot be had of a content of `size` bytes.
void SetUnsatisfied(IKestIO_5* io, UINT64 size);

} // namespace standard
