// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND where something fails, or where its body is one that came before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "propfind.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::Node;
using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using namespace propfind_tests;

namespace {

// -- Failures

TEST_P(PropFindOf, UnknownPath_Answers404WithoutABody)
{
    const Reply reply = world.Run(PropFind("/Ferro/p/none"));
    EXPECT_EQ(reply.text, "404\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS);
    world.ExpectAtRest();
}

TEST_P(PropFindOf, ObjectThatCannotBeMadeOrBound_IsNotFoundInsideThe207)
{
    provider.AddFile("/p/a b", "x");
    provider.AddCollection("/p/c");
    const auto notFound = [](const std::string& path) {
        return MultiStatus("\n<a:response>" + HRef(path) +
                           "<a:status>HTTP/1.1 404 Not Found</a:status>\n</a:response>");
    };
    for (const char* call : {"p.Create", "p.res.Associate"}) {
        world.Fail(call, ProviderFailure(kCodeAccessDenied));
        EXPECT_EQ(world.Run(PropFind("/Ferro/p/a b", 1)).text, notFound("/p/a%20b")) << call;
        world.ExpectAtRest();
    }
    for (const char* call : {"p.Create", "p.col.Associate"}) {
        world.Fail(call, ProviderFailure(kCodeAccessDenied));
        EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1)).text, notFound("/p/c")) << call;
        world.ExpectAtRest();
    }
}

TEST_P(PropFindOf, NoMemoryForTheRequest_Answers507)
{
    provider.AddFile("/p/a", "x");
    world.Remember("/Ferro/p/a");
    // The dispatcher's copy of the path comes first.
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 2);
    const Reply reply = world.Run(PropFind("/Ferro/p/a"));
    EXPECT_EQ(reply.text, "507\nContent-Length: 0\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
    world.ExpectAtRest();
}

TEST_P(PropFindOf, NoMemoryForTheBody_AsksForNothing)
{
    provider.AddFile("/p/a", "x");
    world.Remember("/Ferro/p/a");
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 3);
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:getetag/>"))).text,
              MultiStatus(ResourceElement("/p/a", "")));
    world.ExpectAtRest();
}

TEST_P(PropFindOf, UnreadableBody_GivesTheFallbackSet)
{
    provider.AddFile("/p/a", "hello");
    world.Fail("io.ReadClientPayload", MakeStatus(kFacilityHost, kCodeTimeout));
    std::string properties = FileProperties("5", "a");
    const size_t at = properties.find("<a:displayname>");
    properties.erase(at, properties.find("<a:getlastmodified") - at);
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:getetag/>"))).text,
              MultiStatus(ResourceElement("/p/a", properties)));
    world.ExpectAtRest();
}

TEST_P(PropFindOf, UnknownBodyLength_GivesTheDefaultSet)
{
    provider.AddFile("/p/a", "hello");
    world.Fail("io.IsClientPayloadAvailable", MakeStatus(kFacilityHost, kCodeUnsuccessful));
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:getetag/>"))).text,
              MultiStatus(DefaultFile("/p/a", "5", "a")));
}

