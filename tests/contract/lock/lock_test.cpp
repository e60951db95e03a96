// SPDX-License-Identifier: Apache-2.0
//
// LOCK: new locks, refreshes, conflicts, and whole replies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

using harness::LockRecord;
using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kFirstToken[] = "00000000-0000-4000-8000-000000000001";

// What a lock reply shows.
struct Shown {
    std::string status = "200";
    std::string type = "write";
    std::string scope = "exclusive";
    std::string depth = "0";
    std::string owner = {}; // with its element
    std::string timeout = "Second-300";
    std::string token = kFirstToken;
};

std::string LockReply(const Shown& shown)
{
    return shown.status +
           "\n"
           "Transfer-Encoding: chunked\n"
           "Content-Type: text/xml\n"
           "\n"
           "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
           "<a:prop xmlns:a=\"DAV:\"><a:lockdiscovery>\n"
           "<a:activelock>\n"
           "<a:locktype><a:" +
           shown.type +
           "/></a:locktype>\n"
           "<a:lockscope><a:" +
           shown.scope +
           "/></a:lockscope>\n"
           "<a:depth>" +
           shown.depth + "</a:depth>\n" + shown.owner + "<a:timeout>" + shown.timeout +
           "</a:timeout>\n"
           "<a:locktoken>\n"
           "<a:href>opaquelocktoken:" +
           shown.token +
           "</a:href>\n"
           "</a:locktoken>\n"
           "</a:activelock></a:lockdiscovery></a:prop>";
}

std::string Owner(const std::string& text)
{
    return "<a:owner>" + text + "</a:owner>\n";
}

std::string LockInfo(const std::string& owner = {}, const std::string& scope = "exclusive",
                     const std::string& type = "write")
{
    return "<?xml version=\"1.0\"?><D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:" + scope +
           "/></D:lockscope><D:locktype><D:" + type + "/></D:locktype>" + owner + "</D:lockinfo>";
}

class Lock : public testing::Test {
  protected:
    World world{{{.name = "p"}}};
    harness::Provider& provider = world["p"];
    harness::Node& file = provider.AddFile("/p/a", "x");

    static Request Ask(const std::string& body = {}, const std::string& path = "/Ferro/p/a")
    {
        Request request(KestMethodLock, path);
        if (!body.empty())
            request.Body({body});
        return request;
    }
    static Request Refresh(const std::string& token)
    {
        return Ask().Header("If", "(<opaquelocktoken:" + token + ">)");
    }
    // Puts a lock on the file.
    LockRecord& Hold(const std::string& token, INT64 seconds = 160, const std::string& owner = {})
    {
        LockRecord lock;
        lock.depth = 0;
        lock.timeout = seconds * 10000000;
        lock.owner = owner;
        lock.token = token;
        file.locks.push_back(lock);
        return file.locks.back();
    }
};

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

// -- Conflicts

TEST_F(Lock, Conflict_DescribesTheLockInTheWay)
{
    world.Remember("/Ferro/p/a");
    LockRecord& held = Hold("tok-1", 1000, "someone else");
    held.depth = -1;
    held.type = Read;
    held.scope = Shared;
    EXPECT_EQ(world.Run(Ask(LockInfo("<D:owner>me</D:owner>"))).text,
              LockReply({.status = "423",
                         .type = "read",
                         .scope = "shared",
                         .depth = "-1",
                         .owner = Owner("someone else"),
                         .timeout = "Second-940",
                         .token = "tok-1"}));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.Lock(/p/a, depth=0, timeout=3600000000, scope=0, type=1, owner=me)",
                            "p.Create(IKestDAVResource2)",
                            "p.res.Associate(/p/a, create=0, access=1, share=1, flags=0, "
                            "token=null)",
                            "p.res.GetFirstLock(424)"));
    world.ExpectAtRest();
}

TEST_F(Lock, ConflictWithTheLongestOwnerAndToken_IsCut)
{
    Hold(std::string(132, 't'), 100, std::string(260, 'o'));
    EXPECT_EQ(world.Run(Ask(LockInfo())).text, LockReply({.status = "423",
                                                          .owner = Owner(std::string(259, 'o')),
                                                          .timeout = "Second-40",
                                                          .token = std::string(128, 't')}));
    world.ExpectAtRest();
}

TEST_F(Lock, ConflictThatClaimsMoreThanItsRecord_IsCut)
{
    Hold("t", 100, "me").claimsMore = true;
    EXPECT_EQ(world.Run(Ask(LockInfo())).text, LockReply({.status = "423",
                                                          .owner = Owner("me"),
                                                          .timeout = "Second-40",
                                                          .token = "t" + std::string(127, '\0')}));
    world.ExpectAtRest();
}

TEST_F(Lock, ConflictOfARefresh_IsReportedAlike)
{
    Hold("tok-1", 1000);
    world.Fail("p.LockRefresh", ProviderFailure(kCodeLocked));
    EXPECT_EQ(world.Run(Refresh("tok-2")).text,
              LockReply({.status = "423", .timeout = "Second-940", .token = "tok-1"}));
    world.ExpectAtRest();
}

