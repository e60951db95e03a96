// SPDX-License-Identifier: Apache-2.0
//
// IKestDAV3: the namespace of a storage provider, third generation: what is there, and changes that
// judge their preconditions themselves and say what they have come to.
//
// Another face of the object that IKestDAV2 is one of, found by QueryInterface; what deals with
// sessions, resolution and control codes stays in IKestDAV2. A provider that lacks this generation
// answers QueryInterface with code 2.
//
// The numbers in brackets are what the module answers in HTTP. A code that is not named is 500.
//
// `preconditions` and `failures` may be null anywhere. Every operation that changes something can
// fail with: 40 a precondition does not hold (412); 37 a lock stands in the way, whose root goes to
// `failures` (423, or 207 where it is not the request's own path); 6 not allowed, or read-only
// (403); 35 no space (507); 38 a path that is too long (414); 5 no memory, 10 the store is busy
// (both 503); 4 a record or an argument that makes no sense (500); 1 any other failure (500). After
// a failure everything is as it was. What an operation adds to these it says itself.
#pragma once

#include <kest/dav/failures_3.h>
#include <kest/dav/records_3.h>
#include <kest/unknown.h>

struct IKestDAV3 : IUnknown {
    // Everything about the object at a path, in one call. info->Size is set by the caller.
    // Failures: 11 nothing there (404), 6 not allowed (403), 5 (503), 1 (500): the last three are
    // never said of what does not exist. [request thread; concurrent; before the reply]
    virtual TALSTATUS GetInfo(SCHANDLE hSession, UNICODE_STRING* path, DAV_OBJECT_INFO* info) = 0;
    // Whether preconditions hold now, for requests that change nothing; tokens are not looked at.
    // Of use before long work, too: the change itself judges again.
    // Failures: 40 they do not (412), 5, 10 (503), 1 (500).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Judge(SCHANDLE hSession, UNICODE_STRING* path,
                            const DAV_PRECONDITIONS* preconditions) = 0;
    // Makes a collection with the properties of `changes` (may be null with count 0; RFC 5689),
    // all of it or nothing; as PatchProperties for their statuses.
    // Failures: 22 something bears the name (405), 33 no parent (409), 16 a name that cannot be
    // kept (400). [request thread; concurrent; before the reply]
    virtual TALSTATUS MakeCollection(SCHANDLE hSession, UNICODE_STRING* path,
                                     const DAV_PRECONDITIONS* preconditions, UINT32 count,
                                     DAV_PROPERTY_CHANGE* changes, IKestDAVFailures3* failures,
                                     DAV_CHANGE* change) = 0;
    // Deletes an object with all that is below it, its properties and its locks: all of it, or
    // nothing. Failures: 11 (404); members that stand in the way go to `failures`.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path,
                             const DAV_PRECONDITIONS* preconditions,
                             IKestDAVFailures3* failures) = 0;
    // Copies an object with its members, dead properties, dates and attributes, without its locks,
    // also to another volume of the provider: all of it, or nothing. `flags` are kRelocate bits.
    // The preconditions' Match, NoneMatch and UnmodifiedSince are about the source. A destination
    // that is replaced goes with its members, properties and locks.
    // Failures: 11 no source (404), 22 the destination exists and is not to be replaced, judged in
    // the step that takes the name (412), 33 its parent is missing (409), 16 a name that cannot be
    // kept (400), 6 also for one inside the other or both the same (403).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Copy(SCHANDLE hSession, UNICODE_STRING* source, UNICODE_STRING* destination,
                           UINT32 flags, const DAV_PRECONDITIONS* preconditions,
                           IKestDAVFailures3* failures, DAV_CHANGE* change) = 0;
    // Moves an object, as Copy, and the source is gone with its locks. Never loses the source:
    // between volumes it goes only when all of it stands at the destination.
    // Failures: as Copy; 33 also when the source has been changed while it was being moved (409).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Move(SCHANDLE hSession, UNICODE_STRING* source, UNICODE_STRING* destination,
                           UINT32 flags, const DAV_PRECONDITIONS* preconditions,
                           IKestDAVFailures3* failures, DAV_CHANGE* change) = 0;
    // Makes `count` property changes in their order, all or none; a power cut between the two can
    // leave dates and attributes changed and dead properties not. Each one's Status is written,
    // also on failure: those that failed by themselves bear their code, the others success (and
    // were not made: 424). Removing what is not set is no failure.
    // Statuses: 6 not to be changed (403), 35 too long or no space (507), 4 a malformed change
    // (409), 13 not kept by this provider (403). Failures: 11 (404), and the first change's that
    // failed. [request thread; concurrent; before the reply]
    virtual TALSTATUS PatchProperties(SCHANDLE hSession, UNICODE_STRING* path,
                                      const DAV_PRECONDITIONS* preconditions, UINT32 count,
                                      DAV_PROPERTY_CHANGE* changes, IKestDAVFailures3* failures,
                                      DAV_CHANGE* change) = 0;
    // Dead properties of a path, in the order in which they were first set, as many as fit. *place
    // is 0 at first and then what the last call left there. *size is the room in bytes on entry,
    // the bytes used on return. Code 9 past the last; 7 when the next one does not fit: *size is
    // then what it takes. A path that bears nothing has none. Other failures: 5, 10 (503), 1 (500).
    // [request thread; concurrent; during the reply]
    virtual TALSTATUS GetProperties(SCHANDLE hSession, UNICODE_STRING* path, UINT64* place,
                                    UINT32* size, DAV_PROPERTY* buffer) = 0;
    // Makes a lock and describes it: *size is the room at `lock` in bytes on entry, the bytes used
    // on return; kMostOwnerBytes and a path's length are what it can take. Where nothing bears the
    // name an empty resource is made, in the same step (change->Outcome says so). One with Depth -1
    // holds for members that are made later, too. Failures: 37 another lock on it, above it or,
    // with Depth -1, below it: their roots go to `failures` (423, 207); 33 no parent (409); 16 a
    // name that cannot be kept (400); 7 the room is too short, and nothing is locked (500).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Lock(SCHANDLE hSession, UNICODE_STRING* path, const DAV_LOCK_REQUEST* request,
                           const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                           UINT32* size, DAV_LOCK_INFO_3* lock, DAV_CHANGE* change) = 0;
    // Gives the lock that covers the path, and whose token is the first of `preconditions` to name
    // one, `timeout` from now (100 ns units, -1 infinite), and describes it as Lock does. Any lock
    // may be met, also one that takes more room than a request of today could make.
    // Failures: 11 (404), 40 no token names a lock that covers the path (412), 6 somebody else's
    // (403), 7 the room at `lock` is too short: *size is then what it takes, the lock may have its
    // time already, and the caller asks again with that much (500 if that does not help).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS RefreshLock(SCHANDLE hSession, UNICODE_STRING* path, INT64 timeout,
                                  const DAV_PRECONDITIONS* preconditions, UINT32* size,
                                  DAV_LOCK_INFO_3* lock) = 0;
    // Removes a lock that covers the path. Works on a full disk.
    // Failures: 11 no lock of that token covers the path (409), 6 somebody else's (403).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* token,
                             const DAV_PRECONDITIONS* preconditions) = 0;
    // Locks that cover a path, its own and those inherited from collections above, as many as fit;
    // also for a path that bears nothing. *place, *size and failures as in GetProperties.
    // [request thread; concurrent; during the reply]
    virtual TALSTATUS GetLocks(SCHANDLE hSession, UNICODE_STRING* path, UINT64* place, UINT32* size,
                               DAV_LOCK_INFO_3* buffer) = 0;
    // How much is stored on the disk that the path lies on, and how much more can be. quota->Size
    // is set by the caller. Failures: 11 (404), 13 not known, as for the root: the properties are
    // left out. [request thread; concurrent; during the reply]
    virtual TALSTATUS GetQuota(SCHANDLE hSession, UNICODE_STRING* path, DAV_QUOTA* quota) = 0;

  protected:
    ~IKestDAV3() = default;
};
