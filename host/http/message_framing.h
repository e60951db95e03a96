// SPDX-License-Identifier: Apache-2.0
//
// Where a request's body ends (RFC 9112 section 6).
#pragma once

#include <cstdint>

#include "host/http/request_head.h"

namespace kestd {

struct MessageFraming {
    enum class Kind { None, Length, Chunked };
    Kind kind = Kind::None;
    uint64_t length = 0; // Length only
};

// Reads the framing of a request. 0, or the status to refuse it with (the connection closes then,
// since nobody can tell where the next request starts): 400 for a malformed or repeated length, a
// length beside a transfer coding, or a transfer coding to HTTP/1.0; 501 for codings other than
// "chunked".
int ReadFraming(const RequestHead& head, MessageFraming& out);

} // namespace kestd
