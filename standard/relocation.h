// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE (RFC 4918 sections 9.8 and 9.9), which differ in one call.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

namespace standard {

enum class RelocationKind { Copy, Move };

TALSTATUS Relocate(RelocationKind kind, SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);

} // namespace standard
