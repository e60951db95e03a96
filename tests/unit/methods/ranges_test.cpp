// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "methods/ranges.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

struct Parsed {
    UINT32 http = 0;
    KESTDAV_RANGE record{};
    std::vector<std::pair<UINT64, INT64>> ranges;
};

// The header stands in a buffer of exactly its size, so that a sanitizer sees any step beyond.
Parsed Parse(const std::string& header, UINT64 size, UINT32 capacity = kMostRanges)
{
    Parsed parsed;
    parsed.record.ResourceSize = size;
    parsed.record.uEntries = capacity;
    const auto text = std::make_unique<char[]>(header.size() + 1);
    std::copy(header.begin(), header.end(), text.get());
    parsed.http = ParseRequestRanges(text.get(), &parsed.record);
    for (UINT32 i = 0; i < parsed.record.uEntries && i < kMostRanges; ++i)
        parsed.ranges.emplace_back(parsed.record.Ranges[i].Offset,
                                   parsed.record.Ranges[i].BytesToRead);
    return parsed;
}

TEST(ParseRequestRanges, OneRange)
{
    const Parsed parsed = Parse("bytes=10-19", 1000);
    EXPECT_EQ(parsed.http, 200U);
    EXPECT_THAT(parsed.ranges, ElementsAre(Pair(10U, 10)));
    EXPECT_EQ(parsed.record.Start, 10U);
    EXPECT_EQ(parsed.record.End, 20U);
    EXPECT_EQ(parsed.record.TotalBytes, 10U);
    EXPECT_TRUE(parsed.record.bContiguous);
    EXPECT_EQ(parsed.record.Ranges[1].BytesToRead, 0) << "the terminating entry";
}

TEST(ParseRequestRanges, RunsWithOneByteBetween)
{
    const Parsed parsed = Parse("bytes=0-99,101-199,201-299", 1000);
    EXPECT_THAT(parsed.ranges, ElementsAre(Pair(0U, 100), Pair(101U, 99), Pair(201U, 99)));
    EXPECT_TRUE(parsed.record.bContiguous);
    EXPECT_EQ(parsed.record.End, 300U);
    EXPECT_EQ(parsed.record.TotalBytes, 298U);
}

TEST(ParseRequestRanges, RangesThatTouchAreNoRun)
{
    EXPECT_FALSE(Parse("bytes=0-99,100-199", 1000).record.bContiguous);
    EXPECT_FALSE(Parse("bytes=0-99,102-199", 1000).record.bContiguous);
    EXPECT_FALSE(Parse("bytes=200-299,0-99", 1000).record.bContiguous);
}

TEST(ParseRequestRanges, LastPositionIsCutAtTheSize)
{
    EXPECT_THAT(Parse("bytes=990-5000", 1000).ranges, ElementsAre(Pair(990U, 10)));
    EXPECT_THAT(Parse("bytes=990-1000", 1000).ranges, ElementsAre(Pair(990U, 10)));
    EXPECT_THAT(Parse("bytes=990--5", 1000).ranges, ElementsAre(Pair(990U, 10)));
}

TEST(ParseRequestRanges, BackwardRangesBecomeTheSize)
{
    EXPECT_THAT(Parse("bytes=500-", 1000).ranges, ElementsAre(Pair(500U, 1000)));
    EXPECT_THAT(Parse("bytes=500-10", 1000).ranges, ElementsAre(Pair(500U, 1000)));
    EXPECT_THAT(Parse("bytes=0-", 1000).ranges, ElementsAre(Pair(0U, 1)));
}

TEST(ParseRequestRanges, FirstPositionBeyondTheSizeIs416AndKeepsWhatWasParsed)
{
    const Parsed parsed = Parse("bytes=0-9,1001-1002", 1000);
    EXPECT_EQ(parsed.http, 416U);
    EXPECT_EQ(parsed.record.uEntries, 1U);
    EXPECT_EQ(Parse("bytes=1000-1001", 1000).http, 200U);
}

TEST(ParseRequestRanges, PositionsHave32BitsWithASign)
{
    EXPECT_EQ(Parse("bytes=4294967296-4294967297", 1000).http, 200U);
    EXPECT_THAT(Parse("bytes=4294967296-4294967297", 1000).ranges, ElementsAre(Pair(0U, 2)));
    EXPECT_EQ(Parse("bytes=2147483648-2147483649", UINT64{1} << 33).http, 416U);
    EXPECT_EQ(Parse("bytes=99999999999999999999-", 1000).http, 416U);
}

TEST(ParseRequestRanges, SuffixesAndBareNumbersYieldNothing)
{
    for (const char* header :
         {"bytes=-500", "bytes=500", "bytes=", "bytes= ", "bytes=-", "bytes=5"}) {
        SCOPED_TRACE(header);
        const Parsed parsed = Parse(header, 1000);
        EXPECT_EQ(parsed.http, 200U);
        EXPECT_THAT(parsed.ranges, IsEmpty());
        EXPECT_TRUE(parsed.record.bContiguous);
    }
}

TEST(ParseRequestRanges, WhatIsNoByteRangeIs400)
{
    for (const char* header : {"", "bytes", "bytes 0-1", "bytes =0-1", "byte=0-1", "bytesx=0-1",
                               "=0-1", "bytes=5,6-7", "bytes=0-1,5,"}) {
        SCOPED_TRACE(header);
        EXPECT_EQ(Parse(header, 1000).http, 400U);
    }
}

TEST(ParseRequestRanges, UnitIsComparedWithoutCase)
{
    EXPECT_EQ(Parse("ByTeS=0-1", 1000).http, 200U);
}

TEST(ParseRequestRanges, LineBreaksAndBlanksBetweenRangesAreSkipped)
{
    EXPECT_THAT(Parse("bytes=\r\n 0-99,\r\n 101-199\r\n", 1000).ranges,
                ElementsAre(Pair(0U, 100), Pair(101U, 99)));
    EXPECT_THAT(Parse("bytes=0-99,   ", 1000).ranges, ElementsAre(Pair(0U, 100)));
    EXPECT_THAT(Parse("bytes=0-99,\r\n\r\n", 1000).ranges, ElementsAre(Pair(0U, 100)));
    EXPECT_THAT(Parse("bytes=0-99\r", 1000).ranges, ElementsAre(Pair(0U, 100)));
    EXPECT_THAT(Parse("bytes=0-99\n,101-199", 1000).ranges,
                ElementsAre(Pair(0U, 100), Pair(101U, 99)))
        << "a line feed alone does not end a range";
}

TEST(ParseRequestRanges, FirstCharacterIsNotLookedAt)
{
    EXPECT_THAT(Parse("bytes=,0-5", 1000).ranges, ElementsAre(Pair(0U, 6)));
    EXPECT_EQ(Parse("bytes=-5-9", 1000).http, 416U) << "a negative first position";
}

TEST(ParseRequestRanges, StopsAtItsCapacity)
{
    const Parsed parsed = Parse("bytes=0-0,2-2,4-4,6-6", 1000, 3);
    EXPECT_EQ(parsed.record.uEntries, 3U);
    EXPECT_EQ(parsed.record.Ranges[3].BytesToRead, 0);
}

TEST(ParseRequestRanges, EmptyResource)
{
    const Parsed parsed = Parse("bytes=0-99", 0);
    EXPECT_EQ(parsed.http, 200U);
    EXPECT_THAT(parsed.ranges, ElementsAre(Pair(0U, 0)));
    EXPECT_EQ(Parse("bytes=1-", 0).http, 416U);
}

} // namespace
