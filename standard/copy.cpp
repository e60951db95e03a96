// SPDX-License-Identifier: Apache-2.0
//
// COPY (RFC 4918 section 9.8).
#include "standard/handlers.h"
#include "standard/relocation.h"

namespace standard {

TALSTATUS Copy(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    return Relocate(RelocationKind::Copy, session, url, io);
}

} // namespace standard
