// SPDX-License-Identifier: Apache-2.0
//
// From a request path to the provider that serves it, and the memory of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string Head(World& world, const std::string& path, int session = 1)
{
    return world.Run(Request(KestMethodHead, path).Session(session)).text.substr(0, 3);
}

TEST(Resolution, FirstRequestUnderARoot_AsksProvidersInListOrder)
{
    World world({{.name = "one"}, {.name = "two"}, {.name = "three"}});
    world["two"].AddFile("/two/d/f", "x");
    EXPECT_EQ(Head(world, "/Ferro/two/d/f"), "200");
    EXPECT_THAT(world.Calls({"om.", "one.Get", "two.GetType", "three.Get"}),
                ElementsAre("om.FindObject(/two, 0, 2)", "one.GetType(/two/d/f)",
                            "two.GetType(/two/d/f)", "om.CreateObject(/two, 0, 1, 1)",
                            "om.DereferenceObject(1)", "two.GetType(/two/d/f)"));
    world.ExpectAtRest();
}

TEST(Resolution, LaterRequestUnderARoot_GoesStraightToItsProvider)
{
    // Both know /shared: the first one would win if it were asked again.
    World world({{.name = "early"}, {.name = "late"}});
    world["late"].AddFile("/late/a", "x");
    world["late"].AddFile("/late/b", "x");
    EXPECT_EQ(Head(world, "/Ferro/late/a"), "200");
    world.recorder.Clear();
    EXPECT_EQ(Head(world, "/Ferro/late/b"), "200");
    EXPECT_THAT(world.Calls({"early.", "om."}),
                ElementsAre("om.FindObject(/late, 0, 2)", "om.DereferenceObject(2)"));
}

