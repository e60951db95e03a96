// SPDX-License-Identifier: Apache-2.0
//
// The class factory (one, static) and the module object (one per CreateInstance).
#pragma once

#include "support/globals.h"
#include <kest/req.h>

struct CFKestInstance final : IClassFactory {
    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override;
    UINT32 Release() override;
    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override;
    TALSTATUS LockServer(BOOLEAN lock) override;

    UINT32 cReference = 0;
    UINT32 cLock = 0; // read by nothing
};
extern CFKestInstance g_IClassFactory;

// The factory's QueryInterface; `self` may be null.
TALSTATUS FactoryQueryInterface(IClassFactory* self, const GUID* iid, void** out);

struct KESTREQ_OBJECT final : IKestReq_2 {
    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override;
    UINT32 Release() override;
    TALSTATUS ModuleInit(SCHANDLE hSc, KEST_LOCATION_ACCESS* pAccess, UNICODE_STRING* pLocation,
                         GUID* pModuleId) override;
    TALSTATUS RequestHandler(IKestIO_5* pKestIo, SCHANDLE hSession, UINT32 Method) override;

    UINT32 cReference = 0;
    UINT32 Type = 0; // read by nothing
};

// The dispatcher (in core/kestdav.cpp).
TALSTATUS KestDavRequestHandler(IKestReq_2* pThis, IKestIO_5* pKestIo, SCHANDLE hSession,
                                UINT32 Method);
