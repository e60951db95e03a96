// SPDX-License-Identifier: Apache-2.0
//
// Lock tokens as LOCK, UNLOCK and PROPPATCH find them in a request header.
#pragma once

#include <kest/req.h>

// A header value that fits a buffer of this size counts as present, with its terminator.
inline constexpr UINT32 kTokenHeaderBytes = 128;

// Reads a header of at most kTokenHeaderBytes into `text`, which has room for one byte more, and
// terminates it. False when it is missing or too long.
[[nodiscard]] bool ReadTokenHeader(IKestIO_5* io, const char* name,
                                   char (&text)[kTokenHeaderBytes + 1]);

// Finds the token of a header value that contains "opaquelocktoken": what stands between the first
// ":" of the whole value and the next ">" or the value's end. Kept: in a tagged list with an
// absolute URL that is not the token. False without that word; without a ":" the token is empty.
[[nodiscard]] bool FindToken(const char* header, const char** token, UINT32* length);

// The same, copied to `out` and terminated, cut to fit `room` bytes.
[[nodiscard]] bool CopyToken(const char* header, char* out, UINT32 room, UINT32* length);
