// SPDX-License-Identifier: Apache-2.0
//
// The class factory and the module object.
#include "core/factory.h"

#include <algorithm>
#include <new>

#include "core/lifecycle.h"
#include <kest/layout.h>

CFKestInstance g_IClassFactory;

TALSTATUS FactoryQueryInterface(IClassFactory* self, const GUID* iid, void** out)
{
    if (!out)
        return TAL_STATUS_INVALID_PARAMETER;
    *out = nullptr;
    if (*iid == IID_IClassFactory) {
        g_IClassFactory.AddRef();
        *out = static_cast<IClassFactory*>(&g_IClassFactory);
        return TAL_STATUS_SUCCESS;
    }
    // Kept: IUnknown yields the pointer and a failure at the same time.
    if (*iid == IID_IUnknown)
        *out = self;
    return TAL_STATUS_NO_INTERFACE;
}

TALSTATUS CFKestInstance::QueryInterface(const GUID* iid, void** out)
{
    return FactoryQueryInterface(this, iid, out);
}

UINT32 CFKestInstance::AddRef()
{
    return std::atomic_ref(cReference).fetch_add(1, std::memory_order_relaxed) + 1;
}

UINT32 CFKestInstance::Release()
{
    return pITalpl->TalxInterlockedDecrement(&cReference);
}

TALSTATUS CFKestInstance::CreateInstance(IUnknown* outer, const GUID* iid, void** out)
{
    if (!out || outer)
        return TAL_STATUS_INVALID_PARAMETER;
    *out = nullptr;

    const TALSTATUS status = KestDavStageTwo();
    if (!g_vtInitialized)
        return TAL_STATUS_NO_INTERFACE;

    if (*iid == IID_IUnknown) { // kept: the factory itself, without a reference
        *out = static_cast<IClassFactory*>(this);
        return status;
    }
    if (*iid != IID_KestReq_2)
        return TAL_STATUS_NO_INTERFACE;

    void* memory = pITalpl->TalxAllocNonPagedMemory(sizeof(KESTREQ_OBJECT));
    if (!memory)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    auto* object = new (memory) KESTREQ_OBJECT;
    *out = static_cast<IKestReq_2*>(object);
    object->AddRef();
    return status;
}

TALSTATUS CFKestInstance::LockServer(BOOLEAN lock)
{
    if (lock == 1)
        pITalpl->TalxInterlockedIncrement(&cLock);
    else
        pITalpl->TalxInterlockedDecrement(&cLock);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KESTREQ_OBJECT::QueryInterface(const GUID* iid, void** out)
{
    if (!out)
        return TAL_STATUS_INVALID_PARAMETER;
    *out = nullptr;
    if (*iid == IID_IUnknown) { // kept: without a reference
        *out = static_cast<IKestReq_2*>(this);
        return TAL_STATUS_SUCCESS;
    }
    if (*iid == IID_KestReq_2) {
        AddRef();
        *out = static_cast<IKestReq_2*>(this);
        return TAL_STATUS_SUCCESS;
    }
    return TAL_STATUS_NO_INTERFACE;
}

UINT32 KESTREQ_OBJECT::AddRef()
{
    return pITalpl->TalxInterlockedIncrement(&cReference);
}

UINT32 KESTREQ_OBJECT::Release()
{
    const UINT32 left = pITalpl->TalxInterlockedDecrement(&cReference);
    if (left == 0)
        pITalpl->TalxFreeMemory(this);
    return left;
}

namespace {

// Asks for one text of the host's configuration and terminates it.
TALSTATUS ReadConfigText(IKestConfig* config, TALSTATUS (IKestConfig::*ask)(UINT32*, char*),
                         char (&text)[kConfigTextBytes + 1])
{
    UINT32 length = kConfigTextBytes;
    const TALSTATUS status = (config->*ask)(&length, text);
    if (!Failed(status))
        text[std::min(length, kConfigTextBytes)] = 0;
    return status;
}

} // namespace

TALSTATUS KESTREQ_OBJECT::ModuleInit(SCHANDLE, KEST_LOCATION_ACCESS* pAccess,
                                     UNICODE_STRING* pLocation, GUID* pModuleId)
{
    TALSTATUS status = 0;
    {
        Ref<IKestConfig> config;
        if (status = Create(CLSID_KestSrv, config); Failed(status))
            return status;
        if (status = ReadConfigText(config.Get(), &IKestConfig::GetHostname, g_szHost);
            Failed(status))
            return status;
        if (status = ReadConfigText(config.Get(), &IKestConfig::GetLocation, g_szKestLocation);
            Failed(status))
            return status;
    }
    pITalpl->TalxCopyUnicodeString(pLocation, &g_MonikerU);
    *pModuleId = KESTDAV_MODULE_ID;
    *pAccess = KestAccessUser;
    return status;
}

TALSTATUS KESTREQ_OBJECT::RequestHandler(IKestIO_5* pKestIo, SCHANDLE hSession, UINT32 Method)
{
    return KestDavRequestHandler(this, pKestIo, hSession, Method);
}
