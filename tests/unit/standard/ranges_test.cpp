// SPDX-License-Identifier: Apache-2.0
//
// Ranges: what is asked for, what is joined, what is refused, and where bodies belong.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "standard/ranges.h"

using standard::kMostRanges;
using standard::RangeSet;
using standard::RangeVerdict;
using standard::ReadContentRange;
using standard::ReadRanges;
using standard::ReadUpdateRange;
using standard::UpdateRange;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

struct Parsed {
    RangeVerdict verdict = RangeVerdict::Whole;
    std::vector<std::pair<UINT64, UINT64>> parts;
};

Parsed Parse(const std::string& header, UINT64 size)
{
    RangeSet set;
    Parsed parsed{ReadRanges(header, size, set), {}};
    if (parsed.verdict == RangeVerdict::Parts)
        for (size_t i = 0; i < set.count; ++i)
            parsed.parts.emplace_back(set.parts[i].first, set.parts[i].length);
    return parsed;
}

constexpr UINT64 kHuge = UINT64{1} << 40;

TEST(Range, ClosedOpenAndSuffix)
{
    EXPECT_THAT(Parse("bytes=0-499", 1000).parts, ElementsAre(Pair(0, 500)));
    EXPECT_THAT(Parse("bytes=500-999", 1000).parts, ElementsAre(Pair(500, 500)));
    EXPECT_THAT(Parse("bytes=0-0", 1000).parts, ElementsAre(Pair(0, 1)));
    EXPECT_THAT(Parse("bytes=999-", 1000).parts, ElementsAre(Pair(999, 1)));
    EXPECT_THAT(Parse("bytes=0-", 1000).parts, ElementsAre(Pair(0, 1000)));
    EXPECT_THAT(Parse("bytes=-1", 1000).parts, ElementsAre(Pair(999, 1)));
    EXPECT_THAT(Parse("bytes=-5000", 1000).parts, ElementsAre(Pair(0, 1000)));
    EXPECT_THAT(Parse("bytes=990-5000", 1000).parts, ElementsAre(Pair(990, 10)));
    EXPECT_THAT(Parse(" BYTES=1-2 ", 1000).parts, ElementsAre(Pair(1, 2)));
}

TEST(Range, PositionsOfAnySize)
{
    EXPECT_THAT(Parse("bytes=1099511627775-", kHuge).parts, ElementsAre(Pair(kHuge - 1, 1)));
    EXPECT_THAT(Parse("bytes=5000000000-5000000009", kHuge).parts,
                ElementsAre(Pair(5000000000, 10)));
    EXPECT_THAT(Parse("bytes=5-99999999999999999999999", 10).parts, ElementsAre(Pair(5, 5)));
    EXPECT_THAT(Parse("bytes=-99999999999999999999999", 10).parts, ElementsAre(Pair(0, 10)));
    EXPECT_EQ(Parse("bytes=99999999999999999999999-", 10).verdict, RangeVerdict::None);
    EXPECT_THAT(Parse("bytes=0-18446744073709551615", UINT64_MAX).parts,
                ElementsAre(Pair(0, UINT64_MAX)));
}

TEST(Range, NothingOfItThere)
{
    for (const char* header : {"bytes=1000-", "bytes=1000-2000", "bytes=-0", "bytes=2000-,-0"})
        EXPECT_EQ(Parse(header, 1000).verdict, RangeVerdict::None) << header;
    EXPECT_EQ(Parse("bytes=0-", 0).verdict, RangeVerdict::None);
    EXPECT_EQ(Parse("bytes=-0", 0).verdict, RangeVerdict::None);
}

TEST(Range, EndOfNothingIsTheWhole)
{
    EXPECT_EQ(Parse("bytes=-5", 0).verdict, RangeVerdict::Whole);
}

TEST(Range, WhatIsNotUnderstoodIsTheWhole)
{
    for (const char* header : {"", "bytes", "bytes=", "bytes=,", "bytes=-", "bytes=a-b", "bytes=5",
                               "bytes=5-4", "bytes=0-1,x", "bytes=0 -1", "bytes=--1", "bytes 0-1",
                               "items=0-1", "bytes=0-1;2-3", "bytes=+1-2", "bytes=0x1-2"})
        EXPECT_EQ(Parse(header, 1000).verdict, RangeVerdict::Whole) << header;
}

