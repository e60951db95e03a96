// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND: what is asked for, which objects answer, and whole replies.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "replies.h"
#include "text.h"
#include "world.h"

using harness::Node;
using harness::ProviderFailure;
using harness::ProviderSpec;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

Request PropFind(const std::string& path, const std::string& body = {})
{
    Request request(KestMethodPropFind, path);
    if (!body.empty())
        request.Body({body});
    return request;
}

Request PropFind(const std::string& path, int depth, const std::string& body = {})
{
    return PropFind(path, body).Header("Depth", std::to_string(depth));
}

// Both generations answer alike where the case says nothing else.
class PropFindOf : public testing::TestWithParam<int> {
  protected:
    World world{{{.name = "p", .generations = GetParam()}}};
    harness::Provider& provider = world["p"];
};
INSTANTIATE_TEST_SUITE_P(Generation, PropFindOf, testing::Values(1, 2));

// -- Default requests

TEST_P(PropFindOf, DefaultOnAFile_ListsTenProperties)
{
    provider.AddFile("/p/a.txt", "hello");
    const Reply reply = world.Run(PropFind("/Ferro/p/a.txt"));
    EXPECT_EQ(reply.text,
              "207\n"
              "Transfer-Encoding: chunked\n"
              "Content-Type: text/xml\n"
              "\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
              "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
              "xmlns:a=\"DAV:\" xmlns:c=\"xml:\">"
              "\n<a:response><a:href>http://server.example:8080/Ferro/p/a.txt</a:href>\n"
              "<a:propstat><a:prop>"
              "<a:getcontentlength>5</a:getcontentlength>\n"
              "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
              "<a:displayname>a.txt</a:displayname>\n"
              "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
              "</a:getlastmodified>\n"
              "<a:resourcetype><a:resource/></a:resourcetype>\n"
              "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
              "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
              "<a:iscollection b:dt=\"boolean\">0</a:iscollection>\n"
              "</a:prop><a:status>HTTP/1.1 200 OK</a:status>\n</a:propstat>"
              "<a:propstat><a:status>HTTP/1.1 404 Not Found</a:status>\n"
              "<a:prop><a:getcontenttype/>\n</a:prop></a:propstat>"
              "</a:response></a:multistatus>\n");
    world.ExpectAtRest();
}

TEST_P(PropFindOf, DefaultOnACollection_HasTheStatusFirstAndNo404Block)
{
    provider.AddFile("/p/docs/a.txt", "hello");
    const Reply reply = world.Run(PropFind("/Ferro/p/docs"));
    EXPECT_EQ(reply.text,
              "207\n"
              "Transfer-Encoding: chunked\n"
              "Content-Type: text/xml\n"
              "\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
              "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
              "xmlns:a=\"DAV:\" xmlns:c=\"xml:\">"
              "\n<a:response><a:href>http://server.example:8080/Ferro/p/docs/</a:href>\n"
              "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop>"
              "<a:getcontentlength b:dt=\"integer\">0</a:getcontentlength>\n"
              "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
              "<a:displayname>docs</a:displayname>\n"
              "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
              "</a:getlastmodified>\n"
              "<a:resourcetype><a:collection/></a:resourcetype>\n"
              "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
              "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
              "<a:iscollection b:dt=\"boolean\">1</a:iscollection>\n"
              "</a:prop></a:propstat></a:response></a:multistatus>\n");
    world.ExpectAtRest();
}

TEST_P(PropFindOf, EmptyFile_ShowsATypedZero)
{
    provider.AddFile("/p/e");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/e")).text, MultiStatus(DefaultFile("/p/e", "0", "e")));
}

TEST_P(PropFindOf, LargestSize_IsPrintedWhole)
{
    provider.AddFile("/p/big").sizeShown = ~UINT64{0};
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/big")).text,
              MultiStatus(DefaultFile("/p/big", "18446744073709551615", "big")));
}

TEST_P(PropFindOf, AttributeBits_ShowAsHiddenAndReadOnly)
{
    provider.AddFile("/p/h").attributes = kAttributeHidden;
    provider.AddFile("/p/r").attributes = kAttributeReadOnly;
    const Reply hidden = world.Run(PropFind("/Ferro/p/h"));
    EXPECT_THAT(hidden.body, HasSubstr("<a:ishidden b:dt=\"boolean\">1</a:ishidden>\n"
                                       "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"));
    const Reply readOnly = world.Run(PropFind("/Ferro/p/r"));
    EXPECT_THAT(readOnly.body, HasSubstr("<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
                                         "<a:isreadonly b:dt=\"boolean\">1</a:isreadonly>\n"));
}

