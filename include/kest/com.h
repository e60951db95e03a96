// SPDX-License-Identifier: Apache-2.0
//
// What C++ code on either side of the contract uses to hold and make objects. Nothing here crosses
// the boundary.
#pragma once

#include <utility>

#include <kest/identifiers.h>
#include <kest/status.h>
#include <kest/tolm.h>
#include <kest/types.h>

// One counted reference, or none. Not copyable: a second holder says Share by name. A pointer that
// the contract hands out without a reference stays raw; wrapping it would release once too often.
template <class I> class Ref {
  public:
    Ref() noexcept = default;
    Ref(Ref&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    Ref& operator=(Ref other) noexcept // the old reference goes last, with `other`
    {
        std::swap(p_, other.p_);
        return *this;
    }
    ~Ref()
    {
        if (p_)
            p_->Release();
    }

    static Ref Adopt(I* p) noexcept // takes over the caller's reference
    {
        return Ref(p);
    }
    static Ref Share(I* p) noexcept // adds a reference of its own
    {
        if (p)
            p->AddRef();
        return Ref(p);
    }
    I* Detach() noexcept // hands the reference on
    {
        return std::exchange(p_, nullptr);
    }
    I* Get() const noexcept { return p_; }
    I* operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

  private:
    explicit Ref(I* p) noexcept : p_(p) {}
    I* p_ = nullptr;
};

// Creates `clazz` and asks it for I. On failure `out` is empty, whatever the component left behind.
template <class I> [[nodiscard]] TALSTATUS Create(const GUID& clazz, Ref<I>& out)
{
    void* p = nullptr;
    const TALSTATUS status = TolmCreateInstance(&clazz, nullptr, &IidOf<I>::value, &p);
    out = Failed(status) ? Ref<I>() : Ref<I>::Adopt(static_cast<I*>(p));
    return status;
}

// Asks `object` for another interface.
template <class I, class J> [[nodiscard]] TALSTATUS Query(J* object, Ref<I>& out)
{
    void* p = nullptr;
    const TALSTATUS status = object->QueryInterface(&IidOf<I>::value, &p);
    out = Failed(status) ? Ref<I>() : Ref<I>::Adopt(static_cast<I*>(p));
    return status;
}
