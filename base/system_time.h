// SPDX-License-Identifier: Apache-2.0
//
// System times: 100 ns units since 1601-01-01 UTC, and the seconds since 1970 that the operating
// system counts.
#pragma once

#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>

namespace base {

inline constexpr int64_t kUnitsPerSecond = 10'000'000;
inline constexpr int64_t kSecondsBefore1970 = 11'644'473'600; // from 1601-01-01
inline constexpr int64_t kUnixEpoch = kSecondsBefore1970 * kUnitsPerSecond;

// Seconds since 1970, rounded down; negative before.
constexpr int64_t SystemTimeToUnix(uint64_t systemTime) noexcept
{
    return static_cast<int64_t>(systemTime / static_cast<uint64_t>(kUnitsPerSecond)) -
           kSecondsBefore1970;
}

// Nothing for times before 1601 or past what a system time can hold.
constexpr std::optional<uint64_t> UnixToSystemTime(int64_t seconds) noexcept
{
    constexpr int64_t kLast = static_cast<int64_t>(std::numeric_limits<uint64_t>::max() /
                                                   static_cast<uint64_t>(kUnitsPerSecond)) -
                              kSecondsBefore1970;
    if (seconds < -kSecondsBefore1970 || seconds > kLast)
        return std::nullopt;
    return static_cast<uint64_t>(seconds + kSecondsBefore1970) *
           static_cast<uint64_t>(kUnitsPerSecond);
}

// A time of the operating system, from 1601 on; parts below 100 ns are cut off.
constexpr uint64_t SystemTimeOf(int64_t seconds, int64_t nanoseconds) noexcept
{
    return static_cast<uint64_t>(kUnixEpoch + seconds * kUnitsPerSecond + nanoseconds / 100);
}
inline uint64_t SystemTimeOf(const std::timespec& time) noexcept
{
    return SystemTimeOf(time.tv_sec, time.tv_nsec);
}

// The current time.
inline uint64_t SystemTimeNow() noexcept
{
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return SystemTimeOf(now);
}

} // namespace base
