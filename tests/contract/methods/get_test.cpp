// SPDX-License-Identifier: Apache-2.0
//
// GET of resources: headers, conditions, ranges and the body.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kEntityHeaders[] = "Cache-Control: no-store\n"
                                  "Last-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
                                  "Accept-Ranges: bytes\n";
const std::string kNotFound = "404\nCache-Control: no-store\nContent-Length: 0\n\n";

std::string Digits(size_t size)
{
    std::string text;
    while (text.size() < size)
        text += std::to_string(text.size() % 10);
    return text;
}

class Get : public testing::Test {
  protected:
    void SetUp() override
    {
        world["gen2"].AddFile("/gen2/f", Digits(1000));
        world["gen1"].AddFile("/gen1/f", Digits(1000));
        world.Remember("/Ferro/gen2");
        world.Remember("/Ferro/gen1");
    }
    Reply Range(const std::string& range)
    {
        return world.Run(Request(KestMethodGet, "/Ferro/gen2/f").Header("Range", range));
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

std::string Whole(const std::string& body)
{
    return "200\n" + std::string(kEntityHeaders) +
           "Content-Length: " + std::to_string(body.size()) + "\n\n" + body;
}

std::string Partial(const std::string& contentRange, size_t length, const std::string& body)
{
    return "206\n" + std::string(kEntityHeaders) + "Content-Range: bytes " + contentRange +
           "\nContent-Length: " + std::to_string(length) + "\n\n" + body;
}

TEST_F(Get, SendsTheWholeResource)
{
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.text, Whole(Digits(1000)));
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_THAT(
        world.Calls({"gen2."}),
        ElementsAre("gen2.GetType(/gen2/f)", "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/f, create=0, access=3, share=3, flags=0, token=null)",
                    "gen2.res.GetResourceSize()", "gen2.res.GetModificationDate()",
                    "gen2.res.Read(0, 1000)"));
    world.ExpectAtRest();
}

TEST_F(Get, FromTheFirstGeneration_OpensWithItsOwnShareMode)
{
    const Reply reply =
        world.Run(Request(KestMethodGet, "/Ferro/gen1/f").Header("If", "(<opaquelocktoken:abc>)"));
    EXPECT_EQ(reply.text, Whole(Digits(1000)));
    EXPECT_THAT(world.Calls({"gen1."}),
                ElementsAre("gen1.GetType(/gen1/f)", "gen1.Create(IKestDAVResource)",
                            "gen1.res.Associate(/gen1/f, create=0, access=3, share=1, flags=0)",
                            "gen1.res.GetResourceSize()", "gen1.res.GetModificationDate()",
                            "gen1.res.Read(0, 1000)"));
    EXPECT_EQ(world.recorder.Count("io.GetRequestHeader"), 2) << "no \"If\"";
}

TEST_F(Get, WithALockToken_HandsItToTheSecondGeneration)
{
    world.Run(Request(KestMethodGet, "/Ferro/gen2/f").Header("If", "(<opaquelocktoken:abc>)"));
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}), ElementsAre(HasSubstr("token=abc")));
    world.recorder.Clear();
    world.Run(Request(KestMethodGet, "/Ferro/gen2/f").Header("If", "(<opaquelocktoken:>)"));
    EXPECT_THAT(world.Calls({"gen2.res.Associate"}), ElementsAre(HasSubstr("token=null")))
        << "an empty token is none";
}

TEST_F(Get, KnownNames_HaveAContentType)
{
    world["gen2"].AddFile("/gen2/page.html", "x");
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen2/page.html")).text,
              "200\n" + std::string(kEntityHeaders) +
                  "Content-Type: text/html\nContent-Length: 1\n\nx");
    EXPECT_THAT(world.Calls({"util.GetMime"}),
                ElementsAre("util.GetMimeTypeFromUnicodeObject(/gen2/page.html)"));
}

