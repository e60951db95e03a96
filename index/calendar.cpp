// SPDX-License-Identifier: Apache-2.0
//
// Dates of the provider as calendar dates.
#include "index/calendar.h"

#include <limits>

#include "support/time_units.h"

namespace {

constexpr UINT64 kUnixEpoch = kSecondsTo1970 * kUnitsPerSecond;
constexpr UINT64 kSecondsPerDay = 86400;
constexpr UINT64 kDaysPer400Years = 146097;
constexpr UINT64 kThursday = 4; // 1970-01-01

bool IsLeap(UINT64 year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// The day in the year on which each month begins.
constexpr UINT16 kMonthStart[2][12] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335},
};

} // namespace

int KestServTALDateTimeToTm(DAV_DATETIME nctime, struct tm* tp)
{
    const UINT64 seconds = (nctime - kUnixEpoch) / kUnitsPerSecond;
    UINT64 days = seconds / kSecondsPerDay;
    const auto rest = static_cast<int>(seconds % kSecondsPerDay);

    *tp = {};
    tp->tm_hour = rest / 3600;
    tp->tm_min = rest / 60 % 60;
    tp->tm_sec = rest % 60;
    tp->tm_wday = static_cast<int>((days + kThursday) % 7);
    tp->tm_zone = "UTC"; // for "%Z" in a template's format

    // The Gregorian calendar repeats after 400 years, so that far-off dates take few steps.
    UINT64 year = 1970 + days / kDaysPer400Years * 400;
    days %= kDaysPer400Years;
    for (UINT64 length; days >= (length = IsLeap(year) ? 366 : 365); ++year)
        days -= length;
    if (year - 1900 > static_cast<UINT64>(std::numeric_limits<int>::max()))
        return -1;

    const UINT16(&starts)[12] = kMonthStart[IsLeap(year)];
    int month = 11;
    while (starts[month] > days)
        --month;
    tp->tm_year = static_cast<int>(year - 1900);
    tp->tm_yday = static_cast<int>(days);
    tp->tm_mon = month;
    tp->tm_mday = static_cast<int>(days) - starts[month] + 1;
    return 0;
}
