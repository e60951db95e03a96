// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND (RFC 4918 section 9.1): the request record and the steps between which it travels. All
// state of one request is in its record; the reply is streamed element by element.
#pragma once

#include <string_view>

#include "support/buffered_io.h"
#include "support/handlers.h"
#include "support/provider.h"
#include "support/resolution.h"
#include "support/uri.h"

// Bits of PROPFIND_REQ::Flags. Bits are only ever gained.
inline constexpr UINT32 kPropFindSeen = 0x00000002;  // a propfind element was seen
inline constexpr UINT32 kPropSeen = 0x00000004;      // a prop element was seen
inline constexpr UINT32 kNamesOnly = 0x00000008;     // propname: names without values
inline constexpr UINT32 kAllProperties = 0x10000000; // allprop or propname: nothing more is read

// Bits of PROPFIND_REQ::LiveProperties, one per property that the module itself knows.
inline constexpr UINT32 kLiveName = 0x00001;
inline constexpr UINT32 kLiveDisplayName = 0x00002;
inline constexpr UINT32 kLiveParentName = 0x00004;
inline constexpr UINT32 kLiveHRef = 0x00008;
inline constexpr UINT32 kLiveIsHidden = 0x00010;
inline constexpr UINT32 kLiveIsReadOnly = 0x00020;
inline constexpr UINT32 kLiveIsCollection = 0x00040;
inline constexpr UINT32 kLiveIsRoot = 0x00080;
inline constexpr UINT32 kLiveContentType = 0x00100;
inline constexpr UINT32 kLiveContentClass = 0x00200;
inline constexpr UINT32 kLiveContentLanguage = 0x00400;
inline constexpr UINT32 kLiveContentLength = 0x00800;
inline constexpr UINT32 kLiveCreationDate = 0x01000;
inline constexpr UINT32 kLiveLastModified = 0x02000;
inline constexpr UINT32 kLiveLastAccessed = 0x04000;
inline constexpr UINT32 kLiveResourceType = 0x08000;
inline constexpr UINT32 kLiveIsStructuredDocument = 0x10000;
inline constexpr UINT32 kLiveDefaultDocument = 0x20000;
inline constexpr UINT32 kLiveETag = 0x40000;
inline constexpr UINT32 kLiveLockDiscovery = 0x80000;

// What allprop, propname and an absent body ask for.
inline constexpr UINT32 kLiveDefault = kLiveDisplayName | kLiveIsHidden | kLiveIsReadOnly |
                                       kLiveIsCollection | kLiveIsRoot | kLiveContentType |
                                       kLiveContentLength | kLiveCreationDate | kLiveLastModified |
                                       kLiveResourceType;
// What a body that could not be read asks for.
inline constexpr UINT32 kLiveFallback = kLiveHRef | kLiveIsHidden | kLiveIsReadOnly |
                                        kLiveIsCollection | kLiveContentLength | kLiveCreationDate |
                                        kLiveLastModified | kLiveResourceType;
static_assert(kLiveDefault == 0xB9F2 && kLiveFallback == 0xB878);

struct LIVE_PROPERTY {
    const char* pName;
    UINT32 Property;
};
extern const LIVE_PROPERTY g_LiveProperties[]; // ends with a null name

// A requested dead property. Shares its first two fields with DAV_PROP_VALUE: both are entries of
// lDeadProperties.
struct DAV_PROP {
    LIST_ENTRY ListLink;
    UINT32 Flags;
    char szName[1]; // variable, NUL-terminated
};

// A dead property with its value. The record's name stands behind its value.
struct DAV_PROP_VALUE {
    LIST_ENTRY ListLink;
    UINT32 Flags; // kPropHasValue
    DAV_NAMED_PROPERTY NamedProp;
};
inline constexpr UINT32 kPropHasValue = 0x1;
static_assert(offsetof(DAV_PROP, Flags) == offsetof(DAV_PROP_VALUE, Flags));

// One lock of the resource; the token runs past the record.
struct PROPFIND_LOCK_RECORD {
    LIST_ENTRY ListLink;
    DAV_LOCK_2 Lock;
};

