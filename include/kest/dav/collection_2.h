// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVCollection2: an opened collection, second generation: its members, dates, attributes,
// dead properties and locks.
//
// Implemented by the provider, created from its class as IID_KestCollection_2, one per use, bound
// by Associate before anything else and released after the use. The provider's root "/" is a
// collection, too: its members stand beside those of all other providers.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAVCollection2 : IUnknown {
    // Binds the object to a path that exists and is a collection. `token` is the request's lock
    // token where it means to change something, null otherwise.
    // Failures: 11 no such path (404), 39 no collection. PROPFIND answers 207 with a 404 inside for
    // every one of them, so what is not "not found" is reported to the call context as well.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Associate(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    // The first member, one record per call. *size is the room in bytes on entry (2176 at least
    // when listing and copying, 1024 in the browser index), the bytes used on return. Members come
    // in the order in which they are shown; those that appear or go while the list is read may or
    // may not be told, all others exactly once. Memory must not grow with what has been told.
    // Code 9 past the last. Every failure ends the list without a word to the client, so one that
    // is not 9 is reported to the call context: the host then breaks the reply off.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    // As GetFirstChild, for the one after the last that was told. Long lists ask
    // IKestCallContext::IsCancelled now and then. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    // When the collection was made. The module ignores a failure and shows 1601.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    // The name to show, as IKestDAVResource2::GetDisplayName.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    // 16 bytes that change with every change of the membership. The module does not ask for it.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    // As IKestDAVResource2::GetFirstLock. The module asks no collection for locks.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As GetFirstLock, for the next one. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // When the membership changed last. The module ignores a failure and shows 1601.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    // Sets the creation date, of a copy for instance. A failure is ignored.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    // Sets the modification date, of a copy for instance. A failure is ignored.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    // The attribute word, kAttribute bits. A failure counts as no bits.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    // Sets the attribute word; unknown bits are kept or dropped, never refused. A failure is
    // ignored. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;
    // Requests outside the protocol, by code: kIoctlReverseLookup, and the two that list deleted
    // members, of which the first begins anew. The input is null, the output 1024 bytes;
    // *outputLength is the room on entry, the bytes used on return. Code 9 past the last deleted
    // member, 13 for an unknown code; either leaves that part of the page empty.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;
    // As IKestDAVResource2::GetFirstProperty. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // As GetFirstProperty, for the next one. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // As IKestDAVResource2::GetNamedProperty. [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    // As IKestDAVResource2::SetNamedPropertyEnh. [request thread; one at a time; during the reply]
    virtual TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                          UINT32* resultLength, char* result) = 0;

  protected:
    ~IKestDAVCollection2() = default;
};
