// SPDX-License-Identifier: Apache-2.0
//
// The library's entry points and its class object.
#include <kest/identifiers.h>
#include <kest/layout.h>
#include <kest/sdk/class_object.h>

#include "providers/filestore/collection.h"
#include "providers/filestore/namespace.h"
#include "providers/filestore/process_store.h"
#include "providers/filestore/resource.h"

namespace {

using namespace filestore;

TALSTATUS MakeObject(const GUID* iid, void** out)
{
    Store& store = ProcessStore();
    if (*iid == IID_KestResource_2 || *iid == IID_KestResource_3)
        return kest::HandOut(new FileResource(store), iid, out);
    if (*iid == IID_KestCollection_2 || *iid == IID_KestCollection_3)
        return kest::HandOut(new FileCollection(store), iid, out);
    if (*iid == IID_KestDAV_2 || *iid == IID_KestDAV_3 || *iid == IID_IUnknown)
        return kest::HandOut(new FileNamespace(store), iid, out);
    return Failure(kCodeNoInterface);
}

constinit kest::StaticClassObject<StoreComponent> g_class(MakeObject);

} // namespace

KEST_EXPORT int DllGetClassObject(const GUID* clazz, const GUID* iid, void** out)
{
    return kest::GetClassObject(CLSID_FileStore, g_class, clazz, iid, out);
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
