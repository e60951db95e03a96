// SPDX-License-Identifier: Apache-2.0
//
// The "Range" request header (RFC 9110 section 14.2), read the way clients of this module know it.
#pragma once

#include "support/globals.h"

// One range to send. A list ends with an entry whose BytesToRead is 0.
struct KESTDAV_BYTE_RANGE {
    UINT64 Offset;
    INT64 BytesToRead;
};

inline constexpr UINT32 kMostRanges = 64;

struct KESTDAV_RANGE {
    UINT64 ResourceSize; // bytes; set before parsing
    BOOLEAN bContiguous; // the ranges form one run
    UINT64 Start;        // first byte of the first range
    UINT64 End;          // one past the last byte of the run
    UINT64 TotalBytes;   // sum of all BytesToRead
    UINT32 uEntries;     // in: capacity, at most kMostRanges; out: entries
    KESTDAV_BYTE_RANGE Ranges[kMostRanges + 1];
};

// Parses the NUL-terminated header text in place and fills the record. Gives the HTTP status 200,
// 400 (not understood) or 416 (begins behind the end). Positions are 32-bit.
UINT32 ParseRequestRanges(char* pBuffer, KESTDAV_RANGE* pRangeRecord);
