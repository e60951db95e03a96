// SPDX-License-Identifier: Apache-2.0
//
// The provider list and the bracket around sessions.
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(ProviderList, UnknownClass_IsSkippedSilently)
{
    World world({{.name = "absent", .served = false}, {.name = "gen2"}});
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2/a")).text.substr(0, 3), "200");
    EXPECT_THAT(world.Calls({"absent."}), IsEmpty());
}

TEST(ProviderList, KeyThatNamesNoClass_IsSkippedSilently)
{
    World world({{.name = "gen2"}}, {.configuredKeys = {"short", "{}", std::string(60, 'z')}});
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2")).text.substr(0, 3), "200");
}

TEST(ProviderList, KeyShorterThanAClass_IsNotReadPastItsEnd)
{
    World world({{.name = "gen2"}}, {.configuredKeys = {World::ProviderKeyName(0).substr(0, 37)}});
    world.Run(Request(KestMethodOptions, "/Ferro"));
    EXPECT_EQ(world.recorder.Count("gen2.BeginSession"), 1) << "one entry";
}

TEST(ProviderList, ClassInLowerCase_IsTheSameClass)
{
    World world({}, {.configuredKeys = {"{50726f76-6964-6572-0000-000000000001}"}, .start = false});
    harness::Provider provider(world.recorder, {.name = "low"});
    world.Offer(World::ProviderClass(0),
                [&](const GUID& iid, void** out) { return provider.CreateObject(iid, out); });
    world.Start();
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/low")).text.substr(0, 3), "200");
}

TEST(ProviderList, ClassOfBothGenerations_IsUsedAsTheSecondOnly)
{
    World world({{.name = "both", .generations = 3}});
    world["both"].AddFile("/both/a", "x");
    world.Run(Request(KestMethodHead, "/Ferro/both/a"));
    EXPECT_THAT(world.Calls({"both.Create"}), ElementsAre("both.Create(IKestDAVResource2)"));
}

TEST(ProviderList, ClassOfTheFirstGeneration_IsUsedAsIt)
{
    World world({{.name = "gen1", .generations = 1}});
    world["gen1"].AddFile("/gen1/a", "x");
    world.Run(Request(KestMethodHead, "/Ferro/gen1/a"));
    EXPECT_THAT(world.Calls({"gen1.Create"}), ElementsAre("gen1.Create(IKestDAVResource)"));
}

TEST(ProviderList, Empty_LetsTheModuleStartAndResolvesNothing)
{
    World world;
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/x")).text, "404\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/x")).text, "404\nContent-Length: 0\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/x")).text, "404\n\n");
    world.ExpectAtRest();
}

class ProviderListFailure : public testing::TestWithParam<const char*> {};

TEST_P(ProviderListFailure, LeavesAModuleThatRuns)
{
    World world({{.name = "gen2"}}, {.start = false});
    // The third allocation and opening belong to the provider list.
    world.Fail(GetParam(), kInjected, std::string(GetParam()).ends_with("EnumerateKey") ? 1 : 3);
    world.Start();
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2")).text, "404\n\n");
    EXPECT_EQ(world.platform.OpenKeys(), 0);
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Calls, ProviderListFailure,
                         testing::Values("platform.TalxOpenKey", "platform.TalxAllocPagedMemory",
                                         "platform.TalxEnumerateKey"),
                         [](const auto& row) {
                             return std::string(row.param).substr(sizeof "platform.Talx" - 1);
                         });

TEST(ProviderList, EntryWithoutMemory_IsLeftOut)
{
    World world({{.name = "one"}, {.name = "two"}}, {.start = false});
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 4);
    world.Start();
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/one")).text, "404\n\n");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/two")).text.substr(0, 3), "200");
}

TEST(ProviderList, FailingGetDAVSupport_LeavesNoCapabilities)
{
    World world({{.name = "tree", .caps = kCapsDeletesTrees}}, {.start = false});
    world.Fail("tree.GetDAVSupport", kInjected);
    world.Start();
    world["tree"].AddCollection("/tree/c");
    world.Run(Request(KestMethodDelete, "/Ferro/tree/c"));
    EXPECT_EQ(world.recorder.Count("tree.col.Associate"), 1) << "the module walks by itself";
}

