// SPDX-License-Identifier: Apache-2.0
//
// Dates as text: HTTP's (RFC 9110 section 5.6.7), that of RFC 3339, and that of access logs. Times
// are system times (system_time.h); parts of a second are cut off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

#include "base/system_time.h"

namespace base {

inline constexpr size_t kHttpDateLength = 29; // "Sun, 06 Nov 1994 08:49:37 GMT"
inline constexpr size_t kIsoDateLength = 20;  // "1994-11-06T08:49:37Z"
inline constexpr size_t kLogDateLength = 28;  // "[06/Nov/1994:08:49:37 +0000]"

// Write exactly the length above, without a terminator. False for years past 9999, which none of
// the forms can hold.
bool FormatHttpDate(uint64_t systemTime, char* out) noexcept;
bool FormatIsoDate(uint64_t systemTime, char* out) noexcept;
bool FormatLogDate(uint64_t systemTime, char* out) noexcept;

// Reads the three forms of HTTP. A two-digit year that would lie more than 50 years after `now`
// belongs to the century before. The name of the weekday must be one, but need not fit the date.
// Nothing for any other text and for dates before 1601.
std::optional<uint64_t> ParseHttpDate(std::string_view text, uint64_t now) noexcept;

// The same moment in the C library's form (UTC).
std::tm SystemTimeToCalendar(uint64_t systemTime) noexcept;

} // namespace base
