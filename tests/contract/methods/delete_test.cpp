// SPDX-License-Identifier: Apache-2.0
//
// DELETE of resources and trees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char kDeleted[] = "200\nContent-Length: 0\n\n";

class Delete : public testing::Test {
  protected:
    void SetUp() override
    {
        for (const char* name : {"gen2", "gen1", "tree2", "tree1"})
            world.Remember(std::string("/Ferro/") + name);
    }
    Reply Run(const std::string& path)
    {
        return world.Run(
            Request(KestMethodDelete, "/Ferro" + path).Header("If", "(<opaquelocktoken:abc>)"));
    }
    World world{{{.name = "gen2"},
                 {.name = "gen1", .generations = 1},
                 {.name = "tree2", .caps = kCapsDeletesTrees},
                 {.name = "tree1", .generations = 1, .caps = kCapsDeletesTrees}}};
};

TEST_F(Delete, OfAResource_IsOneCallWithTheToken)
{
    world["gen2"].AddFile("/gen2/f");
    const Reply reply = Run("/gen2/f");
    EXPECT_EQ(reply.text, kDeleted);
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls({"gen2."}),
                ElementsAre("gen2.GetType(/gen2/f)", "gen2.Delete(/gen2/f, token=abc)"));
    EXPECT_FALSE(world["gen2"].Has("/gen2/f"));
    world.ExpectAtRest();
}

TEST_F(Delete, WithoutAToken_PassesNone)
{
    world["gen2"].AddFile("/gen2/f");
    world.Run(Request(KestMethodDelete, "/Ferro/gen2/f"));
    EXPECT_THAT(world.Calls({"gen2.Delete"}), ElementsAre("gen2.Delete(/gen2/f, token=null)"));
    world["gen2"].AddFile("/gen2/f");
    world.recorder.Clear();
    world.Run(Request(KestMethodDelete, "/Ferro/gen2/f").Header("If", "(<opaquelocktoken:>)"));
    EXPECT_THAT(world.Calls({"gen2.Delete"}), ElementsAre("gen2.Delete(/gen2/f, token=null)"));
}

TEST_F(Delete, OnTheFirstGeneration_ReadsNoToken)
{
    world["gen1"].AddFile("/gen1/f");
    EXPECT_EQ(Run("/gen1/f").text, kDeleted);
    EXPECT_THAT(world.Calls({"gen1.", "io.GetRequestHeader"}),
                ElementsAre("gen1.GetType(/gen1/f)", "gen1.Delete(/gen1/f)"));
}

TEST_F(Delete, OfATreeThatTheProviderDeletes_IsOneCallWithTheToken)
{
    world["tree2"].AddFile("/tree2/c/d/f");
    EXPECT_EQ(Run("/tree2/c").text, kDeleted);
    EXPECT_THAT(world.Calls({"tree2."}),
                ElementsAre("tree2.GetType(/tree2/c)", "tree2.Delete(/tree2/c, token=abc)"));
    world["tree1"].AddFile("/tree1/c/d/f");
    EXPECT_EQ(Run("/tree1/c").text, kDeleted);
    EXPECT_THAT(world.Calls({"tree1."}),
                ElementsAre("tree1.GetType(/tree1/c)", "tree1.Delete(/tree1/c)"));
    EXPECT_THAT(world["tree1"].Paths(), ElementsAre("/tree1/"));
}

TEST_F(Delete, OfAnEmptyCollection_DeletesIt)
{
    world["gen2"].AddCollection("/gen2/c");
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
    EXPECT_THAT(world.Calls({"gen2.", "io.GetRequestHeader"}),
                ElementsAre("gen2.GetType(/gen2/c)", "gen2.Create(IKestDAVCollection2)",
                            "gen2.col.Associate(/gen2/c, token=null)",
                            "gen2.col.GetLiveAttributes()", "gen2.col.GetFirstChild(5184)",
                            "gen2.Delete(/gen2/c, token=null)"));
    world.ExpectAtRest();
}

