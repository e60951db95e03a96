// SPDX-License-Identifier: Apache-2.0
//
// COPY of resources, between providers of both generations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "copy.h"
#include "text.h"
#include "world.h"

using harness::kInjected;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace copy_tests;

namespace {

TEST_F(Copy, OfAResource_CarriesContentAttributesAndDates)
{
    harness::Node& source = world["gen2"].AddFile("/gen2/f", "hello");
    source.attributes = kAttributeHidden;
    source.created = 1000;
    source.modified = 2000;
    source.properties = {{u"name", "value"}};
    const Reply reply = Run("/gen2/f", "/gen2/g", kKeep);
    EXPECT_EQ(reply.text, Answer(200));
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    EXPECT_THAT(
        world.Calls({"gen2."}),
        ElementsAre("gen2.GetType(/gen2/f)", "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/f, create=0, access=3, share=1, flags=0, token=null)",
                    "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/g, create=0, access=6, share=0, flags=0, token=null)",
                    "gen2.res.Associate(/gen2/g, create=1, access=6, share=1, flags=0, token=null)",
                    "gen2.res.GetLiveAttributes()", "gen2.res.GetCreationDate()",
                    "gen2.res.GetModificationDate()", "gen2.res.GetResourceSize()",
                    "gen2.res.Read(0, 5)", "gen2.res.Write(0, 5)", "gen2.res.SetLiveAttributes(2)",
                    "gen2.res.SetModificationDate(2000)", "gen2.res.SetCreationDate(1000)"));
    const harness::Node* copy = world["gen2"].Find("/gen2/g");
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->content, "hello");
    EXPECT_THAT(copy->properties, IsEmpty()) << "dead properties stay behind";
    EXPECT_EQ(world["gen2"].Content("/gen2/f"), "hello");
    world.ExpectAtRest();
}

TEST_F(Copy, BetweenGenerations_UsesEachOnesInterfaces)
{
    world["gen1"].AddFile("/gen1/f", "one");
    EXPECT_EQ(Run("/gen1/f", "/gen2/f").text, Answer(200));
    EXPECT_THAT(
        world.Calls({"gen1.", "gen2."}),
        ElementsAre("gen1.GetType(/gen1/f)", "gen1.Create(IKestDAVResource)",
                    "gen1.res.Associate(/gen1/f, create=0, access=3, share=1, flags=0)",
                    "gen2.Create(IKestDAVResource2)",
                    "gen2.res.Associate(/gen2/f, create=1, access=6, share=1, flags=0, token=null)",
                    "gen1.res.GetLiveAttributes()", "gen1.res.GetCreationDate()",
                    "gen1.res.GetModificationDate()", "gen1.res.GetResourceSize()",
                    "gen1.res.Read(0, 3)", "gen2.res.Write(0, 3)", "gen2.res.SetLiveAttributes(0)",
                    "gen2.res.SetModificationDate(134143344000000000)",
                    "gen2.res.SetCreationDate(134143344000000000)"));
    world["gen2"].AddFile("/gen2/h", "two");
    EXPECT_EQ(Run("/gen2/h", "/gen1/h", kKeep).text, Answer(200));
    EXPECT_EQ(world["gen1"].Content("/gen1/h"), "two");
    EXPECT_THAT(world.Calls({"gen1.res.Associate"}),
                Contains("gen1.res.Associate(/gen1/h, create=0, access=6, share=0, flags=0)"));
    world.ExpectAtRest();
}

TEST_F(Copy, OfALargeResource_GoesInBlocks)
{
    const std::string content(600000, 'c');
    world["gen2"].AddFile("/gen2/f", content);
    EXPECT_EQ(Run("/gen2/f", "/gen1/f").text, Answer(200));
    EXPECT_EQ(world["gen1"].Content("/gen1/f"), content);
    EXPECT_THAT(world.Calls({"gen1.res.Write"}),
                ElementsAre("gen1.res.Write(0, 262144)", "gen1.res.Write(262144, 262144)",
                            "gen1.res.Write(524288, 75712)"));
}

