// SPDX-License-Identifier: Apache-2.0
//
// The references of scripted objects that have one interface.
#pragma once

#include <kest/com.h>

#include "provider.h"

namespace harness {

// Begins with its maker's reference and ends with the last; known as I and as IUnknown.
template <class I> class Referenced : public I {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<I>::value && *iid != IID_IUnknown)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<I*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override
    {
        const UINT32 left = --references_;
        if (left == 0)
            delete this;
        return left;
    }

  protected:
    virtual ~Referenced() = default;

  private:
    UINT32 references_ = 1;
};

} // namespace harness
