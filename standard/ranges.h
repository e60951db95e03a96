// SPDX-License-Identifier: Apache-2.0
//
// Ranges of bytes: what "Range" asks for (RFC 9110 section 14.2), and what "Content-Range" of a PUT
// and "X-Update-Range" of a PATCH say a body is for.
#pragma once

#include <cstddef>
#include <string_view>

#include <kest/types.h>

namespace standard {

struct ByteRange {
    UINT64 first;
    UINT64 length; // never 0
};

// More ranges than this are answered with the whole, as RFC 9110 section 14.2 allows: nobody who
// means well sends them.
inline constexpr size_t kMostRanges = 32;

// Ranges that overlap, touch or lie less than this apart are sent as one: a part's head is longer
// (RFC 9110 section 15.3.7.2).
inline constexpr UINT64 kLeastGap = 80;

struct RangeSet {
    ByteRange parts[kMostRanges];
    size_t count = 0;
};

enum class RangeVerdict {
    Whole, // no ranges, or nothing that has to be understood: 200
    Parts, // 206
    None,  // 416
};

// Reads a "Range" header for a content of `size` bytes. After Parts, `set` holds what is to be
// sent, in the order in which it was asked for.
RangeVerdict ReadRanges(std::string_view header, UINT64 size, RangeSet& set) noexcept;

// Where a body belongs in the content that is there.
struct UpdateRange {
    enum class Kind {
        At,      // from `first`; `length` bytes when it is known, else as many as there are
        FromEnd, // from `length` bytes before the end
        Append,
    };
    Kind kind = Kind::At;
    UINT64 first = 0;
    UINT64 length = 0;
    bool hasLength = false;
    UINT64 size = 0; // of the whole afterwards
    bool hasSize = false;
};

// Reads "bytes FIRST-LAST/SIZE", SIZE may be "*" (RFC 9110 section 14.4). False for anything else,
// also for a last position before the first or behind the size.
bool ReadContentRange(std::string_view header, UpdateRange& update) noexcept;

// Reads an "X-Update-Range": "append", "bytes=FIRST-LAST", "bytes=FIRST-" or "bytes=-LENGTH". False
// for anything else.
bool ReadUpdateRange(std::string_view header, UpdateRange& update) noexcept;

} // namespace standard
