// SPDX-License-Identifier: Apache-2.0
//
// The method handlers of the standard dialect, one file per method. The dispatcher's second table
// names them; a method that has none here is answered by the classic one.
#pragma once

#include "support/globals.h"
#include <kest/io.h>

// Each sends its whole reply and returns its last status, which the host only logs. `url` has a
// spare code unit behind Length and has lost one trailing "/". Where the provider that serves the
// path has no third generation, each hands the request to the classic handler of its method.
namespace standard {

TALSTATUS Copy(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Delete(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Get(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Head(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Lock(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS MkCol(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Move(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Options(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Patch(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Post(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS PropFind(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS PropPatch(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Put(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
// Not of a method: what POST of a form's preferences shows.
TALSTATUS ShowBehindForm(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);
TALSTATUS Unlock(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io);

} // namespace standard
