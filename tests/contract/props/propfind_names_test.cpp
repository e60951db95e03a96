// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND of names: which properties are asked for, display names, hrefs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "propfind.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using namespace propfind_tests;

namespace {

// -- Requested properties

TEST(PropFind, EtagAndANameOfAnotherNamespace_AreOneLiveAndOneDeadProperty)
{
    World world({{.name = "p", .caps = kCapsNamedProperties}});
    world["p"].AddFile("/p/a", "x").properties = {{u"author", "me &amp; <b>you</b>"}};
    world.Remember("/Ferro/p/a");
    const Reply reply = world.Run(PropFind("/Ferro/p/a", Asking("<D:getetag/><x:author/>")));
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n<author>\n"
                                                              "me &amp; <b>you</b></author>\n")));
    EXPECT_THAT(world.Calls({"p.res.GetNamedProperty", "p.res.GetFirstLock"}),
                ElementsAre("p.res.GetNamedProperty(author)"));
    world.ExpectAtRest();
}

TEST_P(PropFindOf, BodyOfAnotherRoot_AsksForNothing)
{
    provider.AddFile("/p/c/a", "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1, "<find><prop><getetag/></prop></find>")).text,
              MultiStatus(CollectionElement("/p/c/", "") + ResourceElement("/p/c/a", "")));
}

TEST_P(PropFindOf, AllProp_StopsTheReadingOfNames)
{
    provider.AddFile("/p/a", "hello");
    const std::string expected = MultiStatus(DefaultFile("/p/a", "5", "a"));
    EXPECT_EQ(world
                  .Run(PropFind("/Ferro/p/a", "<propfind><allprop/><prop><getetag/></prop>"
                                              "</propfind>"))
                  .text,
              expected);
    EXPECT_EQ(world
                  .Run(PropFind("/Ferro/p/a", "<D:PropFind xmlns:D='DAV:'><D:ALLPROP/>"
                                              "<D:propname/></D:PropFind>"))
                  .text,
              expected);
}

TEST_P(PropFindOf, AllPropInsideProp_SwitchesTheRequest)
{
    provider.AddFile("/p/a", "hello");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:getetag/><D:allprop/><D:name/>"))).text,
              MultiStatus(ResourceElement(
                  "/p/a",
                  "<a:getcontentlength>5</a:getcontentlength>\n"
                  "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
                  "<a:displayname>a</a:displayname>\n"
                  "<a:getetag/>\n"
                  "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
                  "</a:getlastmodified>\n"
                  "<a:resourcetype><a:resource/></a:resourcetype>\n"
                  "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
                  "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
                  "<a:iscollection b:dt=\"boolean\">0</a:iscollection>\n",
                  kNoContentType)));
}

TEST_P(PropFindOf, ElementsBehindProp_AreStillAskedFor)
{
    provider.AddFile("/p/a", "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", "<propfind><prop/><getetag/></propfind>")).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
}

TEST_P(PropFindOf, NamesAreComparedWithoutCaseAndWithoutPrefix)
{
    provider.AddFile("/p/a", "x");
    EXPECT_EQ(
        world.Run(PropFind("/Ferro/p/a", "<q:PROPFIND><q:Prop><z:GetETag/></q:Prop></q:PROPFIND>"))
            .text,
        MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
}

constexpr char kEveryName[] =
    "<name/><displayname/><parentname/><href/><ishidden/><isreadonly/><iscollection/><isroot/>"
    "<getcontenttype/><contentclass/><getcontentlanguage/><getcontentlength/><creationdate/>"
    "<getlastmodified/><lastaccessed/><resourcetype/><isstructureddocument/><defaultdocument/>"
    "<getetag/><lockdiscovery/>";

constexpr char kNeverOnACollection[] = "<a:name/>\n<a:parentname/>\n<a:contentclass/>\n"
                                       "<a:getcontentlanguage/>\n<a:getlastaccessed/>\n"
                                       "<a:isstructureddocument/>\n<a:defaultdocument/>\n"
                                       "<a:lockdiscovery/>\n";

TEST_P(PropFindOf, EveryNameOnAFile_IsAnsweredOrMissingInAFixedOrder)
{
    provider.AddFile("/p/a", "hello");
    const std::string properties = FileProperties("5", "a");
    const size_t at = properties.find("<a:getlastmodified");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking(kEveryName))).text,
              MultiStatus(ResourceElement(
                  "/p/a", properties.substr(0, at) + "<a:getetag/>\n" + properties.substr(at),
                  NotReturned(std::string(kNeverOnACollection) + "<a:getcontenttype/>\n"))));
}

