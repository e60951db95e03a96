// SPDX-License-Identifier: Apache-2.0
//
// Lengths and dates that come with uploads.
#include <gtest/gtest.h>

#include "standard/upload_headers.h"

using standard::ReadExpectedLength;
using standard::ReadModificationTime;

namespace {

constexpr UINT64 k1970 = UINT64{11'644'473'600} * 10'000'000;

TEST(ExpectedLength, IsOneNumber)
{
    UINT64 bytes = 0;
    EXPECT_TRUE(ReadExpectedLength(" 1000 ", bytes));
    EXPECT_EQ(bytes, 1000U);
    for (const char* header : {"", "-1", "1 2", "0x1", "12a"})
        EXPECT_FALSE(ReadExpectedLength(header, bytes)) << header;
}

TEST(ModificationTime, HasSecondsAndAFraction)
{
    UINT64 time = 0;
    ASSERT_TRUE(ReadModificationTime("0", time));
    EXPECT_EQ(time, k1970);
    ASSERT_TRUE(ReadModificationTime(" 1700000000 ", time));
    EXPECT_EQ(time, k1970 + UINT64{1'700'000'000} * 10'000'000);
    ASSERT_TRUE(ReadModificationTime("1.5", time));
    EXPECT_EQ(time, k1970 + 15'000'000);
    ASSERT_TRUE(ReadModificationTime("1.123456789", time));
    EXPECT_EQ(time, k1970 + 11'234'567) << "in steps of 100 ns";
    ASSERT_TRUE(ReadModificationTime("-1.5", time));
    EXPECT_EQ(time, k1970 - 15'000'000);
}

TEST(ModificationTime, RefusesWhatIsNone)
{
    UINT64 time = 0;
    for (const char* header : {"", "-", "abc", "1,5", "1e9", "1.5x", "--1", "99999999999999999999",
                               "-11644473600", "-99999999999999999999", "253402300800"})
        EXPECT_FALSE(ReadModificationTime(header, time)) << header;
}

} // namespace
