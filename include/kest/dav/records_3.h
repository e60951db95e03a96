// SPDX-License-Identifier: Apache-2.0
//
// Constants and records of the third provider generation. layout.h pins them.
//
// Records begin with Size, the caller's sizeof: a provider fills and reads no byte beyond it, and
// takes what an older caller's record lacks as zero. Records of arrays are Size bytes apart.
// Records that a provider packs into a caller's buffer begin with NextEntryOffset, the distance to
// the next one in bytes (a multiple of 8), 0 in the last; offsets within them never change.
//
// Texts are UTF-8 without terminators. Those handed in belong to the caller and are valid during
// the call. Dates are DAV_DATETIME: 100 ns units since 1601-01-01 UTC, shown in whole seconds.
#pragma once

#include <kest/dav/records.h>
#include <kest/types.h>

struct DAV_TEXT {
    const char* Text; // may be null when Length is 0
    UINT32 Length;    // bytes
};

// An entity tag as headers spell it (RFC 9110 section 8.8.3): quotes included, "W/" before a weak
// one. Length 0: there is none.
inline constexpr UINT32 kTagBytes = 60;
struct DAV_TAG {
    UINT32 Length;
    char Text[kTagBytes];
};

// Bits of DAV_OBJECT_INFO::Flags.
inline constexpr UINT32 kObjectHasProperties = 0x1; // it has dead properties, or may have
inline constexpr UINT32 kObjectHasLocks = 0x2; // a lock covers it, or may: its own or inherited

// What there is to say about one object.
struct DAV_OBJECT_INFO {
    UINT32 Size;
    DAV_TYPE Type;
    UINT32 Attributes;   // kAttribute bits
    UINT32 Flags;        // kObject bits
    UINT64 ResourceSize; // bytes of content, 0 for a collection
    // 0 where it was not looked for: it costs a look of its own, and only GetInfo, GetMembers and
    // the changes of the namespace take it.
    DAV_DATETIME CreationDate;
    DAV_DATETIME ModificationDate;
    // Strong: no other content of this path has ever had it, nor will. Weak: the content may have
    // changed since under the same tag, which a provider says of what others than itself may be
    // writing just now, and of collections.
    DAV_TAG Tag;
};

// One member of a collection, packed.
struct DAV_MEMBER {
    UINT32 NextEntryOffset;
    UINT32 NameLength; // bytes of Name, which is one path component, unescaped, UTF-8
    DAV_OBJECT_INFO Info;
    char Name[8]; // variable
};

// One condition of the "If" header (RFC 4918 section 10.4).
inline constexpr UINT32 kIfToken = 0; // Value is a lock token, without "opaquelocktoken:"
inline constexpr UINT32 kIfTag = 1;   // Value is an entity tag as it was sent, quotes included
inline constexpr UINT32 kIfNever = 2; // a state token of another kind: no resource is in that state
struct DAV_IF_CONDITION {
    UINT32 Kind;
    BOOLEAN Negated;
    DAV_TEXT Value;
};

// Conditions that hold together, about one resource.
struct DAV_IF_LIST {
    // The provider path of the list's resource tag, unescaped UTF-8 (a resource elsewhere is in no
    // state: any path that the provider does not have). Length 0: the list has no tag and is about
    // the request's own path.
    DAV_TEXT Path;
    const DAV_IF_CONDITION* Conditions;
    UINT32 Count;
};

// Under which a client wants its request to be carried out; null in place of the record, or zeros:
// under none. An operation judges them in the step that makes its change, so that of several
// clients with the same condition one succeeds.
struct DAV_PRECONDITIONS {
    UINT32 Size;
    // How many of each follow. Once one list of If holds the header does; without lists it is not
    // asked. A condition that does not hold is code 40 (412).
    UINT32 IfCount;
    UINT32 TokenCount;
    UINT32 Reserved; // 0
    const DAV_IF_LIST* If;
    // Every lock token that the client submitted, wherever in the request: these open locks. A lock
    // that none of them opens is code 37 (423).
    const DAV_TEXT* Tokens;
    // "If-Match" and "If-None-Match" as they were sent, "*" included, about what bears the
    // request's own path (of COPY and MOVE, the source). "*" in NoneMatch: nothing may bear the
    // name; in Match: something must. Length 0: not sent.
    DAV_TEXT Match;
    DAV_TEXT NoneMatch;
    // "If-Unmodified-Since", in whole seconds; counts where Match was not sent. 0: not sent.
    DAV_DATETIME UnmodifiedSince;
};

