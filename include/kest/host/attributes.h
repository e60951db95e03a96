// SPDX-License-Identifier: Apache-2.0
//
// ISA: typed data that a component keeps per session. Implemented by the host,
// CLSID_SecurityAttributeManager as IID_IPassiveContextAttribute_1.
//
// The service serialises access to one attribute: a reference is exclusive (one writer) or shared
// (readers), and is given back in the mode in which it was taken.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

// One attribute of one session. layout.h pins it.
struct Attribute {
    SCHANDLE hSC;
    void* pData; // of the registered size, zeroed when made
};

using SA_CLEANUP_CALLBACK = TALSTATUS (*)(SCHANDLE session);
using SA_FREE_CALLBACK = TALSTATUS (*)(Attribute* attribute);
using SA_INIT_CALLBACK = TALSTATUS (*)(Attribute* attribute, void* data);

inline constexpr UINT32 kAttributeExclusive = 1;
inline constexpr UINT32 kAttributeShared = 2;

struct ISA : IUnknown {
    // Announces an attribute of `size` bytes. `cleanup` is called once for each session that ends
    // and has it; `freeData` (may be null) before an attribute's memory goes. The identifier says
    // whose it is; two registrations of one are two attributes. Code 5 without memory.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS SARegisterAttribute(const GUID* id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                                          SA_FREE_CALLBACK freeData, HANDLE* registration) = 0;
    // Ends a registration: its attributes go when nobody references them. [any thread; concurrent;
    // no reply]
    virtual TALSTATUS SADeregisterAttribute(HANDLE registration) = 0;
    // References the session's attribute, making it with `init` when there is none. *mode is the
    // mode of the reference that the caller now holds: `createMode` when the attribute was made by
    // this call, else `openMode`. Code 11 for a session that has ended; a failure of `init` is
    // returned and leaves no attribute. [any thread; concurrent; no reply]
    virtual TALSTATUS SACreate(SCHANDLE session, HANDLE registration, void* data,
                               SA_INIT_CALLBACK init, UINT32 createMode, UINT32 openMode,
                               Attribute** out, UINT32* mode) = 0;
    // Gives the reference back and removes the attribute. [any thread; concurrent; no reply]
    virtual TALSTATUS SADelete(UINT32 mode, Attribute* attribute) = 0;
    // References an attribute that is there. Code 11 when there is none. [any thread; concurrent;
    // no reply]
    virtual TALSTATUS SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                                  Attribute** out) = 0;
    // Gives a reference back, in the mode in which it was taken. [any thread; concurrent; no reply]
    virtual TALSTATUS SADereference(UINT32 mode, Attribute* attribute) = 0;
    // The session of a referenced attribute. [any thread; concurrent; no reply]
    virtual TALSTATUS SAGetSCHandle(Attribute* attribute, SCHANDLE* session) = 0;
    // The identifier of the session's `index`-th attribute, from 0. Code 9 past the last.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS SAEnumerate(SCHANDLE session, UINT32 index, GUID* id) = 0;
    // Takes access again to an attribute that the caller has referenced and given up with
    // SARelease. [any thread; concurrent; no reply]
    virtual TALSTATUS SAAcquire(UINT32 mode, Attribute* attribute) = 0;
    // Gives access up and keeps the reference. [any thread; concurrent; no reply]
    virtual TALSTATUS SARelease(Attribute* attribute) = 0;

  protected:
    ~ISA() = default;
};