TEST_F(Lock, ConflictThatCannotBeDescribed_Answers423WithoutABody)
{
    Hold("tok-1");
    for (const char* call : {"p.Create", "p.res.Associate", "p.res.GetFirstLock"}) {
        world.Fail(call, ProviderFailure(kCodeUnsuccessful));
        EXPECT_EQ(world.Run(Ask(LockInfo())).text, "423\nContent-Length: 0\n\n") << call;
        world.ExpectAtRest();
    }
    world.Remember("/Ferro/p/a");
    // Behind the path, the request and the body.
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 4);
    EXPECT_EQ(world.Run(Ask(LockInfo())).text, "423\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

// -- Failures

TEST_F(Lock, Root_Answers403)
{
    for (const char* path : {"/Ferro", "/Ferro/"}) {
        const Reply reply = world.Run(Ask(LockInfo(), path));
        EXPECT_EQ(reply.text, "403\nContent-Length: 0\n\n");
        EXPECT_EQ(reply.returned, TAL_STATUS_ACCESS_DENIED);
    }
    EXPECT_THAT(world.Calls({"p.GetType", "p.Lock"}), IsEmpty());
    world.ExpectAtRest();
}

TEST_F(Lock, UnknownProvider_AnswersTheMappedStatus)
{
    EXPECT_EQ(world.Run(Ask(LockInfo(), "/Ferro/none")).text, "404\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

TEST_F(Lock, FirstGenerationProvider_Answers405)
{
    World first({{.name = "p", .generations = 1}});
    first["p"].AddFile("/p/a");
    const Reply reply = first.Run(Ask(LockInfo()));
    EXPECT_EQ(reply.text, "405\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NOT_SUPPORTED);
    first.ExpectAtRest();
}

TEST_F(Lock, OtherProviderFailures_AreMapped)
{
    const struct {
        UINT16 code;
        const char* reply;
    } cases[] = {{kCodeAccessDenied, "403\nContent-Length: 0\n\n"},
                 {kCodeConflict, "409\nContent-Length: 0\n\n"},
                 {kCodeInsufficientResources, "507\nContent-Length: 0\n\n"},
                 {kCodePreconditionFailed, "412\nContent-Length: 0\n\n"},
                 {kCodeUnsuccessful, "417\nContent-Length: 0\n\n"}};
    for (const auto& c : cases) {
        world.Fail("p.Lock", ProviderFailure(c.code));
        EXPECT_EQ(world.Run(Ask(LockInfo())).text, c.reply);
        world.Fail("p.LockRefresh", ProviderFailure(c.code));
        EXPECT_EQ(world.Run(Refresh("t")).text, c.reply);
    }
    world.ExpectAtRest();
}

TEST_F(Lock, NoMemory_GrantsNothing)
{
    world.Remember("/Ferro/p/a");
    for (int nth = 2; nth <= 3; ++nth) { // the request, the body
        world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, nth);
        EXPECT_EQ(world.Run(Ask(LockInfo())).text, "507\nContent-Length: 0\n\n") << nth;
        world.ExpectAtRest();
    }
    EXPECT_THAT(world.Calls({"p.Lock"}), IsEmpty());
}

TEST_F(Lock, ProvidersAreHeldUntilTheReplyHasLeft)
{
    EXPECT_EQ(world.Run(Ask(LockInfo())).unguarded, "");
    EXPECT_EQ(world.Run(Ask(LockInfo())).unguarded, "") << "the conflict";
    EXPECT_EQ(world.Run(Ask(LockInfo(), "/Ferro/none")).unguarded, "");
    EXPECT_EQ(world.Run(Ask(LockInfo(), "/Ferro")).unguarded, "403\n");
}

TEST_F(Lock, HostileBodies_AreSurvived)
{
    std::string deep = "<lockinfo><write/><owner>";
    for (int i = 0; i < 10000; ++i)
        deep += "<x>";
    std::string many = "<lockinfo><write/><owner>";
    for (int i = 0; i < 200000; ++i)
        many += "<href>";
    std::string entities = "<!DOCTYPE d [<!ENTITY e0 \"oooooooooo\">";
    for (int i = 1; i < 12; ++i) {
        entities += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k)
            entities += "&e" + std::to_string(i - 1) + ";";
        entities += "\">";
    }
    entities += "]><lockinfo><write/><owner>&e11;</owner></lockinfo>";
    const std::string bodies[] = {deep,
                                  many,
                                  entities,
                                  "<lockinfo><write/><" + std::string(100000, 'n') + "/>",
                                  "<?xml version='1.0' encoding='x'?><lockinfo><write/></lockinfo>",
                                  std::string(1000, '\0')};
    for (const std::string& body : bodies) {
        file.locks.clear();
        EXPECT_EQ(world.Run(Ask(body)).text.substr(0, 4), "200\n") << body.substr(0, 50);
        EXPECT_LE(file.locks.at(0).owner.size(), 259u);
        world.ExpectAtRest();
    }
}

TEST(LockFailures, EveryFailure_IsSurvived)
{
    for (const bool held : {false, true})
        for (const std::string& body : {LockInfo("<D:owner>me</D:owner>"), std::string()})
            harness::ExpectEveryFailureIsSurvived(
                [&] {
                    auto world = std::make_unique<World>(std::vector<ProviderSpec>{{.name = "p"}});
                    harness::Node& file = (*world)["p"].AddFile("/p/a");
                    if (held) {
                        file.locks.resize(1);
                        file.locks[0].token = "abc";
                    }
                    return world;
                },
                Request(KestMethodLock, "/Ferro/p/a")
                    .Header("If", "(<opaquelocktoken:abc>)")
                    .Header("Timeout", "Second-100")
                    .Body(body.empty() ? std::vector<std::string>{}
                                       : std::vector<std::string>{body}));
}

} // namespace
