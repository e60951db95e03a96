// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND without a body, and its depths: which objects answer, and whole replies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "propfind.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::Node;
using harness::ProviderFailure;
using harness::Reply;
using harness::World;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using namespace propfind_tests;

namespace {

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

} // namespace
