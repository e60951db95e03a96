// SPDX-License-Identifier: Apache-2.0
//
// The base of every interface and the class factory that a component library exports.
//
// Interfaces are abstract structs without data and without a virtual destructor: with the Itanium
// C++ ABI their virtual table is the contract's table of operations, in declaration order. A member
// is never reordered and never inserted; a new version of an interface is a new struct with a new
// identifier.
#pragma once

#include <kest/types.h>

struct IUnknown {
    // Asks for another interface of the object. On success *out carries a reference that the caller
    // releases; on failure *out is null. Fails with code 2 for an unknown identifier, code 4 for a
    // null out.
    virtual TALSTATUS QueryInterface(const GUID* iid, void** out) = 0;
    // Adds a reference; returns the new count.
    virtual UINT32 AddRef() = 0;
    // Gives a reference back; returns the new count. At 0 the object is gone.
    virtual UINT32 Release() = 0;

  protected:
    ~IUnknown() = default;
};

struct IClassFactory : IUnknown {
    // Makes an object and asks it for `iid`. `outer` must be null (no aggregation).
    virtual TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) = 0;
    // Pins (lock 1) or unpins the library.
    virtual TALSTATUS LockServer(BOOLEAN lock) = 0;

  protected:
    ~IClassFactory() = default;
};

// What a component library exports under the name "DllGetClassObject". Returns 0 when it did not
// fail and -1 when it did; the caller also checks that *out was set.
using DllGetClassObjectFn = int (*)(const GUID* clazz, const GUID* iid, void** out);