TEST_P(PropFindOf, EveryNameOnACollection_LeavesTheContentTypeOut)
{
    provider.AddCollection("/p/c");
    const std::string properties = CollectionProperties("c");
    const size_t at = properties.find("<a:getlastmodified");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", Asking(kEveryName))).text,
              MultiStatus(CollectionElement(
                  "/p/c/", properties.substr(0, at) + "<a:getetag/>\n" + properties.substr(at),
                  NotReturned(kNeverOnACollection))));
}

TEST_P(PropFindOf, HrefAlone_IsNothingOnAFileAndAnEmptyBlockOnACollection)
{
    provider.AddFile("/p/c/a", "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1, Asking("<D:href/>"))).text,
              MultiStatus(CollectionElement("/p/c/", "", NotReturned("")) +
                          ResourceElement("/p/c/a", "")));
}

TEST_P(PropFindOf, NamesOnly_GivesEmptyElements)
{
    provider.AddFile("/p/c/a", "hello");
    const std::string names = "<a:getcontentlength/>\n<a:creationdate/>\n<a:displayname/>\n"
                              "<a:getlastmodified/>\n<a:resourcetype/>\n<a:ishidden/>\n"
                              "<a:isreadonly/>\n<a:iscollection/>\n";
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1, "<propfind><propname/></propfind>")).text,
              MultiStatus(CollectionElement("/p/c/", names) +
                          ResourceElement("/p/c/a", names, kNoContentType)));
}

TEST_P(PropFindOf, ObjectWithoutADisplayName_LacksTheProperty)
{
    provider.AddFile("/p/a", "x");
    world.Fail("p.res.GetDisplayName", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:displayname/>"))).text,
              MultiStatus(ResourceElement("/p/a", "", NotReturned("<a:displayname/>\n"))));
}

TEST_P(PropFindOf, VitalsThatCannotBeRead_ShowAsZero)
{
    provider.AddFile("/p/a", "hello");
    world.Fail("p.res.GetResourceSize", ProviderFailure(kCodeUnsuccessful));
    world.Fail("p.res.GetLiveAttributes", ProviderFailure(kCodeUnsuccessful));
    const Reply reply = world.Run(PropFind("/Ferro/p/a"));
    EXPECT_EQ(reply.text, MultiStatus(DefaultFile("/p/a", "0", "a")));
}

TEST_P(PropFindOf, DateThatCannotBeTold_IsLeftOut)
{
    provider.AddFile("/p/a", "x");
    world.recorder.FailAlways("util.SystemTimeTo8601Time", harness::kInjected);
    world.recorder.FailAlways("util.SystemTimeToHttpTime", harness::kInjected);
    EXPECT_EQ(world
                  .Run(PropFind("/Ferro/p/a",
                                Asking("<D:creationdate/><D:getlastmodified/><D:getetag/>")))
                  .text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
}

// -- Display names

TEST_P(PropFindOf, DisplayName_EscapesNothingButTheAmpersand)
{
    const struct {
        std::string name;
        std::string shown;
    } cases[] = {
        {"R&D", "R&amp;D"},
        {"a<b>c\"'", "a<b>c\"'"},
        {"&", "&amp;"},
        {"&&", "&amp;_"},         // 4 bytes wide: room for 8, of which the second needs 10
        {"&&x", "&amp;&amp;x"},   // room for 11
        {"&&&&", "&amp;&amp;__"}, // room for 14
        {"a&&&&&&b", "a&amp;&amp;&amp;&amp;__b"}, // room for 26
        {"\xC3\xA9 & \xF0\x9F\x98\x80", "\xC3\xA9 &amp; \xF0\x9F\x98\x80"},
    };
    for (const auto& c : cases) {
        provider.AddFile("/p/a", "x").displayName = harness::Wide(c.name);
        EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:displayname/>"))).text,
                  MultiStatus(
                      ResourceElement("/p/a", "<a:displayname>" + c.shown + "</a:displayname>\n")))
            << c.name;
    }
}