TEST(PropFind, SecondGenerationFile_IsOpenedForSharedReading)
{
    World world({{.name = "p"}});
    world["p"].AddFile("/p/a", "x");
    world.Remember("/Ferro/p/a");
    (void)world.Run(PropFind("/Ferro/p/a"));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/a)", "p.Create(IKestDAVResource2)",
                            "p.res.Associate(/p/a, create=0, access=1, share=3, flags=0, "
                            "token=null)",
                            "p.res.GetDisplayName()", "p.res.GetCreationDate()",
                            "p.res.GetModificationDate()", "p.res.GetResourceSize()",
                            "p.res.GetLiveAttributes()"));
}

TEST(PropFind, FirstGenerationFile_IsOpenedWithShareModeOne)
{
    World world({{.name = "p", .generations = 1, .caps = kCapsNamedProperties}});
    Node& node = world["p"].AddFile("/p/a", "x");
    node.properties = {{u"author", "me"}};
    node.locks = {{}};
    world.Remember("/Ferro/p/a");
    const Reply reply = world.Run(PropFind("/Ferro/p/a", Asking("<D:lockdiscovery/><x:author/>")));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/a)", "p.Create(IKestDAVResource)",
                            "p.res.Associate(/p/a, create=0, access=1, share=1, flags=0)",
                            "p.res.GetDisplayName()", "p.res.GetCreationDate()",
                            "p.res.GetModificationDate()", "p.res.GetResourceSize()",
                            "p.res.GetLiveAttributes()"));
    EXPECT_EQ(reply.text,
              MultiStatus(ResourceElement("/p/a", "", NotReturned("<a:lockdiscovery/>\n"))));
}

TEST(PropFind, Collection_IsReadWithoutASize)
{
    World world({{.name = "p", .caps = kCapsNamedProperties}});
    world["p"].AddCollection("/p/c").sizeShown = 7;
    world.Remember("/Ferro/p/c");
    const Reply reply = world.Run(PropFind("/Ferro/p/c"));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/c)", "p.Create(IKestDAVCollection2)",
                            "p.col.Associate(/p/c, token=null)", "p.col.GetDisplayName()",
                            "p.col.GetCreationDate()", "p.col.GetModificationDate()",
                            "p.col.GetLiveAttributes()"));
    EXPECT_EQ(reply.text, MultiStatus(DefaultCollection("/p/c/", "c")));
}

// -- Depth

TEST_P(PropFindOf, DepthInfinityAndNonsense_ReadAsZero)
{
    provider.AddFile("/p/docs/a.txt", "hello");
    const std::string alone = MultiStatus(DefaultCollection("/p/docs/", "docs"));
    // The last one does not fit the buffer that it is offered, by one byte.
    for (const char* depth : {"0", "infinity", "x1", "", "0x1", "0000000000000001"})
        EXPECT_EQ(world.Run(PropFind("/Ferro/p/docs").Header("Depth", depth)).text, alone) << depth;
}

TEST_P(PropFindOf, AnyOtherDepth_ListsTheDirectMembersOnly)
{
    provider.AddFile("/p/docs/a.txt", "hello");
    provider.AddFile("/p/docs/deep/b.txt", "b");
    provider.AddFile("/p/docs/z", "");
    const std::string listing = MultiStatus(
        DefaultCollection("/p/docs/", "docs") + DefaultFile("/p/docs/a.txt", "5", "a.txt") +
        DefaultCollection("/p/docs/deep/", "deep") + DefaultFile("/p/docs/z", "0", "z"));
    for (const char* depth : {"1", "5", " 1", "1,noroot", "-1", "4294967296", "000000000000001"})
        EXPECT_EQ(world.Run(PropFind("/Ferro/p/docs").Header("Depth", depth)).text, listing)
            << depth;
    world.ExpectAtRest();
}

TEST_P(PropFindOf, DepthThatFillsItsBuffer_IsReadToItsEnd)
{
    provider.AddFile("/p/c/a", "x");
    EXPECT_THAT(
        world.Run(PropFind("/Ferro/p/c").Header("Depth", "0000000000000001").ExactHeaders()).body,
        HasSubstr("/p/c/a"));
}

TEST_P(PropFindOf, TrailingSlash_ListsTheSame)
{
    provider.AddFile("/p/docs/a", "x");
    EXPECT_EQ(
        world.Run(PropFind("/Ferro/p/docs/", 1)).text,
        MultiStatus(DefaultCollection("/p/docs/", "docs") + DefaultFile("/p/docs/a", "1", "a")));
}

TEST_P(PropFindOf, FileWithADepth_IsNeverListed)
{
    provider.AddFile("/p/a", "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/a", 1)).text,
              MultiStatus(DefaultFile("/p/a", "1", "a")));
}

TEST(PropFind, Members_AreNotOpened)
{
    World world({{.name = "p", .caps = kCapsNamedProperties}});
    world["p"].AddFile("/p/c/a", "x");
    world.Remember("/Ferro/p/c/a");
    (void)world.Run(PropFind("/Ferro/p/c", 1));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/c)", "p.Create(IKestDAVCollection2)",
                            "p.col.Associate(/p/c, token=null)", "p.col.GetDisplayName()",
                            "p.col.GetCreationDate()", "p.col.GetModificationDate()",
                            "p.col.GetLiveAttributes()", "p.col.GetFirstChild(2176)",
                            "p.col.GetNextChild(2176)"));
}

