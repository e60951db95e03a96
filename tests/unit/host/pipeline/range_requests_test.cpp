// SPDX-License-Identifier: Apache-2.0
//
// Ranges: what clients write, what the module is asked for, and what is made of its reply.
#include "host/pipeline/range_requests.h"

#include <gtest/gtest.h>

using kestd::ByteRange;
using kestd::ParseByteRange;
using kestd::RangeRequest;
using Action = RangeRequest::Action;

namespace {

constexpr char kDate[] = "Sun, 06 Nov 1994 08:49:37 GMT";

RangeRequest Asking(std::string_view range, const std::string_view* ifRange = nullptr)
{
    RangeRequest request;
    request.Read(range, ifRange);
    return request;
}

// The module's reply for a resource of `size` bytes to what it is asked for.
Action Answer(RangeRequest& request, uint64_t size)
{
    const std::string length = std::to_string(size);
    if (request.ForModule().empty())
        return request.Evaluate({200, length, {}, kDate});
    const std::optional<ByteRange> asked = ParseByteRange(request.ForModule());
    const uint64_t first = *asked->first;
    if (first > size)
        return request.Evaluate({416, {}, {}, kDate});
    const uint64_t end = std::min(*asked->last + 1, size);
    const std::string range = "bytes " + std::to_string(first) + "-" +
                              std::to_string(static_cast<int64_t>(end) - 1) + "/" + length;
    return request.Evaluate({206, std::to_string(end - first), range, kDate});
}

} // namespace

