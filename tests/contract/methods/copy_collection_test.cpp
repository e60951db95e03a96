// SPDX-License-Identifier: Apache-2.0
//
// COPY of trees, between providers of both generations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "copy.h"
#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using testing::ElementsAre;
using namespace copy_tests;

namespace {

class CopyCollection : public Copy {
  protected:
    void SetUp() override
    {
        Copy::SetUp();
        auto& gen2 = world["gen2"];
        gen2.AddFile("/gen2/c/f", "file");
        gen2.AddFile("/gen2/c/d/g", "deep");
        gen2.AddCollection("/gen2/c/e");
        harness::Node* top = gen2.Find("/gen2/c");
        top->attributes = kAttributeHidden;
        top->created = 1000;
        top->modified = 2000;
    }
};

TEST_F(CopyCollection, ToANewPlace_CopiesTheTree)
{
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(200));
    EXPECT_THAT(world["gen1"].Paths(), ElementsAre("/gen1/", "/gen1/n/", "/gen1/n/d/",
                                                   "/gen1/n/d/g", "/gen1/n/e/", "/gen1/n/f"));
    EXPECT_EQ(world["gen1"].Content("/gen1/n/d/g"), "deep");
    const auto calls = world.Calls({"gen1.", "gen2."});
    const std::vector<std::string> first(calls.begin(), calls.begin() + 14);
    EXPECT_THAT(first,
                ElementsAre("gen2.GetType(/gen2/c)", "gen1.MkCol(/gen1/n)",
                            "gen2.Create(IKestDAVCollection2)",
                            "gen2.col.Associate(/gen2/c, token=null)",
                            "gen1.Create(IKestDAVCollection)", "gen1.col.Associate(/gen1/n)",
                            "gen2.col.GetLiveAttributes()", "gen2.col.GetCreationDate()",
                            "gen2.col.GetModificationDate()", "gen1.col.SetLiveAttributes(2)",
                            "gen1.col.SetModificationDate(2000)", "gen1.col.SetCreationDate(1000)",
                            "gen2.col.GetFirstChild(2176)", "gen1.MkCol(/gen1/n/d)"));
    EXPECT_TRUE(world["gen2"].Has("/gen2/c/d/g"));
    world.ExpectAtRest();
}

TEST_F(CopyCollection, FromTheFirstToTheSecondGeneration_CopiesTheTree)
{
    world["gen1"].AddFile("/gen1/c/d/f", "x");
    EXPECT_EQ(Run("/gen1/c", "/gen2/n", kKeep).text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/d/f"), "x");
    EXPECT_THAT(world.Calls({"gen2.MkCol", "gen2.col.Associate", "gen1.col.Associate"}),
                ElementsAre("gen2.MkCol(/gen2/n, token=null)", "gen1.col.Associate(/gen1/c)",
                            "gen2.col.Associate(/gen2/n, token=null)",
                            "gen2.MkCol(/gen2/n/d, token=null)", "gen1.col.Associate(/gen1/c/d)",
                            "gen2.col.Associate(/gen2/n/d, token=null)"));
    world.ExpectAtRest();
}

TEST_F(CopyCollection, IgnoresTheDepth)
{
    world.Run(Request(KestMethodCopy, "/Ferro/gen2/c").To(Url("/gen1/n"), kKeep, 0));
    EXPECT_TRUE(world["gen1"].Has("/gen1/n/d/g"));
}

TEST_F(CopyCollection, WithOverwriteToANewPlace_Answers409)
{
    const Reply reply = Run("/gen2/c", "/gen1/n", kOverwrite);
    EXPECT_EQ(reply.text, Answer(409));
    EXPECT_EQ(reply.returned, TAL_STATUS_CONFLICT);
    EXPECT_THAT(world["gen1"].Paths(), ElementsAre("/gen1/", "/gen1/n/"));
    world.ExpectAtRest();
}

TEST_F(CopyCollection, WithOverwriteWhereMkColFailsOtherwise_Answers409)
{
    world.Fail("gen1.MkCol", ProviderFailure(kCodeStorageFull));
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kOverwrite).text, Answer(409));
}

TEST_F(CopyCollection, WithOverwriteOntoACollection_MergesAndReportsThatItExisted)
{
    auto& gen1 = world["gen1"];
    gen1.AddFile("/gen1/n/f", "old");
    gen1.AddFile("/gen1/n/own", "kept");
    gen1.AddCollection("/gen1/n/d");
    const Reply reply = Run("/gen2/c", "/gen1/n", kOverwrite);
    EXPECT_EQ(Code(reply.returned), kCodeObjectExists);
    EXPECT_EQ(reply.text, Answer(412));
    EXPECT_EQ(gen1.Content("/gen1/n/f"), "file");
    EXPECT_EQ(gen1.Content("/gen1/n/own"), "kept");
    EXPECT_EQ(gen1.Content("/gen1/n/d/g"), "deep");
    EXPECT_EQ(world.recorder.Count("gen1.col.SetLiveAttributes"), 0)
        << "an existing collection keeps its own";
    world.ExpectAtRest();
}

TEST_F(CopyCollection, WithoutOverwriteOntoACollection_Answers412)
{
    world["gen1"].AddFile("/gen1/n/f", "old");
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(412));
    EXPECT_EQ(world["gen1"].Content("/gen1/n/f"), "old");
    EXPECT_EQ(world.recorder.Count("gen2.col.Associate"), 0);
}

TEST_F(CopyCollection, ChildThatFails_IsLeftOutAndNotReported)
{
    world.Fail("gen2.res.Read", ProviderFailure(kCodeUnsuccessful), 1); // of d/g
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(200));
    EXPECT_THAT(world["gen1"].Paths(),
                ElementsAre("/gen1/", "/gen1/n/", "/gen1/n/d/", "/gen1/n/e/", "/gen1/n/f"));
    world.ExpectAtRest();
}

TEST_F(CopyCollection, ListingThatBreaks_EndsTheWalkAsASuccess)
{
    world.Fail("gen2.col.GetNextChild", ProviderFailure(kCodeUnsuccessful), 2);
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(200));
    EXPECT_FALSE(world["gen1"].Has("/gen1/n/f"));
}

struct OpenRow {
    const char* name;
    const char* call;
};
class CopyCollectionFailure : public CopyCollection, public testing::WithParamInterface<OpenRow> {};

TEST_P(CopyCollectionFailure, IsMapped)
{
    world.Fail(GetParam().call, ProviderFailure(kCodeLocked));
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(423));
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Calls, CopyCollectionFailure,
                         testing::Values(OpenRow{"MkCol", "gen1.MkCol"},
                                         OpenRow{"CreateSource", "gen2.Create"},
                                         OpenRow{"OpenSource", "gen2.col.Associate"},
                                         OpenRow{"CreateDestination", "gen1.Create"},
                                         OpenRow{"OpenDestination", "gen1.col.Associate"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(CopyCollection, WithoutMemoryForTheListing_Answers507)
{
    world.Fail("platform.TalxAllocPagedMemory", kInjected, 4);
    EXPECT_EQ(Run("/gen2/c", "/gen1/n", kKeep).text, Answer(507));
    EXPECT_FALSE(world["gen1"].Has("/gen1/n"));
    world.ExpectAtRest();
}

} // namespace