TEST_P(PropFindOf, EachMember_IsAskedForAllThatWasRequested)
{
    provider.AddFile("/p/c/a", "x");
    provider.AddFile("/p/c/b", "x");
    provider.AddCollection("/p/c/d");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1, Asking("<D:getetag/><D:getcontenttype/>"))).text,
              MultiStatus(CollectionElement("/p/c/", "<a:getetag/>\n") +
                          ResourceElement("/p/c/a", "<a:getetag/>\n", kNoContentType) +
                          ResourceElement("/p/c/b", "<a:getetag/>\n", kNoContentType) +
                          CollectionElement("/p/c/d/", "<a:getetag/>\n")));
}

TEST_P(PropFindOf, MemberWithoutAttributes_HasNoneOfItsPredecessor)
{
    provider.AddCollection("/p/c").attributes = kAttributeHidden | kAttributeReadOnly;
    provider.AddFile("/p/c/a", "x");
    provider.listsAttributes = false;
    const std::string body = Asking("<D:ishidden/><D:isreadonly/>");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1, body)).text,
              MultiStatus(
                  CollectionElement("/p/c/", "<a:ishidden b:dt=\"boolean\">1</a:ishidden>\n"
                                             "<a:isreadonly b:dt=\"boolean\">1</a:isreadonly>\n") +
                  ResourceElement("/p/c/a", "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
                                            "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n")));
}

TEST_P(PropFindOf, ListingThatBreaksOff_ShowsWhatCameBefore)
{
    provider.AddFile("/p/c/a", "x");
    provider.AddFile("/p/c/b", "x");
    world.Fail("p.col.GetNextChild", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1)).text,
              MultiStatus(DefaultCollection("/p/c/", "c") + DefaultFile("/p/c/a", "1", "a")));
    world.ExpectAtRest();
}

TEST_P(PropFindOf, MemberWithoutAnHref_DoesNotEndTheListing)
{
    provider.AddFile("/p/c/a", "x");
    provider.AddFile("/p/c/b", "x").displayName = u"\xD800"; // half a surrogate pair
    provider.AddFile("/p/c/c", "x");
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/c", 1)).text,
              MultiStatus(DefaultCollection("/p/c/", "c") + DefaultFile("/p/c/a", "1", "a") +
                          "\n<a:response></a:response>" + DefaultFile("/p/c/c", "1", "c")));
}

TEST_P(PropFindOf, ElementsLeaveWhileTheListingRuns)
{
    for (int i = 0; i < 200; ++i)
        provider.AddFile("/p/c/" + std::to_string(i), "x");
    const Reply reply = world.Run(PropFind("/Ferro/p/c", 1));
    EXPECT_GT(reply.body.size(), 100000u);
    const std::vector<std::string> calls = world.Calls({"io.PutString", "p.col.GetNextChild"});
    const auto isNext = [](const std::string& call) { return call.starts_with("p.col."); };
    ASSERT_EQ(std::count_if(calls.begin(), calls.end(), isNext), 200);
    ASSERT_FALSE(isNext(calls.front())) << "the collection itself";
    for (size_t i = 1; i < calls.size(); ++i)
        ASSERT_FALSE(isNext(calls[i]) && isNext(calls[i - 1]))
            << "a member is read before the one in front of it has left";
}

TEST(PropFind, ValueWithANulByte_LeavesWhole)
{
    World world({{.name = "p", .caps = kCapsNamedProperties}});
    world["p"].AddFile("/p/a", "x").properties.emplace_back(u"author", std::string("a\0b", 3));
    world.Remember("/Ferro/p/a");
    const Reply reply = world.Run(PropFind("/Ferro/p/a", Asking("<x:author/>")));
    EXPECT_THAT(reply.text, HasSubstr(std::string("a\0b</author>", 12)));
    EXPECT_THAT(reply.text, EndsWith("</a:multistatus>\n"));
}

// Another thread may not change the provider list before what its entries said has left.
TEST_P(PropFindOf, ProvidersAreHeldUntilTheirElementsHaveLeft)
{
    provider.AddFile("/p/c/a", "x");
    provider.serveRoot = true;
    for (const char* path : {"/Ferro/p/c", "/Ferro/p/c/a"})
        EXPECT_EQ(world.Run(PropFind(path, 1)).unguarded, "</a:multistatus>\n") << path;
    EXPECT_EQ(world.Run(PropFind("/Ferro/p/none")).unguarded, "");
    const std::string root = world.Run(PropFind("/Ferro", 1)).unguarded;
    EXPECT_THAT(root, Not(HasSubstr("/Ferro/p/")));
    EXPECT_THAT(root, EndsWith("</a:multistatus>\n"));
    world.ExpectAtRest();
}

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
