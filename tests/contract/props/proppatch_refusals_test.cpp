// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH that is refused or fails, wholly or in part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proppatch.h"
#include "text.h"
#include "world.h"

using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace proppatch_tests;

namespace {

TEST_F(PropPatch, RefusedProperty_Gets417AndTheOthersGoOn)
{
    world.Fail("p.res.SetNamedPropertyEnh", ProviderFailure(kCodeLocked), 2);
    EXPECT_EQ(Patch(Update(Set("<a>1</a>") + Set("<x:b>2</x:b>") + Set("<c>3</c>"))).text,
              Patched(Done("a") + Refused("x:b") + Done("c")));
    world.ExpectAtRest();
}

TEST_F(PropPatch, RefusedRemoval_Gets417)
{
    world.Fail("p.res.SetNamedPropertyEnh", ProviderFailure(kCodeNotFound));
    EXPECT_EQ(Patch(Update(Remove("<a/>"))).text, Patched(Refused("a")));
}

TEST_F(PropPatch, ProviderWithoutNamedProperties_LeavesThemOutOfTheReply)
{
    World plain({{.name = "p"}});
    plain["p"].AddFile("/p/a").attributes = 1;
    EXPECT_EQ(plain
                  .Run(Request(KestMethodPropPatch, "/Ferro/p/a")
                           .Body({Update(Set("<a>1</a>") +
                                         Set("<Win32FileAttributes>2</Win32FileAttributes>"))}))
                  .text,
              Patched(""));
    EXPECT_EQ(plain["p"].Find("/p/a")->attributes, 2u);
    EXPECT_THAT(plain.Calls({"p.res.SetNamed"}), IsEmpty());
    plain.ExpectAtRest();
}

TEST_F(PropPatch, NameBeyond260Characters_IsSkippedSilently)
{
    const std::string fits(260, 'n');
    EXPECT_EQ(Patch(Update(Set("<" + fits + ">1</" + fits + ">") + Set("<a>2</a>"))).text,
              Patched(Done(fits) + Done("a")));
    EXPECT_EQ(Patch(Update(Set("<" + fits + "n>1</" + fits + "n>") + Set("<a>2</a>"))).text,
              Patched(Done("a")));
    world.ExpectAtRest();
}

TEST_F(PropPatch, NothingToPatch_Answers400)
{
    const std::string bodies[] = {
        "",
        "nonsense",
        "<propertyupdate/>",
        "<propertyupdate><set><prop/></set></propertyupdate>",
        "<other><set><prop><a>1</a></prop></set></other>",
        // A stray element before any property.
        "<propertyupdate><stray/><set><prop><a>1</a></prop></set></propertyupdate>",
        "<propertyupdate><set><stray/><prop><a>1</a></prop></set></propertyupdate>",
        "<propertyupdate><set><prop></propertyupdate>",
    };
    for (const std::string& body : bodies) {
        const Reply reply = Patch(body);
        EXPECT_EQ(reply.text, "400\nContent-Length: 0\n\n") << body;
        EXPECT_EQ(reply.returned, TAL_STATUS_UNSUCCESSFUL) << body;
    }
    EXPECT_THAT(world.Calls({"p.Create"}), IsEmpty());
    world.ExpectAtRest();
}

TEST_F(PropPatch, StrayElementBehindAProperty_EndsTheRecordingOnly)
{
    EXPECT_EQ(Patch(Update(Set("<a>1</a>") + "<stray/>" + Set("<b>2</b>"))).text,
              Patched(Done("a")));
}

TEST_F(PropPatch, MalformedBody_PatchesWhatCameBefore)
{
    EXPECT_EQ(Patch("<propertyupdate><set><prop><a>1</a></prop></set><set><prop><").text,
              Patched(Done("a")));
}

TEST_F(PropPatch, UnknownPath_Answers404WithoutALength)
{
    EXPECT_EQ(Patch(Update(Set("<a>1</a>")), "/Ferro/p/none").text, "404\n\n");
    world.ExpectAtRest();
}

TEST_F(PropPatch, FirstGenerationProvider_Answers405WithoutALength)
{
    World first({{.name = "p", .generations = 1, .caps = kCapsNamedProperties}});
    first["p"].AddFile("/p/a");
    const Reply reply =
        first.Run(Request(KestMethodPropPatch, "/Ferro/p/a").Body({Update(Set("<a>1</a>"))}));
    EXPECT_EQ(reply.text, "405\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_NOT_SUPPORTED);
    first.ExpectAtRest();
}

TEST_F(PropPatch, Root_IsResolvedAsTheRootPath)
{
    EXPECT_EQ(Patch(Update(Set("<a>1</a>")), "/Ferro").text, "404\n\n");
    EXPECT_THAT(world.Calls({"p.GetType"}), ElementsAre("p.GetType(/)"));
}

TEST_F(PropPatch, ObjectThatCannotBeMadeOrBound_IsNotFoundInsideThe207)
{
    provider.AddCollection("/p/c");
    const std::string notFound =
        Patched("<a:propstat><a:status>HTTP/1.1 404 Not Found</a:status>\n</a:propstat>");
    const struct {
        const char* call;
        const char* path;
    } cases[] = {{"p.Create", "/Ferro/p/a"},
                 {"p.res.Associate", "/Ferro/p/a"},
                 {"p.Create", "/Ferro/p/c"},
                 {"p.col.Associate", "/Ferro/p/c"}};
    for (const auto& c : cases) {
        world.Fail(c.call, ProviderFailure(kCodeAccessDenied));
        EXPECT_EQ(Patch(Update(Set("<a>1</a>")), c.path).text, notFound) << c.call << c.path;
        world.ExpectAtRest();
    }
}

TEST_F(PropPatch, UnreadableBody_AnswersTheMappedStatus)
{
    const std::string body = Update(Set("<a>1</a>"));
    world.Fail("io.ReadClientPayload", MakeStatus(kFacilityHost, kCodeTimeout), 2);
    EXPECT_EQ(Patch(body).text, "408\nContent-Length: 0\n\n");
    world.Fail("io.IsClientPayloadAvailable", MakeStatus(kFacilityHost, kCodeInvalidRequest));
    EXPECT_EQ(Patch(body).text, "400\nContent-Length: 0\n\n");
    EXPECT_THAT(Sets(), IsEmpty());
    world.ExpectAtRest();
}

TEST_F(PropPatch, NoMemory_Answers507)
{
    world.Remember("/Ferro/p/a");
    // Behind the dispatcher's copy of the path: the request, the body, the property, its name, its
    // value.
    for (int nth = 2; nth <= 6; ++nth) {
        world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, nth);
        const Reply reply = Patch(Update(Set("<a>1</a>")));
        const bool recorded = nth != 4 && nth != 5; // else no property was recorded
        EXPECT_EQ(reply.text,
                  recorded ? "507\nContent-Length: 0\n\n" : "400\nContent-Length: 0\n\n")
            << nth;
        world.ExpectAtRest();
    }
    EXPECT_THAT(Sets(), IsEmpty());
    // The two buffers: the property that finds one missing is left out.
    for (int nth = 7; nth <= 8; ++nth) {
        world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, nth);
        EXPECT_EQ(Patch(Update(Set("<a>1</a>"))).text, Patched("")) << nth;
        world.ExpectAtRest();
    }
}

