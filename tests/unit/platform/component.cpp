// SPDX-License-Identifier: Apache-2.0
//
// A component library for the class manager's tests. What it does is set when it is compiled:
// 0 makes objects, 1 has no factory to offer, 2 has no entry point.
#include <kest/com.h>

#include <atomic>

namespace {

std::atomic<UINT32> g_created{0};

// Counts how many objects were made: the reference count that AddRef returns.
class Thing final : public IUnknown {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IID_IUnknown)
            return MakeStatus(kFacilityFileStore, kCodeNoInterface);
        *out = this;
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return g_created; }
    UINT32 Release() override { return 1; }
};

class Factory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS CreateInstance(IUnknown*, const GUID* iid, void** out) override
    {
        ++g_created;
        static Thing thing;
        return thing.QueryInterface(iid, out);
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; }
};

} // namespace

#if COMPONENT_KIND != 2
extern "C" [[gnu::visibility("default")]] int DllGetClassObject(const GUID*, const GUID* iid,
                                                                void** out)
{
    *out = nullptr;
    if (COMPONENT_KIND == 1)
        return -1;
    static Factory factory;
    return factory.QueryInterface(iid, out) == 0 ? 0 : -1;
}
#endif
