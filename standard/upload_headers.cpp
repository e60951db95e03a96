// SPDX-License-Identifier: Apache-2.0
//
// Reading lengths and dates of uploads.
#include "standard/upload_headers.h"

#include "standard/scan.h"
#include "support/time_units.h"

namespace standard {

namespace {

constexpr UINT64 kMostSeconds = 253'402'300'799; // the end of 9999, the last year of dates

// Takes a fraction of a second; digits beyond the seventh do not count.
UINT64 TakeFraction(std::string_view& text) noexcept
{
    UINT64 ticks = 0;
    for (UINT64 unit = kUnitsPerSecond / 10; !text.empty() && IsDigit(text.front());
         text.remove_prefix(1), unit /= 10)
        ticks += static_cast<UINT64>(text.front() - '0') * unit;
    return ticks;
}

} // namespace

bool ReadExpectedLength(std::string_view header, UINT64& bytes) noexcept
{
    std::string_view text = Trimmed(header);
    return TakeNumber(text, bytes) && text.empty();
}

bool ReadModificationTime(std::string_view header, UINT64& time) noexcept
{
    std::string_view text = Trimmed(header);
    const bool isBefore1970 = Take(text, "-");
    UINT64 seconds = 0;
    if (!TakeNumber(text, seconds))
        return false;
    const UINT64 ticks = Take(text, ".") ? TakeFraction(text) : 0;
    if (!text.empty())
        return false;
    if (isBefore1970) {
        if (seconds >= kSecondsTo1970)
            return false;
        time = (kSecondsTo1970 - seconds) * kUnitsPerSecond - ticks;
        return true;
    }
    if (seconds > kMostSeconds)
        return false;
    time = (kSecondsTo1970 + seconds) * kUnitsPerSecond + ticks;
    return true;
}

} // namespace standard
