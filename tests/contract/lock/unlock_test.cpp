// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Unlock : public testing::Test {
  protected:
    World world{{{.name = "p"}}};
    harness::Provider& provider = world["p"];
    harness::Node& file = provider.AddFile("/p/a", "x");

    Reply Send(const std::string& token, const std::string& path = "/Ferro/p/a")
    {
        return world.Run(Request(KestMethodUnlock, path).Header("Lock-Token", token));
    }
};

TEST_F(Unlock, TokenInAngles_IsHandedOverWithoutItsScheme)
{
    file.locks.resize(1);
    file.locks[0].token = "abc";
    const Reply reply = Send("<opaquelocktoken:abc>");
    EXPECT_EQ(reply.text, "200\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls({"p.Unlock"}), ElementsAre("p.Unlock(/p/a, token=abc)"));
    EXPECT_THAT(file.locks, IsEmpty());
    world.ExpectAtRest();
}

TEST_F(Unlock, TokenForms)
{
    const std::string longest(111, 't');
    const struct {
        std::string header;
        std::string token;
    } cases[] = {
        {"opaquelocktoken:abc", "abc"},
        {"<opaquelocktoken:abc", "abc"},
        {"<opaquelocktoken:a:b>c>", "a:b"},
        {"<x:y> opaquelocktoken", "y"},
        {"<opaquelocktoken:>", ""},
        {"<opaquelocktoken>", ""},
        {"<abc:def>", "(null text)"},
        {"<OpaqueLockToken:abc>", "(null text)"},
        {"", "(null text)"},
        {"opaquelocktoken:" + longest, longest},
    };
    for (const auto& c : cases) {
        world.recorder.Clear();
        EXPECT_EQ(Send(c.header).text, "404\nContent-Length: 0\n\n") << c.header;
        EXPECT_THAT(world.Calls({"p.Unlock"}),
                    ElementsAre("p.Unlock(/p/a, token=" + c.token + ")"));
    }
    world.ExpectAtRest();
}

TEST_F(Unlock, TokenOfAnotherScheme_IsUpToTheProvider)
{
    file.locks.resize(1); // its token is empty
    EXPECT_EQ(Send("<urn:uuid:abc>").text, "200\nContent-Length: 0\n\n");
}

TEST_F(Unlock, AnyRefusal_Answers404)
{
    for (const UINT16 code : {kCodeLocked, kCodeConflict, kCodeAccessDenied, kCodeNotFound}) {
        world.Fail("p.Unlock", ProviderFailure(code));
        const Reply reply = Send("<opaquelocktoken:abc>");
        EXPECT_EQ(reply.text, "404\nContent-Length: 0\n\n");
        EXPECT_EQ(reply.returned, ProviderFailure(code));
    }
    world.ExpectAtRest();
}

TEST_F(Unlock, UnknownPath_Answers404)
{
    const Reply reply = Send("<opaquelocktoken:abc>", "/Ferro/p/none");
    EXPECT_EQ(reply.text, "404\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NOT_FOUND);
    EXPECT_THAT(world.Calls({"p.Unlock"}), IsEmpty());
    world.ExpectAtRest();
}

TEST_F(Unlock, FirstGenerationProvider_Answers405)
{
    World first({{.name = "p", .generations = 1}});
    first["p"].AddFile("/p/a");
    const Reply reply =
        first.Run(Request(KestMethodUnlock, "/Ferro/p/a").Header("Lock-Token", "<x>"));
    EXPECT_EQ(reply.text, "405\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NOT_SUPPORTED);
    first.ExpectAtRest();
}

TEST_F(Unlock, NoReadableToken_Answers400)
{
    const Reply none = world.Run(Request(KestMethodUnlock, "/Ferro/p/a"));
    EXPECT_EQ(none.text, "400\nContent-Length: 0\n\n");
    EXPECT_EQ(none.returned, TAL_STATUS_NOT_FOUND);
    EXPECT_EQ(Send("<opaquelocktoken:" + std::string(200, 't') + ">").text,
              "400\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"p.Unlock"}), IsEmpty());
    world.ExpectAtRest();
}

TEST_F(Unlock, LengthIsSetFirstAndProvidersAreHeldUntilTheReplyHasLeft)
{
    world.Remember("/Ferro/p/a");
    EXPECT_EQ(Send("<opaquelocktoken:abc>").unguarded, "");
    EXPECT_THAT(world.Calls({"io.", "p."}),
                ElementsAre("io.GetUrl()", "io.SetReplyHeader(Content-Length, \"0\")",
                            "p.GetType(/p/a)", "io.GetRequestHeader(Lock-Token)",
                            "p.Unlock(/p/a, token=abc)", "io.SendHeader(404)"));
    EXPECT_EQ(Send("<opaquelocktoken:abc>", "/Ferro/p/none").unguarded, "");
    EXPECT_EQ(world.Run(Request(KestMethodUnlock, "/Ferro/p/a")).unguarded, "");
}

TEST_F(Unlock, NoMemory_Answers507)
{
    world.Remember("/Ferro/p/a");
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 2);
    EXPECT_EQ(Send("<opaquelocktoken:abc>").text, "507\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

TEST_F(Unlock, Root_IsThePathSlash)
{
    provider.serveRoot = true;
    EXPECT_EQ(Send("<opaquelocktoken:abc>", "/Ferro").text, "404\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"p.Unlock"}), ElementsAre("p.Unlock(/, token=abc)"));
}

TEST(UnlockFailures, EveryFailure_IsSurvived)
{
    harness::ExpectEveryFailureIsSurvived(
        [] {
            auto world = std::make_unique<World>(std::vector<ProviderSpec>{{.name = "p"}});
            harness::Node& file = (*world)["p"].AddFile("/p/a");
            file.locks.resize(1);
            file.locks[0].token = "abc";
            return world;
        },
        Request(KestMethodUnlock, "/Ferro/p/a").Header("Lock-Token", "<opaquelocktoken:abc>"));
}

} // namespace
