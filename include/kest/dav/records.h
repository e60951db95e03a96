// SPDX-License-Identifier: Apache-2.0
//
// The scalars, constants and records that storage providers and the WebDAV module exchange.
//
// Records of one kind come packed in a caller's buffer: NextEntryOffset is the distance in bytes to
// the next one, 0 marks the last. A trailing array marked variable runs past the record. Lengths
// count bytes; no text has a terminator unless it says so. layout.h pins sizes and offsets.
#pragma once

#include <kest/types.h>

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
