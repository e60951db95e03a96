// SPDX-License-Identifier: Apache-2.0
//
// Dates as text. System times are 100 ns units since 1601-01-01 UTC; parts of a second are cut off.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string_view>

namespace kestd {

inline constexpr size_t kHttpDateLength = 29; // "Sun, 06 Nov 1994 08:49:37 GMT"
inline constexpr size_t kIsoDateLength = 20;  // "1994-11-06T08:49:37Z"

// Write exactly the length above, without a terminator. False for years past 9999, which neither
// form can hold.
bool FormatHttpDate(uint64_t systemTime, char* out);
bool FormatIsoDate(uint64_t systemTime, char* out);

// Reads the three forms of RFC 9110 section 5.6.7. A two-digit year that would lie more than 50
// years after `now` belongs to the century before. The name of the weekday must be one, but need
// not fit the date. Nothing for any other text and for dates before 1601.
std::optional<uint64_t> ParseHttpDate(std::string_view text, uint64_t now);

// Seconds since 1970, rounded down; negative before.
int64_t SystemTimeToUnix(uint64_t systemTime);
// Nothing for times before 1601 or past what a system time can hold.
std::optional<uint64_t> UnixToSystemTime(int64_t seconds);
std::tm SystemTimeToCalendar(uint64_t systemTime); // UTC

// The current system time.
uint64_t SystemTimeNow();

} // namespace kestd
