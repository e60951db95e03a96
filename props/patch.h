// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH (RFC 4918 section 9.2): the request record, and the values that are cut out of the body
// as raw text. Values may hold markup, which comes back in PROPFIND replies as it was sent.
#pragma once

#include "support/handlers.h"
#include "support/resolution.h"
#include "support/uri.h"

// Bits of PATCH_REQ::Flags: where in the body the parser stands.
inline constexpr UINT32 kInUpdate = 0x01;
inline constexpr UINT32 kInSet = 0x02;
inline constexpr UINT32 kInRemove = 0x04;
inline constexpr UINT32 kInProp = 0x08;
inline constexpr UINT32 kPropTaken = 0x10; // the prop element's one property was taken

enum PATCH_ACTION : UINT32 { kPatchNone = 0, kPatchSet = 1, kPatchRemove = 2 };

inline constexpr UINT32 kPatchSignature = 0x07112002;
inline constexpr UINT32 kPatchBodyBytes = 8000; // least size of the body's buffer

struct PATCH_PROP {
    LIST_ENTRY ListLink;
    UINT32 Action; // a PATCH_ACTION
    TALSTATUS status;
    char* pName; // as the client wrote it, prefix included
    UINT32 ValueLength;
    char* pValue; // raw bytes, not terminated; null when empty
};

struct PATCH_REQ {
    UINT32 Signature;
    UINT32 Flags;
    TALSTATUS Status;       // of the parser; a failure stops the recording
    LIST_ENTRY lProperties; // PATCH_PROP, in document order
    char szLockToken[64];   // recorded; no provider is handed it
    UINT64 NameBudget;      // bytes of names that the body may still hold
};

// A zeroed record with its list set up; null when memory is short.
[[nodiscard]] PATCH_REQ* AllocPatchRequest();
void FreePatchRequest(PATCH_REQ* pRequest);

// Reads "If" and the body and fills the property list. Code 7 when the body does not fit its
// buffer: it must stay shorter than kPatchBodyBytes.
[[nodiscard]] TALSTATUS ParsePropPatchRequest(IKestIO_5* pKestIo, PATCH_REQ* pRequest);

// Cuts the properties' values out of the raw body.
[[nodiscard]] TALSTATUS ExtractPatchValues(PATCH_REQ* pRequest, const char* body, UINT32 size);

// The parser's callbacks; user data is the record.
void PPStartTagHandler(void* pUserData, const char* pTagName, const char** ppAttr);
void PPEndTagHandler(void* pUserData, const char* pTagName);

// Part of the handler's interface; the reply is sent by the handler itself.
TALSTATUS SendPatchResponse(IKestIO_5* pKestIo, PATCH_REQ* pRequest);
