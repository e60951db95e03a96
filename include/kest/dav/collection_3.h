// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVCollection3: a collection's members in batches, third generation.
//
// Another face of the object that IKestDAVCollection2 is one of, found by QueryInterface; an object
// is used by one of the two only. Until Open has succeeded GetMembers fails with code 4.
#pragma once

#include <kest/dav/records_3.h>
#include <kest/unknown.h>

struct IKestDAVCollection3 : IUnknown {
    // Opens a collection, also the provider's root. `info` (Size set by the caller, may be null) is
    // the collection's own.
    // Failures: 11 nothing there (404), 39 no collection, 6 (403), 5 (503), 1 (500).
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS Open(SCHANDLE hSession, UNICODE_STRING* path, DAV_OBJECT_INFO* info) = 0;
    // The next members, as many as fit into `buffer` (aligned to 8 bytes). *size is the room in
    // bytes on entry, 1024 at least, the bytes used on return. Members come in no order; those that
    // appear or go while the list is read may or may not be told, all others exactly once. Each
    // one's Info is complete: no further call is needed unless its Flags say so.
    // Code 9 past the last; 7 a room that is too short. Other failures: 10 nobody waits any more, 6
    // (403), 5 (503), 1 (500). After them the list is not complete, and must not pass for it.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetMembers(UINT32* size, DAV_MEMBER* buffer) = 0;

  protected:
    ~IKestDAVCollection3() = default;
};
