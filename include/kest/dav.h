// SPDX-License-Identifier: Apache-2.0
//
// Storage providers: the records and the two generations of interfaces between the WebDAV module
// and the components that keep resources.
//
// A provider class is created as IID_KestDAV_2 (second generation) or, failing that, IID_KestDAV_1;
// opened objects are created from the same class as IID_KestResource_1/_2 and
// IID_KestCollection_1/_2, one per use, and released after it. Operations are called on request
// threads, many at once; one opened object is used by one thread at a time.
//
// Paths are provider paths: unescaped, beginning with "/", without a trailing "/" (the root is "/"
// or empty). They and all other arguments belong to the caller and are valid during the call. A
// provider's failure codes reach clients through MapTalStatusToHttpStatus.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

using DAV_DATETIME = UINT64; // 100 ns units since 1601-01-01 UTC
using DAV_ERROR_ID = UINT64; // a provider-kept list of per-object failures, see GetMultiStatus
using DAV_OPEN_ACCESS = UINT32;
using DAV_SHARE_MODE = UINT32;
using DAV_OPEN_FLAGS = UINT32; // always 0
using DAV_PROVIDER_STATE = UINT32;
using DAV_LOCK_TOKEN = STRING; // without the "opaquelocktoken:" prefix

enum DAV_TYPE : UINT32 { Resource = 0, Collection = 1 };
enum DAV_LOCK_TYPE : UINT32 { Read = 0, Write = 1 };
enum DAV_LOCK_SCOPE : UINT32 { Exclusive = 0, Shared = 1 };

// Bits of DAV_COMMON_ENUM::Attributes and of the live attribute word.
inline constexpr UINT32 kAttributeReadOnly = 0x1;
inline constexpr UINT32 kAttributeHidden = 0x2;

// Bits of the capabilities that GetDAVSupport reports.
inline constexpr UINT32 kCapsDeletesTrees = 0x08;    // Delete takes a collection with its contents
inline constexpr UINT32 kCapsNamedProperties = 0x10; // dead properties are kept

// Open access: what the opener wants to do (bits), and the combinations that the module passes.
inline constexpr DAV_OPEN_ACCESS kAccessAttributesOnly = 0; // PROPPATCH
inline constexpr DAV_OPEN_ACCESS kAccessRead = 1;           // properties and locks
inline constexpr DAV_OPEN_ACCESS kAccessWrite = 2;          // attributes
inline constexpr DAV_OPEN_ACCESS kAccessReadContent = 3;    // GET, HEAD, source of a copy
inline constexpr DAV_OPEN_ACCESS kAccessWriteContent = 6;   // destination of a copy
inline constexpr DAV_OPEN_ACCESS kAccessReplaceContent = 7; // PUT, uploads

// IoctlRequest codes of collections. Input is null; the output buffer is 1024 bytes.
inline constexpr UINT32 kIoctlReverseLookup = 0x7B90001;     // DAV_REVERSE_LOOKUP
inline constexpr UINT32 kIoctlFirstDeletedChild = 0x7B90002; // DAV_DELETED_ENTRY
inline constexpr UINT32 kIoctlNextDeletedChild = 0x7B90003;  // DAV_DELETED_ENTRY

// IoctlRequest codes of a namespace object, for administration. Listing takes a DAV_LOCK_PLACE,
// zeroed for the first call, fills a DAV_LOCK_INFO and moves the place behind that lock; code 9
// past the last, 7 when the output is short: the place stays then. Breaking takes a token's bytes
// and removes that lock whoever holds it, code 11 when there is none.
inline constexpr UINT32 kIoctlListLocks = 0x7B90010;
inline constexpr UINT32 kIoctlBreakLock = 0x7B90011;

// The longest owner text and the buffer sizes that callers offer. Timeouts are 100 ns units; -1 is
// infinite.
inline constexpr UINT32 kLockOwnerBytes = 260;
inline constexpr UINT32 kLockRecordBytes = 424;

// One lock.
struct DAV_LOCK_2 {
    UINT32 NextEntryOffset;
    DAV_LOCK_TYPE Type;
    DAV_LOCK_SCOPE Scope;
    INT32 Depth;
    INT64 Timeout; // remaining, 100 ns units, -1 infinite
    UINT32 OwnerLength;
    char Owner[kLockOwnerBytes];
    UINT32 TokenLength;
    char Token[1]; // variable
};

// One dead property. The name is UTF-16, NameLength bytes at NameOffset from the record's start.
struct DAV_NAMED_PROPERTY {
    UINT32 NextEntryOffset;
    UINT32 NameLength;
    UINT32 NameOffset;
    UINT32 ValueLength;
    char Value[1]; // variable
};