TEST(ByteRange, WellFormedSingleRanges_AreRead)
{
    const struct {
        const char* text;
        std::optional<uint64_t> first, last;
    } cases[] = {
        {"bytes=0-0", 0, 0},
        {"bytes=5-", 5, std::nullopt},
        {"bytes=-7", std::nullopt, 7},
        {"BYTES=1-2", 1, 2},
        {"bytes= 1-2\t", 1, 2},
        {"bytes=4294967296-8589934592", 4294967296, 8589934592},
        {"bytes=1-99999999999999999999999", 1, UINT64_MAX},
        {"bytes=99999999999999999999999-", UINT64_MAX, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto range = ParseByteRange(c.text);
        ASSERT_TRUE(range) << c.text;
        EXPECT_EQ(range->first, c.first) << c.text;
        EXPECT_EQ(range->last, c.last) << c.text;
    }
}

TEST(ByteRange, AnythingElse_IsNone)
{
    for (const char* text :
         {"", "bytes", "bytes=", "bytes=-", "bytes=5", "bytes=5-3", "bytes=0-1,4-5", "bytes=,0-1",
          "lines=0-1", "bytes =0-1", "bytes=a-b", "bytes=0-1x", "bytes=+1-2", "bytes=--1",
          "bytes=0 - 1", "bytes=1-2-3", "0-1"})
        EXPECT_FALSE(ParseByteRange(text)) << text;
}

TEST(RangeRequest, NoRange_IsWholeAndSentAsItIs)
{
    RangeRequest request;
    EXPECT_TRUE(request.IsWhole());
    EXPECT_EQ(request.ForModule(), "");
    EXPECT_EQ(Answer(request, 1000), Action::Send);
    bool isOver = true;
    EXPECT_EQ(request.Cut("abc", isOver), "abc");
    EXPECT_FALSE(isOver);
}

TEST(RangeRequest, ModuleIsAskedForAClosedRangeThatItCanRead)
{
    const struct {
        const char* client;
        const char* module;
    } cases[] = {
        {"bytes=0-99", "bytes=0-99"},
        {"bytes=500-", "bytes=500-4294967295"},
        {"bytes=2147483647-2147483647", "bytes=2147483647-2147483647"},
        {"bytes=0-2147483648", "bytes=0-4294967295"},
        {"bytes=2147483648-2147483650", "bytes=2147483647-4294967295"},
        {"bytes=-500", ""},
        {"bytes=0-1,3-4", ""},
        {"bytes=5-3", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Asking(c.client).ForModule(), c.module) << c.client;
}

TEST(RangeRequest, Part_IsToldAsItIsSent)
{
    constexpr uint64_t kBig = uint64_t{5} << 30;
    const struct {
        const char* client;
        uint64_t size;
        const char* length;
        const char* range;
    } cases[] = {
        {"bytes=0-99", 1000, "100", "bytes 0-99/1000"},
        {"bytes=0-", 1000, "1000", "bytes 0-999/1000"},
        {"bytes=500-", 1000, "500", "bytes 500-999/1000"},
        {"bytes=990-5000", 1000, "10", "bytes 990-999/1000"},
        {"bytes=0-3000000000", 1000, "1000", "bytes 0-999/1000"},
        {"bytes=0-3000000000", kBig, "3000000001", "bytes 0-3000000000/5368709120"},
        {"bytes=0-", kBig, "5368709120", "bytes 0-5368709119/5368709120"},
        {"bytes=5000000000-5000000009", kBig, "10", "bytes 5000000000-5000000009/5368709120"},
        {"bytes=5368709119-", kBig, "1", "bytes 5368709119-5368709119/5368709120"},
    };
    for (const auto& c : cases) {
        RangeRequest request = Asking(c.client);
        EXPECT_FALSE(request.IsWhole()) << c.client;
        EXPECT_EQ(Answer(request, c.size), Action::SendPart) << c.client;
        EXPECT_EQ(request.ContentLength(), c.length) << c.client;
        EXPECT_EQ(request.ContentRange(), c.range) << c.client;
    }
}

TEST(RangeRequest, LastBytes_AreAskedForWhenTheSizeIsKnown)
{
    const struct {
        const char* client;
        uint64_t size;
        const char* range;
    } cases[] = {
        {"bytes=-500", 1000, "bytes 500-999/1000"},
        {"bytes=-1", 1000, "bytes 999-999/1000"},
        {"bytes=-1000", 1000, "bytes 0-999/1000"},
        {"bytes=-99999999999999999999", 1000, "bytes 0-999/1000"},
        {"bytes=-4", uint64_t{5} << 30, "bytes 5368709116-5368709119/5368709120"},
    };
    for (const auto& c : cases) {
        RangeRequest request = Asking(c.client);
        EXPECT_EQ(Answer(request, c.size), Action::Retry) << c.client;
        EXPECT_EQ(Answer(request, c.size), Action::SendPart) << c.client;
        EXPECT_EQ(request.ContentRange(), c.range) << c.client;
    }
}

TEST(RangeRequest, LastBytesOfNothing_AreTheWhole)
{
    RangeRequest request = Asking("bytes=-5");
    EXPECT_EQ(Answer(request, 0), Action::Send);
}

TEST(RangeRequest, WhatIsNotThere_IsUnsatisfiableAndNothingIsSent)
{
    for (const char* client : {"bytes=1000-", "bytes=1000-1005", "bytes=-0"}) {
        RangeRequest request = Asking(client);
        EXPECT_EQ(Answer(request, 1000), Action::Unsatisfiable) << client;
        EXPECT_EQ(request.ContentRange(), "bytes */1000") << client;
        bool isOver = false;
        EXPECT_EQ(request.Cut("abc", isOver), "") << client;
        EXPECT_TRUE(isOver) << client;
    }
    RangeRequest request = Asking("bytes=2000-");
    EXPECT_EQ(Answer(request, 1000), Action::Send) << "the module's own 416";
    RangeRequest beyond = Asking("bytes=5368709120-");
    EXPECT_EQ(Answer(beyond, uint64_t{5} << 30), Action::Unsatisfiable);
}

TEST(RangeRequest, WholeOfMoreThan32Bits_IsAskedForByARange)
{
    for (const uint64_t size : {uint64_t{UINT32_MAX} + 1, uint64_t{5} << 30}) {
        RangeRequest request;
        EXPECT_EQ(Answer(request, size), Action::Retry);
        EXPECT_EQ(request.ForModule(), "bytes=0-4294967295");
        EXPECT_FALSE(request.IsWhole());
        EXPECT_EQ(request.Evaluate(
                      {206, std::to_string(size),
                       "bytes 0-" + std::to_string(size - 1) + "/" + std::to_string(size), kDate}),
                  Action::SendWhole);
        bool isOver = true;
        EXPECT_EQ(request.Cut("abc", isOver), "abc");
        EXPECT_FALSE(isOver);
    }
    RangeRequest request;
    EXPECT_EQ(Answer(request, UINT32_MAX), Action::Send) << "the longest that is sent as it is";
}

TEST(RangeRequest, WholeThatShrankMeanwhile_IsToldAsItIsNow)
{
    RangeRequest request;
    EXPECT_EQ(Answer(request, uint64_t{5} << 30), Action::Retry);
    EXPECT_EQ(request.Evaluate({206, "0", "bytes 0--1/0", kDate}), Action::SendWhole);
    bool isOver = false;
    EXPECT_EQ(request.Cut("abc", isOver), "");
    EXPECT_TRUE(isOver);
}

TEST(RangeRequest, SameDate_KeepsTheRange)
{
    const std::string_view date = kDate;
    for (const char* client : {"bytes=5-9", "bytes=5-", "bytes=-5"}) {
        RangeRequest request = Asking(client, &date);
        Action action = Answer(request, 10);
        if (action == Action::Retry)
            action = Answer(request, 10);
        EXPECT_EQ(action, Action::SendPart) << client;
    }
}

TEST(RangeRequest, OtherDateOrATag_GivesTheWhole)
{
    for (const std::string_view condition :
         {"Sun, 06 Nov 1994 08:49:38 GMT", "\"tag\"", "W/\"tag\"", "", "yesterday"}) {
        for (const char* client : {"bytes=5-9", "bytes=5-", "bytes=-5", "bytes=2000-"}) {
            RangeRequest request = Asking(client, &condition);
            Action action = Answer(request, 10);
            if (action == Action::Retry)
                action = Answer(request, 10);
            EXPECT_EQ(action, Action::Send) << client << " " << condition;
            EXPECT_EQ(request.ForModule(), "") << client << " " << condition;
        }
    }
}

TEST(RangeRequest, OtherDateOfAHugeResource_GivesTheWholeByARange)
{
    const std::string_view condition = "\"tag\"";
    RangeRequest request = Asking("bytes=5-9", &condition);
    constexpr uint64_t kBig = uint64_t{5} << 30;
    EXPECT_EQ(Answer(request, kBig), Action::Retry);
    EXPECT_EQ(Answer(request, kBig), Action::Retry);
    EXPECT_EQ(Answer(request, kBig), Action::SendWhole);
}

TEST(RangeRequest, OtherReplies_AreSentAsTheyAre)
{
    for (const int status : {304, 404, 500}) {
        RangeRequest request = Asking("bytes=5-9");
        EXPECT_EQ(request.Evaluate({status, "0", {}, kDate}), Action::Send);
    }
    RangeRequest page = Asking("bytes=-5");
    EXPECT_EQ(page.Evaluate({200, {}, {}, {}}), Action::Send) << "of unknown length";
}

TEST(RangeRequest, Cut_TakesThePartOutOfPiecesOfAnySize)
{
    const std::string body = "0123456789abcdefghij";
    for (size_t piece = 1; piece <= body.size(); ++piece) {
        RangeRequest request = Asking("bytes=2147483652-2147483656"); // the 6th to 10th it sends
        ASSERT_EQ(request.Evaluate({206, "20", "bytes 2147483647-2147483666/2147483667", kDate}),
                  Action::SendPart);
        std::string got;
        bool isOver = false;
        for (size_t at = 0; at < body.size() && !isOver; at += piece)
            got += request.Cut(std::string_view(body).substr(at, piece), isOver);
        EXPECT_EQ(got, "56789") << piece;
        EXPECT_TRUE(isOver) << piece;
    }
}
