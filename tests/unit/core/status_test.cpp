// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <kest/status.h>
#include <kest/types.h>

namespace {

struct Row {
    UINT32 code;
    UINT32 http;
};

TEST(MapTalStatusToHttpStatus, FollowsItsTable)
{
    // Every code that has a meaning of its own; all others up to and past the end are 417.
    static constexpr Row kMapped[] = {{0, 200},  {5, 507},  {6, 403},  {10, 408}, {11, 404},
                                      {13, 501}, {16, 400}, {22, 412}, {31, 207}, {32, 304},
                                      {33, 409}, {34, 201}, {35, 507}, {37, 423}, {38, 414},
                                      {39, 405}, {40, 412}};
    for (UINT32 code = 0; code <= 0xFFFF; ++code) {
        UINT32 expected = 417;
        for (const Row& row : kMapped)
            if (row.code == code)
                expected = row.http;
        ASSERT_EQ(MapTalStatusToHttpStatus(code), expected) << code;
    }
}

TEST(MapTalStatusToHttpStatus, IgnoresSeverityAndMaker)
{
    EXPECT_EQ(MapTalStatusToHttpStatus(0xC7BE0005), 507U);
    EXPECT_EQ(MapTalStatusToHttpStatus(0xC7BE000B), 404U);
    EXPECT_EQ(MapTalStatusToHttpStatus(0xC7BE0016), 412U);
    EXPECT_EQ(MapTalStatusToHttpStatus(0xC7BE0029), 417U);
    EXPECT_EQ(MapTalStatusToHttpStatus(0x00000022), 201U);
    EXPECT_EQ(MapTalStatusToHttpStatus(TAL_STATUS_INFO_END_OF_FILE), 417U);
}

TEST(Severity, OnlyThreeFails)
{
    EXPECT_FALSE(Failed(TAL_STATUS_SUCCESS));
    EXPECT_FALSE(Failed(TAL_STATUS_INFO_END_OF_FILE));
    EXPECT_FALSE(Failed(0x87BE0001));
    EXPECT_TRUE(Failed(0xC0000000));
    EXPECT_TRUE(Failed(TAL_STATUS_NOT_FOUND));
    EXPECT_EQ(Code(TAL_STATUS_INFO_END_OF_FILE), kCodeEndOfFile);
}

TEST(WideString, CountsBytesWithoutItsTerminator)
{
    WCHAR text[] = u"abc";
    const UNICODE_STRING counted = {6, sizeof text, text};
    EXPECT_EQ(counted.Length / sizeof(WCHAR), 3U);
    EXPECT_EQ(counted.Buffer[counted.Length / sizeof(WCHAR)], 0);
}

} // namespace
