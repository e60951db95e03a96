// SPDX-License-Identifier: Apache-2.0
//
// The common part of the objects that the store hands out.
#pragma once

#include <atomic>

#include <kest/identifiers.h>
#include <kest/unknown.h>

#include "providers/filestore/failures.h"

namespace filestore {

// Counts references and answers for IUnknown and I. Starts with one reference. `Final` is the class
// that derives from it; it is deleted with the last reference.
template <class Final, class I> class Object : public I {
  public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!out)
            return Failure(kCodeInvalidParameter);
        *out = nullptr;
        if (!iid)
            return Failure(kCodeInvalidParameter);
        if (!(*iid == IID_IUnknown) && !(*iid == IidOf<I>::value))
            return Failure(kCodeNoInterface);
        AddRef();
        *out = static_cast<I*>(this);
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
    ~Object() = default;

  private:
    std::atomic<UINT32> references_{1};
};

} // namespace filestore
