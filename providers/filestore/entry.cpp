// SPDX-License-Identifier: Apache-2.0
//
// The library's entry points and the class factory.
#include <new>

#include <kest/identifiers.h>
#include <kest/layout.h>

#include "providers/filestore/collection.h"
#include "providers/filestore/namespace.h"
#include "providers/filestore/resource.h"

#define KEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using namespace filestore;

// Makes a T of this process's store and hands it out as `iid`.
template <class T> TALSTATUS Make(const GUID* iid, void** out)
{
    return Protected([&] {
        T* const object = new T(Store::OfProcess());
        const TALSTATUS status = object->QueryInterface(iid, out);
        object->Release();
        return status;
    });
}

// Lives as long as the library, which is never unloaded: references are not counted.
class Factory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!out)
            return Failure(kCodeInvalidParameter);
        *out = nullptr;
        if (!iid)
            return Failure(kCodeInvalidParameter);
        if (!(*iid == IID_IUnknown) && !(*iid == IID_IClassFactory))
            return Failure(kCodeNoInterface);
        *out = this;
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return 2; }
    UINT32 Release() override { return 1; }
    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override
    {
        if (!out)
            return Failure(kCodeInvalidParameter);
        *out = nullptr;
        if (outer || !iid)
            return Failure(kCodeInvalidParameter);
        if (*iid == IID_KestResource_2)
            return Make<FileResource>(iid, out);
        if (*iid == IID_KestCollection_2)
            return Make<FileCollection>(iid, out);
        if (*iid == IID_KestDAV_2 || *iid == IID_IUnknown)
            return Make<FileNamespace>(iid, out);
        return Failure(kCodeNoInterface);
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; }
};

Factory g_factory; // without state

} // namespace

KEST_EXPORT int DllGetClassObject(const GUID* clazz, const GUID* iid, void** out)
{
    if (!out)
        return -1;
    *out = nullptr;
    if (!clazz || !(*clazz == CLSID_FileStore))
        return -1;
    return Failed(g_factory.QueryInterface(iid, out)) ? -1 : 0;
}

// Registration is the configuration's affair: classes are mapped to libraries in the registry file.
KEST_EXPORT int DllRegisterServer()
{
    return 0;
}

KEST_EXPORT int DllUnregisterServer()
{
    return 0;
}
