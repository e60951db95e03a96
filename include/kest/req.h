// SPDX-License-Identifier: Apache-2.0
//
// IKestReq_2: a request-handler module, as the host sees it. Implemented by the module, created
// once per location.
#pragma once

#include <kest/host/io_5.h>
#include <kest/types.h>
#include <kest/unknown.h>

struct IKestReq_2 : IUnknown {
    // Called once per location before any request. The module writes who may reach it, under which
    // path it serves (at most pLocation->MaximumLength bytes) and its identifier. A failure keeps
    // the server from starting. [start-up; once; no reply]
    virtual TALSTATUS ModuleInit(SCHANDLE hSc, KEST_LOCATION_ACCESS* pAccess,
                                 UNICODE_STRING* pLocation, GUID* pModuleId) = 0;
    // Serves one request on the calling thread; many run at once. The module sends the reply
    // through pKestIo; the result changes nothing. Operations of pKestIo that wait for the client
    // may come back on another thread. [request thread; concurrent; before the reply]
    virtual TALSTATUS RequestHandler(IKestIO_5* pKestIo, SCHANDLE hSession, UINT32 Method) = 0;

  protected:
    ~IKestReq_2() = default;
};
