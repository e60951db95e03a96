// SPDX-License-Identifier: Apache-2.0
//
// IUnknown: the base of every interface. Implemented by every object of the contract.
//
// Interfaces are abstract structs without data and without a virtual destructor: with the Itanium
// C++ ABI their virtual table is the contract's table of operations, in declaration order. A member
// is never reordered and never inserted; a new version of an interface is a new struct with a new
// identifier. dav.h says what the tags of the operations mean.
#pragma once

#include <kest/types.h>

struct IUnknown {
    // Asks for another interface of the object. On success *out carries a reference that the caller
    // releases; on failure *out is null. Fails with code 2 for an unknown identifier, code 4 for a
    // null out. [any thread; concurrent; no reply]
    virtual TALSTATUS QueryInterface(const GUID* iid, void** out) = 0;
    // Adds a reference; returns the new count. [any thread; concurrent; no reply]
    virtual UINT32 AddRef() = 0;
    // Gives a reference back; returns the new count. At 0 the object is gone.
    // [any thread; concurrent; no reply]
    virtual UINT32 Release() = 0;

  protected:
    ~IUnknown() = default;
};
