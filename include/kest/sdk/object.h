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

// Implements IUnknown for a class `Final` that derives from it and implements `Interfaces`. An
// object begins with one reference, its maker's, and the last one deletes it; counting is safe on
// any thread. QueryInterface answers for IUnknown (which is the first interface) and for each of
// `Interfaces`; it fails with code 4 for null arguments, 2 for any other identifier.
//
//     class Thing final : public kest::Object<Thing, MyStore, IThing> { ... };
//
// Where the destructor of `Final` is private, it names its base a friend.
template <class Final, class Component, class... Interfaces> class Object : public Interfaces... {
  public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

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
    UINT32 Release() override
    {
        const UINT32 left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            delete static_cast<Final*>(this);
        return left;
    }

  protected:
    constexpr Object() noexcept = default;
    ~Object() = default;

  private:
    using First = std::tuple_element_t<0, std::tuple<Interfaces...>>;

    std::atomic<UINT32> references_{1};
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