TEST_F(Get, OfAnEmptyResource_ReadsNothing)
{
    world["gen2"].AddFile("/gen2/empty");
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen2/empty")).text, Whole(""));
    EXPECT_EQ(world.recorder.Count("gen2.res.Read"), 0);
}

TEST_F(Get, LargerThanItsBuffer_IsSentInBlocks)
{
    const std::string content = Digits(600000);
    world["gen2"].AddFile("/gen2/big", content);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/big"));
    EXPECT_EQ(reply.text, Whole(content));
    EXPECT_THAT(reply.writes, ElementsAre(262144, 262144, 75712));
    EXPECT_THAT(world.Calls({"gen2.res.Read"}),
                ElementsAre("gen2.res.Read(0, 262144)", "gen2.res.Read(262144, 262144)",
                            "gen2.res.Read(524288, 75712)"));
}

TEST_F(Get, ProviderThatReadsLess_IsAskedAgain)
{
    world["gen2"].readLimit = 300;
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen2/f")).text, Whole(Digits(1000)));
    EXPECT_THAT(world.Calls({"gen2.res.Read"}),
                ElementsAre("gen2.res.Read(0, 1000)", "gen2.res.Read(300, 700)",
                            "gen2.res.Read(600, 400)", "gen2.res.Read(900, 100)"));
}

TEST_F(Get, BeyondFourGibibytes_AnnouncesAllAndSendsTheLow32Bits)
{
    world["gen2"].Find("/gen2/f")->sizeShown = (UINT64{1} << 32) + 10;
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.text, "200\n" + std::string(kEntityHeaders) + "Content-Length: 4294967306\n\n" +
                              Digits(10));
    world["gen2"].Find("/gen2/f")->sizeShown = UINT64{1} << 32;
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen2/f")).body, "");
}

TEST_F(Get, BetweenTwoAndFourGibibytes_AsksForAllOfIt)
{
    world["gen2"].Find("/gen2/f")->sizeShown = UINT64{3} << 30;
    world.recorder.Fail("gen2.res.Read", ProviderFailure(kCodeUnsuccessful), 2);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_THAT(reply.text, HasSubstr("Content-Length: 3221225472\n"));
    EXPECT_EQ(world.Calls({"gen2.res.Read"}).front(), "gen2.res.Read(0, 262144)");
    EXPECT_EQ(reply.body.size(), 1000U);
}

TEST_F(Get, Missing_Answers404)
{
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/none"));
    EXPECT_EQ(reply.text, kNotFound);
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/none/f")).text, kNotFound);
    world.ExpectAtRest();
}

TEST_F(Get, OpeningThatFails_Answers404WhateverTheStatus)
{
    for (const std::string generation : {"gen2", "gen1"})
        for (const char* call : {".GetType", ".Create", ".res.Associate", ".res.GetResourceSize",
                                 ".res.GetModificationDate"}) {
            SCOPED_TRACE(generation + call);
            world.Fail(generation + call, ProviderFailure(kCodeLocked));
            const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/" + generation + "/f"));
            EXPECT_EQ(reply.text, kNotFound);
            EXPECT_EQ(reply.returned, ProviderFailure(kCodeLocked));
            world.ExpectAtRest();
        }
}

TEST_F(Get, ReadThatFailsInTheMiddle_EndsTheBodyShort)
{
    world["gen2"].readLimit = 300;
    world.Fail("gen2.res.Read", ProviderFailure(kCodeUnsuccessful), 3);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.body, Digits(600));
    EXPECT_EQ(reply.heads, 1);
    EXPECT_EQ(reply.returned, ProviderFailure(kCodeUnsuccessful));
    world.ExpectAtRest();
}

TEST_F(Get, ResourceThatShrinks_EndsTheBodyShort)
{
    world["gen2"].Find("/gen2/f")->sizeShown = 2000;
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.body, Digits(1000));
    EXPECT_EQ(reply.returned, TAL_STATUS_END_OF_FILE);
}