TEST(Session, FirstRequest_BeginsItAtEveryProviderInOrder)
{
    World world({{.name = "b", .generations = 1}, {.name = "a"}});
    world.Run(Request(KestMethodOptions, "/Ferro/a").Session(7));
    EXPECT_THAT(world.Calls({"sa.", "a.", "b."}),
                ElementsAre("sa.SACreate(session=7, 1, 2)", "b.BeginSession(session=7)",
                            "a.BeginSession(session=7)", "sa.SADereference(1)"));
    world.ExpectAtRest();
}

TEST(Session, SecondRequest_DoesNotBeginItAgain)
{
    World world({{.name = "a"}});
    world.Run(Request(KestMethodOptions, "/Ferro/a"));
    world.recorder.Clear();
    world.Run(Request(KestMethodOptions, "/Ferro/a"));
    EXPECT_THAT(world.Calls({"sa.", "a."}),
                ElementsAre("sa.SACreate(session=1, 1, 2)", "sa.SADereference(2)"));
}

TEST(Session, Bracket_HoldsTheProviderListForReading)
{
    World world({{.name = "a"}});
    std::vector<std::string> seen;
    world.recorder.onCall = [&](std::string_view name) {
        if (name.ends_with("Session") || name.starts_with("sa."))
            seen.push_back(std::string(name) + " " + std::to_string(world.platform.HeldLocks()) +
                           (world.platform.HeldForWriting() ? " writing" : ""));
    };
    world.Run(Request(KestMethodOptions, "/Ferro/a").Session(2));
    world.attributes.EndSession(2);
    EXPECT_THAT(seen, ElementsAre("sa.SACreate 0", "a.BeginSession 1", "sa.SADereference 0",
                                  "sa.SAReference 0", "sa.SADelete 0", "a.EndSession 1"));
}

TEST(Session, FailingBeginSession_IsIgnored)
{
    World world({{.name = "a"}, {.name = "b"}});
    world.Fail("a.BeginSession", kInjected);
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/b")).text.substr(0, 3), "200");
    EXPECT_EQ(world.recorder.Count("b.BeginSession"), 1);
}

TEST(Session, Attribute_HoldsSignatureFlagsAndHandle)
{
    World world({{.name = "a"}});
    world.Run(Request(KestMethodOptions, "/Ferro/a").Session(3));
    struct Data {
        UINT32 signature;
        UINT32 flags;
        SCHANDLE session;
    };
    const auto* data = static_cast<const Data*>(world.attributes.Data(3));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->signature, 0x03052002U);
    EXPECT_EQ(data->flags, 0U);
    EXPECT_EQ(data->session.hTypeId, harness::SessionHandle(3).hTypeId);
    EXPECT_EQ(data->session.hId, harness::SessionHandle(3).hId);
}

TEST(Session, Ending_EndsItAtEveryProvider)
{
    World world({{.name = "a", .generations = 1}, {.name = "b"}});
    world.Run(Request(KestMethodOptions, "/Ferro/a").Session(4));
    world.recorder.Clear();
    world.attributes.EndSession(4);
    EXPECT_THAT(world.Calls(), ElementsAre("sa.SAReference(1)", "sa.SADelete(1)",
                                           "a.EndSession(session=4)", "b.EndSession(session=4)"));
    EXPECT_FALSE(world.attributes.Data(4));
    world.ExpectAtRest();
}

TEST(Session, EndingWithoutItsAttribute_StillEndsItAtEveryProvider)
{
    World world({{.name = "a"}});
    world.Run(Request(KestMethodOptions, "/Ferro/a").Session(4));
    world.recorder.Clear();
    world.Fail("sa.SAReference", kInjected);
    world.attributes.EndSession(4);
    EXPECT_THAT(world.Calls(), ElementsAre("sa.SAReference(1)", "a.EndSession(session=4)"));
}

TEST(Session, ManyThreads_BeginEachSessionOnce)
{
    World world({{.name = "a"}, {.name = "b", .generations = 1}});
    world["a"].AddFile("/a/f", "content");
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                const int session = (t * 20 + i) % 16;
                EXPECT_EQ(world.Run(Request(KestMethodGet, "/Ferro/a/f").Session(session)).body,
                          "content");
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(world.recorder.Count("a.BeginSession"), 16);
    EXPECT_EQ(world.recorder.Count("b.BeginSession"), 16);
    world.ExpectAtRest();
}

} // namespace
