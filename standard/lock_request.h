// SPDX-License-Identifier: Apache-2.0
//
// What a LOCK asks for (RFC 4918 section 9.10).
#pragma once

#include <kest/dav/records_3.h>
#include <kest/io.h>

#include "support/growing.h"

namespace standard {

inline constexpr INT64 kDefaultLockSeconds = 3600;
inline constexpr INT64 kLongestLockSeconds =
    86400; // also for "Infinite": nobody holds a name for ever

struct LockRequest {
    DAV_LOCK_REQUEST wanted{}; // Owner refers to `owner`
    GrowingText owner;
    bool isRefresh = false; // there is no body: a lock is to be given more time
};

// Reads headers and body. Fails with code 16 for a malformed one (400), also for an owner of more
// than kMostOwnerBytes, with code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadLock(IKestIO_5* io, LockRequest& request);

// Seconds that a "Timeout" header asks for (RFC 4918 section 10.7): the first form that is
// understood counts.
INT64 ReadTimeout(std::string_view header) noexcept;

} // namespace standard
