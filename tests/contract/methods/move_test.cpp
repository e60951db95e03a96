// SPDX-License-Identifier: Apache-2.0
//
// MOVE within a provider and between providers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr BOOLEAN kOverwrite = TRUE;
constexpr BOOLEAN kKeep = FALSE;

std::string Answer(int status)
{
    return std::to_string(status) + "\nContent-Length: \n\n";
}

class Move : public testing::Test {
  protected:
    void SetUp() override
    {
        for (const char* name : {"gen2", "gen1"}) {
            world.Remember(std::string("/Ferro/") + name);
            world[name].AddFile(std::string("/") + name + "/f", "content");
            world[name].AddFile(std::string("/") + name + "/c/d/g", "deep");
        }
    }
    Reply Run(const std::string& from, const std::string& to, BOOLEAN overwrite = kKeep)
    {
        return world.Run(Request(KestMethodMove, "/Ferro" + from).To("/Ferro" + to, overwrite));
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

TEST_F(Move, WithinAProvider_IsItsOwnMove)
{
    EXPECT_EQ(Run("/gen2/f", "/gen2/n").text, Answer(200));
    EXPECT_THAT(world.Calls({"gen2."}),
                ElementsAre("gen2.GetType(/gen2/f)",
                            "gen2.Move(/gen2/f, /gen2/n, keep, depth=-1, token=null)"));
    EXPECT_EQ(world["gen2"].Content("/gen2/n"), "content");
    EXPECT_FALSE(world["gen2"].Has("/gen2/f"));
    EXPECT_EQ(Run("/gen1/c", "/gen1/n", kOverwrite).text, Answer(200));
    EXPECT_THAT(
        world.Calls({"gen1."}),
        ElementsAre("gen1.GetType(/gen1/c)", "gen1.Move(/gen1/c, /gen1/n, overwrite, depth=-1)"));
    world.ExpectAtRest();
}

TEST_F(Move, Destination_IsTakenAsItStands)
{
    EXPECT_EQ(Run("/gen2/f", "/gen2/a%20b").text, Answer(200));
    EXPECT_TRUE(world["gen2"].Has("/gen2/a%20b")) << "no unescaping";
    world.Run(Request(KestMethodMove, "/Ferro/gen2/a%20b").To("/OtherX/gen2/q", kKeep));
    EXPECT_THAT(world.Calls({"om.FindObject"}).back(), HasSubstr("om.FindObject(X,"))
        << "cut by length only";
}

TEST_F(Move, IntoItself_IsNotTestedHere)
{
    Run("/gen2/c", "/gen2/cx");
    EXPECT_EQ(world.recorder.Count("gen2.Move"), 1);
}

TEST_F(Move, ThatTheProviderRefuses_IsMapped)
{
    world["gen2"].AddFile("/gen2/n", "old");
    EXPECT_EQ(Run("/gen2/f", "/gen2/n", kKeep).text, Answer(412));
    EXPECT_EQ(world["gen2"].Content("/gen2/n"), "old");
    world.Fail("gen2.Move", ProviderFailure(kCodeLocked));
    EXPECT_EQ(Run("/gen2/f", "/gen2/m").text, Answer(423));
    // "Exists" leaves a resource where it is, also with overwrite.
    world.Fail("gen2.Move", ProviderFailure(kCodeObjectExists));
    EXPECT_EQ(Run("/gen2/f", "/gen2/n", kOverwrite).text, Answer(412));
    EXPECT_EQ(world.recorder.Count("gen2.Create"), 0) << "nothing is copied";
}

TEST_F(Move, OfAResourceWhereMoveIsNotSupported_CopiesAndDeletes)
{
    world["gen2"].moveSupported = false;
    world["gen2"].Find("/gen2/f")->attributes = kAttributeReadOnly | kAttributeHidden;
    EXPECT_EQ(Run("/gen2/f", "/gen2/n").text, Answer(200));
    EXPECT_THAT(
        world.Calls({"gen2."}),
        ElementsAre("gen2.GetType(/gen2/f)",
                    "gen2.Move(/gen2/f, /gen2/n, keep, depth=-1, token=null)",
                    "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/f, create=0, access=3, share=1, flags=0, token=null)",
                    "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/n, create=0, access=6, share=0, flags=0, token=null)",
                    "gen2.res.Associate(/gen2/n, create=1, access=6, share=1, flags=0, token=null)",
                    "gen2.res.GetLiveAttributes()", "gen2.res.GetCreationDate()",
                    "gen2.res.GetModificationDate()", "gen2.res.GetResourceSize()",
                    "gen2.res.Read(0, 7)", "gen2.res.Write(0, 7)", "gen2.res.SetLiveAttributes(3)",
                    "gen2.res.SetModificationDate(134143344000000000)",
                    "gen2.res.SetCreationDate(134143344000000000)", "gen2.res.SetLiveAttributes(2)",
                    "gen2.Delete(/gen2/f, token=null)"));
    EXPECT_FALSE(world["gen2"].Has("/gen2/f"));
    EXPECT_EQ(world["gen2"].Find("/gen2/n")->attributes, kAttributeReadOnly | kAttributeHidden);
    world.ExpectAtRest();
}

TEST_F(Move, AnyStatusWithTheNotSupportedCode_IsDoneByCopying)
{
    for (const TALSTATUS status : {TALSTATUS{0xC7A3000D}, TALSTATUS{0x47A3000D}}) {
        world["gen2"].AddFile("/gen2/f", "content");
        world.Fail("gen2.Move", status);
        EXPECT_EQ(Run("/gen2/f", "/gen2/n", kOverwrite).text, Answer(200)) << status;
        EXPECT_EQ(world["gen2"].Content("/gen2/n"), "content") << status;
        EXPECT_FALSE(world["gen2"].Has("/gen2/f")) << status;
    }
}

TEST_F(Move, OfAResourceBetweenProviders_CarriesItAndDeletesTheSource)
{
    harness::Node* source = world["gen1"].Find("/gen1/f");
    source->attributes = kAttributeReadOnly;
    source->created = 1000;
    source->modified = 2000;
    EXPECT_EQ(Run("/gen1/f", "/gen2/n").text, Answer(200));
    EXPECT_EQ(world.recorder.Count("gen1.Move"), 0);
    EXPECT_THAT(world.Calls({"gen1.res.SetLiveAttributes", "gen1.Delete"}),
                ElementsAre("gen1.res.SetLiveAttributes(0)", "gen1.Delete(/gen1/f)"));
    const harness::Node* moved = world["gen2"].Find("/gen2/n");
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->content, "content");
    EXPECT_EQ(moved->attributes, kAttributeReadOnly);
    EXPECT_EQ(moved->created, 1000U);
    EXPECT_EQ(moved->modified, 2000U);
    EXPECT_FALSE(world["gen1"].Has("/gen1/f"));
    world.ExpectAtRest();
}

TEST_F(Move, WhoseSourceCannotBeDeleted_StillSucceeds)
{
    world.Fail("gen1.Delete", ProviderFailure(kCodeLocked));
    EXPECT_EQ(Run("/gen1/f", "/gen2/n").text, Answer(200));
    EXPECT_TRUE(world["gen1"].Has("/gen1/f"));
    EXPECT_TRUE(world["gen2"].Has("/gen2/n"));
}

TEST_F(Move, ThatBreaksOff_KeepsTheSource)
{
    for (const char* call : {"gen1.res.GetResourceSize", "gen1.res.Read", "gen2.res.Write",
                             "gen2.res.Associate", "gen2.Create"}) {
        SCOPED_TRACE(call);
        world.Fail(call, ProviderFailure(kCodeLocked));
        EXPECT_EQ(Run("/gen1/f", "/gen2/n", kOverwrite).text, Answer(423));
        EXPECT_EQ(world["gen1"].Content("/gen1/f"), "content");
        EXPECT_EQ(world.recorder.Count("gen1.Delete"), 0);
        world.ExpectAtRest();
    }
}

TEST_F(Move, OfACollectionWhereMoveIsNotSupported_CopiesAndDeletesTheTree)
{
    world["gen2"].moveSupported = false;
    EXPECT_EQ(Run("/gen2/c", "/gen2/n").text, Answer(200));
    EXPECT_THAT(world["gen2"].Paths(),
                ElementsAre("/gen2/", "/gen2/f", "/gen2/n/", "/gen2/n/d/", "/gen2/n/d/g"));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/d/g"), "deep");
    world.ExpectAtRest();
}

TEST_F(Move, OfACollectionBetweenProviders_CopiesAndDeletesTheTree)
{
    EXPECT_EQ(Run("/gen1/c", "/gen2/n").text, Answer(200));
    EXPECT_THAT(world["gen1"].Paths(), ElementsAre("/gen1/", "/gen1/f"));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/d/g"), "deep");
    EXPECT_EQ(Run("/gen2/c", "/gen1/n").text, Answer(200));
    EXPECT_EQ(world["gen1"].Content("/gen1/n/d/g"), "deep");
    EXPECT_FALSE(world["gen2"].Has("/gen2/c"));
    world.ExpectAtRest();
}

// Kept: the source tree goes also when children were left out.
TEST_F(Move, OfACollectionWhoseChildFails_StillDeletesTheSource)
{
    world.Fail("gen1.res.Read", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Run("/gen1/c", "/gen2/n").text, Answer(200));
    EXPECT_FALSE(world["gen2"].Has("/gen2/n/d/g"));
    EXPECT_THAT(world["gen1"].Paths(), ElementsAre("/gen1/", "/gen1/f"));
    world.ExpectAtRest();
}

TEST_F(Move, OfACollectionWhoseSourceCannotBeDeleted_StillSucceeds)
{
    // The child goes by itself right after its copy, d and the rest of c with the tree.
    world.Fail("gen1.Delete", ProviderFailure(kCodeLocked), 3);
    EXPECT_EQ(Run("/gen1/c", "/gen2/n").text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/d/g"), "deep");
    EXPECT_TRUE(world["gen1"].Has("/gen1/c"));
    world.ExpectAtRest();
}

TEST_F(Move, OfACollectionWithTooLongAPath_KeepsTheSource)
{
    std::string destination = "/gen2";
    for (int i = 0; i < 5; ++i)
        destination += "/" + std::string(399, 'q');
    world["gen2"].AddCollection(destination.substr(0, destination.rfind('/')));
    world["gen1"].AddFile("/gen1/t/" + std::string(90, 'n'), "kept");
    EXPECT_EQ(Run("/gen1/t", destination).text, Answer(414));
    EXPECT_TRUE(world["gen1"].Has("/gen1/t/" + std::string(90, 'n')));
    world.ExpectAtRest();
}

// Nothing is copied onto itself, and so nothing deleted.
TEST_F(Move, OntoItselfWhereMoveIsNotSupported_KeepsIt)
{
    world["gen2"].moveSupported = false;
    for (const BOOLEAN overwrite : {kKeep, kOverwrite}) {
        EXPECT_EQ(Run("/gen2/f", "/gen2/f", overwrite).text, Answer(200));
        EXPECT_EQ(world["gen2"].Content("/gen2/f"), "content");
        EXPECT_EQ(Run("/gen2/c", "/gen2/c", overwrite).text, Answer(412));
        EXPECT_EQ(world["gen2"].Content("/gen2/c/d/g"), "deep");
    }
    world.ExpectAtRest();
}

TEST_F(Move, OfACollectionWhoseDestinationExists_MergesWithOverwriteAndKeepsTheSource)
{
    world["gen2"].AddFile("/gen2/n/own", "kept");
    world.Fail("gen2.Move", ProviderFailure(kCodeObjectExists));
    const Reply reply = Run("/gen2/c", "/gen2/n", kOverwrite);
    EXPECT_EQ(reply.text, Answer(412));
    EXPECT_EQ(world["gen2"].Content("/gen2/n/own"), "kept");
    EXPECT_TRUE(world["gen2"].Has("/gen2/c/d/g"));
    world.ExpectAtRest();
}

TEST_F(Move, OfACollectionWhoseDestinationExists_IsRefusedWithoutOverwrite)
{
    world["gen2"].AddCollection("/gen2/n");
    EXPECT_EQ(Run("/gen2/c", "/gen2/n", kKeep).text, Answer(412));
    EXPECT_EQ(world.recorder.Count("gen2.MkCol"), 0);
}

TEST_F(Move, OfACollectionOntoANewPlaceWithOverwrite_Answers409BetweenProviders)
{
    EXPECT_EQ(Run("/gen1/c", "/gen2/n", kOverwrite).text, Answer(409));
    EXPECT_TRUE(world["gen1"].Has("/gen1/c/d/g"));
}

TEST_F(Move, OfTheModulesRoot_Answers403)
{
    EXPECT_EQ(Run("", "/gen2/x").text, Answer(403));
    EXPECT_THAT(world.Calls({"io.GetMoveInfo", "gen2."}), IsEmpty());
}

TEST_F(Move, WhatOrWhereNothingResolves_IsMapped)
{
    EXPECT_EQ(Run("/gen2/none", "/gen2/x").text, Answer(404));
    EXPECT_EQ(Run("/gen2/f", "/nowhere/x").text, Answer(404));
    world.Fail("io.GetMoveInfo", TAL_STATUS_INVALID_REQUEST);
    EXPECT_EQ(Run("/gen2/f", "/gen2/x").text, Answer(400));
    world.Fail("io.GetMoveInfo", TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(Run("/gen2/f", "/gen2/x").returned, TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_TRUE(world["gen2"].Has("/gen2/f"));
    world.ExpectAtRest();
}

TEST_F(Move, WithoutMemory_Answers507AndChangesNothing)
{
    for (int nth = 2; nth <= 4; ++nth) { // source path, destination path, block
        world.Fail("platform.TalxAllocPagedMemory", kInjected, nth);
        EXPECT_EQ(Run("/gen1/f", "/gen2/n").text, Answer(507));
        EXPECT_TRUE(world["gen1"].Has("/gen1/f"));
        EXPECT_FALSE(world["gen2"].Has("/gen2/n"));
        world.ExpectAtRest();
    }
}

TEST_F(Move, DestinationThatDoesNotFit_Answers414)
{
    EXPECT_EQ(Run("/gen2/f", "/gen2/" + std::string(2079, 'x')).text, Answer(414));
    EXPECT_TRUE(world["gen2"].Has("/gen2/f"));
}

} // namespace
