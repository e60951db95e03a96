// SPDX-License-Identifier: Apache-2.0
//
// One whole case of each kind, to show that the harness itself works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::ExpectEveryFailureIsSurvived;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;

TEST(Harness, GetOfAResource_ShowsReplyAndCalls)
{
    World world({{.name = "gen2"}});
    world["gen2"].AddFile("/gen2/a.txt", "hello");
    const Reply reply = world.Run(Request(KestMethodGet, "/Ferro/gen2/a.txt"));
    EXPECT_EQ(reply.text, "200\n"
                          "Cache-Control: no-store\n"
                          "Last-Modified: Sat, 31 Jan 2026 12:00:00 GMT\n"
                          "Accept-Ranges: bytes\n"
                          "Content-Type: text/plain\n"
                          "Content-Length: 5\n"
                          "\n"
                          "hello");
    EXPECT_THAT(world.Calls({"gen2."}),
                ElementsAre("gen2.BeginSession(session=1)", "gen2.GetType(/gen2/a.txt)",
                            "gen2.GetType(/gen2/a.txt)", "gen2.Create(IKestDAVResource2)",
                            "gen2.res.Associate(/gen2/a.txt, create=0, access=3, share=3, "
                            "flags=0, token=null)",
                            "gen2.res.GetResourceSize()", "gen2.res.GetModificationDate()",
                            "gen2.res.Read(0, 5)"));
    world.ExpectAtRest();
}

TEST(Harness, SecondWorldOfAProcess_HasAModuleOfItsOwn)
{
    {
        World first({}, {.moniker = "/First"});
        EXPECT_EQ(first.location, "/First");
    }
    World second({}, {.moniker = "/Second"});
    EXPECT_EQ(second.location, "/Second");
}

TEST(Harness, EveryCallThatCanFail_IsMadeToFailOnce)
{
    int failures = 0;
    ExpectEveryFailureIsSurvived(
        [] {
            auto world = std::make_unique<World>(std::vector<harness::ProviderSpec>{{"gen1", 1}});
            (*world)["gen1"].AddFile("/gen1/a.txt", "hello");
            return world;
        },
        Request(KestMethodGet, "/Ferro/gen1/a.txt"), [&](World&, const Reply&) { ++failures; });
    EXPECT_GT(failures, 20);
}
