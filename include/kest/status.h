// SPDX-License-Identifier: Apache-2.0
//
// Statuses: 32 bits, of which the top two are the severity (3 = failure, 1 = informational,
// 0 = success), the high half names who made it, and the low 16 bits carry the code.
#pragma once

#include <kest/types.h>

// Codes (the low 16 bits). The same numbers are used by every component.
inline constexpr UINT16 kCodeSuccess = 0x00;
inline constexpr UINT16 kCodeUnsuccessful = 0x01;
inline constexpr UINT16 kCodeNoInterface = 0x02;
inline constexpr UINT16 kCodeInvalidParameter = 0x04;
inline constexpr UINT16 kCodeInsufficientResources = 0x05;
inline constexpr UINT16 kCodeAccessDenied = 0x06;
inline constexpr UINT16 kCodeBufferTooSmall = 0x07;
inline constexpr UINT16 kCodeEndOfFile = 0x08;
inline constexpr UINT16 kCodeNoMoreEntries = 0x09;
inline constexpr UINT16 kCodeTimeout = 0x0A;
inline constexpr UINT16 kCodeNotFound = 0x0B;
inline constexpr UINT16 kCodeNotImplemented = 0x0D; // an operation the provider does not offer
inline constexpr UINT16 kCodeOpenFailed = 0x0F;
inline constexpr UINT16 kCodeInvalidRequest = 0x10;
inline constexpr UINT16 kCodeObjectExists = 0x16;
inline constexpr UINT16 kCodeNotSupported = 0x1C;
inline constexpr UINT16 kCodeMultiStatus = 0x1F;
inline constexpr UINT16 kCodeNotModified = 0x20;
inline constexpr UINT16 kCodeConflict = 0x21;
inline constexpr UINT16 kCodeCreated = 0x22;
inline constexpr UINT16 kCodeStorageFull = 0x23;
inline constexpr UINT16 kCodeLocked = 0x25;
inline constexpr UINT16 kCodeNameTooLong = 0x26;
inline constexpr UINT16 kCodeMethodNotAllowed = 0x27;
inline constexpr UINT16 kCodePreconditionFailed = 0x28;

// Makers of failure statuses (the high half).
inline constexpr UINT16 kFacilityModule = 0xC7BE;
inline constexpr UINT16 kFacilityPlatform = 0xC7A1;
inline constexpr UINT16 kFacilityHost = 0xC7A2;
inline constexpr UINT16 kFacilityFileStore = 0xC7A3;

constexpr TALSTATUS MakeStatus(UINT16 facility, UINT16 code) noexcept
{
    return static_cast<TALSTATUS>(facility) << 16 | code;
}

// True when the severity is 3. Informational statuses do not fail.
constexpr bool Failed(TALSTATUS status) noexcept
{
    return status >> 30 == 3;
}

// The low 16 bits. After host I/O and platform calls any non-zero code counts as an error.
constexpr UINT16 Code(TALSTATUS status) noexcept
{
    return static_cast<UINT16>(status & 0xFFFF);
}

inline constexpr TALSTATUS TAL_STATUS_SUCCESS = 0x00000000;
inline constexpr TALSTATUS TAL_STATUS_UNSUCCESSFUL = 0xC7BE0001;
inline constexpr TALSTATUS TAL_STATUS_NO_INTERFACE = 0xC7BE0002;
inline constexpr TALSTATUS TAL_STATUS_INVALID_PARAMETER = 0xC7BE0004;
inline constexpr TALSTATUS TAL_STATUS_INSUFFICIENT_RESOURCES = 0xC7BE0005;
inline constexpr TALSTATUS TAL_STATUS_ACCESS_DENIED = 0xC7BE0006;
inline constexpr TALSTATUS TAL_STATUS_BUFFER_TOO_SMALL = 0xC7BE0007;
inline constexpr TALSTATUS TAL_STATUS_END_OF_FILE = 0xC7BE0008;
inline constexpr TALSTATUS TAL_STATUS_NOT_FOUND = 0xC7BE000B;
inline constexpr TALSTATUS TAL_STATUS_OPEN_FAILED = 0xC7BE000F;
inline constexpr TALSTATUS TAL_STATUS_INVALID_REQUEST = 0xC7BE0010;
inline constexpr TALSTATUS TAL_STATUS_OBJECT_EXISTS = 0xC7BE0016;
inline constexpr TALSTATUS TAL_STATUS_NOT_SUPPORTED = 0xC7BE001C;
inline constexpr TALSTATUS TAL_STATUS_CONFLICT = 0xC7BE0021;
inline constexpr TALSTATUS TAL_STATUS_NAME_TOO_LONG = 0xC7BE0026;
inline constexpr TALSTATUS TAL_STATUS_INFO_END_OF_FILE = 0x47BE0008;

// The one place where statuses become HTTP status codes. Only the low 16 bits count; a code without
// a closer HTTP meaning, and every code past the table, is 417 (RFC 9110 section 15.5.18).
constexpr UINT32 MapTalStatusToHttpStatus(TALSTATUS status) noexcept
{
    switch (Code(status)) {
    case kCodeSuccess:
        return 200;
    case kCodeInsufficientResources:
        return 507;
    case kCodeAccessDenied:
        return 403;
    case kCodeTimeout:
        return 408;
    case kCodeNotFound:
        return 404;
    case kCodeNotImplemented:
        return 501;
    case kCodeInvalidRequest:
        return 400;
    case kCodeObjectExists:
        return 412;
    case kCodeMultiStatus:
        return 207;
    case kCodeNotModified:
        return 304;
    case kCodeConflict:
        return 409;
    case kCodeCreated:
        return 201;
    case kCodeStorageFull:
        return 507;
    case kCodeLocked:
        return 423;
    case kCodeNameTooLong:
        return 414;
    case kCodeMethodNotAllowed:
        return 405;
    case kCodePreconditionFailed:
        return 412;
    default:
        return 417;
    }
}
