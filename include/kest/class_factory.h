// SPDX-License-Identifier: Apache-2.0
//
// IClassFactory: makes objects of one class. Implemented by the component library that exports it.
#pragma once

#include <kest/iunknown.h>
#include <kest/types.h>

struct IClassFactory : IUnknown {
    // Makes an object and asks it for `iid`. `outer` must be null (no aggregation): code 4. Code 2
    // for an interface that the class does not offer, 5 without memory. On failure *out is null.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) = 0;
    // Pins (lock 1) or unpins the library. [any thread; concurrent; no reply]
    virtual TALSTATUS LockServer(BOOLEAN lock) = 0;

  protected:
    ~IClassFactory() = default;
};

// What a component library exports under the name "DllGetClassObject". Returns 0 when it did not
// fail and -1 when it did; the caller also checks that *out was set.
using DllGetClassObjectFn = int (*)(const GUID* clazz, const GUID* iid, void** out);
