// SPDX-License-Identifier: Apache-2.0
//
// Settings: the transfer block and the moniker, and their changes while the module runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::Reply;
using harness::Request;
using harness::Setup;
using harness::World;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

// The size of the reads that PUT makes.
std::string BlockSize(World& world)
{
    world["gen2"].AddFile("/gen2/a");
    world.Run(Request(KestMethodPut, "/Ferro/gen2/a"));
    const auto reads = world.Calls({"io.ReadClientPayload"});
    return reads.empty() ? "none" : reads.front();
}

struct BlockSizeRow {
    const char* name;
    const char* line;
    const char* read;
};

class BlockSizeSetting : public testing::TestWithParam<BlockSizeRow> {};

TEST_P(BlockSizeSetting, DecidesHowMuchIsReadAtOnce)
{
    World world({{.name = "gen2"}}, {.moduleValues = GetParam().line});
    EXPECT_EQ(BlockSize(world), GetParam().read);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, BlockSizeSetting,
    testing::Values(
        BlockSizeRow{"Missing", "", "io.ReadClientPayload(262144)"},
        BlockSizeRow{"BelowTheLeast", "'Read-Write Block Size' = 1023",
                     "io.ReadClientPayload(262144)"},
        BlockSizeRow{"Least", "'Read-Write Block Size' = 1024", "io.ReadClientPayload(1024)"},
        BlockSizeRow{"Most", "'Read-Write Block Size' = 524288", "io.ReadClientPayload(524288)"},
        BlockSizeRow{"AboveTheMost", "'Read-Write Block Size' = 524289",
                     "io.ReadClientPayload(262144)"},
        BlockSizeRow{"Zero", "'Read-Write Block Size' = 0", "io.ReadClientPayload(262144)"}),
    [](const auto& row) { return row.param.name; });

TEST(BlockSizeSetting, WithoutMemoryToReadIt_IsTheDefault)
{
    World world({{.name = "gen2"}},
                {.moduleValues = "'Read-Write Block Size' = 2048", .start = false});
    world.Fail("platform.TalxAllocPagedMemory", kInjected);
    world.Start();
    EXPECT_EQ(BlockSize(world), "io.ReadClientPayload(262144)");
}

TEST(BlockSizeSetting, WithoutTheKey_IsTheDefault)
{
    World world({{.name = "gen2"}},
                {.moduleValues = "'Read-Write Block Size' = 2048", .start = false});
    world.Fail("platform.TalxOpenKey", kInjected);
    world.Start();
    EXPECT_EQ(BlockSize(world), "io.ReadClientPayload(262144)");
    EXPECT_EQ(world.platform.OpenKeys(), 0);
}

TEST(Moniker, Unset_IsFerro)
{
    World world;
    EXPECT_EQ(world.location, "/Ferro");
}

TEST(Moniker, Stored_IsUsedAsItStands)
{
    World world({{.name = "gen2"}}, {.moniker = "/Dokumente öffentlich"});
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_EQ(world.location, "/Dokumente öffentlich");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Dokumente öffentlich/gen2/a")).text.substr(0, 3),
              "200");
}

class MonikerFailure : public testing::TestWithParam<std::pair<const char*, int>> {};

