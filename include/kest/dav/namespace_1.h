// SPDX-License-Identifier: Apache-2.0
//
// IKestDAV: the namespace of a storage provider, first generation. New providers implement
// IKestDAV2 (namespace_2.h), which knows lock tokens and lock owners.
//
// Implemented by the provider, created by the module as IID_KestDAV_1 where the class does not
// answer for IID_KestDAV_2; one object for the life of the process. Operations mean what those of
// the same name mean in IKestDAV2 and fail in the same way; what differs is said here. dav.h says
// what the tags mean.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAV : IUnknown {
    // As IKestDAV2::Copy, without a token. [request thread; concurrent; before the reply]
    virtual TALSTATUS Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_ERROR_ID* errorId) = 0;
    // As IKestDAV2::Delete, without a token. [request thread; concurrent; before the reply]
    virtual TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_ERROR_ID* errorId) = 0;
    // As in IKestDAV2. [request thread; concurrent; before the reply]
    virtual TALSTATUS BeginSession(SCHANDLE hSession) = 0;
    // As in IKestDAV2. [any thread; concurrent; no reply]
    virtual TALSTATUS EndSession(SCHANDLE hSession) = 0;
    // As in IKestDAV2. [request thread; once; before the reply]
    virtual TALSTATUS GetDAVSupport(UINT32* caps) = 0;
    // As in IKestDAV2. [request thread; concurrent; before the reply]
    virtual TALSTATUS GetMultiStatus(SCHANDLE hSession, DAV_ERROR_ID* errorId, UINT32* size,
                                     DAV_MULTI_STATUS* buffer) = 0;
    // As in IKestDAV2. [request thread; concurrent; before the reply]
    virtual TALSTATUS GetType(SCHANDLE hSession, UNICODE_STRING* path, DAV_TYPE* type) = 0;
    // A chance to tidy up what is older than `time` (100 ns units since 1601). Nobody calls it; a
    // provider that has something to tidy does so by itself. [any thread; concurrent; no reply]
    virtual void Janitor(INT64 time) = 0;
    // As IKestDAV2::Lock, without an owner. The module never calls it: LOCK needs the second
    // generation and answers 405 without it. [request thread; concurrent; before the reply]
    virtual TALSTATUS Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                           DAV_LOCK_TYPE type, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                           DAV_ERROR_ID* errorId) = 0;
    // As IKestDAV2::LockRefresh, without the description. The module never calls it.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                                  DAV_LOCK_TOKEN* token) = 0;
    // As in IKestDAV2. The module never calls it. [request thread; concurrent; before the reply]
    virtual TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    // As IKestDAV2::MkCol, without a token. [request thread; concurrent; before the reply]
    virtual TALSTATUS MkCol(SCHANDLE hSession, UNICODE_STRING* path) = 0;
    // As IKestDAV2::Move, without a token. [request thread; concurrent; before the reply]
    virtual TALSTATUS Move(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_ERROR_ID* errorId) = 0;
    // As in IKestDAV2. [any thread; concurrent; no reply]
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;

  protected:
    ~IKestDAV() = default;
};
