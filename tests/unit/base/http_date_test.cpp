// SPDX-License-Identifier: Apache-2.0
//
// Dates: written, read, and as calendars.
#include "base/http_date.h"

#include <string>

#include <gtest/gtest.h>

namespace base {
namespace {

uint64_t At(int64_t unix)
{
    return UnixToSystemTime(unix).value();
}

constexpr int64_t kExample = 784111777; // Sun, 06 Nov 1994 08:49:37 GMT

TEST(HttpDate, IsWrittenAsFixdate)
{
    struct Row {
        const char* why;
        int64_t unix;
        const char* text;
    };
    constexpr Row rows[] = {
        {"the example of the standard", kExample, "Sun, 06 Nov 1994 08:49:37 GMT"},
        {"the epoch", 0, "Thu, 01 Jan 1970 00:00:00 GMT"},
        {"before the epoch", -1, "Wed, 31 Dec 1969 23:59:59 GMT"},
        {"a leap day", 951782400, "Tue, 29 Feb 2000 00:00:00 GMT"},
        {"no leap day in 1900", -2203891200, "Thu, 01 Mar 1900 00:00:00 GMT"},
        {"the first moment", -11644473600, "Mon, 01 Jan 1601 00:00:00 GMT"},
        {"the last second of a year", 1798761599, "Thu, 31 Dec 2026 23:59:59 GMT"},
        {"the last that fits", 253402300799, "Fri, 31 Dec 9999 23:59:59 GMT"},
    };
    for (const Row& row : rows) {
        std::string text(kHttpDateLength, '?');
        EXPECT_TRUE(FormatHttpDate(At(row.unix), text.data())) << row.why;
        EXPECT_EQ(text, row.text) << row.why;
    }
}

TEST(HttpDate, YearWithFiveDigits_IsRefused)
{
    std::string text(kHttpDateLength, '?');
    EXPECT_FALSE(FormatHttpDate(At(253402300800), text.data()));
    EXPECT_FALSE(FormatHttpDate(UINT64_MAX, text.data()));
    EXPECT_FALSE(FormatIsoDate(UINT64_MAX, text.data()));
}

// Each thread keeps the text of the last day: it must not outlive the day.
TEST(Dates, OfNeighbouringDaysAndBackAgain)
{
    struct Row {
        int64_t unix;
        const char* http;
        const char* iso;
    };
    constexpr Row rows[] = {
        {1582934399, "Fri, 28 Feb 2020 23:59:59 GMT", "2020-02-28T23:59:59Z"},
        {1582934400, "Sat, 29 Feb 2020 00:00:00 GMT", "2020-02-29T00:00:00Z"},
        {1583020799, "Sat, 29 Feb 2020 23:59:59 GMT", "2020-02-29T23:59:59Z"},
        {1583020800, "Sun, 01 Mar 2020 00:00:00 GMT", "2020-03-01T00:00:00Z"},
        {1582934399, "Fri, 28 Feb 2020 23:59:59 GMT", "2020-02-28T23:59:59Z"},
    };
    std::string refused(kHttpDateLength, '?');
    for (const Row& row : rows) {
        std::string http(kHttpDateLength, '?');
        std::string iso(kIsoDateLength, '?');
        EXPECT_TRUE(FormatHttpDate(At(row.unix), http.data()));
        EXPECT_TRUE(FormatIsoDate(At(row.unix), iso.data()));
        EXPECT_EQ(http, row.http);
        EXPECT_EQ(iso, row.iso);
        // Neither does one that has no text.
        EXPECT_FALSE(FormatHttpDate(UINT64_MAX, refused.data()));
        EXPECT_FALSE(FormatIsoDate(UINT64_MAX, refused.data()));
    }
}

TEST(LogDate, IsThatOfTheCommonLogFormat)
{
    std::string text(kLogDateLength, '?');
    EXPECT_TRUE(FormatLogDate(At(kExample), text.data()));
    EXPECT_EQ(text, "[06/Nov/1994:08:49:37 +0000]");
    EXPECT_FALSE(FormatLogDate(UINT64_MAX, text.data()));
}

TEST(IsoDate, HasNoFractions)
{
    std::string text(kIsoDateLength, '?');
    EXPECT_TRUE(FormatIsoDate(At(1769860800) + 9'999'999, text.data()));
    EXPECT_EQ(text, "2026-01-31T12:00:00Z");
}

TEST(HttpDate, AllThreeFormsAreRead)
{
    const uint64_t now = At(kExample);
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994"})
        EXPECT_EQ(ParseHttpDate(text, now), At(kExample)) << text;
    EXPECT_EQ(ParseHttpDate("Wed Nov 16 08:49:37 1994", now), At(kExample + 10 * 86400));
}

TEST(HttpDate, WhatIsReadIsWhatWasWritten)
{
    for (int64_t unix = -11644473600; unix < 253402300799; unix += 86400LL * 97 + 3607) {
        std::string text(kHttpDateLength, '?');
        ASSERT_TRUE(FormatHttpDate(At(unix), text.data()));
        ASSERT_EQ(ParseHttpDate(text, 0), At(unix)) << text;
    }
}

TEST(HttpDate, TwoDigitYear_IsNeverMoreThanFiftyYearsAhead)
{
    const uint64_t in2026 = At(1790000000);
    struct Row {
        const char* text;
        const char* year;
    };
    for (const Row& row : {Row{"Sunday, 06-Nov-26 08:49:37 GMT", "2026"},
                           Row{"Sunday, 06-Nov-76 08:49:37 GMT", "2076"},
                           Row{"Sunday, 06-Nov-77 08:49:37 GMT", "1977"},
                           Row{"Sunday, 06-Nov-94 08:49:37 GMT", "1994"}}) {
        std::string text(kHttpDateLength, '?');
        const auto read = ParseHttpDate(row.text, in2026);
        ASSERT_TRUE(read) << row.text;
        ASSERT_TRUE(FormatHttpDate(*read, text.data()));
        EXPECT_EQ(text.substr(12, 4), row.year) << row.text;
    }
}

TEST(HttpDate, AnythingElseIsRefused)
{
    for (const char* text : {"",
                             " ",
                             "Sun",
                             "Sun, 06 Nov 1994 08:49:37",
                             "Sun, 06 Nov 1994 08:49:37 GMT ",
                             " Sun, 06 Nov 1994 08:49:37 GMT",
                             "Sun, 06 Nov 1994 08:49:37 UTC",
                             "Son, 06 Nov 1994 08:49:37 GMT",
                             "Sun, 06 nov 1994 08:49:37 GMT",
                             "Sun, 6 Nov 1994 08:49:37 GMT",
                             "Sun, 31 Apr 1994 08:49:37 GMT",
                             "Sun, 29 Feb 1995 08:49:37 GMT",
                             "Sun, 00 Nov 1994 08:49:37 GMT",
                             "Sun, 06 Nov 1994 24:49:37 GMT",
                             "Sun, 06 Nov 1994 08:60:37 GMT",
                             "Sun, 06 Nov 1994 08:49:61 GMT",
                             "Sun, 06 Nov 1600 08:49:37 GMT",
                             "Sun, 06 Nov 19940 08:49:37 GMT",
                             "Sunday, 06-Nov-1994 08:49:37 GMT",
                             "Sun Nov 6 08:49:37 1994",
                             "784111777",
                             "Sun, 06 Nov -994 08:49:37 GMT"})
        EXPECT_FALSE(ParseHttpDate(text, At(kExample))) << text;
}

TEST(Calendar, CarriesWeekdayAndDayOfYear)
{
    const std::tm tm = SystemTimeToCalendar(At(kExample));
    EXPECT_EQ(tm.tm_year, 94);
    EXPECT_EQ(tm.tm_mon, 10);
    EXPECT_EQ(tm.tm_mday, 6);
    EXPECT_EQ(tm.tm_hour, 8);
    EXPECT_EQ(tm.tm_min, 49);
    EXPECT_EQ(tm.tm_sec, 37);
    EXPECT_EQ(tm.tm_wday, 0);
    EXPECT_EQ(tm.tm_yday, 309);
    EXPECT_EQ(tm.tm_isdst, 0);
}

// The years that <chrono> does not reach.
TEST(Calendar, ReachesTheLastSystemTime)
{
    const std::tm tm = SystemTimeToCalendar(UINT64_MAX);
    EXPECT_EQ(tm.tm_year + 1900, 60056);
    EXPECT_EQ(tm.tm_mon, 4);
    EXPECT_EQ(tm.tm_mday, 28);
    EXPECT_EQ(tm.tm_hour, 5);
    EXPECT_EQ(tm.tm_min, 36);
    EXPECT_EQ(tm.tm_sec, 10);
}

TEST(SystemTime, OfTheOperatingSystem)
{
    EXPECT_EQ(SystemTimeOf(0, 0), 116444736000000000U);
    EXPECT_EQ(SystemTimeOf(1, 299), 116444736010000002U);
    EXPECT_EQ(SystemTimeOf(-11644473600, 0), 0U);
    const std::time_t before = std::time(nullptr);
    const int64_t now = SystemTimeToUnix(SystemTimeNow());
    EXPECT_GE(now, before);
    EXPECT_LE(now, std::time(nullptr));
}

TEST(SystemTime, OutsideItsRange_IsRefused)
{
    EXPECT_EQ(UnixToSystemTime(-11644473600), 0U);
    EXPECT_FALSE(UnixToSystemTime(-11644473601));
    EXPECT_FALSE(UnixToSystemTime(INT64_MAX));
    EXPECT_EQ(SystemTimeToUnix(0), -11644473600);
    EXPECT_EQ(SystemTimeToUnix(At(5) + 9'999'999), 5);
}

} // namespace
} // namespace base