TEST_F(Get, ClientThatGoesAway_EndsTheBody)
{
    world["gen2"].readLimit = 300;
    world.Fail("io.Write", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.body, Digits(300));
    EXPECT_EQ(reply.returned, kInjected);
    EXPECT_EQ(world.recorder.Count("gen2.res.Read"), 2);
    world.ExpectAtRest();
}

TEST_F(Get, WithoutMemoryForTheLeastBuffer_SendsTheHeadAlone)
{
    for (int i = 0; i < 9; ++i)
        world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.text, "200\n" + std::string(kEntityHeaders) + "Content-Length: 1000\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
    world.ExpectAtRest();
}

TEST_F(Get, UnderMemoryPressure_HalvesItsBuffer)
{
    const std::string content = Digits(300000);
    world["gen2"].AddFile("/gen2/big", content);
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/big"));
    EXPECT_EQ(reply.body, content);
    EXPECT_THAT(reply.writes, ElementsAre(131072, 131072, 37856));
}

TEST_F(Get, WriteWithAnInformationalStatus_EndsTheBodyToo)
{
    world["gen2"].readLimit = 300;
    world.Fail("io.Write", TAL_STATUS_INFO_END_OF_FILE, 2);
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f"));
    EXPECT_EQ(reply.body, Digits(300));
    EXPECT_EQ(reply.returned, TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(world.recorder.Count("gen2.res.Read"), 2);
}

// -- If-Modified-Since.

struct SinceRow {
    const char* name;
    std::string header;
    UINT64 extraTicks; // on top of 12:00:00
    int status;
};

// Any blank may be many. With a terminator, 127 bytes fill the room.
std::string DateOf(size_t bytes)
{
    const std::string day = "Sat, ";
    const std::string rest = "31 Jan 2026 12:00:00 GMT";
    return day + std::string(bytes - day.size() - rest.size(), ' ') + rest;
}

class GetSince : public Get, public testing::WithParamInterface<SinceRow> {};

TEST_P(GetSince, AnswersByTheDate)
{
    world["gen2"].Find("/gen2/f")->modified += GetParam().extraTicks;
    const Reply reply = world.Run(
        Request(KestMethodGet, "/Ferro/gen2/f").Header("If-Modified-Since", GetParam().header));
    if (GetParam().status == 304) {
        EXPECT_EQ(reply.text, "304\n" + std::string(kEntityHeaders) + "Content-Length: 0\n\n");
    } else {
        EXPECT_EQ(reply.text, Whole(Digits(1000)));
    }
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GetSince,
    testing::Values(SinceRow{"Equal", "Sat, 31 Jan 2026 12:00:00 GMT", 0, 304},
                    SinceRow{"Later", "Sat, 31 Jan 2026 12:00:01 GMT", 0, 304},
                    SinceRow{"Earlier", "Sat, 31 Jan 2026 11:59:59 GMT", 0, 200},
                    SinceRow{"LastTickOfTheStep", "Sat, 31 Jan 2026 12:00:00 GMT", 99999, 304},
                    SinceRow{"NextStep", "Sat, 31 Jan 2026 12:00:00 GMT", 100000, 200},
                    SinceRow{"NoDate", "yesterday", 0, 200}, SinceRow{"Empty", "", 0, 200},
                    SinceRow{"LongestHeader", DateOf(127), 0, 304},
                    SinceRow{"HeaderThatDoesNotFit", DateOf(128), 0, 200}),
    [](const auto& row) { return row.param.name; });

TEST_F(Get, UnmodifiedAnswersGoBeforeRanges)
{
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/f")
                                      .Header("If-Modified-Since", "Sat, 31 Jan 2026 12:00:00 GMT")
                                      .Header("Range", "bytes=0-1"));
    EXPECT_EQ(reply.text.substr(0, 3), "304");
}

// -- Ranges.

