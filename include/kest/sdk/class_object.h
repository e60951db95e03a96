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

// IClassFactory over a maker, on top of `Base`, which implements IUnknown. `Maker` is callable as
// TALSTATUS(const GUID* iid, void** out), from any thread: it makes an object and asks it for
// `iid`, which is not null; *out is null when it is called. It may throw what AtBoundary takes.
template <class Component, class Maker, class Base> class ClassObjectOn : public Base {
  public:
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

  protected:
    explicit constexpr ClassObjectOn(Maker make) : make_(std::move(make)) {}
    ~ClassObjectOn() = default;

  private:
    Maker make_;
};

// The class object of one class, made with new.
template <class Component, class Maker>
class ClassObject final
    : public ClassObjectOn<Component, Maker,
                           Object<ClassObject<Component, Maker>, Component, IClassFactory>> {
  public:
    explicit ClassObject(Maker make) : ClassObject::ClassObjectOn(std::move(make)) {}
};

// One in static storage, which lives as long as its library: that is never unloaded.
template <class Component>
class StaticClassObject final : public ClassObjectOn<Component, TALSTATUS (*)(const GUID*, void**),
                                                     StaticObject<Component, IClassFactory>> {
  public:
    explicit constexpr StaticClassObject(TALSTATUS (*make)(const GUID*, void**))
        : StaticClassObject::ClassObjectOn(make)
    {
    }
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
