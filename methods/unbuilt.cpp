// SPDX-License-Identifier: Apache-2.0
//
// Methods that this build does not serve yet.
#include "core/kestdav.h"
#include "core/reply.h"

namespace {

TALSTATUS NotBuilt(IKestIO_5* pKestIo)
{
    return ReplyEmpty(pKestIo, 501, TAL_STATUS_NOT_SUPPORTED);
}

} // namespace

TALSTATUS KestDavDelete(SCHANDLE, UNICODE_STRING*, IKestIO_5* pKestIo)
{
    return NotBuilt(pKestIo);
}

TALSTATUS KestDavCopy(SCHANDLE, UNICODE_STRING*, IKestIO_5* pKestIo)
{
    return NotBuilt(pKestIo);
}

TALSTATUS KestDavMove(SCHANDLE, UNICODE_STRING*, IKestIO_5* pKestIo)
{
    return NotBuilt(pKestIo);
}