// What a change has come to.
enum DAV_OUTCOME : UINT32 {
    kOutcomeCreated = 1,  // nothing bore the name before (201)
    kOutcomeReplaced = 2, // or something did (204, or 200 with a body)
};
struct DAV_CHANGE {
    UINT32 Size;
    DAV_OUTCOME Outcome;
    DAV_OBJECT_INFO Info; // of what bears the name now; its Size is the provider's to set
};

// What IKestDAVResource3::Open prepares.
inline constexpr UINT32 kOpenRead = 0;    // content is read
inline constexpr UINT32 kOpenReplace = 1; // new content, from nothing
inline constexpr UINT32 kOpenModify = 2;  // new content, which starts as what is there

// Bits for Copy and Move.
inline constexpr UINT32 kRelocateOverwrite = 0x1; // what bears the destination's name is replaced
inline constexpr UINT32 kRelocateShallow = 0x2;   // Copy: a collection without its members

// One dead property, packed. Text holds the namespace name ("" for none), the local name and the
// value, one after the other. The value is the property's whole element, as XML that stands for
// itself: start tag with all its attributes, xml:lang in effect included, and with a declaration
// for every prefix that is used in it, content, end tag.
struct DAV_PROPERTY {
    UINT32 NextEntryOffset;
    UINT32 NamespaceLength;
    UINT32 NameLength;
    UINT32 ValueLength;
    char Text[8]; // variable
};

// A change of one property. Every kind but the first two is about a live one.
inline constexpr UINT32 kPropertySet = 0;        // dead: Namespace, Name, Value
inline constexpr UINT32 kPropertyRemove = 1;     // dead: Namespace, Name
inline constexpr UINT32 kPropertyModified = 2;   // Number is the modification date
inline constexpr UINT32 kPropertyCreated = 3;    // Number is the creation date
inline constexpr UINT32 kPropertyAttributes = 4; // Number is the attribute word
inline constexpr UINT32 kMostPropertyChanges = 10000;
struct DAV_PROPERTY_CHANGE {
    UINT32 Size;
    UINT32 Kind;
    DAV_TEXT Namespace;
    DAV_TEXT Name;
    DAV_TEXT Value; // as in DAV_PROPERTY
    UINT64 Number;
    TALSTATUS Status; // out: this change's own failure, or success
};

// A lock that is wanted.
inline constexpr UINT32 kMostOwnerBytes = 8192;
struct DAV_LOCK_REQUEST {
    UINT32 Size;
    DAV_LOCK_SCOPE Scope;
    DAV_LOCK_TYPE Type;
    INT32 Depth;   // 0 or -1
    INT64 Timeout; // from now, 100 ns units, -1 infinite
    // The content of the client's "owner" element, as XML that stands for itself, at most
    // kMostOwnerBytes.
    DAV_TEXT Owner;
};

// A lock that holds, packed. Text holds its token (without "opaquelocktoken:"), the owner as it was
// given, and its root's provider path, unescaped, one after the other.
struct DAV_LOCK_INFO_3 {
    UINT32 NextEntryOffset;
    DAV_LOCK_SCOPE Scope;
    DAV_LOCK_TYPE Type;
    INT32 Depth;   // 0 or -1
    INT64 Timeout; // remaining, 100 ns units, -1 infinite
    UINT32 TokenLength;
    UINT32 OwnerLength;
    UINT32 RootLength;
    char Text[4]; // variable
};

// What a collection's owner can still store in it, in bytes (RFC 4331).
struct DAV_QUOTA {
    UINT32 Size;
    UINT32 Reserved;
    UINT64 Used;
    UINT64 Available;
};

// An upload that can go on when its connection has broken (uploads_3.h).
inline constexpr UINT32 kUploadNameBytes = 60;
inline constexpr UINT32 kMostUploadTerms = 16384; // bytes
inline constexpr UINT64 kUploadLengthUnknown = ~UINT64{0};
inline constexpr UINT32 kUploadComplete = 0x1; // bit of Flags: it is under its name
struct DAV_UPLOAD {
    UINT32 Size;
    UINT32 Flags;
    UINT64 Offset;     // bytes that are kept, on the disk as the provider's setting wants it
    UINT64 Length;     // of the whole in bytes, or kUploadLengthUnknown
    UINT64 MostBytes;  // that the whole may have
    UINT64 Lifetime;   // seconds from now for which it is kept if nothing comes
    UINT32 NameLength; // bytes of Name
    char Name[kUploadNameBytes]; // A-Z, a-z, 0-9, "-" and "_": nobody can guess it
};
