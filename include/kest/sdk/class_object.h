// SPDX-License-Identifier: Apache-2.0
//
// Class objects, and what a component library exports.
#pragma once

#include <utility>

#include <kest/class_factory.h>
#include <kest/sdk/component.h>
#include <kest/sdk/object.h>
#include <kest/types.h>

// What a component library exports: DllGetClassObject, DllRegisterServer, DllUnregisterServer.
#define KEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace kest {

// The class object of one class. `Maker` is callable as TALSTATUS(const GUID* iid, void** out),
// from any thread: it makes an object and asks it for `iid`, which is not null; *out is null when
// it is called. It may throw what AtBoundary takes.
//
// One in static storage lives as long as the library, which is never unloaded: nobody gives its
// first reference back. One that is made with new belongs to whoever made it.
template <class Component, class Maker>
class ClassObject final : public Object<ClassObject<Component, Maker>, Component, IClassFactory> {
  public:
    explicit constexpr ClassObject(Maker make) : make_(std::move(make)) {}

    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override
    {
        if (!out)
            return Component::Failure(kCodeInvalidParameter);
        *out = nullptr;
        if (outer || !iid)
            return Component::Failure(kCodeInvalidParameter);
        return AtBoundary<Component>([&] { return make_(iid, out); });
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; } // never unloaded

  private:
    Maker make_;
};

// The body of DllGetClassObject in a library of one class.
inline int GetClassObject(const GUID& own, IClassFactory& object, const GUID* clazz,
                          const GUID* iid, void** out)
{
    if (!out)
        return -1;
    *out = nullptr;
    if (!clazz || !(*clazz == own))
        return -1;
    return Failed(object.QueryInterface(iid, out)) ? -1 : 0;
}

} // namespace kest
