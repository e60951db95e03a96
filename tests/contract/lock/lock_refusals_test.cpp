// SPDX-License-Identifier: Apache-2.0
//
// LOCK that is refused or fails: conflicts, hostile bodies, failing calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lock.h"
#include "text.h"
#include "world.h"

using harness::LockRecord;
using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace lock_tests;

namespace {

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
