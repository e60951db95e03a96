// SPDX-License-Identifier: Apache-2.0
//
// MOVE (RFC 4918 section 9.9).
#include "standard/handlers.h"
#include "standard/relocation.h"

namespace standard {

TALSTATUS Move(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    return Relocate(RelocationKind::Move, session, url, io);
}

} // namespace standard
