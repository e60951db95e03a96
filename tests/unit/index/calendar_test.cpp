// SPDX-License-Identifier: Apache-2.0
#include "index/calendar.h"

#include <random>

#include <gtest/gtest.h>

namespace {

constexpr UINT64 kUnixEpoch = 116444736000000000;

struct tm Converted(UINT64 date)
{
    struct tm time;
    EXPECT_EQ(KestServTALDateTimeToTm(date, &time), 0);
    return time;
}

} // namespace

TEST(Calendar, UnixEpoch_IsThursdayMidnight)
{
    const struct tm time = Converted(kUnixEpoch);
    EXPECT_EQ(time.tm_year, 70);
    EXPECT_EQ(time.tm_mon, 0);
    EXPECT_EQ(time.tm_mday, 1);
    EXPECT_EQ(time.tm_wday, 4);
    EXPECT_EQ(time.tm_yday, 0);
    EXPECT_EQ(time.tm_hour * 10000 + time.tm_min * 100 + time.tm_sec, 0);
    EXPECT_EQ(time.tm_isdst, 0);
}

TEST(Calendar, DatesFrom1970On_AreTheCLibrarysUtcDates)
{
    std::mt19937_64 random(20261120);
    std::vector<UINT64> seconds = {0,         59,        86399,     86400,
                                   951782399, 951782400, 951868800, 4107542399};
    for (int i = 0; i < 20000; ++i)
        seconds.push_back(random() % (UINT64{1} << (i % 38 + 1)));
    for (const UINT64 value : seconds) {
        const auto unixTime = static_cast<time_t>(value);
        struct tm expected;
        ASSERT_NE(gmtime_r(&unixTime, &expected), nullptr);
        const struct tm time = Converted(kUnixEpoch + value * 10000000 + 9999999);
        ASSERT_EQ(time.tm_year, expected.tm_year) << value;
        ASSERT_EQ(time.tm_mon, expected.tm_mon) << value;
        ASSERT_EQ(time.tm_mday, expected.tm_mday) << value;
        ASSERT_EQ(time.tm_hour, expected.tm_hour) << value;
        ASSERT_EQ(time.tm_min, expected.tm_min) << value;
        ASSERT_EQ(time.tm_sec, expected.tm_sec) << value;
        ASSERT_EQ(time.tm_wday, expected.tm_wday) << value;
        ASSERT_EQ(time.tm_yday, expected.tm_yday) << value;
    }
}

TEST(Calendar, DateOf1601_IsFarOff)
{
    const struct tm time = Converted(0);
    EXPECT_GT(time.tm_year, 50000);
    EXPECT_GE(time.tm_mon, 0);
    EXPECT_LE(time.tm_mon, 11);
    EXPECT_GE(time.tm_mday, 1);
    EXPECT_LE(time.tm_mday, 31);
}