TEST_P(PropFindOf, ShortRead_ParsesWhatCame)
{
    provider.AddFile("/p/a", "hello");
    EXPECT_EQ(
        world.Run(PropFind("/Ferro/p/a").Body({"<propfind><prop><getetag/>", "<name/>"})).text,
        MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    EXPECT_THAT(world.Calls({"io.ReadClientPayload"}), ElementsAre("io.ReadClientPayload(33)"));
}

// -- The same body again

class PropFindAgain : public testing::Test {
  protected:
    PropFindAgain()
    {
        world["p"].AddFile("/p/a", "x").properties = {{u"author", "me"}, {u"reader", "all"}};
        world["p"].AddFile("/p/b", "x").properties = {{u"author", "you"}};
        world.Remember("/Ferro/p/a");
    }
    std::string Ask(const std::string& path, const std::string& body)
    {
        std::string text = world.Run(PropFind("/Ferro" + path, body)).text;
        world.ExpectAtRest();
        return text;
    }
    World world{{{.name = "p", .caps = kCapsNamedProperties}}};
};

TEST_F(PropFindAgain, AsksForTheSame)
{
    const std::string body = Asking("<D:getetag/><x:author/><x:reader/>");
    const std::string first = Ask("/p/a", body);
    EXPECT_THAT(first, HasSubstr("<a:getetag/>\n<author>\nme</author>\n<reader>\nall</reader>\n"));
    EXPECT_EQ(Ask("/p/a", body), first);
    EXPECT_THAT(Ask("/p/b", body), HasSubstr("<a:getetag/>\n<author>\nyou</author>\n"));
    EXPECT_EQ(Ask("/p/a", Asking("<D:getetag/>")),
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    EXPECT_EQ(Ask("/p/a", body), first);
}

TEST_F(PropFindAgain, NamesOnly_GivesEmptyElementsAgain)
{
    const std::string body = "<propfind><propname/></propfind>";
    const std::string first = Ask("/p/a", body);
    EXPECT_THAT(first, HasSubstr("<a:displayname/>"));
    EXPECT_EQ(Ask("/p/a", body), first);
}

TEST_F(PropFindAgain, PartOfTheBody_AsksForItsOwn)
{
    const std::string body = Asking("<D:getetag/><x:author/>");
    EXPECT_THAT(Ask("/p/a", body), HasSubstr("author"));
    const std::string part = body.substr(0, body.find("<x:author/>"));
    EXPECT_EQ(Ask("/p/a", part), MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    EXPECT_THAT(Ask("/p/a", body + " "), HasSubstr("author"));
}

TEST_F(PropFindAgain, LongBodiesAndNames_AreReadEachTime)
{
    const std::string name(600, 'n');
    for (const std::string& body : {Asking("<x:author/><!--" + std::string(2000, '-' + 1) + "-->"),
                                    Asking("<x:author/><x:" + name + "/>")}) {
        const std::string first = Ask("/p/a", body);
        EXPECT_THAT(first, HasSubstr("<author>\nme</author>\n"));
        EXPECT_EQ(Ask("/p/a", body), first);
    }
}

TEST_F(PropFindAgain, NameThatFoundNoMemory_IsReadAgain)
{
    // Behind the dispatcher's path, the request's record and the body.
    world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 4);
    const std::string body = Asking("<x:author/>");
    EXPECT_EQ(Ask("/p/b", body), MultiStatus(ResourceElement("/p/b", "")));
    EXPECT_THAT(Ask("/p/b", body), HasSubstr("<author>\nyou</author>\n"));
}

// -- Every call fails once

void ExpectSurvived(int generations, const std::string& path, const std::string& body)
{
    harness::ExpectEveryFailureIsSurvived(
        [&] {
            auto world = std::make_unique<World>(std::vector<ProviderSpec>{
                {.name = "p", .generations = generations, .caps = kCapsNamedProperties}});
            harness::Provider& provider = (*world)["p"];
            provider.serveRoot = true;
            Node& file = provider.AddFile("/p/c/a", "x");
            file.properties = {{u"author", "me"}, {u"other", "you"}};
            file.locks.resize(1);
            provider.AddCollection("/p/c").properties = {{u"author", "me"}};
            provider.AddCollection("/p/c/d");
            return world;
        },
        PropFind(path, 1, body));
}

TEST(PropFind, EveryFailureOfAFile_IsSurvived)
{
    for (const int generations : {1, 2}) {
        ExpectSurvived(generations, "/Ferro/p/c/a", "");
        ExpectSurvived(generations, "/Ferro/p/c/a", "<propfind><allprop/></propfind>");
        ExpectSurvived(generations, "/Ferro/p/c/a",
                       Asking("<D:lockdiscovery/><x:author/><x:other/>"));
    }
}

TEST(PropFind, EveryFailureOfACollection_IsSurvived)
{
    for (const int generations : {1, 2}) {
        ExpectSurvived(generations, "/Ferro/p/c", "<propfind><allprop/></propfind>");
        ExpectSurvived(generations, "/Ferro/p/c", Asking("<x:author/>"));
    }
}

TEST(PropFind, EveryFailureOfTheRoot_IsSurvived)
{
    for (const int generations : {1, 2})
        ExpectSurvived(generations, "/Ferro", "");
}

} // namespace
