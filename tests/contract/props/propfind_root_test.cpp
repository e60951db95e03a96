// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND of the root above all providers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "propfind.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::ProviderFailure;
using harness::Reply;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace propfind_tests;

namespace {

// -- The root

class PropFindRoot : public testing::Test {
  protected:
    World world{{{.name = "one", .generations = 1},
                 {.name = "two"},
                 {.name = "gone", .served = true},
                 {.name = "four"}}};

    PropFindRoot()
    {
        for (const char* name : {"one", "two", "gone", "four"})
            world[name].serveRoot = true;
    }
    // The root's element; dates are those of the module's start.
    std::string RootElement(const std::string& properties) const
    {
        return "\n<a:response><a:href>http://server.example:8080/Ferro/</a:href>\n"
               "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop>" +
               properties + "</a:prop></a:propstat></a:response>";
    }
};

TEST_F(PropFindRoot, EitherSpelling_GivesTheRootsElement)
{
    const std::string expected =
        MultiStatus(RootElement("<a:getcontentlength b:dt=\"integer\">0</a:getcontentlength>\n"
                                "<a:displayname>Ferro</a:displayname>\n"
                                "<a:resourcetype><a:collection/></a:resourcetype>\n"
                                "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
                                "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
                                "<a:iscollection b:dt=\"boolean\">1</a:iscollection>\n"
                                "<a:isroot b:dt=\"boolean\">1</a:isroot>\n"));
    const std::string body =
        Asking("<D:getcontentlength/><D:displayname/><D:resourcetype/><D:ishidden/>"
               "<D:isreadonly/><D:iscollection/><D:isroot/><D:getcontenttype/><D:name/>"
               "<D:lockdiscovery/><x:author/>");
    for (const char* path : {"/Ferro", "/Ferro/", "/Ferro//"})
        EXPECT_EQ(world.Run(PropFind(path, body)).text, expected) << path;
    EXPECT_THAT(world.Calls({"one.Create", "one.GetType"}), ElementsAre());
    world.ExpectAtRest();
}

TEST_F(PropFindRoot, NamesOnly_NamesTheRootsPropertyToo)
{
    EXPECT_EQ(world.Run(PropFind("/Ferro", "<propfind><propname/></propfind>")).text,
              MultiStatus(RootElement("<a:getcontentlength/>\n<a:creationdate/>\n"
                                      "<a:displayname/>\n<a:getlastmodified/>\n<a:resourcetype/>\n"
                                      "<a:ishidden/>\n<a:isreadonly/>\n<a:iscollection/>\n"
                                      "<a:isroot/>\n")));
}

TEST_F(PropFindRoot, Dates_AreTheModulesStart)
{
    World started({}, {.start = false});
    started.platform.fixedTime = harness::Ticks(1769860800);
    started.Start();
    EXPECT_EQ(started.Run(PropFind("/Ferro", Asking("<D:creationdate/><D:getlastmodified/>"))).text,
              MultiStatus(RootElement(
                  "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
                  "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
                  "</a:getlastmodified>\n")));
}

TEST_F(PropFindRoot, DepthOne_ListsTheRootsOfAllProvidersThatAnswer)
{
    world["four"].AddFile("/plain", "x");
    world.recorder.FailAlways("gone.col.Associate", ProviderFailure(kCodeUnsuccessful));
    const Reply reply = world.Run(PropFind("/Ferro", 1, Asking("<D:iscollection/>")));
    const std::string yes = "<a:iscollection b:dt=\"boolean\">1</a:iscollection>\n";
    const std::string no = "<a:iscollection b:dt=\"boolean\">0</a:iscollection>\n";
    EXPECT_EQ(reply.text,
              MultiStatus(RootElement(yes) + CollectionElement("/one/", yes) +
                          CollectionElement("/two/", yes) + CollectionElement("/four/", yes) +
                          ResourceElement("/plain", no)));
    EXPECT_THAT(world.Calls({"one.", "two.col.Associate", "gone.Create", "gone.col"}),
                ElementsAre("one.BeginSession(session=1)", "one.Create(IKestDAVCollection)",
                            "one.col.Associate(/)", "one.col.GetFirstChild(2176)",
                            "one.col.GetNextChild(2176)", "two.col.Associate(/, token=null)",
                            "gone.Create(IKestDAVCollection2)",
                            "gone.col.Associate(/, token=null)"));
    world.ExpectAtRest();
}

TEST_F(PropFindRoot, ProviderWhoseObjectCannotBeMade_IsLeftOut)
{
    world.recorder.FailAlways("two.Create", ProviderFailure(kCodeInsufficientResources));
    EXPECT_EQ(world.Run(PropFind("/Ferro", 1, Asking("<x:none/>"))).text,
              MultiStatus(RootElement("") + CollectionElement("/one/", "") +
                          CollectionElement("/gone/", "") + CollectionElement("/four/", "")));
    world.ExpectAtRest();
}

TEST_F(PropFindRoot, MemberResourceWhoseEveryByteIsEscaped_HasNoHref)
{
    world["one"].AddFile("/\xC3\xA9", "x");
    EXPECT_THAT(world.Run(PropFind("/Ferro", 1, Asking(""))).body,
                HasSubstr("\n<a:response></a:response>"));
}

TEST_F(PropFindRoot, ProtocolNameLongerThanItsRoom_ReadsAsHttp)
{
    const std::string name(31, 's');
    EXPECT_THAT(world.Run(PropFind("/Ferro").Protocol(name)).body,
                HasSubstr("<a:href>" + name + "://server"));
    EXPECT_THAT(world.Run(PropFind("/Ferro").Protocol(name + "s")).body,
                HasSubstr("<a:href>http://server"));
}

TEST(PropFind, OtherMonikerAndLocation_ShowInEveryHref)
{
    World world({{.name = "p"}}, {.moniker = "/Elsewhere", .start = false});
    world.config.location = "/mount";
    world.Start();
    world["p"].AddFile("/p/a", "x");
    EXPECT_THAT(world.Run(PropFind("/Elsewhere/p/a", Asking(""))).body,
                HasSubstr("<a:href>http://server.example:8080/mount/Elsewhere/p/a</a:href>\n"));
    const std::string root = world.Run(PropFind("/Elsewhere", Asking("<D:displayname/>"))).body;
    EXPECT_THAT(root, HasSubstr("<a:href>http://server.example:8080/mount/Elsewhere/</a:href>\n"));
    EXPECT_THAT(root, HasSubstr("<a:displayname>Elsewhere</a:displayname>\n"));
}

} // namespace
