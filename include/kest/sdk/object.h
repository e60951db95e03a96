// SPDX-License-Identifier: Apache-2.0
//
// The common part of the objects that a component hands out: counted references, and the interfaces
// that an object answers for.
#pragma once

#include <atomic>
#include <tuple>

#include <kest/identifiers.h>
#include <kest/iunknown.h>
#include <kest/sdk/component.h>
#include <kest/types.h>

namespace kest {

// What both kinds of objects share: QueryInterface and the count of references, which is safe on
// any thread and begins with one, the maker's. QueryInterface answers for IUnknown (which is the
// first interface) and for each of `Interfaces`; it fails with code 4 for null arguments, 2 for any
// other identifier.
template <class Component, class... Interfaces> class Counted : public Interfaces... {
  public:
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!out)
            return Component::Failure(kCodeInvalidParameter);
        *out = nullptr;
        if (!iid)
            return Component::Failure(kCodeInvalidParameter);
        if (*iid == IID_IUnknown)
            *out = static_cast<First*>(this);
        else
            (void)((*iid == IidOf<Interfaces>::value &&
                    (*out = static_cast<Interfaces*>(this)) != nullptr) ||
                   ...); // none answers
        if (!*out)
            return Component::Failure(kCodeNoInterface);
        AddRef();
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }

  protected:
    constexpr Counted() noexcept = default;
    ~Counted() = default;

    UINT32 DropReference() { return references_.fetch_sub(1, std::memory_order_acq_rel) - 1; }

  private:
    using First = std::tuple_element_t<0, std::tuple<Interfaces...>>;

    std::atomic<UINT32> references_{1};
};

// Implements IUnknown for a class `Final` that derives from it, implements `Interfaces` and is made
// with new: the last reference deletes it. Its destructor is public, or it names its base a friend.
//
//     class Thing final : public kest::Object<Thing, MyStore, IThing> { ... };
template <class Final, class Component, class... Interfaces>
class Object : public Counted<Component, Interfaces...> {
  public:
    UINT32 Release() override
    {
        const UINT32 left = this->DropReference();
        if (left == 0)
            delete static_cast<Final*>(this);
        return left;
    }

  protected:
    constexpr Object() noexcept = default;
    ~Object() = default;
};

// The same for an object in static storage, which no reference ends.
template <class Component, class... Interfaces>
class StaticObject : public Counted<Component, Interfaces...> {
  public:
    UINT32 Release() override { return this->DropReference(); }

  protected:
    constexpr StaticObject() noexcept = default;
    ~StaticObject() = default;
};

// Hands a freshly made object out as `iid`, and gives the maker's reference back. Without the
// interface the object goes with it, and *out is null.
template <class Made> TALSTATUS HandOut(Made* made, const GUID* iid, void** out)
{
    const TALSTATUS status = made->QueryInterface(iid, out);
    made->Release();
    return status;
}

} // namespace kest
