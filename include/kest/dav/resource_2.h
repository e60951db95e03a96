// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVResource2: an opened resource, second generation: content, dates, attributes, dead
// properties and locks of one path.
//
// Implemented by the provider, created from its class as IID_KestResource_2, one per use, bound by
// Associate before anything else and released after the use; an operation on an object that is not
// bound fails with code 4. Releasing an object that was opened for writing is what makes its new
// content visible: a failure there is reported through IKestCallContext::ReportFailure, and content
// whose request's body did not arrive whole (IsBodyComplete) is dropped.
#pragma once

#include <kest/dav/records.h>
#include <kest/unknown.h>

struct IKestDAVResource2 : IUnknown {
    // Binds the object to a path. `create` is 1 only where the request may bring the resource into
    // being or replace its content (PUT, form upload, destination of a copy); 0 fails with code 11
    // for a path that does not exist, which some callers use to find that out. `access` is a
    // combination that records.h names; `share` says what others may do meanwhile (bits: 1 read, 2
    // write; advisory); `flags` is 0. `token` is the request's lock token, null for none.
    // Locks are judged here where `create` is 1, at each changing operation otherwise.
    // Failures: 11 (404), 33 no parent (409), 37 locked (423), 39 a collection (405), 35 (507),
    // 38 the path is too long (414), 16 a name that cannot be kept (400). GET and HEAD answer 404
    // for every one of them, so what is not "not found" is reported to the call context as well.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                                DAV_SHARE_MODE share, DAV_OPEN_FLAGS flags, UNICODE_STRING* path,
                                DAV_LOCK_TOKEN* token) = 0;
    // The first lock that covers the resource. *size is the room in bytes (kLockRecordBytes) on
    // entry, the bytes used on return. Timeout is the remaining time in 100 ns units, -1 infinite.
    // Code 9 when there is none, 7 when it does not fit.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // As GetFirstLock, for the one after the last that was told.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    // The first dead property, name and value. *size is the room in bytes on entry, the bytes used
    // on return. Code 9 when there is none; 7 when it does not fit: the caller begins again with
    // twice the room, from 32 KiB to 2 MiB. Any other failure ends the list without a word to the
    // client, so it is reported to the call context. [request thread; one at a time; before the
    // reply]
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // As GetFirstProperty, for the one after the last that was told.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    // When the resource was made. The module ignores a failure and shows 1601.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    // The name to show, usually the last path component, into the caller's buffer: Buffer and
    // MaximumLength (at most 1024 bytes) are set, Length is the result. Code 7 when it does not
    // fit. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    // 16 bytes that change with every change of content (RFC 9110 section 8.8.3). The module does
    // not ask for it. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    // When the content changed last. A failure makes GET and HEAD answer 404; PROPFIND ignores it.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    // A dead property's value, bytes as they were set, no terminator. *length is the room on entry,
    // the value's length on return, also with code 7 when it does not fit. Code 11 when it is not
    // set. The first failure ends the collection of what a PROPFIND asked for.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    // The content's length in bytes. A failure makes GET and HEAD answer 404.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetResourceSize(UINT64* size) = 0;
    // Reads up to `length` bytes (the module's block size, 1024 to 524288) at `offset`; fewer are
    // allowed, *read 0 or code 8 is the end. A failure ends the body short of its announced length.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) = 0;
    // Sets a dead property, without a text for the reply. The module uses SetNamedPropertyEnh.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) = 0;
    // Writes `length` bytes at `offset`, which goes up without gaps from 0. A provider takes all of
    // it or fails: not every caller comes back for a rest. A `length` of 0 is allowed and changes
    // nothing. Failures: 35 no space (507), 37 (423), 1 (417).
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) = 0;
    // Sets the creation date, of a copy for instance. A failure is ignored.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    // Sets the modification date, of a copy for instance; for content that is being written it
    // holds once that is visible. A failure is ignored.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    // The attribute word, kAttribute bits. A failure counts as no bits.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    // Sets the attribute word; unknown bits are kept or dropped, never refused. A failure is
    // ignored. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;
    // Requests outside the protocol, by code; as IKestDAV2::IoctlRequest. The module sends none to
    // a resource. [request thread; one at a time; before the reply]
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;
    // Sets a dead property to `length` bytes, or removes it when `value` is null (removing what is
    // not set is no failure, RFC 4918 section 14.23). A null `value` with a set of an empty value
    // cannot be told apart from a removal, so an empty value comes as a pointer with length 0.
    // `result` (room *resultLength, 1000) takes text to show inside the property's element of the
    // reply; *resultLength is then its length, 0 for none.
    // Failures: 37 (423), 6 (403), 35 (507); each stands in the property's own status.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                          UINT32* resultLength, char* result) = 0;

  protected:
    ~IKestDAVResource2() = default;
};
