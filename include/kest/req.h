// SPDX-License-Identifier: Apache-2.0
//
// IKestReq_2: what a request-handler module implements for the host.
#pragma once

#include <kest/io.h>
#include <kest/types.h>
#include <kest/unknown.h>

struct IKestReq_2 : IUnknown {
    // Called once per location before any request. The module writes who may reach it, under which
    // path it serves (at most pLocation->MaximumLength bytes) and its identifier.
    virtual TALSTATUS ModuleInit(SCHANDLE hSc, KEST_LOCATION_ACCESS* pAccess,
                                 UNICODE_STRING* pLocation, GUID* pModuleId) = 0;
    // Serves one request on the calling thread; many run at once. The module sends the reply
    // through pKestIo; the result is for the host's log only.
    virtual TALSTATUS RequestHandler(IKestIO_5* pKestIo, SCHANDLE hSession, UINT32 Method) = 0;

  protected:
    ~IKestReq_2() = default;
};