struct DAV_ETAG {
    UINT8 Bytes[16];
};

// One failed object of an operation on many.
struct DAV_MULTI_STATUS {
    UINT32 NextEntryOffset;
    TALSTATUS status;
    UINT32 ObjectLength; // bytes
    WCHAR Object[1];     // variable
};

// One child of a collection. Lengths are bytes; names have no terminator. A State other than 0
// means that the entry carries the URI under which it can be reached in pURI, which points into the
// caller's buffer or at memory of the collection object.
struct DAV_COMMON_ENUM {
    UINT32 NextEntryOffset;
    DAV_TYPE Type;
    UINT32 Attributes;
    DAV_DATETIME CreationDate;
    DAV_DATETIME ModificationDate;
    UINT64 ResourceSize;
    DAV_PROVIDER_STATE State;
    UINT32 URILength;
    WCHAR* pURI;
    UINT32 DisplayNameLength;
    WCHAR DisplayName[1]; // variable
};

// One deleted child, as IoctlRequest returns it.
struct DAV_DELETED_ENTRY {
    UINT64 FileID; // never 0
    DAV_DATETIME DeleteTime;
    UINT32 DeletorID;
    DAV_COMMON_ENUM Enum;
};

// How far a listing of all locks has come. Only the provider reads it.
struct DAV_LOCK_PLACE {
    UINT64 Volume;
    INT64 Lock; // the last one told of
};

// One lock of a namespace. Text holds, one after the other: token, provider path, who made it,
// owner text, all UTF-8.
struct DAV_LOCK_INFO {
    INT64 Timeout; // remaining, 100 ns units, -1 infinite
    DAV_LOCK_SCOPE Scope;
    DAV_LOCK_TYPE Type;
    INT32 Depth;
    UINT32 TokenLength;
    UINT32 PathLength;
    UINT32 CreatorLength;
    UINT32 OwnerLength;
    char Text[1]; // variable
};

// Where a collection really lives, as IoctlRequest returns it: the server's socket address and the
// server-side path.
struct DAV_REVERSE_LOOKUP {
    UINT8 Header[16]; // opaque
    INT32 SockaddrLen;
    UINT8 Sockaddr[32]; // for IPv4 the address is at bytes 4 to 7
    WCHAR DirPath[1];   // NUL-terminated, variable
};

static_assert(sizeof(DAV_LOCK_2) == 296 && offsetof(DAV_LOCK_2, NextEntryOffset) == 0 &&
              offsetof(DAV_LOCK_2, Type) == 4 && offsetof(DAV_LOCK_2, Scope) == 8 &&
              offsetof(DAV_LOCK_2, Depth) == 12 && offsetof(DAV_LOCK_2, Timeout) == 16 &&
              offsetof(DAV_LOCK_2, OwnerLength) == 24 && offsetof(DAV_LOCK_2, Owner) == 28 &&
              offsetof(DAV_LOCK_2, TokenLength) == 288 && offsetof(DAV_LOCK_2, Token) == 292);
static_assert(sizeof(DAV_NAMED_PROPERTY) == 20 &&
              offsetof(DAV_NAMED_PROPERTY, NextEntryOffset) == 0 &&
              offsetof(DAV_NAMED_PROPERTY, NameLength) == 4 &&
              offsetof(DAV_NAMED_PROPERTY, NameOffset) == 8 &&
              offsetof(DAV_NAMED_PROPERTY, ValueLength) == 12 &&
              offsetof(DAV_NAMED_PROPERTY, Value) == 16);
static_assert(sizeof(DAV_ETAG) == 16);
static_assert(sizeof(DAV_MULTI_STATUS) == 16 && offsetof(DAV_MULTI_STATUS, NextEntryOffset) == 0 &&
              offsetof(DAV_MULTI_STATUS, status) == 4 &&
              offsetof(DAV_MULTI_STATUS, ObjectLength) == 8 &&
              offsetof(DAV_MULTI_STATUS, Object) == 12);
static_assert(sizeof(DAV_COMMON_ENUM) == 64 && offsetof(DAV_COMMON_ENUM, NextEntryOffset) == 0 &&
              offsetof(DAV_COMMON_ENUM, Type) == 4 && offsetof(DAV_COMMON_ENUM, Attributes) == 8 &&
              offsetof(DAV_COMMON_ENUM, CreationDate) == 16 &&
              offsetof(DAV_COMMON_ENUM, ModificationDate) == 24 &&
              offsetof(DAV_COMMON_ENUM, ResourceSize) == 32 &&
              offsetof(DAV_COMMON_ENUM, State) == 40 &&
              offsetof(DAV_COMMON_ENUM, URILength) == 44 && offsetof(DAV_COMMON_ENUM, pURI) == 48 &&
              offsetof(DAV_COMMON_ENUM, DisplayNameLength) == 56 &&
              offsetof(DAV_COMMON_ENUM, DisplayName) == 60);