TEST_F(Delete, OfATree_GoesChildrenFirstInTheProvidersOrder)
{
    auto& gen2 = world["gen2"];
    gen2.AddFile("/gen2/c/z");
    gen2.AddFile("/gen2/c/m/inner");
    gen2.AddCollection("/gen2/c/m/empty");
    gen2.AddFile("/gen2/c/a");
    gen2.AddFile("/gen2/other");
    gen2.SetOrder("/gen2/c", {"z", "m", "a"});
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
    EXPECT_THAT(
        world.Calls({"gen2.Delete", "gen2.col.Associate", "gen2.col.GetNext"}),
        ElementsAre("gen2.col.Associate(/gen2/c, token=null)", "gen2.Delete(/gen2/c/z, token=null)",
                    "gen2.col.GetNextChild(5184)", "gen2.col.Associate(/gen2/c/m, token=null)",
                    "gen2.col.Associate(/gen2/c/m/empty, token=null)",
                    "gen2.Delete(/gen2/c/m/empty, token=null)", "gen2.col.GetNextChild(5184)",
                    "gen2.Delete(/gen2/c/m/inner, token=null)", "gen2.col.GetNextChild(5184)",
                    "gen2.Delete(/gen2/c/m, token=null)", "gen2.col.GetNextChild(5184)",
                    "gen2.Delete(/gen2/c/a, token=null)", "gen2.col.GetNextChild(5184)",
                    "gen2.Delete(/gen2/c, token=null)"));
    EXPECT_THAT(gen2.Paths(), ElementsAre("/gen2/", "/gen2/other"));
    world.ExpectAtRest();
}

TEST_F(Delete, OfATreeOnTheFirstGeneration_WalksItsInterfaces)
{
    world["gen1"].AddFile("/gen1/c/f").attributes = kAttributeReadOnly | kAttributeHidden;
    EXPECT_EQ(Run("/gen1/c").text, kDeleted);
    EXPECT_THAT(world.Calls({"gen1."}),
                ElementsAre("gen1.GetType(/gen1/c)", "gen1.Create(IKestDAVCollection)",
                            "gen1.col.Associate(/gen1/c)", "gen1.col.GetLiveAttributes()",
                            "gen1.col.GetFirstChild(5184)", "gen1.Create(IKestDAVResource)",
                            "gen1.res.Associate(/gen1/c/f, create=0, access=2, share=1, flags=0)",
                            "gen1.res.SetLiveAttributes(2)", "gen1.Delete(/gen1/c/f)",
                            "gen1.col.GetNextChild(5184)", "gen1.Delete(/gen1/c)"));
}

TEST_F(Delete, ReadOnlyMembersAndCollections_AreMadeWritableFirst)
{
    auto& gen2 = world["gen2"];
    gen2.AddFile("/gen2/c/d/f").attributes = kAttributeReadOnly;
    gen2.Find("/gen2/c/d")->attributes = kAttributeReadOnly | kAttributeHidden;
    gen2.Find("/gen2/c")->attributes = kAttributeReadOnly;
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
    EXPECT_THAT(
        world.Calls({"gen2.res.", "gen2.col.SetLive", "gen2.Delete"}),
        ElementsAre(
            "gen2.res.Associate(/gen2/c/d/f, create=0, access=2, share=1, flags=0, token=null)",
            "gen2.res.SetLiveAttributes(0)", "gen2.Delete(/gen2/c/d/f, token=null)",
            "gen2.col.SetLiveAttributes(2)", "gen2.Delete(/gen2/c/d, token=null)",
            "gen2.col.SetLiveAttributes(0)", "gen2.Delete(/gen2/c, token=null)"));
    world.ExpectAtRest();
}

TEST_F(Delete, ReadOnlyBitThatStays_DoesNotStopTheAttempt)
{
    for (const char* call : {"gen2.Create", "gen2.res.Associate", "gen2.res.SetLiveAttributes"}) {
        SCOPED_TRACE(call);
        world["gen2"].AddFile("/gen2/c/f").attributes = kAttributeReadOnly;
        world.recorder.Clear();
        // The first object that the walk creates is the collection.
        world.Fail(call, kInjected, std::string(call) == "gen2.Create" ? 2 : 1);
        EXPECT_EQ(Run("/gen2/c").text, "403\nContent-Length: 0\n\n");
        EXPECT_THAT(world.Calls({"gen2.Delete"}),
                    ElementsAre("gen2.Delete(/gen2/c/f, token=null)"));
        world.ExpectAtRest();
    }
}

TEST_F(Delete, AttributesThatCannotBeRead_DoNotStopTheAttempt)
{
    world["gen2"].AddFile("/gen2/c/f");
    world.Fail("gen2.col.GetLiveAttributes", kInjected);
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
    EXPECT_FALSE(world["gen2"].Has("/gen2/c"));
    EXPECT_EQ(world.recorder.Count("gen2.col.SetLiveAttributes"), 0);
}