TEST(Range, SeveralInTheirOrder)
{
    EXPECT_THAT(Parse("bytes=900-909, 0-9,,500-509", 1000).parts,
                ElementsAre(Pair(900, 10), Pair(0, 10), Pair(500, 10)));
    EXPECT_THAT(Parse("bytes=0-9,2000-,900-", 1000).parts, ElementsAre(Pair(0, 10), Pair(900, 100)))
        << "what is not there is left out";
}

TEST(Range, OverlappingTouchingAndNearOnesAreJoined)
{
    EXPECT_THAT(Parse("bytes=0-99,50-149", 1000).parts, ElementsAre(Pair(0, 150)));
    EXPECT_THAT(Parse("bytes=0-99,100-199", 1000).parts, ElementsAre(Pair(0, 200)));
    EXPECT_THAT(Parse("bytes=0-9,89-99", 1000).parts, ElementsAre(Pair(0, 100)));
    EXPECT_THAT(Parse("bytes=0-9,90-99", 1000).parts, ElementsAre(Pair(0, 10), Pair(90, 10)));
    EXPECT_THAT(Parse("bytes=500-599,0-9,300-400,390-510", 1000).parts,
                ElementsAre(Pair(300, 300), Pair(0, 10)))
        << "a later range may join earlier ones";
    EXPECT_THAT(Parse("bytes=0-,0-,0-,0-", 1000).parts, ElementsAre(Pair(0, 1000)));
}

TEST(Range, MoreThanAreAllowedIsTheWhole)
{
    std::string header = "bytes=";
    for (size_t i = 0; i < kMostRanges; ++i)
        header += std::to_string(i * 1000) + "-" + std::to_string(i * 1000 + 1) + ",";
    EXPECT_EQ(Parse(header, kHuge).parts.size(), kMostRanges);
    EXPECT_EQ(Parse(header + "900000-900001", kHuge).verdict, RangeVerdict::Whole);
}

TEST(ContentRange, SaysWhereTheBodyBelongs)
{
    UpdateRange update;
    ASSERT_TRUE(ReadContentRange("bytes 5-9/20", update));
    EXPECT_EQ(update.kind, UpdateRange::Kind::At);
    EXPECT_EQ(update.first, 5U);
    EXPECT_TRUE(update.hasLength);
    EXPECT_EQ(update.length, 5U);
    EXPECT_TRUE(update.hasSize);
    EXPECT_EQ(update.size, 20U);
    ASSERT_TRUE(ReadContentRange(" bytes 0-0/* ", update));
    EXPECT_EQ(update.length, 1U);
    EXPECT_FALSE(update.hasSize);
}

TEST(ContentRange, RefusesEverythingElse)
{
    UpdateRange update;
    for (const char* header :
         {"", "bytes", "bytes */20", "bytes 5-/20", "bytes -5/20", "bytes 9-5/20", "bytes 5-9",
          "bytes 5-9/", "bytes 5-9/9", "bytes 5-9/20x", "bytes=5-9/20", "items 5-9/20",
          "bytes 0-18446744073709551615/*", "bytes 5-9/**"})
        EXPECT_FALSE(ReadContentRange(header, update)) << header;
}

TEST(UpdateRange, AppendAtAndFromTheEnd)
{
    UpdateRange update;
    ASSERT_TRUE(ReadUpdateRange(" Append", update));
    EXPECT_EQ(update.kind, UpdateRange::Kind::Append);
    ASSERT_TRUE(ReadUpdateRange("bytes=3-6", update));
    EXPECT_EQ(update.kind, UpdateRange::Kind::At);
    EXPECT_EQ(update.first, 3U);
    EXPECT_TRUE(update.hasLength);
    EXPECT_EQ(update.length, 4U);
    ASSERT_TRUE(ReadUpdateRange("bytes=4-", update));
    EXPECT_EQ(update.first, 4U);
    EXPECT_FALSE(update.hasLength);
    ASSERT_TRUE(ReadUpdateRange("bytes=-2", update));
    EXPECT_EQ(update.kind, UpdateRange::Kind::FromEnd);
    EXPECT_EQ(update.length, 2U);
}

TEST(UpdateRange, RefusesEverythingElse)
{
    UpdateRange update;
    for (const char* header : {"", "appendix", "bytes=", "bytes=-", "bytes=6-3", "bytes=a-b",
                               "bytes=0-1,3-4", "bytes 3-6", "3-6", "bytes=3-6/9",
                               "bytes=99999999999999999999-", "bytes=0-99999999999999999999"})
        EXPECT_FALSE(ReadUpdateRange(header, update)) << header;
}

} // namespace
