// SPDX-License-Identifier: Apache-2.0
//
// The method handlers of the classic dialect, each defined in the room of its method.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

// Each sends its whole reply and returns its last status, which the host only logs. pUrl has a
// spare code unit behind Length and loses one trailing "/" before.
TALSTATUS KestDavGet(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavHead(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPut(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPost(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);
TALSTATUS KestDavDelete(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavOptions(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropFind(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavPropPatch(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMkCol(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavCopy(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavMove(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavLock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);
TALSTATUS KestDavUnlock(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo);

// The browser index, which GET and POST answer with.
TALSTATUS HTMLIndexRequest(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl);