inline constexpr UINT32 kPropFindSignature = 0x06272002;
inline constexpr UINT32 kChildRecordBytes = 2176;  // room that an enumeration is offered
inline constexpr UINT32 kDisplayNameBytes = 1024;  // room that GetDisplayName is offered
inline constexpr UINT32 kMaxDeadBytes = 16u << 20; // all dead values that one request keeps

struct PROPFIND_REQ {
    UINT32 Signature;
    UINT32 Flags;
    UINT32 Depth; // zero: the object alone; else its direct members too
    UINT32 LiveProperties;
    LIST_ENTRY lDeadProperties; // DAV_PROP and DAV_PROP_VALUE
    LIST_ENTRY lLocks;          // PROPFIND_LOCK_RECORD
    BOOLEAN bRoot;
    BOOLEAN bExclusiveLocks; // among the locks of the element being written
    BOOLEAN bSharedLocks;
    UNICODE_STRING HRefU; // of the element being written, over wRef
    WCHAR wRef[512];
    union { // the current object's vitals
        DAV_COMMON_ENUM Enum;
        UINT8 EnumRoom[kChildRecordBytes];
    };
    UINT64 NameBudget;    // bytes of dead names that the body may still ask for
    UINT32 DeadBytes;     // bytes of the dead values kept so far
    BOOLEAN bNameDropped; // memory was short for a dead property that the body asks for
};

// -- Request (propfind_request.cpp)

// A zeroed record with its lists and HRefU set up; null when memory is short.
PROPFIND_REQ* AllocPropfindRequest();
void FreePropfindRequest(PROPFIND_REQ* pRequest);
// Reads "Depth" and the body into the record.
TALSTATUS PropFindParseRequest(IKestIO_5* pKestIo, PROPFIND_REQ* pRequest);
void PFStartTagHandler(void* pUserData, const char* pTagName, const char** ppAttr);
void PFEndTagHandler(void* pUserData, const char* pTagName);
// Records a name that is no live property. Without memory the name is dropped, and so is one that
// the body did not name itself.
void AddDeadProperty(PROPFIND_REQ* pRequest, const char* pName);

// -- Hrefs (href.cpp)

// Writes one href element for a provider-relative path. On failure nothing is written.
[[nodiscard]] TALSTATUS PropFindBuildAndSendHRef(BufferedIo* pKestIo, UNICODE_STRING* pRefU);
// Writes that of the module's root.
void SendRootHRef(BufferedIo* pKestIo);

// -- Response elements (element.cpp)

TALSTATUS PropFindSendResource(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
TALSTATUS PropFindSendCollection(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
TALSTATUS SendRootCollection(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
TALSTATUS PropFindSendObjectNotFound(BufferedIo* pKestIo, UNICODE_STRING* pURI);

// -- Live properties (live.cpp). Each clears its bit in LiveProperties.

TALSTATUS PropFindSendLiveProperties(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
TALSTATUS PropFindSendCreationDate(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
TALSTATUS PropFindSendModifiedDate(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
// The 404 block for the bits of a mask.
TALSTATUS SendUnreturnedProperties(BufferedIo* pKestIo, UINT32 uProperties);

// -- Dead properties (dead.cpp). The collectors of all properties start over with twice the buffer
//    when a record does not fit; those of requested ones end at the first that cannot be had.

TALSTATUS PropFindGetRDeadProps(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest);
TALSTATUS PropFindGetCDeadProps(IKestDAVCollection2* pICollection, PROPFIND_REQ* pRequest);
TALSTATUS PropFindGetResProps(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest);
TALSTATUS PropFindGetColProps(IKestDAVCollection2* pICollection, PROPFIND_REQ* pRequest);
TALSTATUS PropFindSendDeadProps(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);

// -- Lock discovery (locks.cpp)

TALSTATUS PropFindGetLocks(IKestDAVResource2* pIResource, PROPFIND_REQ* pRequest);
// Writes the element for the locks that were collected, and marks which scopes are among them.
void PropFindSendLocks(BufferedIo* pKestIo, PROPFIND_REQ* pRequest);