static_assert(sizeof(DAV_DELETED_ENTRY) == 88 && offsetof(DAV_DELETED_ENTRY, FileID) == 0 &&
              offsetof(DAV_DELETED_ENTRY, DeleteTime) == 8 &&
              offsetof(DAV_DELETED_ENTRY, DeletorID) == 16 &&
              offsetof(DAV_DELETED_ENTRY, Enum) == 24);
static_assert(sizeof(DAV_LOCK_PLACE) == 16 && offsetof(DAV_LOCK_PLACE, Volume) == 0 &&
              offsetof(DAV_LOCK_PLACE, Lock) == 8);
static_assert(sizeof(DAV_LOCK_INFO) == 40 && offsetof(DAV_LOCK_INFO, Timeout) == 0 &&
              offsetof(DAV_LOCK_INFO, Scope) == 8 && offsetof(DAV_LOCK_INFO, Type) == 12 &&
              offsetof(DAV_LOCK_INFO, Depth) == 16 && offsetof(DAV_LOCK_INFO, TokenLength) == 20 &&
              offsetof(DAV_LOCK_INFO, PathLength) == 24 &&
              offsetof(DAV_LOCK_INFO, CreatorLength) == 28 &&
              offsetof(DAV_LOCK_INFO, OwnerLength) == 32 && offsetof(DAV_LOCK_INFO, Text) == 36);
static_assert(sizeof(DAV_REVERSE_LOOKUP) == 56 && offsetof(DAV_REVERSE_LOOKUP, Header) == 0 &&
              offsetof(DAV_REVERSE_LOOKUP, SockaddrLen) == 16 &&
              offsetof(DAV_REVERSE_LOOKUP, Sockaddr) == 20 &&
              offsetof(DAV_REVERSE_LOOKUP, DirPath) == 52);

// First generation, namespace.
struct IKestDAV : IUnknown {
    // Copies an object, with its contents unless `depth` is 0. Code 22 when the destination exists
    // and `overwrite` is 0, code 33 when its parent does not exist. *errorId names a list of what
    // failed below, or is 0.
    virtual TALSTATUS Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_ERROR_ID* errorId) = 0;
    // Deletes an object; a collection with its contents only where kCapsDeletesTrees is reported.
    virtual TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_ERROR_ID* errorId) = 0;
    // The bracket of a user session: before its first request and after its last.
    virtual TALSTATUS BeginSession(SCHANDLE hSession) = 0;
    virtual TALSTATUS EndSession(SCHANDLE hSession) = 0;
    virtual TALSTATUS GetDAVSupport(UINT32* caps) = 0; // kCaps bits
    // The failures that *errorId names, packed; *size is the room on entry, the bytes used on
    // return. Code 9 when there are none.
    virtual TALSTATUS GetMultiStatus(SCHANDLE hSession, DAV_ERROR_ID* errorId, UINT32* size,
                                     DAV_MULTI_STATUS* buffer) = 0;
    // Whether the path exists and what it is. Must fail for what does not exist (code 11).
    virtual TALSTATUS GetType(SCHANDLE hSession, UNICODE_STRING* path, DAV_TYPE* type) = 0;
    virtual void Janitor(INT64 time) = 0; // a chance to tidy up; the module never calls it
    // Makes a lock and writes its token (at most token->MaximumLength bytes). Code 37 when another
    // lock is in the way.
    virtual TALSTATUS Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                           DAV_LOCK_TYPE type, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                           DAV_ERROR_ID* errorId) = 0;
    // Gives the lock `timeout` (a span of 100 ns units, not a date) from now.
    virtual TALSTATUS LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                                  DAV_LOCK_TOKEN* token) = 0;
    virtual TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    // Code 22 when the path exists, code 33 when its parent does not.
    virtual TALSTATUS MkCol(SCHANDLE hSession, UNICODE_STRING* path) = 0;
    // Code 13 when the provider cannot do it in one step: the module then copies and deletes.
    virtual TALSTATUS Move(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_ERROR_ID* errorId) = 0;
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;

  protected:
    ~IKestDAV() = default;
};

