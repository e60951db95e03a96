// SPDX-License-Identifier: Apache-2.0
//
// LOCK: new locks and refreshes, and whole replies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lock.h"
#include "text.h"
#include "world.h"

using harness::LockRecord;
using harness::Reply;
using harness::Request;
using testing::ElementsAre;
using namespace lock_tests;

namespace {

// -- New locks

TEST_F(Lock, NewLock_IsAskedOfTheProviderAndDescribed)
{
    world.Remember("/Ferro/p/a");
    const Reply reply = world.Run(Ask(LockInfo("<D:owner>me</D:owner>"))
                                      .Header("Timeout", "Second-100")
                                      .Header("Depth", "0"));
    EXPECT_EQ(reply.text, "200\n"
                          "Transfer-Encoding: chunked\n"
                          "Content-Type: text/xml\n"
                          "\n"
                          "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
                          "<a:prop xmlns:a=\"DAV:\">"
                          "<a:lockdiscovery>\n"
                          "<a:activelock>\n"
                          "<a:locktype><a:write/></a:locktype>\n"
                          "<a:lockscope><a:exclusive/></a:lockscope>\n"
                          "<a:depth>0</a:depth>\n"
                          "<a:owner>me</a:owner>\n"
                          "<a:timeout>Second-100</a:timeout>\n"
                          "<a:locktoken>\n"
                          "<a:href>opaquelocktoken:00000000-0000-4000-8000-000000000001</a:href>\n"
                          "</a:locktoken>\n"
                          "</a:activelock></a:lockdiscovery></a:prop>");
    EXPECT_THAT(
        world.Calls({"p."}),
        ElementsAre("p.Lock(/p/a, depth=0, timeout=1600000000, scope=0, type=1, owner=me)"));
    world.ExpectAtRest();
}

TEST_F(Lock, Timeouts_AreCappedAndGrantedAMinuteLonger)
{
    const struct {
        const char* header; // null: none
        int seconds;
    } cases[] = {
        {"Second-100", 100},
        {"Second-90000", 3600},
        {"Second-3600", 3600},
        {"Second-3601", 3600},
        {"Second-4100000000", 3600},
        {"Second-99999999999999999999", 3600},
        {"Second-1", 1},
        {"Second-0", 300},
        {"Second--5", 300},
        {"Second-", 300},
        {"Second-x", 300},
        {"Second", 300},
        {"", 300},
        {"Infinite", 3600},
        {"Infinite, Second-100", 3600},
        {"Second-100, Infinite", 3600},
        {"Second-100, Second-7", 100},
        {"infinite", 300},
        {"-40", 40},
        {nullptr, 300},
    };
    for (const auto& c : cases) {
        file.locks.clear();
        provider.nextToken = kFirstToken;
        Request request = Ask(LockInfo());
        if (c.header)
            request.Header("Timeout", c.header);
        EXPECT_EQ(world.Run(request).text,
                  LockReply({.timeout = "Second-" + std::to_string(c.seconds)}))
            << (c.header ? c.header : "none");
        EXPECT_EQ(file.locks.at(0).timeout, INT64{c.seconds + 60} * 10000000);
    }
    world.ExpectAtRest();
}

TEST_F(Lock, TimeoutBeyondItsBuffer_CountsAsNone)
{
    EXPECT_EQ(
        world.Run(Ask(LockInfo()).Header("Timeout", "Second-100" + std::string(200, ' '))).text,
        LockReply({}));
}

TEST_F(Lock, AnyDepth_IsGrantedAsZero)
{
    for (const char* depth : {"infinity", "1", "0", "-1", "nonsense"}) {
        file.locks.clear();
        provider.nextToken = kFirstToken;
        EXPECT_EQ(world.Run(Ask(LockInfo()).Header("Depth", depth)).text, LockReply({})) << depth;
        EXPECT_EQ(file.locks.at(0).depth, 0);
    }
}

TEST_F(Lock, OwnerForms)
{
    const std::string long300(300, 'o');
    const struct {
        std::string owner;
        std::string kept;
    } cases[] = {
        {"<D:owner><D:href>mailto:me@example.org</D:href></D:owner>",
         "<href>mailto:me@example.org</href>"},
        {"<D:owner>\n  <D:href>\n http://me </D:href>\n after</D:owner>",
         // Chunks that are blank are ignored, others keep their blanks; after an href nothing
         // counts.
         "<href> http://me </href>"},
        {"<D:owner>me &amp; you &lt;x&gt;</D:owner>", "me & you <x>"},
        {"<D:owner>  me  </D:owner>", "  me  "},
        {"<D:owner> \t\r\n </D:owner>", ""},
        {"<D:owner/>", ""},
        {"", ""},
        {"<D:owner>a<x>b</x>c</D:owner>", "abc"},
        {"<D:owner>a</D:owner>b<D:owner>c</D:owner>", "ac"},
        {"<D:href>no owner</D:href>", ""},
        {"<D:owner>a<D:href>b</D:href>c<D:href>d</D:href></D:owner>", "a<href>b</href>"},
        {"<D:owner>\xC3\xA9\xF0\x9F\x98\x80</D:owner>", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"<D:owner>" + long300 + "</D:owner>", long300.substr(0, 259)},
        {"<D:owner><D:href>" + long300 + "</D:href></D:owner>", "<href>" + long300.substr(0, 253)},
        {"<D:owner>" + long300.substr(0, 257) + "<D:href>x</D:href></D:owner>",
         long300.substr(0, 257) + "<h"},
    };
    for (const auto& c : cases) {
        file.locks.clear();
        provider.nextToken = kFirstToken;
        EXPECT_EQ(world.Run(Ask(LockInfo(c.owner))).text,
                  LockReply({.owner = c.kept.empty() ? "" : Owner(c.kept)}))
            << c.owner;
        EXPECT_EQ(file.locks.at(0).owner, c.kept);
    }
    world.ExpectAtRest();
}

TEST_F(Lock, ScopeAndType_ComeFromTheBody)
{
    const struct {
        std::string body;
        Shown shown;
    } cases[] = {
        {LockInfo("", "shared", "write"), {.scope = "shared"}},
        {LockInfo("", "exclusive", "read"), {.type = "read"}},
        // Neither locktype nor lockscope needs to be there.
        {"<lockinfo><shared/><write/></lockinfo>", {.scope = "shared"}},
        {"<x:LOCKINFO><x:Write/></x:LOCKINFO>", {}},
        {"<lockinfo/>", {.type = "read"}},
        {"<info><shared/><write/></info>", {.type = "read"}},
        {"<lockinfo><shared/><write/><exclusive/>", {}},
        {"nonsense", {.type = "read"}},
        {"<lockinfo><write/><shared/><", {.scope = "shared"}},
    };
    for (const auto& c : cases) {
        file.locks.clear();
        provider.nextToken = kFirstToken;
        EXPECT_EQ(world.Run(Ask(c.body)).text, LockReply(c.shown)) << c.body;
        EXPECT_EQ(file.locks.at(0).scope, c.shown.scope == "shared" ? Shared : Exclusive);
        EXPECT_EQ(file.locks.at(0).type, c.shown.type == "read" ? Read : Write);
    }
    world.ExpectAtRest();
}

TEST_F(Lock, BodyWithoutALockToken_IsNoRefresh)
{
    EXPECT_EQ(world.Run(Ask()).text, LockReply({.type = "read"}));
    EXPECT_EQ(world.recorder.Count("p.Lock"), 1);
    EXPECT_EQ(world.recorder.Count("p.LockRefresh"), 0);
}

TEST_F(Lock, TokenAndBody_AreANewLock)
{
    EXPECT_EQ(world
                  .Run(Refresh("a-much-longer-token-than-the-one-that-is-going-to-be-granted-here")
                           .Body({LockInfo()}))
                  .text,
              LockReply({}));
    EXPECT_EQ(world.recorder.Count("p.Lock"), 1);
    EXPECT_EQ(world.recorder.Count("p.LockRefresh"), 0);
}

TEST_F(Lock, NewPath_IsLockedByAProviderThatMakesIt)
{
    world.Remember("/Ferro/p/a");
    EXPECT_EQ(world.Run(Ask(LockInfo(), "/Ferro/p/new")).text, LockReply({}));
    EXPECT_TRUE(provider.Has("/p/new"));
}

TEST_F(Lock, LongestToken_IsShownWhole)
{
    provider.nextToken = std::string(128, 't');
    EXPECT_EQ(world.Run(Ask(LockInfo("<owner>me</owner>"))).text,
              LockReply({.owner = Owner("me"), .token = std::string(128, 't')}));
    world.ExpectAtRest();
}

// -- Refresh

TEST_F(Lock, TokenWithoutBody_RefreshesAndDescribesTheLockAsItIs)
{
    world.Remember("/Ferro/p/a");
    LockRecord& held = Hold("tok-1", 1, "someone <b/>");
    held.scope = Shared;
    held.type = Write;
    EXPECT_EQ(world.Run(Refresh("tok-1").Header("Timeout", "Second-100")).text,
              LockReply({.scope = "shared",
                         .owner = Owner("someone <b/>"),
                         .timeout = "Second-100",
                         .token = "tok-1"}));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.LockRefresh(/p/a, timeout=1600000000, token=tok-1)"));
    world.ExpectAtRest();
}

TEST_F(Lock, TokenOfATaggedList_IsWhatFollowsTheFirstColon)
{
    EXPECT_EQ(world.Run(Ask().Header("If", "<http://h/p> (<opaquelocktoken:t>)")).text,
              "404\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"p.LockRefresh"}),
                ElementsAre("p.LockRefresh(/p/a, timeout=3600000000, token=//h/p)"));
}

TEST_F(Lock, UnendedToken_StopsAtTheHeadersEnd)
{
    for (const char* header : {"(<opaquelocktoken:abc", "opaquelocktoken:abc"}) {
        world.recorder.Clear();
        (void)world.Run(Ask().Header("If", header));
        EXPECT_THAT(world.Calls({"p.LockRefresh"}),
                    ElementsAre("p.LockRefresh(/p/a, timeout=3600000000, token=abc)"));
    }
    const std::string longest = "opaquelocktoken:" + std::string(111, 't');
    ASSERT_EQ(longest.size(), 127u);
    world.recorder.Clear();
    (void)world.Run(Ask().Header("If", longest));
    EXPECT_THAT(world.Calls({"p.LockRefresh"}),
                ElementsAre("p.LockRefresh(/p/a, timeout=3600000000, token=" +
                            std::string(111, 't') + ")"));
    world.ExpectAtRest();
}

TEST_F(Lock, HeadersThatFillTheirBuffers_AreReadToTheirEnds)
{
    const std::string longest = "opaquelocktoken:" + std::string(112, 't');
    ASSERT_EQ(longest.size(), 128u);
    (void)world.Run(Ask().Header("If", longest).ExactHeaders());
    EXPECT_THAT(world.Calls({"p.LockRefresh"}),
                ElementsAre("p.LockRefresh(/p/a, timeout=3600000000, token=" +
                            std::string(112, 't') + ")"));
    world.ExpectAtRest();
}

TEST_F(Lock, TokenWithoutAColon_IsAnEmptyOne)
{
    (void)world.Run(Ask().Header("If", "(<opaquelocktoken>)"));
    EXPECT_THAT(world.Calls({"p.LockRefresh"}),
                ElementsAre("p.LockRefresh(/p/a, timeout=3600000000, token=)"));
}

TEST_F(Lock, IfBeyondItsBuffer_CountsAsNone)
{
    (void)world.Run(Ask().Header("If", "(<opaquelocktoken:" + std::string(200, 't') + ">)"));
    EXPECT_EQ(world.recorder.Count("p.LockRefresh"), 0);
    EXPECT_EQ(world.recorder.Count("p.Lock"), 1);
}

TEST_F(Lock, ProvidersTimes_AreDividedToSecondsWhateverTheyMean)
{
    // Only a whole second below zero is the infinite time of the reply.
    const struct {
        INT64 units;
        const char* shown;
    } cases[] = {
        {-10000000, "Inifinite"}, {-1, "Second--60"}, {0x7FFFFFFFFFFFFFFF, "Second-2147483587"}};
    for (const auto& c : cases) {
        file.locks.clear();
        LockRecord& held = Hold("t");
        held.timeout = c.units;
        EXPECT_EQ(world.Run(Ask(LockInfo())).text,
                  LockReply({.status = "423", .timeout = c.shown, .token = "t"}));
    }
}

TEST_F(Lock, UnknownToken_AnswersTheMappedStatus)
{
    EXPECT_EQ(world.Run(Refresh("none")).text, "404\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

TEST_F(Lock, RefreshWithoutMemoryForTheRecord_IsAnsweredFromTheRequest)
{
    Hold("tok-1", 1, "someone");
    world.Remember("/Ferro/p/a");
    // Behind the dispatcher's copy of the path and the request.
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 3);
    EXPECT_EQ(world.Run(Refresh("tok-1").Header("Timeout", "Second-100")).text,
              LockReply({.type = "read", .timeout = "Second-100", .token = "tok-1"}));
    EXPECT_EQ(world.recorder.Count("p.LockRefresh"), 0);
    world.ExpectAtRest();
}

} // namespace