TEST_F(PropPatch, LockTokenInIf_IsReadAndHandedToNobody)
{
    for (const char* value : {"(<opaquelocktoken:abc>)", "opaquelocktoken", "(<opaquelocktoken:abc",
                              "", "<http://h/p> (<opaquelocktoken:abc>)"}) {
        world.recorder.Clear();
        EXPECT_EQ(world
                      .Run(Request(KestMethodPropPatch, "/Ferro/p/a")
                               .Header("If", value)
                               .Body({Update(Set("<a>1</a>"))}))
                      .text,
                  Patched(Done("a")));
        EXPECT_THAT(world.Calls({"p.res.Associate"}),
                    ElementsAre("p.res.Associate(/p/a, create=0, access=0, share=3, flags=0, "
                                "token=null)"));
    }
    const std::string longest = "(<opaquelocktoken:" + std::string(107, 't') + ">)";
    ASSERT_EQ(longest.size(), 127u);
    EXPECT_EQ(world
                  .Run(Request(KestMethodPropPatch, "/Ferro/p/a")
                           .Header("If", longest)
                           .Body({Update(Set("<a>1</a>"))}))
                  .text,
              Patched(Done("a")));
    world.ExpectAtRest();
}

TEST_F(PropPatch, ProvidersAreHeldUntilTheReplyHasLeft)
{
    EXPECT_EQ(Patch(Update(Set("<a>1</a>"))).unguarded, "");
    EXPECT_EQ(Patch(Update(Set("<a>1</a>")), "/Ferro/p/none").unguarded, "");
    world.Fail("p.res.Associate", ProviderFailure(kCodeAccessDenied));
    EXPECT_EQ(Patch(Update(Set("<a>1</a>"))).unguarded, "");
    EXPECT_EQ(Patch("").unguarded, "400\n");
}

TEST_F(PropPatch, Properties_AreMarkedWhenTheyAreFreed)
{
    world.Remember("/Ferro/p/a");
    const int before = world.platform.MarkedFrees();
    (void)Patch(Update(Set("<a>1</a>") + Remove("<b/>")));
    EXPECT_EQ(world.platform.MarkedFrees() - before, 2);
}

TEST_F(PropPatch, PropertiesThatOnlyEntitiesRepeat_AreDropped)
{
    std::string uses;
    for (int i = 0; i < 1000; ++i)
        uses += "&e;";
    (void)Patch("<!DOCTYPE d [<!ENTITY e \"<set><prop><a>1</a></prop></set>\">]><propertyupdate>" +
                uses + "</propertyupdate>");
    const int sets = world.recorder.Count("p.res.SetNamedPropertyEnh");
    EXPECT_GE(sets, 100);
    EXPECT_LT(sets, 2000);
    world.ExpectAtRest();
}

TEST_F(PropPatch, DeepNesting_IsSurvived)
{
    std::string deep;
    for (int i = 0; i < 2000; ++i)
        deep += "<n>";
    EXPECT_EQ(Patch("<propertyupdate><set><prop><a>" + deep).text, Patched(Done("a")));
    world.ExpectAtRest();
}

TEST(PropPatchFailures, EveryFailure_IsSurvived)
{
    for (const char* path : {"/Ferro/p/a", "/Ferro/p/c"})
        harness::ExpectEveryFailureIsSurvived(
            [] {
                auto world = std::make_unique<World>(
                    std::vector<ProviderSpec>{{.name = "p", .caps = kCapsNamedProperties}});
                (*world)["p"].AddFile("/p/a");
                (*world)["p"].AddCollection("/p/c");
                return world;
            },
            Request(KestMethodPropPatch, path)
                .Header("If", "(<opaquelocktoken:abc>)")
                .Body({Update(Set("<x:a>1</x:a>") + Remove("<b/>") +
                              Set("<Win32FileAttributes>1</Win32FileAttributes>"))}));
}

} // namespace
