// SPDX-License-Identifier: Apache-2.0
//
// IKestDAV2: the namespace of a storage provider, second generation: what paths there are, making,
// copying, moving and deleting them, and their locks.
//
// Implemented by the provider, created by the module as IID_KestDAV_2 when it starts; one object
// for the life of the process. dav.h says what paths are, who owns arguments, how statuses become
// HTTP, and what the tags mean.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAV2 : IUnknown {
    // Copies an object to a new path, with its contents unless `depth` is 0 (-1 is infinity), with
    // its dead properties and without its locks (RFC 4918 section 9.8). Whole or not at all: after
    // a failure the destination is as it was. The module copies by itself, through opened objects,
    // and calls this for nothing yet; a provider that cannot do it fails with code 13.
    // `token`: the request's lock token, null for none. *errorId (out) names a list of what failed
    // below, for GetMultiStatus, or is 0.
    // Failures: 11 no source (404), 22 the destination exists and `overwrite` is 0 (412), 33 its
    // parent does not exist (409), 37 a lock is in the way (423), 35 no space (507), 6 (403).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    // Deletes an object with its dead properties and locks (RFC 4918 section 9.6). A collection
    // goes with all its contents where GetDAVSupport reports kCapsDeletesTrees; without that the
    // module deletes the members first, and a collection that still has some is to be refused.
    // Also called to take away a partial copy and the source of a move.
    // Failures: 11 no such path (404), 37 a lock on it, on its parent or on a member without its
    // token (423), 6 (403).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                             DAV_ERROR_ID* errorId) = 0;
    // A user session begins: called before its first request reaches the provider. What it returns
    // changes nothing. [request thread; concurrent; before the reply]
    virtual TALSTATUS BeginSession(SCHANDLE hSession) = 0;
    // The session has ended; nothing is called for it any more. What it returns changes nothing.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS EndSession(SCHANDLE hSession) = 0;
    // What the provider can do, kCaps bits; asked once, when it is made. A failure counts as no
    // bits. [request thread; once; before the reply]
    virtual TALSTATUS GetDAVSupport(UINT32* caps) = 0;
    // The failures that *errorId names, packed. *size is the room in bytes on entry, the bytes used
    // on return. Code 9 when there are none; 7 when a record does not fit. The module never asks: a
    // provider that does operations whole or not at all has nothing to tell.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS GetMultiStatus(SCHANDLE hSession, DAV_ERROR_ID* errorId, UINT32* size,
                                     DAV_MULTI_STATUS* buffer) = 0;
    // Whether a path exists, and what it is. Every request is resolved by it: the module asks its
    // providers in the order of their registration, and the first that does not fail gets the
    // request, and all others of the session below the same first path component. So it must fail
    // (code 11) for what does not exist and what is not the provider's. A path that the running
    // request is about to create may count as a resource, for nobody else can say that a new name
    // belongs here. A failure that is not "not found" (a disk, memory) must not look like one: the
    // client would drop its copy; report it through IKestCallContext as well.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS GetType(SCHANDLE hSession, UNICODE_STRING* path, DAV_TYPE* type) = 0;
    // Makes a lock (RFC 4918 section 9.10). `depth` 0 or -1, `timeout` in 100 ns units from now (-1
    // infinite), `owner` the client's text, at most 259 bytes, to be given back as it came. The new
    // token goes to `token`, at most token->MaximumLength (128) bytes, printable ASCII without
    // "<", ">" and spaces, unique for ever. A path that does not exist becomes an empty resource.
    // Failures: 37 another lock is in the way (423, with that lock's description where an opened
    // resource's GetFirstLock gives it), 33 no parent (409), 11 (404), 13 no locks at all (501).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                           DAV_LOCK_TYPE type, UNICODE_STRING* path, STRING* owner,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    // Gives the lock `timeout` from now (a span of 100 ns units in spite of its type) and describes
    // it in `lock`, which has room for kLockRecordBytes. Failures: 11 no lock of that token covers
    // the path (404), 40 (412), 6 somebody else's (403).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                                  DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) = 0;
    // Removes a lock. Must work on a full disk. An empty token is none. Any failure is 404 in the
    // reply: 11 no such lock, 6 somebody else's. [request thread; concurrent; before the reply]
    virtual TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    // Makes a collection (RFC 4918 section 9.3). Mind the order: the token comes before the path.
    // Failures: 22 the path exists (405), 33 no parent (409), 37 the parent is locked (423), 35 no
    // space (507), 16 a name that cannot be kept (400).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS MkCol(SCHANDLE hSession, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) = 0;
    // Moves an object with all that is below it and its dead properties, without its locks (RFC
    // 4918 section 9.9); `depth` is -1. Whole or not at all: after a failure both ends are as they
    // were. With `overwrite` an existing destination is replaced, else code 22 (412).
    // Code 13 says that it cannot be done in one step: the module then copies, ignoring what fails
    // below a collection, and deletes the source; a provider that can lose data by that moves by
    // itself. Other failures as Copy.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Move(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    // Requests outside the protocol, by code: kIoctlListLocks and kIoctlBreakLock of an
    // administrator. *outputLength is the room in bytes on entry, the bytes used on return.
    // Failures: 13 for an unknown code, and those that records.h names for each.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;

  protected:
    ~IKestDAV2() = default;
};
