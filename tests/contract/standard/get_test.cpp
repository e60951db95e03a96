// SPDX-License-Identifier: Apache-2.0
//
// GET and HEAD in the standard dialect: validators, conditions, ranges.
#include "fixture.h"

namespace standard_tests {

namespace {

// What stands in every reply that has to do with the file's content.
constexpr char kValidators[] = "ETag: \"v1\"\n"
                               "Last-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
                               "Cache-Control: private, no-cache\n"
                               "Accept-Ranges: bytes\n";

std::string WithValidators(const std::string& status, const std::string& rest)
{
    return status + "\n" + kValidators + rest;
}

const std::string kWhole = WithValidators("200", "Content-Type: text/plain\n"
                                                 "Content-Length: 11\n\nhello world");

class StandardGet : public Standard {
  protected:
    Request Get(const std::string& name = "f.txt")
    {
        return Request(KestMethodGet, "/Ferro/gen3/" + name);
    }
    std::string Part(const std::string& range, const std::string& body)
    {
        return WithValidators("206", "Content-Type: text/plain\nContent-Range: bytes " + range +
                                         "\nContent-Length: " + std::to_string(body.size()) +
                                         "\n\n" + body);
    }
};

TEST_F(StandardGet, SendsTheContentWithItsTagAndDate)
{
    EXPECT_EQ(Run(Get()), kWhole);
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.res3.Open(/gen3/f.txt, read)", "gen3.res3.Read(0, 11)"));
}

TEST_F(StandardGet, HeadSaysWhatGetWould)
{
    EXPECT_EQ(Run(Request(KestMethodHead, "/Ferro/gen3/f.txt").Header("Range", "bytes=0-1")),
              WithValidators("200", "Content-Type: text/plain\nContent-Length: 11\n\n"));
    EXPECT_THAT(Changes(), ElementsAre("gen3.res3.Open(/gen3/f.txt, read)"));
}

TEST_F(StandardGet, EmptyFile)
{
    world["gen3"].AddFile("/gen3/e.bin");
    EXPECT_EQ(Run(Get("e.bin")), WithValidators("200", "Content-Type: application/octet-stream\n"
                                                       "Content-Length: 0\n\n"));
}

TEST_F(StandardGet, OfNothing_Answers404)
{
    EXPECT_EQ(Run(Get("none")), Plain("404"));
    EXPECT_EQ(Run(Request(KestMethodHead, "/Ferro/gen3/none")), PlainHead("404"));
    EXPECT_EQ(Run(Request(KestMethodGet, "/Ferro/nowhere/f")), Plain("404"));
}

TEST_F(StandardGet, OfNothingWithConditions_Answers404)
{
    EXPECT_EQ(Run(Get("none").Header("If-Match", "*").Header("If", "([\"x\"])")), Plain("404"))
        << "conditions count only where the request would succeed without them";
}

TEST_F(StandardGet, ForAProgramFailsWithALine)
{
    EXPECT_EQ(Run(Get("none")), "404\nContent-Type: text/plain; charset=utf-8\nContent-Length: \n\n"
                                "There is nothing under this name.\n");
    world.Fail("gen3.res3.Open", ProviderFailure(kCodeStorageFull));
    EXPECT_THAT(Run(Get()), HasSubstr("\n\nThere is no space left.\n"));
    EXPECT_EQ(world.Run(Get().Header("Range", "bytes=11-")).body, "")
        << "clients that go on with a download would write it behind what they have";
}

TEST_F(StandardGet, ForABrowserFailsWithAPage)
{
    Request request = Get("none");
    request.userAgent = 1;
    const Reply reply = world.Run(request);
    request.method = KestMethodHead;
    EXPECT_EQ(Run(request), reply.text.substr(0, reply.text.size() - reply.body.size()));
    EXPECT_THAT(reply.text, HasSubstr("404\nContent-Type: text/html; charset=utf-8\n"));
    EXPECT_THAT(reply.body, HasSubstr("There is nothing under this name."));
    EXPECT_THAT(reply.body, HasSubstr("<a href=\"..\">"));
}

TEST_F(StandardGet, FaultOfTheProvider_IsTold)
{
    world.Fail("gen3.res3.Open", ProviderFailure(kCodeAccessDenied));
    EXPECT_EQ(Run(Get()), Plain("403"));
    world.Fail("gen3.res3.Open", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Run(Get()), Plain("500"));
    world.Fail("gen3.res3.Open", ProviderFailure(kCodeInsufficientResources));
    EXPECT_EQ(Run(Get()), Plain("503"));
}

TEST_F(StandardGet, FileWithTheIndexDocumentsName_IsRead)
{
    world["gen3"].AddFile("/gen3/x.index_xml", "mine");
    EXPECT_THAT(Run(Get("x.index_xml")), HasSubstr("\n\nmine"));
}

TEST_F(StandardGet, OfACollectionWithoutTemplates_IsToldInsteadOfNothing)
{
    for (const std::string path : {"/Ferro/", "/Ferro/gen3/c/", "/Ferro/gen3/c/.index_xml",
                                   "/Ferro/gen2/c/", "/Ferro/gen2/c/.index_xml", "/Ferro/gen2"}) {
        EXPECT_EQ(Run(Request(KestMethodGet, path)), Plain("403", "Cache-Control: no-store\n"))
            << path;
        EXPECT_EQ(Run(Request(KestMethodHead, path)), PlainHead("403", "Cache-Control: no-store\n"))
            << path;
    }
}

// HEAD says of the page what GET would, and older providers of a collection what they know.
TEST(StandardGetPages, HeadOfACollection)
{
    World world(Providers(), StandardDialectWithPages());
    Fill(world);
    const std::string page = "200\nCache-Control: no-store\n"
                             "Content-Type: text/html; charset=\"utf-8\"\n\n";
    for (const std::string path : {"/Ferro/gen3/c/", "/Ferro/"})
        EXPECT_EQ(world.Run(Request(KestMethodHead, path)).text, page) << path;
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2/c/")).text.substr(0, 3), "200");
    for (const std::string path : {"/Ferro/gen3/c/", "/Ferro/", "/Ferro/gen2/c/"})
        EXPECT_THAT(world.Run(Request(KestMethodGet, path)).text,
                    testing::AllOf(testing::StartsWith("200\n"), HasSubstr("<html")))
            << path;
    world.Fail("io.GetRawUrl", kInjected);
    EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/gen3/c/")).text.substr(0, 3), "500")
        << "a page that fails is none of the client's faults";
    world.ExpectAtRest();
}

TEST_F(StandardGet, OfAnOlderProvider_IsAnsweredAsBefore)
{
    EXPECT_EQ(Run(Request(KestMethodGet, "/Ferro/gen2/f.txt")),
              "200\nCache-Control: no-store\nLast-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
              "Accept-Ranges: bytes\nContent-Type: text/plain\nContent-Length: 11\n\n"
              "hello world");
    EXPECT_THAT(Run(Request(KestMethodHead, "/Ferro/gen2/f.txt")), HasSubstr("200\nContent-Type"));
}

// -- Conditions.

struct ConditionRow {
    const char* name;
    const char* header;
    const char* value;
    int status;
};

class StandardGetCondition : public StandardGet,
                             public testing::WithParamInterface<ConditionRow> {};

TEST_P(StandardGetCondition, IsJudged)
{
    for (const UINT32 method : {KestMethodGet, KestMethodHead}) {
        const std::string reply =
            Run(Request(method, "/Ferro/gen3/f.txt").Header(GetParam().header, GetParam().value));
        switch (GetParam().status) {
        case 200:
            EXPECT_THAT(reply, HasSubstr("Content-Length: 11\n"));
            break;
        case 304:
            EXPECT_EQ(reply, WithValidators("304", "\n"));
            break;
        default:
            EXPECT_EQ(reply, method == KestMethodHead ? PlainHead("412") : Plain("412"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Headers, StandardGetCondition,
    testing::Values(ConditionRow{"MatchHolds", "If-Match", "\"v0\", \"v1\"", 200},
                    ConditionRow{"MatchAny", "If-Match", "*", 200},
                    ConditionRow{"MatchFails", "If-Match", "\"v2\"", 412},
                    ConditionRow{"MatchIsStrong", "If-Match", "W/\"v1\"", 412},
                    ConditionRow{"NoneMatch", "If-None-Match", "\"v1\"", 304},
                    ConditionRow{"NoneMatchIsWeak", "If-None-Match", "W/\"v1\"", 304},
                    ConditionRow{"NoneMatchOther", "If-None-Match", "\"v2\"", 200},
                    ConditionRow{"NoneMatchAny", "If-None-Match", "*", 304},
                    ConditionRow{"ModifiedSinceSame", "If-Modified-Since", kStart, 304},
                    ConditionRow{"ModifiedSinceBefore", "If-Modified-Since",
                                 "Sat, 31 Jan 2026 11:59:59 GMT", 200},
                    ConditionRow{"ModifiedSinceNoDate", "If-Modified-Since", "yesterday", 200},
                    ConditionRow{"UnmodifiedSinceSame", "If-Unmodified-Since", kStart, 200},
                    ConditionRow{"UnmodifiedSinceBefore", "If-Unmodified-Since",
                                 "Sat, 31 Jan 2026 11:59:59 GMT", 412},
                    ConditionRow{"IfTagHolds", "If", "([\"v1\"])", 200},
                    ConditionRow{"IfTagFails", "If", "([\"v2\"])", 412},
                    ConditionRow{"IfNot", "If", "(Not [\"v2\"])", 200},
                    ConditionRow{"IfOtherResource", "If", "</Ferro/gen3/c/a> ([\"v2\"])", 412}),
    [](const auto& row) { return row.param.name; });

TEST_F(StandardGet, NoneMatchGoesBeforeModifiedSince)
{
    EXPECT_EQ(Run(Get().Header("If-None-Match", "\"v2\"").Header("If-Modified-Since", kStart)),
              kWhole);
}

TEST_F(StandardGet, MalformedIf_Answers400)
{
    EXPECT_EQ(Run(Get().Header("If", "(<oops")), Plain("400"));
}

TEST_F(StandardGet, LongListOfTags_IsReadToItsEnd)
{
    std::string tags;
    for (int i = 0; i < 2000; ++i)
        tags += "\"no-such-tag-" + std::to_string(i) + "\", ";
    EXPECT_EQ(Run(Get().Header("If-None-Match", tags + "\"v1\"")), WithValidators("304", "\n"));
    EXPECT_EQ(Run(Get().Header("If-None-Match", tags + "\"v2\"")), kWhole);
}

// -- Ranges.

TEST_F(StandardGet, OneRange)
{
    EXPECT_EQ(Run(Get().Header("Range", "bytes=0-4")), Part("0-4/11", "hello"));
    EXPECT_EQ(Run(Get().Header("Range", "bytes=6-")), Part("6-10/11", "world"));
    EXPECT_EQ(Run(Get().Header("Range", "bytes=-3")), Part("8-10/11", "rld"));
    EXPECT_EQ(Run(Get().Header("Range", "bytes=6-4000")), Part("6-10/11", "world"));
    EXPECT_EQ(Run(Get().Header("Range", "bytes=0-4,3-7")), Part("0-7/11", "hello wo"))
        << "those that overlap are one";
}

// As long as the room for a value that is read at once, and a little shorter and longer: with a
// host that needs room for a terminator and with one that does not.
TEST_F(StandardGet, RangeHeaderOfAnyLength_KeepsItsLastCharacter)
{
    const std::string first = "bytes=0-4,";
    const std::string last = "3-10";
    for (const size_t size : {31U, 32U, 33U, 255U, 256U, 257U, 1023U, 1024U, 1025U}) {
        const std::string spaces(size - first.size() - last.size(), ' ');
        for (const bool needsNoTerminator : {false, true}) {
            Request request = Get().Header("Range", first + spaces + last);
            request.exactHeaders = needsNoTerminator;
            EXPECT_EQ(Run(request), Part("0-10/11", "hello world")) << size;
        }
    }
}

TEST_F(StandardGet, RangeReadsNothingBeforeItself)
{
    const std::string content(3'000'000, 'x');
    world["gen3"].AddFile("/gen3/big", content);
    world.recorder.Clear();
    const Reply reply = world.Run(Get("big").Header("Range", "bytes=2999990-"));
    EXPECT_EQ(reply.body, "xxxxxxxxxx");
    EXPECT_THAT(Changes(),
                ElementsAre("gen3.res3.Open(/gen3/big, read)", "gen3.res3.Read(2999990, 10)"));
}

TEST_F(StandardGet, RangeBeyondTheEnd_Answers416WithTheSize)
{
    const std::string refused = WithValidators("416", "Content-Range: bytes */11\n"
                                                      "Content-Length: 0\n\n");
    EXPECT_EQ(Run(Get().Header("Range", "bytes=11-")), refused);
    EXPECT_EQ(Run(Get().Header("Range", "bytes=-0")), refused);
}

TEST_F(StandardGet, WhatIsNoRange_IsIgnored)
{
    for (const char* range : {"bytes=x", "items=0-1", "bytes=4-2", "bytes=", "none"})
        EXPECT_EQ(Run(Get().Header("Range", range)), kWhole) << range;
}

TEST_F(StandardGet, SeveralRanges_AreParts)
{
    const std::string content = std::string(500, 'a') + std::string(500, 'b');
    world["gen3"].AddFile("/gen3/m.txt", content);
    const Reply reply = world.Run(Get("m.txt").Header("Range", "bytes=990-, 0-9"));
    constexpr char kIntro[] = "Content-Type: multipart/byteranges; boundary=";
    const size_t at = reply.text.find(kIntro);
    ASSERT_NE(at, std::string::npos) << reply.text;
    const std::string boundary = reply.text.substr(at + sizeof kIntro - 1, 32);
    const std::string body = "\r\n--" + boundary +
                             "\r\nContent-Type: text/plain\r\nContent-Range: bytes 990-999/1000"
                             "\r\n\r\nbbbbbbbbbb\r\n--" +
                             boundary +
                             "\r\nContent-Type: text/plain\r\nContent-Range: bytes 0-9/1000"
                             "\r\n\r\naaaaaaaaaa\r\n--" +
                             boundary + "--\r\n";
    EXPECT_EQ(reply.text, WithValidators("206", kIntro + boundary + "\nContent-Length: " +
                                                    std::to_string(body.size()) + "\n\n" + body));
    const Reply again = world.Run(Get("m.txt").Header("Range", "bytes=990-, 0-9"));
    EXPECT_THAT(again.text, Not(HasSubstr(boundary))) << "no file can know its frame";
}

TEST_F(StandardGet, IfRange)
{
    const auto ranged = [&](const char* ifRange) {
        return Run(Get().Header("Range", "bytes=0-4").Header("If-Range", ifRange));
    };
    EXPECT_EQ(ranged("\"v1\""), Part("0-4/11", "hello"));
    EXPECT_EQ(ranged(kStart), Part("0-4/11", "hello"));
    EXPECT_EQ(ranged("\"v2\""), kWhole);
    EXPECT_EQ(ranged("W/\"v1\""), kWhole);
    EXPECT_EQ(ranged("Sat, 31 Jan 2026 12:00:01 GMT"), kWhole);
    EXPECT_EQ(Run(Get().Header("Range", "bytes=99-").Header("If-Range", "\"v2\"")), kWhole)
        << "a range that does not count is not refused";
}

TEST_F(StandardGet, ConditionsGoBeforeRanges)
{
    EXPECT_EQ(Run(Get().Header("Range", "bytes=99-").Header("If-None-Match", "\"v1\"")),
              WithValidators("304", "\n"));
    EXPECT_EQ(Run(Get().Header("Range", "bytes=0-1").Header("If-Match", "\"v2\"")), Plain("412"));
}

TEST_F(StandardGet, PositionsOfAnySize)
{
    world["gen3"].AddFile("/gen3/huge", "tail").sizeShown = 5'000'000'000;
    const Reply reply = world.Run(Get("huge").Header("Range", "bytes=4999999990-"));
    EXPECT_THAT(reply.text, HasSubstr("Content-Range: bytes 4999999990-4999999999/5000000000\n"
                                      "Content-Length: 10\n"));
    EXPECT_THAT(Changes(), testing::Contains("gen3.res3.Read(4999999990, 10)"));
}

TEST_F(StandardGet, ContentThatEndsTooSoon_LeavesTheReplyShort)
{
    world["gen3"].AddFile("/gen3/short", "four").sizeShown = 10;
    const Reply reply = world.Run(Get("short"));
    EXPECT_THAT(reply.text, HasSubstr("Content-Length: 10\n\nfour"));
    EXPECT_EQ(Code(reply.returned), kCodeEndOfFile) << "and the host breaks the connection";
}

TEST_F(StandardGet, ShortReads_AreGoneOnWith)
{
    world["gen3"].readLimit = 4;
    EXPECT_EQ(Run(Get()), kWhole);
    EXPECT_THAT(
        world.Calls({"gen3.res3.Read"}),
        ElementsAre("gen3.res3.Read(0, 11)", "gen3.res3.Read(4, 7)", "gen3.res3.Read(8, 3)"));
}

TEST(StandardGetFailures, EveryCallMayFail)
{
    for (const char* range : {"bytes=0-2", "bytes=0-2,200-300", "none"}) {
        SCOPED_TRACE(range);
        harness::ExpectEveryFailureIsSurvived(
            [] {
                auto world = MakeWorld();
                world->operator[]("gen3").AddFile("/gen3/long", std::string(1000, 'x'));
                return world;
            },
            Request(KestMethodGet, "/Ferro/gen3/long")
                .Header("Range", range)
                .Header("If-Range", "\"v1\"")
                .Header("If-Match", "\"v1\"")
                .Header("If", "([\"v1\"])"));
    }
}

} // namespace

} // namespace standard_tests