TEST_F(Get, Range_IsSentWithItsPosition)
{
    EXPECT_EQ(Range("bytes=0-99").text, Partial("0-99/1000", 100, Digits(100)));
    EXPECT_EQ(Range("bytes=990-999").text, Partial("990-999/1000", 10, Digits(1000).substr(990)));
    EXPECT_EQ(Range("BYTES=5-5").text, Partial("5-5/1000", 1, "5"));
    EXPECT_EQ(Range("bytes=900-5000").text, Partial("900-999/1000", 100, Digits(1000).substr(900)));
    world.ExpectAtRest();
}

TEST_F(Get, RangesOneByteApart_CountAsOneRun)
{
    EXPECT_EQ(Range("bytes=0-99,101-199").text,
              Partial("0-199/1000", 199, Digits(100) + Digits(1000).substr(101, 99)));
    EXPECT_THAT(world.Calls({"gen2.res.Read"}),
                ElementsAre("gen2.res.Read(0, 100)", "gen2.res.Read(101, 99)"));
}

TEST_F(Get, RangesThatTouch_Answer416)
{
    const Reply reply = Range("bytes=0-99,100-199");
    EXPECT_EQ(reply.text, "416\n" + std::string(kEntityHeaders) + "\n");
    world.ExpectAtRest();
}

TEST_F(Get, RangesApart_Answer416)
{
    EXPECT_EQ(Range("bytes=0-9,50-59").text.substr(0, 3), "416");
}

TEST_F(Get, RangeBehindTheEnd_Answers416)
{
    EXPECT_EQ(Range("bytes=2000-2999").text, "416\n" + std::string(kEntityHeaders) + "\n");
    EXPECT_EQ(Range("bytes=1001-").text.substr(0, 3), "416");
    EXPECT_EQ(Range("bytes=4294967290-4294967295").text.substr(0, 3), "416");
}

TEST_F(Get, RangeFromExactlyTheEnd_IsAccepted)
{
    const Reply reply = Range("bytes=1000-1000");
    EXPECT_EQ(reply.text, Partial("1000-999/1000", 0, ""));
}

TEST_F(Get, SuffixRange_SendsNothing)
{
    EXPECT_EQ(Range("bytes=-500").text, Partial("0--1/1000", 0, ""));
}

TEST_F(Get, RangeWithoutItsEnd_AnnouncesTheWholeLength)
{
    const Reply reply = Range("bytes=500-");
    EXPECT_EQ(reply.text, Partial("500-999/1000", 1000, Digits(1000).substr(500)));
    EXPECT_EQ(reply.returned, TAL_STATUS_END_OF_FILE);
    EXPECT_EQ(Range("bytes=0-").text, Partial("0-0/1000", 1, "0"));
}

TEST_F(Get, RangeOfAnEmptyResource_SendsNothing)
{
    world["gen2"].AddFile("/gen2/empty");
    const Reply reply =
        world.Run(Request(KestMethodGet, "/Ferro/gen2/empty").Header("Range", "bytes=0-99"));
    EXPECT_EQ(reply.text, Partial("0--1/0", 0, ""));
}

class GetWithoutRange : public Get, public testing::WithParamInterface<const char*> {};

TEST_P(GetWithoutRange, SendsTheWholeResource)
{
    EXPECT_EQ(Range(GetParam()).text, Whole(Digits(1000)));
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Headers, GetWithoutRange,
                         testing::Values("", "0-99", "lines=0-99", "bytes =0-99", " bytes=0-99",
                                         "bytes=5,6-7", "bytes=0-1,5,6-7", "bytes", "=0-99"));

TEST_F(Get, RangeHeaderOfMoreThan32Bytes_IsReadAgain)
{
    EXPECT_EQ(Range("bytes=0-99,                              101-199").text,
              Partial("0-199/1000", 199, Digits(100) + Digits(1000).substr(101, 99)));
    EXPECT_EQ(world.recorder.Count("io.AllocMemory"), 2);
}

