// SPDX-License-Identifier: Apache-2.0
//
// LOCK and UNLOCK (RFC 4918 sections 9.10 and 9.11). Locks live in second-generation providers; the
// module keeps none.
#pragma once

#include "support/handlers.h"
#include "support/resolution.h"
#include "support/time_units.h"
#include "support/uri.h"

// Bits of LOCK_REQ::Flags.
inline constexpr UINT32 kLockInfoSeen = 0x00000001; // a lockinfo element was opened
inline constexpr UINT32 kInsideOwner = 0x00000008;  // text and hrefs belong to the owner
inline constexpr UINT32 kLockRefresh = 0x10000000;  // a token in "If" and no body

inline constexpr UINT32 kLockSignature = 0x7102002;

struct LOCK_REQ {
    UINT32 Signature;
    UINT32 Flags;
    UINT32 Depth;
    INT32 Timeout; // seconds, -1 infinite
    DAV_LOCK_TYPE Type;
    DAV_LOCK_SCOPE Scope;
    STRING TokenS; // over cToken; the text is counted, not terminated, when it fills the buffer
    char cToken[128];
    char szOwner[kLockOwnerBytes]; // NUL-terminated
};

// A zeroed record with TokenS set up; null when memory is short.
[[nodiscard]] LOCK_REQ* AllocLockRequest();
void FreeLockRequest(LOCK_REQ* pRequest);
struct FreeLock {
    void operator()(LOCK_REQ* request) const noexcept { FreeLockRequest(request); }
};

// Reads the headers and the body into the record. Fails only when memory is short; a malformed body
// leaves what was read up to the error.
[[nodiscard]] TALSTATUS ParseDavLockRequest(IKestIO_5* pKestIo, LOCK_REQ* pRequest);

// The parser's callbacks; user data is the record.
void LRStartTagHandler(void* pUserData, const char* pTagName, const char** ppAttr);
void LREndTagHandler(void* pUserData, const char* pTagName);
void LRDataHandler(void* pUserData, const char* pData, int Length);

// Sends the status and the lock that the record describes.
void SendLockResponse(IKestIO_5* pKestIo, const LOCK_REQ* pRequest, HTTPSTATUS HttpStatus);