TEST_P(PropFindOf, DisplayNameThatIsNoText_IsLeftOut)
{
    provider.AddFile("/p/a", "x").displayName = u"x\xDC00";
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", Asking("<D:displayname/>"))).text,
              MultiStatus(ResourceElement("/p/a", "")));
}

TEST_P(PropFindOf, LongestDisplayName_IsShownWhole)
{
    const std::string name(512, 'n');
    provider.AddFile("/p/c/a", "x").displayName = harness::Wide(name);
    const Reply reply = world.Run(PropFind("/Ferro/p/c/a", Asking("<D:displayname/>")));
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/c/a", "<a:displayname>" + name +
                                                                    "</a:displayname>\n")));
}

// -- Hrefs

TEST_P(PropFindOf, HrefOfAMember_IsEscapedInUpperCase)
{
    provider.AddFile("/p/c/a b#1%\xC3\xA9.txt", "x");
    const Reply reply = world.Run(PropFind("/Ferro/p/c", 1, Asking("")));
    EXPECT_EQ(reply.text, MultiStatus(CollectionElement("/p/c/", "") +
                                      ResourceElement("/p/c/a%20b%231%25%C3%A9.txt", "")));
}

TEST_P(PropFindOf, Href_NamesTheServerAsTheClientDid)
{
    provider.AddFile("/p/a", "x");
    const auto href = [&](const Request& request) {
        const std::string body = world.Run(request).body;
        const size_t at = body.find("<a:href>") + 8;
        return body.substr(at, body.find("</a:href>") - at);
    };
    const Request plain = PropFind("/Ferro/p/a", Asking(""));
    EXPECT_EQ(href(plain), "http://server.example:8080/Ferro/p/a");
    EXPECT_EQ(href(Request(plain).Header("Host", "files.test")), "http://files.test/Ferro/p/a");
    EXPECT_EQ(href(Request(plain).Protocol("https")), "https://server.example:8080/Ferro/p/a");
    const std::string longest(255, 'h');
    EXPECT_EQ(href(Request(plain).Header("Host", longest)), "http://" + longest + "/Ferro/p/a");
    EXPECT_EQ(href(Request(plain).Header("Host", longest + "h")),
              "http://server.example:8080/Ferro/p/a");

    EXPECT_EQ(href(Request(plain).Header("Host", longest + "h").ExactHeaders()),
              "http://server.example:8080/Ferro/p/a");

    world.recorder.FailAlways("io.QueryInterface", harness::kInjected);
    EXPECT_EQ(href(Request(plain).Protocol("https")), "http://server.example:8080/Ferro/p/a");
    world.recorder.Clear();
    world.recorder.FailAlways("io.GetProtocolName", harness::kInjected);
    EXPECT_EQ(href(Request(plain).Protocol("https")), "http://server.example:8080/Ferro/p/a");
    world.ExpectAtRest();
}

TEST_P(PropFindOf, PathBeyondTheHrefBuffer_IsCutThere)
{
    const std::string name(600, 'n');
    provider.AddFile("/p/" + name, "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/" + name, Asking(""))).text,
              MultiStatus(ResourceElement("/p/" + name.substr(0, 512 - 3), "")));
}

TEST_P(PropFindOf, LongPathOfWideCharacters_IsEscapedWhole)
{
    std::string name;
    std::string escaped;
    for (int i = 0; i < 500; ++i) {
        name += "\xE4\xB8\xAD";
        escaped += "%E4%B8%AD";
    }
    provider.AddFile("/p/" + name, "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/" + name, Asking(""))).text,
              MultiStatus(ResourceElement("/p/" + escaped, "")));
    world.ExpectAtRest();
}

} // namespace
