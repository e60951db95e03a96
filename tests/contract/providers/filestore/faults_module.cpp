// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/providers/filestore/faults_module.h"

#include "providers/filestore/collection.h"
#include "providers/filestore/namespace.h"
#include "providers/filestore/resource.h"
#include <kest/identifiers.h>

namespace faults {

using namespace filestore;

Running* g_running = nullptr;
filestore::Store* g_store = nullptr;

namespace {

std::string KeyOf(const GUID& key)
{
    return {reinterpret_cast<const char*>(&key), sizeof key};
}

class Context final : public IKestCallContext {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        const bool isKnown = *iid == IID_KestCallContext_1 || *iid == IID_IUnknown;
        *out = isKnown ? this : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : TAL_STATUS_NO_INTERFACE;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS GetRequest(IKestIO_5** request) override
    {
        *request = g_running ? g_running->io : nullptr;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS GetMethod(UINT32* method) override
    {
        *method = g_running ? g_running->method : UINT32{KestMethodUnknown};
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS IsBodyComplete(BOOLEAN* complete) override
    {
        *complete = TRUE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS ReportFailure(TALSTATUS failure) override
    {
        if (g_running)
            g_running->reported.push_back(failure);
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS IsCancelled(BOOLEAN* cancelled) override
    {
        *cancelled = g_running && g_running->isCancelled && g_running->isCancelled() ? TRUE : FALSE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS GetConditions(KEST_CONDITIONS* conditions) override
    {
        *conditions = {};
        conditions->MayReplace = g_running && g_running->mayReplace ? TRUE : FALSE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS SetAttachment(const GUID* key, IUnknown* object) override
    {
        if (!g_running)
            return TAL_STATUS_NOT_FOUND;
        object->AddRef();
        g_running->attached[KeyOf(*key)] = Ref<IUnknown>::Adopt(object);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetAttachment(const GUID* key, IUnknown** object) override
    {
        if (!g_running)
            return TAL_STATUS_NOT_FOUND;
        const auto found = g_running->attached.find(KeyOf(*key));
        *object = found == g_running->attached.end() ? nullptr : found->second.Get();
        return TAL_STATUS_SUCCESS;
    }
};

// The module keeps the namespace that it made at its start: this one is that of the store of the
// moment.
class CurrentNamespace final : public IKestDAV2 {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        const bool isKnown = *iid == IID_KestDAV_1 || *iid == IID_KestDAV_2 || *iid == IID_IUnknown;
        *out = isKnown ? this : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : TAL_STATUS_NO_INTERFACE;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS Copy(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Copy(s, overwrite, depth, from, to, token, id);
    }
    TALSTATUS Delete(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                     DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Delete(s, path, token, id);
    }
    TALSTATUS BeginSession(SCHANDLE) override { return 0; }
    TALSTATUS EndSession(SCHANDLE) override { return 0; }
    TALSTATUS GetDAVSupport(UINT32* caps) override
    {
        *caps = kCapsDeletesTrees | kCapsNamedProperties;
        return 0;
    }
    TALSTATUS GetMultiStatus(SCHANDLE s, DAV_ERROR_ID* id, UINT32* size,
                             DAV_MULTI_STATUS* buffer) override
    {
        return FileNamespace(*g_store).GetMultiStatus(s, id, size, buffer);
    }
    TALSTATUS GetType(SCHANDLE s, UNICODE_STRING* path, DAV_TYPE* type) override
    {
        return FileNamespace(*g_store).GetType(s, path, type);
    }
    TALSTATUS Lock(SCHANDLE s, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   UNICODE_STRING* path, STRING* owner, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Lock(s, depth, timeout, scope, type, path, owner, token, id);
    }
    TALSTATUS LockRefresh(SCHANDLE s, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) override
    {
        return FileNamespace(*g_store).LockRefresh(s, timeout, path, token, lock);
    }
    TALSTATUS Unlock(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        return FileNamespace(*g_store).Unlock(s, path, token);
    }
    TALSTATUS MkCol(SCHANDLE s, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) override
    {
        return FileNamespace(*g_store).MkCol(s, token, path);
    }
    TALSTATUS Move(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Move(s, overwrite, depth, from, to, token, id);
    }
    TALSTATUS IoctlRequest(SCHANDLE s, UINT32 code, UINT32 inputLength, void* input,
                           UINT32* outputLength, void* output) override
    {
        return FileNamespace(*g_store).IoctlRequest(s, code, inputLength, input, outputLength,
                                                    output);
    }
};

template <class T> TALSTATUS MakeObject(const GUID& iid, void** out)
{
    T* const object = new T(*g_store);
    const TALSTATUS status = object->QueryInterface(&iid, out);
    object->Release();
    return status;
}

TALSTATUS CreateStoreObject(const GUID& iid, void** out)
{
    if (iid == IID_KestResource_2)
        return MakeObject<FileResource>(iid, out);
    if (iid == IID_KestCollection_2)
        return MakeObject<FileCollection>(iid, out);
    static CurrentNamespace current;
    return current.QueryInterface(&iid, out);
}

std::string KeyName(const GUID& id)
{
    char text[64];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1,
                  id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3],
                  id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return text;
}

} // namespace

harness::World& Module()
{
    static harness::World* const world = [] {
        static Context context;
        auto* const made =
            new harness::World({}, {.configuredKeys = {KeyName(CLSID_FileStore)}, .start = false});
        made->Offer(CLSID_FileStore, CreateStoreObject);
        made->Offer(CLSID_KestCallContext,
                    [](const GUID& iid, void** out) { return context.QueryInterface(&iid, out); });
        made->Start();
        return made;
    }();
    return *world;
}

} // namespace faults
