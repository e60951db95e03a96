// SPDX-License-Identifier: Apache-2.0
//
// Conditional requests: what "If-Match", "If-None-Match", "If-Modified-Since",
// "If-Unmodified-Since" and "If-Range" come to, in the order of RFC 9110 section 13.2.2. Pure: the
// headers are read in request_conditions.h, and a provider judges those of a change again where the
// change happens.
#pragma once

#include <string_view>

#include "standard/entity_tag.h"
#include <kest/types.h>

namespace standard {

// What the client has sent. data() is null for a header that it has not sent.
struct Conditions {
    std::string_view match{};
    std::string_view noneMatch{};
    // 100 ns units since 1601; 0 when it has not been sent or is no date, which is ignored.
    UINT64 modifiedSince = 0;
    UINT64 unmodifiedSince = 0;

    bool AreNone() const noexcept
    {
        return !match.data() && !noneMatch.data() && modifiedSince == 0 && unmodifiedSince == 0;
    }
};

// What is there.
struct Current {
    bool exists = false;
    EntityTag tag;
    UINT64 modified = 0; // 0: not known, and conditions on it are ignored
};

enum class Verdict {
    Proceed,
    NotModified, // 304: only of a reading request
    Failed,      // 412
};

// The caller has made sure that the request would succeed without conditions (RFC 9110 section
// 13.2.1). `isReading` is true of GET and HEAD.
Verdict Judge(const Conditions& conditions, const Current& current, bool isReading) noexcept;

// Whether an "If-Range" lets the range be sent (RFC 9110 section 13.1.5): a strong tag that is
// equal, or the very second of the last change. `date` is the value read as a date, 0 for none.
bool HoldsIfRange(std::string_view value, UINT64 date, const Current& current) noexcept;

} // namespace standard