TEST_P(MonikerFailure, FallsBackToTheDefault)
{
    World world({}, {.moniker = "/Elsewhere", .start = false});
    // The first opening, allocation and query are the block size's.
    world.Fail(GetParam().first, kInjected, GetParam().second);
    world.Start();
    EXPECT_EQ(world.location, "/Ferro");
    EXPECT_EQ(world.platform.OpenKeys(), 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, MonikerFailure,
                         testing::Values(std::pair("platform.TalxOpenKey", 2),
                                         std::pair("platform.TalxAllocPagedMemory", 2),
                                         std::pair("platform.TalxQueryValueKey", 2),
                                         std::pair("platform.TalxWideCharToMultiByte", 1)),
                         [](const auto& row) {
                             return std::string(row.param.first).substr(sizeof "platform.Talx" - 1);
                         });

TEST(Moniker, LongerThanItsBuffer_FallsBackToTheDefault)
{
    World world({}, {.moniker = "/" + std::string(260, 'm')});
    EXPECT_EQ(world.location, "/Ferro");
}

TEST(Moniker, WhoseEightBitFormDoesNotFit_FallsBackInBothForms)
{
    std::string moniker = "/";
    for (int i = 0; i < 100; ++i)
        moniker += "€";
    World world({}, {.moniker = moniker});
    EXPECT_EQ(world.location, "/Ferro");
}

TEST(Moniker, OfTheGreatestLength_Fits)
{
    const std::string moniker = "/" + std::string(248, 'm');
    World world({{.name = "gen2"}}, {.moniker = moniker});
    EXPECT_EQ(world.location, moniker);
    EXPECT_EQ(world.Run(Request(KestMethodHead, moniker + "/gen2")).text.substr(0, 3), "200");
}

TEST(ConfigurationChange, ChangesTheMonikerButNotTheReportedLocation)
{
    World world({{.name = "gen2"}}, {.moniker = "/One"});
    world["gen2"].AddFile("/gen2/a", "x");
    world.ChangeRegistry({.moniker = "/Three"});
    EXPECT_EQ(world.event.Publish(kEventConfigurationChanged), TAL_STATUS_SUCCESS);
    EXPECT_EQ(world.location, "/One");
    world.Run(Request(KestMethodHead, "/Three/gen2/a"));
    EXPECT_THAT(world.Calls({"gen2.GetType"}), Contains("gen2.GetType(/gen2/a)"));
}

TEST(ConfigurationChange, OfAnotherType_IsIgnored)
{
    World world({{.name = "gen2"}}, {.moniker = "/One"});
    world.ChangeRegistry({.moniker = "/Three"});
    EXPECT_EQ(world.event.Publish(2), TAL_STATUS_SUCCESS);
    world.Run(Request(KestMethodHead, "/One/gen2"));
    EXPECT_THAT(world.Calls({"gen2.GetType"}), Contains("gen2.GetType(/gen2)"));
}

TEST(ConfigurationChange, LeavesTheBlockSize)
{
    World world({{.name = "gen2"}}, {.moduleValues = "'Read-Write Block Size' = 2048"});
    world.ChangeRegistry({.moduleValues = "'Read-Write Block Size' = 4096"});
    world.event.Publish(kEventConfigurationChanged);
    EXPECT_EQ(BlockSize(world), "io.ReadClientPayload(2048)");
}

TEST(ConfigurationChange, AfterTheDefault_StillTakesALongMoniker)
{
    World world({{.name = "gen2"}});
    const std::string moniker = "/" + std::string(240, 'n');
    world.ChangeRegistry({.moniker = moniker});
    world.event.Publish(kEventConfigurationChanged);
    EXPECT_EQ(world.Run(Request(KestMethodHead, moniker + "/gen2")).text.substr(0, 3), "200");
    world.ChangeRegistry({});
    world.event.Publish(kEventConfigurationChanged);
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2")).text.substr(0, 3), "200");
    world.ExpectAtRest();
}

// The host goes on routing under the location that it learnt at the start.
TEST(ConfigurationChange, ToAMonikerLongerThanThePath_KeepsWithinThePath)
{
    World world({{.name = "gen2"}});
    world.ChangeRegistry({.moniker = "/" + std::string(200, 'n')});
    world.event.Publish(kEventConfigurationChanged);
    for (const UINT32 method : {KestMethodGet, KestMethodHead, KestMethodPut, KestMethodDelete,
                                KestMethodMkCol, KestMethodCopy, KestMethodMove}) {
        SCOPED_TRACE(method);
        world.recorder.Clear();
        const Reply reply = world.Run(Request(method, "/Ferro/a").To("/Ferro/b"));
        EXPECT_EQ(reply.heads, 1);
        EXPECT_THAT(world.Calls({"gen2.GetType"}), ElementsAre("gen2.GetType()"));
    }
    world.ExpectAtRest();
}

} // namespace