TEST(Resolution, RememberedRoot_IsNotAskedWhetherThePathExists)
{
    World world({{.name = "gen2"}});
    world.Remember("/Ferro/gen2");
    world["gen2"].Find("/gen2")->content = "";
    // PUT needs no type: no GetType at all.
    EXPECT_EQ(world.Run(Request(KestMethodPut, "/Ferro/gen2/new").Body({"x"})).text,
              "201\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"gen2.GetType"}), IsEmpty());
}

TEST(Resolution, AnotherSession_AsksForItself)
{
    World world({{.name = "gen2"}});
    world.Remember("/Ferro/gen2", 1);
    Head(world, "/Ferro/gen2", 2);
    EXPECT_EQ(world.recorder.Count("om.CreateObject"), 1);
}

TEST(Resolution, RootsThatDifferInCase_ShareOneEntry)
{
    World world({{.name = "gen2"}});
    world.Remember("/Ferro/gen2");
    Head(world, "/Ferro/GEN2/x");
    EXPECT_THAT(world.Calls({"om.", "gen2."}),
                ElementsAre("om.FindObject(/GEN2, 0, 2)", "om.DereferenceObject(2)",
                            "gen2.GetType(/GEN2/x)"))
        << "the entry is found, and only the type is asked for";
    EXPECT_EQ(world.objects.Objects(1), 1U);
}

TEST(Resolution, PathThatNobodyKnows_Is404)
{
    World world({{.name = "one"}, {.name = "two"}});
    EXPECT_EQ(world.Run(Request(KestMethodDelete, "/Ferro/none")).text,
              "404\nContent-Length: 0\n\n");
    EXPECT_EQ(world.recorder.Count("om.CreateObject"), 0);
    world.ExpectAtRest();
}

struct RootRow {
    const char* name;
    const char* path;
    const char* find;
};

class StoreRoot : public testing::TestWithParam<RootRow> {};

TEST_P(StoreRoot, IsThePathsFirstComponent)
{
    World world({{.name = "gen2"}});
    Head(world, GetParam().path);
    EXPECT_EQ(world.Calls({"om.FindObject"}).front(), GetParam().find);
}

using std::string_literals::operator""s;
INSTANTIATE_TEST_SUITE_P(
    Rows, StoreRoot,
    testing::Values(RootRow{"OneComponent", "/Ferro/vol", "om.FindObject(/vol, 0, 2)"},
                    RootRow{"Deep", "/Ferro/vol/dir/file", "om.FindObject(/vol, 0, 2)"},
                    RootRow{"DoubleSlash", "/Ferro//dir/file", "om.FindObject(/, 0, 2)"},
                    RootRow{"OnlyASlash", "/Ferro//", "om.FindObject(/, 0, 2)"}),
    [](const auto& row) { return row.param.name; });

TEST(StoreRootOfTheEmptyPath, HasOneUnit)
{
    World world({{.name = "gen2"}});
    world.Run(Request(KestMethodHead, "/Ferro"));
    EXPECT_EQ(world.Calls({"om.FindObject"}).front(), "om.FindObject(\0, 0, 2)"s);
}

TEST(StoreRootLongerThanTheEntry_IsCut, AndStillServesTheRequest)
{
    World world({{.name = "gen2", .servesNew = true}});
    const std::string path = "/Ferro/" + std::string(3000, 'v');
    EXPECT_EQ(Head(world, path), "404");
    EXPECT_EQ(Head(world, path), "404");
    world.ExpectAtRest();
}

TEST(Resolution, TypeWithAnInformationalCode_WinsButDoesNotResolve)
{
    World world({{.name = "one"}, {.name = "two"}});
    world.Fail("one.GetType", TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(world.Run(Request(KestMethodMkCol, "/Ferro/two/x")).text, "404\n\n");
    EXPECT_EQ(world.recorder.Count("two.GetType"), 0);
    EXPECT_EQ(world.recorder.Count("om.CreateObject"), 1) << "remembered all the same";
}

TEST(Resolution, TypeFailingAfterTheProviderIsFound_IsTheRequestsStatus)
{
    World world({{.name = "gen2"}});
    world.Remember("/Ferro/gen2");
    EXPECT_EQ(world.Run(Request(KestMethodDelete, "/Ferro/gen2/none")).text,
              "404\nContent-Length: 0\n\n");
    EXPECT_THAT(world.Calls({"gen2."}), ElementsAre("gen2.GetType(/gen2/none)"));
}

class WithoutStore : public testing::TestWithParam<const char*> {};

TEST_P(WithoutStore, EveryRequestAsksTheProviders)
{
    World world({{.name = "gen2"}}, {.start = false});
    world.Fail(GetParam(), kInjected);
    world.Start();
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_EQ(Head(world, "/Ferro/gen2/a"), "200");
    EXPECT_EQ(Head(world, "/Ferro/gen2/a"), "200");
    EXPECT_EQ(world.recorder.Count("gen2.GetType"), 4);
    EXPECT_THAT(world.Calls({"om."}), IsEmpty());
    EXPECT_EQ(world.objects.References(), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, WithoutStore,
                         testing::Values("create.ObjectManagerDataStore", "om.Initialize"),
                         [](const auto& row) {
                             return std::string(row.param).starts_with("om") ? "Initialize"
                                                                             : "Create";
                         });

TEST(Resolution, StoreThatInitializesWithACode_IsNotUsed)
{
    World world({{.name = "gen2"}}, {.start = false});
    world.Fail("om.Initialize", TAL_STATUS_INFO_END_OF_FILE);
    world.Start();
    EXPECT_EQ(Head(world, "/Ferro/gen2"), "200");
    EXPECT_THAT(world.Calls({"om."}), IsEmpty());
}

TEST(Resolution, StoreThatTakesNoEntry_DoesNotDisturbTheRequest)
{
    World world({{.name = "gen2"}});
    world.Fail("om.CreateObject", kInjected);
    EXPECT_EQ(Head(world, "/Ferro/gen2"), "200");
    world.ExpectAtRest();
}

} // namespace
