// SPDX-License-Identifier: Apache-2.0
//
// ISCOM: fixed-size objects that a component keeps per session, found by a compare callback.
// Implemented by the host, CLSID_ObjectManagerDataStore as IID_ISCObjectManager_1; one store per
// component.
//
// An object lives until the session ends or, when the session holds more than the host's bound,
// until it is the least recently used one that nobody references. The store serialises its
// operations; objects' contents are the component's to guard. Numeric arguments without a meaning
// here are passed on and ignored.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

using SC_DESTRUCTOR = TALSTATUS (*)(void* object);
using SC_CONSTRUCTOR = TALSTATUS (*)(void* object, void* data);
using SC_COMPARE = BOOLEAN (*)(void* object, void* key);
using SC_SESSION_CLEANUP = TALSTATUS (*)(SCHANDLE session);

// Results of CreateObject's mode.
inline constexpr UINT32 kObjectCreated = 1;
inline constexpr UINT32 kObjectExisted = 2;

struct ISCOM : IUnknown {
    // Says what the store keeps: objects of `size` bytes. `destructor` (may be null) is called
    // before an object's memory goes, `cleanup` (may be null) when a session with objects ends.
    // Comes first; code 22 the second
    // time, 4 for a size of 0 or over 1 MiB. [any thread; concurrent; no reply]
    virtual TALSTATUS Initialize(const GUID* owner, UINT32 size, UINT16 version, UINT32 flags,
                                 UINT32 buckets, SC_DESTRUCTOR destructor,
                                 SC_CONSTRUCTOR constructor, SC_SESSION_CLEANUP cleanup,
                                 UINT32 options) = 0;
    // Finds the object for `key` or makes it (`constructor` gets the zeroed object and `initData`).
    // The caller holds a reference in either case; *mode says which it was. Code 11 for a session
    // that has ended, 5 without memory; a failure of `constructor` is returned. [any thread;
    // concurrent; no reply]
    virtual TALSTATUS CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor,
                                   void* key, SC_COMPARE compare, UINT32 flags, UINT32 options,
                                   UINT32 reference, void** object, UINT32* mode) = 0;
    // Removes a referenced object; its memory goes with the last reference. Code 11 when that was
    // done before. [any thread; concurrent; no reply]
    virtual TALSTATUS DeleteObject(void* object) = 0;
    // References an object by its handle. Code 11 when it is gone. [any thread; concurrent; no
    // reply]
    virtual TALSTATUS ReferenceObjectByHandle(HANDLE handle, void** object) = 0;
    // Gives back a reference that CreateObject, FindObject or OpenObject gave.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS DereferenceObject(void* object, UINT32 reference) = 0;
    // References the session's `index`-th object, from 0. Code 9 past the last.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS EnumerateObjects(SCHANDLE session, UINT32 index, void** object) = 0;
    // A handle that names a referenced object, good as long as the object lives.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS GetObjectHandle(void* object, HANDLE* handle) = 0;
    // References the session's object that `compare` takes for `key`. Code 11 when there is none.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32 flags,
                                 UINT32 reference, void** object) = 0;
    // Takes exclusive access to a referenced object, waiting for it. [any thread; concurrent; no
    // reply]
    virtual TALSTATUS AcquireObject(void* object) = 0;
    // Gives exclusive access up. [any thread; concurrent; no reply]
    virtual TALSTATUS ReleaseObject(void* object) = 0;
    // Adds a reference to a referenced object. [any thread; concurrent; no reply]
    virtual TALSTATUS IncrementReference(void* object) = 0;
    // Gives a reference back. [any thread; concurrent; no reply]
    virtual TALSTATUS DecrementReference(void* object) = 0;
    // The session of a referenced object. [any thread; concurrent; no reply]
    virtual TALSTATUS GetObjectSecurityContext(void* object, SCHANDLE* session) = 0;
    // A zeroed object that is in no session and not found by anybody. Code 5 without memory.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS AllocateObject(void** object) = 0;
    // Gives back an object that AllocateObject made. [any thread; concurrent; no reply]
    virtual TALSTATUS DeallocateObject(void* object) = 0;
    // As ReferenceObjectByHandle; code 6 for an object of another session. [any thread; concurrent;
    // no reply]
    virtual TALSTATUS OpenObject(SCHANDLE session, HANDLE handle, void** object) = 0;
    // How many objects the store holds, and their memory in bytes. [any thread; concurrent; no
    // reply]
    virtual TALSTATUS GetObjectStats(UINT32* objects, UINT64* bytes) = 0;

  protected:
    ~ISCOM() = default;
};
