// SPDX-License-Identifier: Apache-2.0
//
// Scalars and records that cross the binary boundary between the host, the platform layer, the
// WebDAV module and the storage providers. Nothing else crosses it: no exceptions, no library
// types, no memory that another side frees except through ITalpl::TalxFreeMemory.
#pragma once

#include <cstddef>
#include <cstdint>

using UINT8 = std::uint8_t;
using UINT16 = std::uint16_t;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using INT32 = std::int32_t;
using INT64 = std::int64_t;
using BOOLEAN = std::uint8_t; // 1 is true, 0 is false
using HANDLE = void*;         // opaque; only its maker looks inside
using WCHAR = char16_t;       // one UTF-16 code unit
using TALSTATUS = UINT32;     // see status.h
using HTTPSTATUS = INT32;     // an HTTP status number such as 200

inline constexpr BOOLEAN FALSE = 0;
inline constexpr BOOLEAN TRUE = 1;

// Counted 8-bit string (UTF-8). Both lengths are bytes; no terminator is counted. Does not own
// Buffer.
struct STRING {
    UINT16 Length;
    UINT16 MaximumLength;
    char* Buffer;
};

// Counted wide string (UTF-16). Both lengths are BYTES, twice the number of code units; no
// terminator is counted. Does not own Buffer.
struct UNICODE_STRING {
    UINT16 Length;
    UINT16 MaximumLength;
    WCHAR* Buffer;
};

// Identifies classes, interfaces, attributes and event classes. Compared field by field.
struct GUID {
    UINT32 Data1;
    UINT16 Data2;
    UINT16 Data3;
    UINT8 Data4[8];

    friend constexpr bool operator==(const GUID& a, const GUID& b) noexcept
    {
        if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3)
            return false;
        for (int i = 0; i < 8; ++i)
            if (a.Data4[i] != b.Data4[i])
                return false;
        return true;
    }
};

// One authenticated user session; passed by value everywhere. Only the host looks inside.
struct SCHANDLE {
    HANDLE hTypeId;
    HANDLE hId;
};

// Circular doubly linked list. An empty list is a head whose links both point to itself.
struct LIST_ENTRY {
    LIST_ENTRY* Flink;
    LIST_ENTRY* Blink;
};

// Who may reach a module's location.
enum KEST_LOCATION_ACCESS : UINT32 {
    KestAccessAnonymous = 0,
    KestAccessUser = 1,
    KestAccessAdmin = 2,
    KestAccessProxy = 3,
    KestAccessUserOptional = 4,
};

static_assert(sizeof(void*) == 8, "the contract is defined for 64-bit processes");