// Second generation, namespace. Operations mean what they mean in IKestDAV; a null token is none.
struct IKestDAV2 : IUnknown {
    virtual TALSTATUS Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    virtual TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                             DAV_ERROR_ID* errorId) = 0;
    virtual TALSTATUS BeginSession(SCHANDLE hSession) = 0;
    virtual TALSTATUS EndSession(SCHANDLE hSession) = 0;
    virtual TALSTATUS GetDAVSupport(UINT32* caps) = 0;
    virtual TALSTATUS GetMultiStatus(SCHANDLE hSession, DAV_ERROR_ID* errorId, UINT32* size,
                                     DAV_MULTI_STATUS* buffer) = 0;
    virtual TALSTATUS GetType(SCHANDLE hSession, UNICODE_STRING* path, DAV_TYPE* type) = 0;
    virtual TALSTATUS Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                           DAV_LOCK_TYPE type, UNICODE_STRING* path, STRING* owner,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    // Extends the lock and describes it in `lock` (kLockRecordBytes).
    virtual TALSTATUS LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                                  DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) = 0;
    virtual TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    virtual TALSTATUS MkCol(SCHANDLE hSession, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) = 0;
    virtual TALSTATUS Move(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth,
                           UNICODE_STRING* source, UNICODE_STRING* destination,
                           DAV_LOCK_TOKEN* token, DAV_ERROR_ID* errorId) = 0;
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;

  protected:
    ~IKestDAV2() = default;
};

// First generation, an opened object. Associate binds it to a path and comes first.
struct IKestDAVResource : IUnknown {
    // `create` is 1 only where the request may bring the object into being.
    virtual TALSTATUS Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                                DAV_SHARE_MODE share, DAV_OPEN_FLAGS flags,
                                UNICODE_STRING* path) = 0;
    // Records packed in the caller's buffer; *size is its room on entry, the bytes used on return.
    // Code 9 when there are no more, code 7 when a record does not fit.
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0; // buffer set by the caller
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    // A dead property's value, no terminator. *length is the room on entry, the value's length on
    // return, also with code 7 when it does not fit. Code 11 when the property is not set.
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    virtual TALSTATUS GetResourceSize(UINT64* size) = 0; // bytes
    // Reads up to `length` bytes; *read 0 is the end.
    virtual TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) = 0;
    virtual TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) = 0;
    // Writes. A provider takes all of it or fails: not every caller comes back for a rest.
    virtual TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) = 0;
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0; // kAttribute bits
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;

  protected:
    ~IKestDAVResource() = default;
};

// Second generation, an opened object.
struct IKestDAVResource2 : IUnknown {
    virtual TALSTATUS Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                                DAV_SHARE_MODE share, DAV_OPEN_FLAGS flags, UNICODE_STRING* path,
                                DAV_LOCK_TOKEN* token) = 0;
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    virtual TALSTATUS GetResourceSize(UINT64* size) = 0;
    virtual TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) = 0;
    virtual TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) = 0;
    virtual TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) = 0;
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;
    // Sets a dead property, or removes it when `value` is null. `result` (room *resultLength) takes
    // text to show inside the property's element of the reply; *resultLength is then its length.
    virtual TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                          UINT32* resultLength, char* result) = 0;

  protected:
    ~IKestDAVResource2() = default;
};

// First generation, an opened collection.
struct IKestDAVCollection : IUnknown {
    virtual TALSTATUS Associate(SCHANDLE hSession, UNICODE_STRING* path) = 0;
    // One child per call. Code 9 when there are no more.
    virtual TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    virtual TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;

  protected:
    ~IKestDAVCollection() = default;
};

// Second generation, an opened collection.
struct IKestDAVCollection2 : IUnknown {
    virtual TALSTATUS Associate(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) = 0;
    virtual TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    virtual TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) = 0;
    virtual TALSTATUS GetCreationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS GetDisplayName(UNICODE_STRING* name) = 0;
    virtual TALSTATUS GetETag(DAV_ETAG* etag) = 0;
    virtual TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) = 0;
    virtual TALSTATUS GetModificationDate(DAV_DATETIME* date) = 0;
    virtual TALSTATUS SetCreationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS SetModificationDate(DAV_DATETIME date) = 0;
    virtual TALSTATUS GetLiveAttributes(UINT32* attributes) = 0;
    virtual TALSTATUS SetLiveAttributes(UINT32 attributes) = 0;
    virtual TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                                   UINT32* outputLength, void* output) = 0;
    virtual TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) = 0;
    virtual TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) = 0;
    virtual TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                          UINT32* resultLength, char* result) = 0;

  protected:
    ~IKestDAVCollection2() = default;
};