// The first reading has room for that many bytes, and none for a terminator.
TEST_F(Get, RangeHeaderOfExactly32Bytes_KeepsItsLastCharacter)
{
    const std::string range = "bytes=0-99,              101-199";
    ASSERT_EQ(range.size(), 32U);
    for (const bool needsNoTerminator : {false, true}) {
        Request request = Request(KestMethodGet, "/Ferro/gen2/f").Header("Range", range);
        request.exactHeaders = needsNoTerminator;
        EXPECT_EQ(world.Run(request).text,
                  Partial("0-199/1000", 199, Digits(100) + Digits(1000).substr(101, 99)))
            << needsNoTerminator;
    }
}

TEST_F(Get, RangeHeader_IsReadUpTo1023Bytes)
{
    const std::string range = "bytes=0-99";
    EXPECT_EQ(Range(range + std::string(1023 - range.size(), ' ')).text,
              Partial("0-99/1000", 100, Digits(100)));
    EXPECT_EQ(Range(range + std::string(1024 - range.size(), ' ')).text, Whole(Digits(1000)))
        << "too long even for the second reading";
}

TEST_F(Get, WithoutRequestMemory_SendsTheWholeResource)
{
    world.Fail("io.AllocMemory", kInjected);
    EXPECT_EQ(Range("bytes=0-99").text, Whole(Digits(1000)));
    world.Fail("io.AllocMemory", kInjected);
    EXPECT_EQ(Range("bytes=0-99,                              101-199").text, Whole(Digits(1000)));
}

TEST_F(Get, WithoutMemoryForTheContentRange_SendsTheWholeResource)
{
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    EXPECT_EQ(Range("bytes=0-99").text, Whole(Digits(1000)));
    world.ExpectAtRest();
}

TEST_F(Get, MoreThan64Ranges_AreCutAt64)
{
    std::string range = "bytes=";
    for (int i = 0; i < 70; ++i)
        range += std::to_string(i * 4) + "-" + std::to_string(i * 4 + 2) + ",";
    const Reply reply = Range(range);
    EXPECT_THAT(reply.text, HasSubstr("Content-Range: bytes 0-254/1000\nContent-Length: 192\n"));
    EXPECT_EQ(world.recorder.Count("gen2.res.Read"), 64);
}

TEST_F(Get, ReadWithAnInformationalCode_GoesOnWithTheNextRange)
{
    world.Fail("gen2.res.Read", TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(Range("bytes=0-99,101-199").body, Digits(1000).substr(101, 99));
}

// -- What goes to the index.

TEST_F(Get, OfTheRootOrAnIndexDocument_IsNotResolved)
{
    world.Run(Request(KestMethodGet, "/Ferro/gen2/none/.index_xml"));
    EXPECT_THAT(world.Calls({"gen2.GetType"}),
                Not(Contains("gen2.GetType(/gen2/none/.index_xml)")));
    EXPECT_THAT(world.Calls({"io.SetReplyHeader"}),
                ElementsAre("io.SetReplyHeader(Cache-Control, \"no-store\")"))
        << "what the page is preceded by";
    world.Run(Request(KestMethodGet, "/gen2xx")); // as long as the moniker
    EXPECT_EQ(world.recorder.Count("gen2.Create"), 0);
    world.ExpectAtRest();
}

// The suffix may be all that there is; anything shorter is a path as any other.
TEST_F(Get, IndexSuffixAlone_GoesToTheIndex)
{
    EXPECT_EQ(world.Run(Request(KestMethodGet, ".index_xml")).heads, 0) << "no templates here";
    EXPECT_EQ(world.Run(Request(KestMethodGet, "index_xml")).text, kNotFound);
}

TEST_F(Get, IndexSuffixInAnotherCase_IsAResource)
{
    world["gen2"].AddFile("/gen2/a.INDEX_XML", "x");
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen2/a.INDEX_XML")).body, "x");
}

} // namespace