TEST_F(Copy, ProvidersThatMoveLessAtOnce_StillGetAllBytes)
{
    world["gen2"].AddFile("/gen2/f", "0123456789");
    world["gen2"].readLimit = 4;
    world["gen1"].writeLimit = 3;
    EXPECT_EQ(Run("/gen2/f", "/gen1/f").text, Answer(200));
    EXPECT_EQ(world["gen1"].Content("/gen1/f"), "0123456789");
}

TEST_F(Copy, OfAnEmptyResource_MovesNoBytes)
{
    world["gen2"].AddFile("/gen2/f");
    EXPECT_EQ(Run("/gen2/f", "/gen2/g").text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/g"), "");
    EXPECT_EQ(world.recorder.Count("gen2.res.Read"), 0);
}

TEST_F(Copy, OntoItself_SucceedsWithoutACall)
{
    world["gen2"].AddFile("/gen2/f", "hello");
    EXPECT_EQ(Run("/gen2/f", "/gen2/f").text, Answer(200));
    EXPECT_THAT(world.Calls({"gen2."}), ElementsAre("gen2.GetType(/gen2/f)"));
    EXPECT_EQ(world["gen2"].Content("/gen2/f"), "hello");
}

TEST_F(Copy, OntoItsNameInAnotherCase_IsAnotherResource)
{
    world["gen2"].AddFile("/gen2/f", "hello");
    EXPECT_EQ(Run("/gen2/f", "/gen2/F").text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/F"), "hello");
}

TEST_F(Copy, WithoutOverwriteOntoAnExistingResource_Answers412)
{
    world["gen2"].AddFile("/gen2/f", "new");
    world["gen2"].AddFile("/gen2/g", "old");
    const Reply reply = Run("/gen2/f", "/gen2/g", kKeep);
    EXPECT_EQ(reply.text, Answer(412));
    EXPECT_EQ(reply.returned, TAL_STATUS_OBJECT_EXISTS);
    EXPECT_EQ(world["gen2"].Content("/gen2/g"), "old");
    world.ExpectAtRest();
}

TEST_F(Copy, WithOverwriteOntoAnExistingResource_ReplacesIt)
{
    world["gen2"].AddFile("/gen2/f", "new");
    world["gen2"].AddFile("/gen2/g", "the old");
    EXPECT_EQ(Run("/gen2/f", "/gen2/g").text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/g"), "new");
}

TEST_F(Copy, OfTheModulesRoot_Answers403)
{
    EXPECT_EQ(Run("", "/gen2/x").text, Answer(403));
    EXPECT_THAT(world.Calls({"io.GetCopyInfo", "gen2."}), IsEmpty());
}

TEST_F(Copy, OfWhatIsMissing_Answers404)
{
    EXPECT_EQ(Run("/gen2/none", "/gen2/x").text, Answer(404));
    EXPECT_EQ(Run("/none/f", "/gen2/x").text, Answer(404));
}

TEST_F(Copy, ToWhereNobodyServes_Answers404)
{
    world["gen2"].AddFile("/gen2/f", "x");
    EXPECT_EQ(Run("/gen2/f", "/nowhere/f").text, Answer(404));
    world.ExpectAtRest();
}

TEST_F(Copy, WhoseHeadersTheHostRefuses_IsMapped)
{
    world["gen2"].AddFile("/gen2/f", "x");
    world.Fail("io.GetCopyInfo", TAL_STATUS_INVALID_REQUEST);
    EXPECT_EQ(Run("/gen2/f", "/gen2/g").text, Answer(400));
    world.Fail("io.GetCopyInfo", TAL_STATUS_INFO_END_OF_FILE);
    const Reply reply = Run("/gen2/f", "/gen2/g");
    EXPECT_EQ(reply.text, Answer(417));
    EXPECT_EQ(reply.returned, TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_FALSE(world["gen2"].Has("/gen2/g"));
}

// -- Destinations.

struct DestinationRow {
    const char* name;
    const char* url;
    int status;
    const char* created; // the path; empty when none
};

class CopyDestination : public Copy, public testing::WithParamInterface<DestinationRow> {};

TEST_P(CopyDestination, IsWhatFollowsTheMoniker)
{
    world["gen2"].AddFile("/gen2/f", "x");
    const Reply reply =
        world.Run(Request(KestMethodCopy, "/Ferro/gen2/f").To(GetParam().url, kOverwrite));
    EXPECT_EQ(reply.text, Answer(GetParam().status));
    if (*GetParam().created) {
        EXPECT_EQ(world["gen2"].Content(GetParam().created), "x");
    }
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CopyDestination,
    testing::Values(DestinationRow{"Url", "http://server.example/Ferro/gen2/new", 200, "/gen2/new"},
                    DestinationRow{"Path", "/Ferro/gen2/new", 200, "/gen2/new"},
                    DestinationRow{"OtherCase", "/FERRO/gen2/new", 200, "/gen2/new"},
                    DestinationRow{"Escaped", "/Ferro/gen2/a%20b%2Bc", 200, "/gen2/a b+c"},
                    DestinationRow{"LowerCaseEscape", "/Ferro/gen2/a%2bc", 200, "/gen2/a%2bc"},
                    DestinationRow{"BehindOtherSegments", "http://h/x//y/Ferro/gen2/new", 200,
                                   "/gen2/new"},
                    DestinationRow{"FirstSegmentWins", "http://Ferro/Ferro/gen2/new", 404, ""},
                    DestinationRow{"NoMoniker", "http://server.example/Other/gen2/new", 400, ""},
                    DestinationRow{"MonikerAlone", "http://server.example/Ferro", 400, ""},
                    DestinationRow{"NoSlash", "gen2", 400, ""},
                    DestinationRow{"Empty", "", 417, ""},
                    DestinationRow{"MonikerAsAPrefix", "/Ferrovia/gen2/new", 400, ""}),
    [](const auto& row) { return row.param.name; });

struct OverlapRow {
    const char* name;
    const char* destination;
    bool refused;
};

class CopyOverlap : public Copy, public testing::WithParamInterface<OverlapRow> {};

TEST_P(CopyOverlap, LooksOneCharacterBehindThePrefix)
{
    world["gen2"].AddFile("/gen2/f", "x");
    const Reply reply = Run("/gen2/f", GetParam().destination);
    if (GetParam().refused) {
        EXPECT_EQ(reply.text, Answer(400));
        EXPECT_EQ(world.recorder.Count("gen2.Create"), 0);
    } else {
        EXPECT_NE(reply.text, Answer(400));
        EXPECT_GT(world.recorder.Count("gen2.Create"), 0);
    }
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Rows, CopyOverlap,
                         testing::Values(OverlapRow{"OneCharacterMore", "/gen2/f1", true},
                                         OverlapRow{"SlashAlone", "/gen2/f/", true},
                                         OverlapRow{"SecondIsASlash", "/gen2/fx/y", true},
                                         OverlapRow{"OtherCase", "/GEN2/F1", true},
                                         OverlapRow{"Inside", "/gen2/f/name", false},
                                         OverlapRow{"TwoCharactersMore", "/gen2/f12", false},
                                         OverlapRow{"Elsewhere", "/gen2/g1", false}),
                         [](const auto& row) { return row.param.name; });

// -- Failures of a resource's copy.

struct CopyFailureRow {
    const char* name;
    const char* call; // of the source "src.", of the destination "dst."
    int nth;
    const char* left; // the destination's content afterwards
    bool deletes;     // the destination is deleted again
    int status = 423;
};

class CopyFailure : public Copy, public testing::WithParamInterface<CopyFailureRow> {};

TEST_P(CopyFailure, LeavesNoPartAndNothingOpen)
{
    for (const auto& [from, to] : {std::pair("gen2", "gen1"), std::pair("gen1", "gen2")}) {
        SCOPED_TRACE(from);
        const std::string source = std::string("/") + from + "/f";
        const std::string destination = std::string("/") + to + "/g";
        world[from].AddFile(source, std::string(300000, 's'));
        std::string call = GetParam().call;
        call.replace(0, 3, call.starts_with("src") ? from : to);
        world.recorder.Clear();
        world.Fail(call, ProviderFailure(kCodeLocked), GetParam().nth);
        EXPECT_EQ(Run(source, destination, kKeep).text, Answer(GetParam().status));
        EXPECT_EQ(world[to].Content(destination), GetParam().left);
        EXPECT_EQ(world.recorder.Count(std::string(to) + ".Delete"), GetParam().deletes ? 1 : 0);
        EXPECT_EQ(world[from].Content(source).size(), 300000U);
        world.ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, CopyFailure,
    testing::Values(CopyFailureRow{"CreateSource", "src.Create", 1, "(missing)", false},
                    CopyFailureRow{"OpenSource", "src.res.Associate", 1, "(missing)", false},
                    CopyFailureRow{"CreateDestination", "dst.Create", 1, "(missing)", false},
                    CopyFailureRow{"Probe", "dst.res.Associate", 1, "(missing)", false},
                    CopyFailureRow{"OpenDestination", "dst.res.Associate", 2, "(missing)", false},
                    CopyFailureRow{"Size", "src.res.GetResourceSize", 1, "", false},
                    CopyFailureRow{"FirstRead", "src.res.Read", 1, "(missing)", true},
                    CopyFailureRow{"SecondRead", "src.res.Read", 2, "(missing)", true},
                    CopyFailureRow{"FirstWrite", "dst.res.Write", 1, "(missing)", true},
                    CopyFailureRow{"SecondWrite", "dst.res.Write", 2, "(missing)", true}),
    [](const auto& row) { return row.param.name; });

TEST_F(Copy, AttributesAndDatesThatFail_DoNotFailTheCopy)
{
    world["gen2"].AddFile("/gen2/f", "x");
    for (const char* call : {"gen2.res.GetLiveAttributes", "gen2.res.GetCreationDate",
                             "gen2.res.GetModificationDate", "gen1.res.SetLiveAttributes",
                             "gen1.res.SetModificationDate", "gen1.res.SetCreationDate"}) {
        SCOPED_TRACE(call);
        world.Fail(call, kInjected);
        EXPECT_EQ(Run("/gen2/f", "/gen1/f").text, Answer(200));
        EXPECT_EQ(world["gen1"].Find("/gen1/f")->created, world["gen2"].Find("/gen2/f")->created);
    }
}

TEST_F(Copy, SourceThatShrinks_IsAFailureAndLeavesNoPart)
{
    world["gen2"].AddFile("/gen2/f", "short").sizeShown = 100;
    EXPECT_EQ(Run("/gen2/f", "/gen1/f").text, Answer(417));
    EXPECT_FALSE(world["gen1"].Has("/gen1/f"));
    world.ExpectAtRest();
}

TEST_F(Copy, DestinationThatTakesNothing_IsAFailureAndLeavesNoPart)
{
    world["gen2"].AddFile("/gen2/f", "content");
    world.Fail("gen1.res.Write", TAL_STATUS_SUCCESS); // succeeds with 0 bytes written
    EXPECT_EQ(Run("/gen2/f", "/gen1/f").text, Answer(417));
    EXPECT_FALSE(world["gen1"].Has("/gen1/f"));
}

TEST_F(Copy, WithoutMemory_Answers507AndChangesNothing)
{
    world["gen2"].AddFile("/gen2/f", "new");
    world["gen2"].AddFile("/gen2/g", "old");
    for (int nth = 2; nth <= 4; ++nth) { // source path, destination path, block
        SCOPED_TRACE(nth);
        world.Fail("platform.TalxAllocPagedMemory", kInjected, nth);
        EXPECT_EQ(Run("/gen2/f", "/gen2/g").text, Answer(507));
        EXPECT_EQ(world["gen2"].Content("/gen2/g"), "old");
        world.ExpectAtRest();
    }
}

// -- Lengths, in units; the buffers count bytes.

struct LengthRow {
    const char* name;
    size_t source; // units of the source collection's path
    size_t destination;
    size_t child;
    int status;
};

class CopyLength : public Copy, public testing::WithParamInterface<LengthRow> {};

TEST_P(CopyLength, IsBoundedOnBothSides)
{
    const std::string source = harness::PathOfUnits(GetParam().source, "/gen2");
    const std::string destination = harness::PathOfUnits(GetParam().destination, "/gen1");
    world["gen2"].AddFile(source + "/" + std::string(GetParam().child, 'n'), "x");
    world["gen1"].AddCollection(destination.substr(0, destination.rfind('/')));
    const Reply reply = Run(source, destination, kKeep);
    EXPECT_EQ(reply.text, Answer(GetParam().status));
    EXPECT_EQ(world["gen1"].Has(destination + "/" + std::string(GetParam().child, 'n')),
              GetParam().status == 200);
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(Rows, CopyLength,
                         testing::Values(LengthRow{"SourceAtItsLimit", 2000, 100, 82, 200},
                                         LengthRow{"SourceBeyond", 2000, 100, 83, 414},
                                         LengthRow{"DestinationAtItsLimit", 100, 2000, 82, 200},
                                         LengthRow{"DestinationBeyond", 100, 2000, 83, 414}),
                         [](const auto& row) { return row.param.name; });

// A name cannot be longer than the record that it comes in, whatever the provider tells.
TEST_F(Copy, NameBeyondItsRecord_StopsTheWalkWith414)
{
    for (const UINT32 bytes : {2176U, 4000U, 0xFFFFFF00U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(bytes);
        world["gen2"].AddFile("/gen2/c/f").nameBytesShown = bytes;
        EXPECT_EQ(Run("/gen2/c", "/gen1/n" + std::to_string(bytes), kKeep).text, Answer(414));
        EXPECT_EQ(world.recorder.Count("gen2.res.Associate"), 0);
        world.ExpectAtRest();
    }
}

TEST_F(Copy, PathsThatDoNotFit_AreRefused)
{
    world["gen2"].AddFile("/gen2/f", "x");
    const std::string atLimit = harness::PathOfUnits(2084, "/gen2");
    world["gen2"].AddCollection(atLimit.substr(0, atLimit.rfind('/')));
    EXPECT_EQ(Run("/gen2/f", atLimit).text, Answer(200));
    EXPECT_EQ(Run("/gen2/f", atLimit + "x").text, Answer(414));
    EXPECT_EQ(Run(atLimit, "/gen2/short").text, Answer(200));
    EXPECT_EQ(world["gen2"].Content("/gen2/short"), "x");
    world["gen2"].AddFile(atLimit + "x", "y");
    EXPECT_EQ(Run(atLimit + "x", "/gen2/shorter").text, Answer(414));
    world.ExpectAtRest();
}

// Hosts refuse this; the module at least ends.
TEST_F(Copy, CollectionIntoItself_EndsAtThePathLimit)
{
    world["gen2"].AddFile("/gen2/long-collection-name-that-fills-the-path-soon/file", "x");
    const Reply reply = Run("/gen2/long-collection-name-that-fills-the-path-soon",
                            "/gen2/long-collection-name-that-fills-the-path-soon/"
                            "another-long-name-inside-it-for-the-copy",
                            kKeep);
    EXPECT_EQ(reply.heads, 1);
    world.ExpectAtRest();
}

} // namespace
