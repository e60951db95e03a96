// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVCollection: an opened collection, first generation. New providers implement
// IKestDAVCollection2 (collection_2.h).
//
// Implemented by the provider, created from its class as IID_KestCollection_1, one per use.
// Operations mean what those of the same name mean in IKestDAVCollection2.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAVCollection : IUnknown {
    // As IKestDAVCollection2::Associate, without a token.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Associate(SCHANDLE hSession, UNICODE_STRING* path) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    // As in IKestDAVCollection2; the module asks no first-generation object for locks.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As GetFirstLock, for the next one. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    // As in IKestDAVCollection2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;

  protected:
    ~IKestDAVCollection() = default;
};