TEST_F(Delete, IgnoresTheDepth)
{
    world["gen2"].AddFile("/gen2/c/f");
    EXPECT_EQ(world.Run(Request(KestMethodDelete, "/Ferro/gen2/c").Header("Depth", "0")).text,
              kDeleted);
    EXPECT_FALSE(world["gen2"].Has("/gen2/c"));
    EXPECT_EQ(world.recorder.Count("io.GetRequestHeader"), 0);
}

TEST_F(Delete, WhatIsMissing_Is404)
{
    EXPECT_EQ(Run("/gen2/none").text, "404\nContent-Length: 0\n\n");
    EXPECT_EQ(Run("/none").text, "404\nContent-Length: 0\n\n");
    world.ExpectAtRest();
}

struct DeleteFailureRow {
    const char* name;
    UINT16 code;
    const char* reply;
};

class DeleteFailure : public Delete, public testing::WithParamInterface<DeleteFailureRow> {};

TEST_P(DeleteFailure, OfTheProvider_IsMapped)
{
    world["gen2"].AddFile("/gen2/f");
    world.Fail("gen2.Delete", ProviderFailure(GetParam().code));
    const Reply reply = Run("/gen2/f");
    EXPECT_EQ(reply.text, std::string(GetParam().reply) + "\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, ProviderFailure(GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(Codes, DeleteFailure,
                         testing::Values(DeleteFailureRow{"NotFound", kCodeNotFound, "404"},
                                         DeleteFailureRow{"Locked", kCodeLocked, "423"},
                                         DeleteFailureRow{"TooLong", kCodeNameTooLong, "414"},
                                         DeleteFailureRow{"Denied", kCodeAccessDenied, "403"},
                                         DeleteFailureRow{"Unknown", 0x29, "417"}),
                         [](const auto& row) { return row.param.name; });

// A tree with two files around a collection; what each failing call leaves.
struct WalkRow {
    const char* name;
    const char* call;
    int nth;
    std::vector<std::string> left;
};

class DeleteWalk : public Delete, public testing::WithParamInterface<WalkRow> {};

TEST_P(DeleteWalk, StopsAtTheFirstFailure)
{
    for (const std::string generation : {"gen2", "gen1"}) {
        SCOPED_TRACE(generation);
        auto& provider = world[generation];
        const std::string top = "/" + generation + "/c";
        provider.AddFile(top + "/a");
        provider.AddFile(top + "/b/x");
        provider.AddFile(top + "/d");
        world.Fail(generation + GetParam().call, ProviderFailure(kCodeLocked), GetParam().nth);
        const Reply reply = Run(top);
        EXPECT_EQ(reply.text, "423\nContent-Length: 0\n\n");
        std::vector<std::string> left;
        for (const std::string& path : provider.Paths())
            if (path.size() > top.size())
                left.push_back(path.substr(top.size()));
        EXPECT_EQ(left, GetParam().left);
        world.ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, DeleteWalk,
    testing::Values(WalkRow{"CreateOfTheTop", ".Create", 1, {"/", "/a", "/b/", "/b/x", "/d"}},
                    WalkRow{"OpeningTheTop", ".col.Associate", 1, {"/", "/a", "/b/", "/b/x", "/d"}},
                    WalkRow{
                        "FirstChild", ".col.GetFirstChild", 1, {"/", "/a", "/b/", "/b/x", "/d"}},
                    WalkRow{"FirstFile", ".Delete", 1, {"/", "/a", "/b/", "/b/x", "/d"}},
                    WalkRow{"NextChild", ".col.GetNextChild", 1, {"/", "/b/", "/b/x", "/d"}},
                    WalkRow{"OpeningTheInner", ".col.Associate", 2, {"/", "/b/", "/b/x", "/d"}},
                    WalkRow{"InnerFile", ".Delete", 2, {"/", "/b/", "/b/x", "/d"}},
                    WalkRow{"Inner", ".Delete", 3, {"/", "/b/", "/d"}},
                    WalkRow{"LastFile", ".Delete", 4, {"/", "/d"}},
                    WalkRow{"Top", ".Delete", 5, {"/"}}),
    [](const auto& row) { return row.param.name; });

TEST_F(Delete, WithoutMemoryForTheWalk_DeletesNothing)
{
    world["gen2"].AddFile("/gen2/c/f");
    // One buffer holds the path, the other the children; the first paged one is the request's.
    world.Fail("platform.TalxAllocNonPagedMemory", kInjected);
    EXPECT_EQ(Run("/gen2/c").text, "507\nContent-Length: 0\n\n");
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 2);
    EXPECT_EQ(Run("/gen2/c").text, "507\nContent-Length: 0\n\n");
    EXPECT_TRUE(world["gen2"].Has("/gen2/c/f"));
    EXPECT_EQ(world.recorder.Count("gen2.Delete"), 0);
    world.ExpectAtRest();
}

// -- Lengths. Names count in bytes of UTF-16.

TEST_F(Delete, NameOf512Units_IsDeleted)
{
    world["gen2"].AddFile("/gen2/c/" + std::string(512, 'n'));
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
}

TEST_F(Delete, NameOf513Units_StopsTheWalkWith414)
{
    world["gen2"].AddFile("/gen2/c/a");
    world["gen2"].AddFile("/gen2/c/" + std::string(513, 'n'));
    world["gen2"].AddFile("/gen2/c/z");
    const Reply reply = Run("/gen2/c");
    EXPECT_EQ(reply.text, "414\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NAME_TOO_LONG);
    EXPECT_FALSE(world["gen2"].Has("/gen2/c/a")) << "what went before stays deleted";
    EXPECT_TRUE(world["gen2"].Has("/gen2/c/z"));
    world.ExpectAtRest();
}

// Lengths that a provider tells and no name has.
TEST_F(Delete, NameOf1025BytesAndMore_StopsTheWalkWith414)
{
    for (const UINT32 bytes : {1025U, 4096U, 5184U, 0xFFFFFF00U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(bytes);
        world["gen2"].AddFile("/gen2/c/f").nameBytesShown = bytes;
        EXPECT_EQ(Run("/gen2/c").text, "414\nContent-Length: 0\n\n");
        EXPECT_TRUE(world["gen2"].Has("/gen2/c/f"));
        EXPECT_EQ(world.recorder.Count("gen2.Delete"), 0);
        world.ExpectAtRest();
    }
}

TEST_F(Delete, PathAtItsLimit_IsDeleted)
{
    const std::string collection = harness::PathOfUnits(2000, "/gen2");
    world["gen2"].AddFile(collection + "/" + std::string(48, 'n')); // 2,000 + 48 units are 4,096
    EXPECT_EQ(Run(collection).text, kDeleted);
    EXPECT_FALSE(world["gen2"].Has(collection));
    world.ExpectAtRest();
}

TEST_F(Delete, PathBeyondItsLimit_StopsTheWalkWith414)
{
    const std::string collection = harness::PathOfUnits(2000, "/gen2");
    world["gen2"].AddFile(collection + "/" + std::string(49, 'n'));
    EXPECT_EQ(Run(collection).text, "414\nContent-Length: 0\n\n");
    EXPECT_TRUE(world["gen2"].Has(collection));
    world.ExpectAtRest();
}

TEST_F(Delete, EmptyCollectionWhosePathFillsTheBuffer_IsDeleted)
{
    const std::string collection = harness::PathOfUnits(2048, "/gen2");
    world["gen2"].AddCollection(collection);
    EXPECT_EQ(Run(collection).text, kDeleted);
    world.ExpectAtRest();
}

// Cut to the buffer, the path would name another collection.
TEST_F(Delete, CollectionWhosePathDoesNotFit_IsRefused)
{
    const std::string shorter = harness::PathOfUnits(2048, "/gen2");
    world["gen2"].AddFile(shorter + "x/precious");
    world["gen2"].AddCollection(shorter);
    EXPECT_EQ(Run(shorter + "x").text, "414\nContent-Length: 0\n\n");
    EXPECT_TRUE(world["gen2"].Has(shorter));
    EXPECT_TRUE(world["gen2"].Has(shorter + "x/precious"));
    world.ExpectAtRest();
}

TEST_F(Delete, DeepTree_IsDeleted)
{
    std::string path = "/gen2/c";
    for (int i = 0; i < 400; ++i)
        path += "/d";
    world["gen2"].AddFile(path + "/f");
    EXPECT_EQ(Run("/gen2/c").text, kDeleted);
    EXPECT_THAT(world["gen2"].Paths(), ElementsAre("/gen2/"));
    world.ExpectAtRest();
}

} // namespace
