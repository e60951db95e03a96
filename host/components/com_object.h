// SPDX-License-Identifier: Apache-2.0
//
// How the host's services appear behind the binary contract: counted objects, class objects, and
// the guard that keeps exceptions on this side.
#pragma once

#include <atomic>
#include <functional>
#include <new>
#include <utility>

#include <kest/com.h>
#include <kest/status.h>
#include <kest/types.h>
#include <kest/unknown.h>

namespace kestd {

// A failure made by one of the host's services.
constexpr TALSTATUS ServiceFailure(UINT16 code) noexcept
{
    return MakeStatus(kFacilityHost, code);
}

// The same for one that is the system's fault: the running request's host is told, since the module
// takes it for something else.
[[nodiscard]] TALSTATUS ServiceFault(UINT16 code) noexcept;

// Runs the body of an operation of the contract. What the library throws becomes a fault: code 5
// for memory, code 1 for everything else.
template <class Body> TALSTATUS AtBoundary(Body&& body) noexcept
{
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return ServiceFault(kCodeInsufficientResources);
    } catch (...) {
        return ServiceFault(kCodeUnsuccessful);
    }
}

// One object with one interface, counted. It starts with the maker's reference and deletes itself
// with the last one.
template <class Interface> class ComObject : public Interface {
  public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!out)
            return ServiceFailure(kCodeInvalidParameter);
        *out = nullptr;
        if (!iid || !(*iid == IID_IUnknown || *iid == IidOf<Interface>::value))
            return ServiceFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<Interface*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }
    UINT32 Release() override
    {
        const UINT32 left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            delete this;
        return left;
    }

  protected:
    ComObject() = default;
    virtual ~ComObject() = default;

  private:
    std::atomic<UINT32> references_{1};
};

// The class object of a host class. `make` creates an object and asks it for the identifier; it is
// called from any thread and may throw what AtBoundary takes.
class ClassObject final : public ComObject<IClassFactory> {
  public:
    using Maker = std::function<TALSTATUS(const GUID* iid, void** out)>;
    explicit ClassObject(Maker make) : make_(std::move(make)) {}

    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override
    {
        if (!out)
            return ServiceFailure(kCodeInvalidParameter);
        *out = nullptr;
        if (outer || !iid)
            return ServiceFailure(kCodeInvalidParameter);
        return AtBoundary([&] { return make_(iid, out); });
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; } // never unloaded

  private:
    ~ClassObject() override = default;

    Maker make_;
};

// Hands a freshly made object (which has its maker's reference) out as `iid`.
template <class Object> TALSTATUS HandOut(Object* made, const GUID* iid, void** out)
{
    const TALSTATUS status = made->QueryInterface(iid, out);
    made->Release();
    return status;
}

} // namespace kestd
