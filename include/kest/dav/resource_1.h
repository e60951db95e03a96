// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVResource: an opened resource, first generation. New providers implement
// IKestDAVResource2 (resource_2.h).
//
// Implemented by the provider, created from its class as IID_KestResource_1, one per use.
// Operations mean what those of the same name mean in IKestDAVResource2.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAVResource : IUnknown {
    // As IKestDAVResource2::Associate, without a token.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                                DAV_SHARE_MODE share, DAV_OPEN_FLAGS flags,
                                UNICODE_STRING* path) = 0;
    // As in IKestDAVResource2; the module asks no first-generation object for locks.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As GetFirstLock, for the next one. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As in IKestDAVResource2; the module asks no first-generation object for properties.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // As GetFirstProperty, for the next one. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    // As in IKestDAVResource2; the module asks no first-generation object for properties.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetResourceSize(UINT64* size) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; before the reply]
    virtual TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    // As in IKestDAVResource2. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;

  protected:
    ~IKestDAVResource() = default;
};
