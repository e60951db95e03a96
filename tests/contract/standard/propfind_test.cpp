// SPDX-License-Identifier: Apache-2.0
//
// PROPFIND in the standard dialect: whole replies.
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kHead[] = "207\nTransfer-Encoding: chunked\n"
                         "Content-Type: application/xml; charset=\"utf-8\"\n\n"
                         "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                         "<D:multistatus xmlns:D=\"DAV:\">\n";
constexpr char kEnd[] = "</D:multistatus>\n";
constexpr char kFound[] = "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>";
constexpr char kMissing[] = "</D:prop><D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>";

std::string Response(const std::string& href, const std::string& found,
                     const std::string& missing = {})
{
    std::string text = "<D:response><D:href>" + href + "</D:href>";
    if (!found.empty())
        text += "<D:propstat><D:prop>" + found + kFound;
    if (!missing.empty())
        text += "<D:propstat><D:prop>" + missing + kMissing;
    return text + "</D:response>\n";
}

std::string Type(bool isCollection)
{
    return isCollection ? "<D:resourcetype><D:collection/></D:resourcetype>" : "<D:resourcetype/>";
}

std::string Prop(const std::string& names, const std::string& declarations = {})
{
    return "<p:propfind xmlns:p=\"DAV:\"" + declarations + "><p:prop>" + names +
           "</p:prop></p:propfind>";
}

class StandardPropFind : public Standard {
  protected:
    Request Find(const std::string& path, const std::string& depth, const std::string& body)
    {
        Request request(KestMethodPropFind, path);
        if (!depth.empty())
            request.Header("Depth", depth);
        if (!body.empty())
            request.Body({body});
        return request;
    }
    std::string Types(const std::string& path, const std::string& depth)
    {
        return Run(Find(path, depth, Prop("<p:resourcetype/>")));
    }
};

TEST_F(StandardPropFind, AllProperties_OfAFile)
{
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0", "")),
              kHead +
                  Response("/Ferro/gen3/f.txt",
                           "<D:creationdate>2026-01-31T12:00:00Z</D:creationdate>"
                           "<D:displayname>f.txt</D:displayname>"
                           "<D:getcontentlength>11</D:getcontentlength>"
                           "<D:getcontenttype>text/plain</D:getcontenttype>"
                           "<D:getetag>\"v1\"</D:getetag>"
                           "<D:getlastmodified>Sat, 31 Jan 2026 12:00:00 GMT</D:getlastmodified>"
                           "<D:resourcetype/><D:lockdiscovery></D:lockdiscovery>"
                           "<D:supportedlock>"
                           "<D:lockentry><D:lockscope><D:exclusive/></D:lockscope>"
                           "<D:locktype><D:write/></D:locktype></D:lockentry>"
                           "<D:lockentry><D:lockscope><D:shared/></D:lockscope>"
                           "<D:locktype><D:write/></D:locktype></D:lockentry>"
                           "</D:supportedlock>") +
                  kEnd);
    EXPECT_THAT(Changes(), ElementsAre("gen3.3.GetInfo(/gen3/f.txt)"))
        << "there is nothing to judge";
}

TEST_F(StandardPropFind, NamedProperties_AreFoundOrMissing)
{
    world["gen3"].Find("/gen3/f.txt")->dead = {
        {"urn:x", "colour", "<x:colour xmlns:x=\"urn:x\" x:hue=\"1\">red<b/></x:colour>"},
        {"", "plain", "<plain>p</plain>"}};
    EXPECT_EQ(
        Run(Find("/Ferro/gen3/f.txt", "0",
                 Prop("<p:getcontentlength/><x:colour/><x:size/><plain/><x:displayname/>"
                      "<p:quota-used-bytes/><p:nothing/>",
                      " xmlns:x=\"urn:x\""))),
        kHead +
            Response("/Ferro/gen3/f.txt",
                     "<D:getcontentlength>11</D:getcontentlength>"
                     "<x:colour xmlns:x=\"urn:x\" x:hue=\"1\">red<b/></x:colour><plain>p</plain>",
                     "<D:quota-used-bytes/><n:size xmlns:n=\"urn:x\"/>"
                     "<n:displayname xmlns:n=\"urn:x\"/><D:nothing/>") +
            kEnd);
}

TEST_F(StandardPropFind, Members_BearTheirOwnProperties)
{
    world["gen3"].Find("/gen3/c")->dead = {{"urn:x", "p", "<p xmlns=\"urn:x\">of c</p>"}};
    world["gen3"].Find("/gen3/c/a")->dead = {{"urn:x", "p", "<p xmlns=\"urn:x\">of a</p>"}};
    EXPECT_EQ(Run(Find("/Ferro/gen3/c/", "1", Prop("<p xmlns=\"urn:x\"/>"))),
              kHead + Response("/Ferro/gen3/c/", "<p xmlns=\"urn:x\">of c</p>") +
                  Response("/Ferro/gen3/c/a", "<p xmlns=\"urn:x\">of a</p>") +
                  Response("/Ferro/gen3/c/d/", "", "<n:p xmlns:n=\"urn:x\"/>") + kEnd);
}

TEST_F(StandardPropFind, DepthInfinityAndNone_WalkTheTree)
{
    world["gen3"].AddFile("/gen3/c/d/e/f", "x");
    world["gen3"].AddFile("/gen3/c/z", "x");
    const std::string expected =
        kHead + Response("/Ferro/gen3/c/", Type(true)) + Response("/Ferro/gen3/c/a", Type(false)) +
        Response("/Ferro/gen3/c/d/", Type(true)) + Response("/Ferro/gen3/c/z", Type(false)) +
        Response("/Ferro/gen3/c/d/b", Type(false)) + Response("/Ferro/gen3/c/d/e/", Type(true)) +
        Response("/Ferro/gen3/c/d/e/f", Type(false)) + kEnd;
    EXPECT_EQ(Types("/Ferro/gen3/c", "infinity"), expected);
    EXPECT_EQ(Types("/Ferro/gen3/c", "Infinity"), expected);
    EXPECT_EQ(Types("/Ferro/gen3/c", ""), expected);
}

TEST_F(StandardPropFind, DepthInfinity_LeavesOutWhatHasGoneAndNothingThatCannotBeRead)
{
    world["gen3"].AddFile("/gen3/c/d/e/f", "x");
    const auto walk = [&](UINT16 code) {
        world.Fail("gen3.col3.Open", ProviderFailure(code), 2); // of /c/d, before the reply
        return Types("/Ferro/gen3/c", "infinity").substr(0, 3);
    };
    EXPECT_EQ(walk(kCodeAccessDenied), "403");
    EXPECT_EQ(walk(kCodeUnsuccessful), "500");
    EXPECT_EQ(walk(kCodeInsufficientResources), "503");
    EXPECT_EQ(walk(kCodeNotFound), "207");
}

TEST(StandardPropFindBound, InfinityBeyondTheSetting_IsRefusedBeforeAnythingIsSent)
{
    const char kRefused[] = "403\nContent-Type: application/xml; charset=\"utf-8\"\n"
                            "Content-Length: \n\n<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                            "<D:error xmlns:D=\"DAV:\"><D:propfind-finite-depth/></D:error>\n";
    for (const auto& [most, isServed] : {std::pair(0, false), {3, false}, {4, true}}) {
        World world(Providers(), {.moduleValues = "'Dialect' = 'standard'\n'Infinity Entries' = " +
                                                  std::to_string(most)});
        Fill(world);
        const std::string text =
            world.Run(Request(KestMethodPropFind, "/Ferro/gen3/c").Header("Depth", "infinity"))
                .text;
        EXPECT_EQ(text.substr(0, 3), isServed ? "207" : "403") << most;
        if (!isServed) {
            EXPECT_EQ(text, kRefused) << most;
        }
        world.ExpectAtRest();
    }
}

TEST_F(StandardPropFind, MembersOfManyCollections_HaveTheHrefsOfTheirOwn)
{
    world["gen3"].AddFile("/gen3/n/a b/%");
    world["gen3"].AddFile("/gen3/n/a b/ü/x y");
    world["gen3"].AddFile("/gen3/n/a bc/z");
    const std::string top = "/Ferro/gen3/n/";
    EXPECT_EQ(Types("/Ferro/gen3/n", "infinity"),
              kHead + Response(top, Type(true)) + Response(top + "a%20b/", Type(true)) +
                  Response(top + "a%20bc/", Type(true)) + Response(top + "a%20bc/z", Type(false)) +
                  Response(top + "a%20b/%25", Type(false)) +
                  Response(top + "a%20b/%C3%BC/", Type(true)) +
                  Response(top + "a%20b/%C3%BC/x%20y", Type(false)) + kEnd);
}

TEST_F(StandardPropFind, Dates_AreThoseOfEachMember)
{
    const char* const names[] = {"/gen3/n/1", "/gen3/n/2", "/gen3/n/3", "/gen3/n/4"};
    for (const char* const name : names)
        world["gen3"].AddFile(name);
    const DAV_DATETIME start = world["gen3"].Find(names[0])->modified;
    world["gen3"].Find(names[1])->modified += 9'999'999; // the same second
    world["gen3"].Find(names[2])->modified += 10'000'000;
    world["gen3"].Find(names[2])->created += 20'000'000;
    ASSERT_EQ(start, world["gen3"].Find(names[3])->modified); // the first one again
    const auto dates = [](const std::string& modified, const std::string& created) {
        return "<D:creationdate>2026-01-31T12:00:" + created + "Z</D:creationdate>" +
               "<D:getlastmodified>Sat, 31 Jan 2026 12:00:" + modified + " GMT</D:getlastmodified>";
    };
    EXPECT_EQ(Run(Find("/Ferro/gen3/n", "1", Prop("<p:getlastmodified/><p:creationdate/>"))),
              kHead + Response("/Ferro/gen3/n/", dates("00", "00")) +
                  Response("/Ferro/gen3/n/1", dates("00", "00")) +
                  Response("/Ferro/gen3/n/2", dates("00", "00")) +
                  Response("/Ferro/gen3/n/3", dates("01", "02")) +
                  Response("/Ferro/gen3/n/4", dates("00", "00")) + kEnd);
}

TEST_F(StandardPropFind, Names_AreEscapedForWhereTheyStand)
{
    world["gen3"].AddFile("/gen3/n/a<b>&\"c ü%20.txt");
    EXPECT_EQ(Run(Find("/Ferro/gen3/n", "1", Prop("<p:displayname/>"))),
              kHead + Response("/Ferro/gen3/n/", "<D:displayname>n</D:displayname>") +
                  Response("/Ferro/gen3/n/a%3Cb%3E%26%22c%20%C3%BC%2520.txt",
                           "<D:displayname>a&lt;b&gt;&amp;\"c ü%20.txt</D:displayname>") +
                  kEnd);
}

TEST_F(StandardPropFind, PropertyNames_WithoutValues)
{
    world["gen3"].Find("/gen3/f.txt")->dead = {{"urn:x", "p", "<p xmlns=\"urn:x\">v</p>"}};
    EXPECT_EQ(
        Run(Find("/Ferro/gen3/f.txt", "0", "<propfind xmlns=\"DAV:\"><propname/></propfind>")),
        kHead +
            Response("/Ferro/gen3/f.txt",
                     "<D:creationdate/><D:displayname/><D:getcontentlength/>"
                     "<D:getcontenttype/><D:getetag/><D:getlastmodified/><D:resourcetype/>"
                     "<D:lockdiscovery/><D:supportedlock/><D:current-user-privilege-set/>"
                     "<n:Win32CreationTime xmlns:n=\"urn:schemas-microsoft-com:\"/>"
                     "<n:Win32LastModifiedTime xmlns:n=\"urn:schemas-microsoft-com:\"/>"
                     "<n:Win32FileAttributes xmlns:n=\"urn:schemas-microsoft-com:\"/>"
                     "<n:permissions xmlns:n=\"http://owncloud.org/ns\"/>"
                     "<n:p xmlns:n=\"urn:x\"/>") +
            kEnd);
    world["gen3"].quotaUsed = 5;
    world["gen3"].quotaAvailable = 7;
    EXPECT_THAT(Run(Find("/Ferro/gen3/c", "0", "<propfind xmlns=\"DAV:\"><propname/></propfind>")),
                HasSubstr("<D:quota-available-bytes/><D:quota-used-bytes/>"));
}

TEST_F(StandardPropFind, Include_AddsToAllProperties)
{
    world["gen3"].quotaUsed = 5;
    world["gen3"].quotaAvailable = 7;
    const std::string text = Run(Find("/Ferro/gen3/c", "0",
                                      "<propfind xmlns=\"DAV:\"><allprop/><include>"
                                      "<quota-available-bytes/><quota-used-bytes/>"
                                      "</include></propfind>"));
    EXPECT_THAT(text, HasSubstr("<D:resourcetype><D:collection/></D:resourcetype>"));
    EXPECT_THAT(text, HasSubstr("<D:quota-available-bytes>7</D:quota-available-bytes>"
                                "<D:quota-used-bytes>5</D:quota-used-bytes>"));
    EXPECT_THAT(text, Not(HasSubstr("404")));
}

TEST_F(StandardPropFind, Quota_IsToldOfOneCollectionWithoutABody)
{
    world["gen3"].quotaUsed = 5;
    world["gen3"].quotaAvailable = 7;
    const auto quota = HasSubstr("<D:quota-available-bytes>7</D:quota-available-bytes>"
                                 "<D:quota-used-bytes>5</D:quota-used-bytes>");
    EXPECT_THAT(Run(Find("/Ferro/gen3/c", "0", "")), quota);
    for (const Request& request :
         {Find("/Ferro/gen3/c", "0", "<D:propfind xmlns:D=\"DAV:\"><D:allprop/></D:propfind>"),
          Find("/Ferro/gen3/c", "1", ""), Find("/Ferro/gen3/c", "", ""),
          Find("/Ferro/gen3/f.txt", "0", "")})
        EXPECT_THAT(Run(request), ::testing::Not(HasSubstr("quota")));
}

TEST_F(StandardPropFind, Preferences_LeaveOutWhatIsMissingAndTheRoot)
{
    const std::string body = Prop("<p:getcontentlength/><p:unheard/>");
    EXPECT_EQ(
        Run(Find("/Ferro/gen3/c", "1", body).Header("Prefer", "depth-noroot, return=minimal")),
        "207\nPreference-Applied: return=minimal, depth-noroot\n" + std::string(kHead).substr(4) +
            Response("/Ferro/gen3/c/a", "<D:getcontentlength>2</D:getcontentlength>") +
            "<D:response><D:href>/Ferro/gen3/c/d/</D:href><D:propstat><D:prop>" + kFound +
            "</D:response>\n" + kEnd);
    EXPECT_EQ(Run(Find("/Ferro/gen3/c", "1,noroot", Prop("<p:getcontentlength/>"))),
              "207\nPreference-Applied: depth-noroot\n" + std::string(kHead).substr(4) +
                  Response("/Ferro/gen3/c/a", "<D:getcontentlength>2</D:getcontentlength>") +
                  Response("/Ferro/gen3/c/d/", "", "<D:getcontentlength/>") + kEnd);
}

TEST_F(StandardPropFind, Locks_AreToldWithTheirRoot)
{
    world["gen3"].Find("/gen3/c")->locks = {{Write, Exclusive, -1, INT64{600} * 10'000'000,
                                             "<D:href xmlns:D=\"DAV:\">me</D:href>", "tok-1"}};
    EXPECT_EQ(Run(Find("/Ferro/gen3/c", "0", Prop("<p:lockdiscovery/>"))),
              kHead +
                  Response("/Ferro/gen3/c/",
                           "<D:lockdiscovery><D:activelock><D:locktype><D:write/></D:locktype>"
                           "<D:lockscope><D:exclusive/></D:lockscope><D:depth>infinity</D:depth>"
                           "<D:owner><D:href xmlns:D=\"DAV:\">me</D:href></D:owner>"
                           "<D:timeout>Second-600</D:timeout><D:locktoken>"
                           "<D:href>opaquelocktoken:tok-1</D:href></D:locktoken><D:lockroot>"
                           "<D:href>/Ferro/gen3/c/</D:href></D:lockroot></D:activelock>"
                           "</D:lockdiscovery>") +
                  kEnd);
    world["gen3"].Find("/gen3/c")->locks[0].owner = "A & B <c>";
    EXPECT_THAT(Run(Find("/Ferro/gen3/c", "0", Prop("<p:lockdiscovery/>"))),
                HasSubstr("<D:owner>A &amp; B &lt;c&gt;</D:owner>"))
        << "a text that another dialect left";
}

TEST_F(StandardPropFind, WhatIsLeftOfALock_IsToldToTheNearestSecond)
{
    const auto lockFor = [&](INT64 timeout) {
        world["gen3"].Find("/gen3/c")->locks = {
            {Write, Exclusive, 0, timeout, "<D:href xmlns:D=\"DAV:\">me</D:href>", "tok-1"}};
        return Run(Find("/Ferro/gen3/c", "0", Prop("<p:lockdiscovery/>")));
    };
    EXPECT_THAT(lockFor(INT64{3600} * 10'000'000 - 1), HasSubstr(">Second-3600<"));
    EXPECT_THAT(lockFor(INT64{3599} * 10'000'000 + 4'999'999), HasSubstr(">Second-3599<"));
    EXPECT_THAT(lockFor(1), HasSubstr(">Second-0<"));
    EXPECT_THAT(lockFor(INT64_MAX), HasSubstr(">Second-922337203685<"));
    EXPECT_THAT(lockFor(-5), HasSubstr(">Second-0<"));
}

TEST_F(StandardPropFind, WhatWindowsAsksFor)
{
    world["gen3"].Find("/gen3/f.txt")->attributes = kAttributeHidden;
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0",
                       Prop("<z:Win32FileAttributes/><z:Win32LastModifiedTime/>",
                            " xmlns:z=\"urn:schemas-microsoft-com:\""))),
              kHead +
                  Response("/Ferro/gen3/f.txt",
                           "<Z:Win32LastModifiedTime xmlns:Z=\"urn:schemas-microsoft-com:\">"
                           "Sat, 31 Jan 2026 12:00:00 GMT</Z:Win32LastModifiedTime>"
                           "<Z:Win32FileAttributes xmlns:Z=\"urn:schemas-microsoft-com:\">"
                           "00000022</Z:Win32FileAttributes>") +
                  kEnd);
}

TEST_F(StandardPropFind, MalformedRequests_Answer400)
{
    struct Row {
        const char* why;
        std::string depth;
        std::string body;
    };
    for (const Row& row :
         {Row{"not closed", "0", "<propfind xmlns=\"DAV:\"><prop>"},
          Row{"an empty prefix", "0", Prop("<b:foo xmlns:b=\"\"/>")},
          Row{"an unknown prefix", "0", Prop("<b:foo/>")},
          Row{"another root", "0", "<propertyupdate xmlns=\"DAV:\"/>"},
          Row{"a root of no namespace", "0", "<propfind><allprop/></propfind>"},
          Row{"two forms", "0", "<propfind xmlns=\"DAV:\"><allprop/><propname/></propfind>"},
          Row{"no form", "0", "<propfind xmlns=\"DAV:\"/>"},
          Row{"include beside prop", "0", "<propfind xmlns=\"DAV:\"><prop/><include/></propfind>"},
          Row{"a document type", "0",
              "<!DOCTYPE x [<!ENTITY e \"e\">]><propfind xmlns=\"DAV:\"><allprop/></propfind>"},
          Row{"an unknown depth", "2", ""}, Row{"no depth at all", "one", ""}})
        EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", row.depth, row.body)), Plain("400")) << row.why;
}

TEST_F(StandardPropFind, Extensions_ArePassedOver)
{
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0",
                       "<propfind xmlns=\"DAV:\"><x:deep xmlns:x=\"urn:x\"><prop/></x:deep>"
                       "<prop><resourcetype><inner/></resourcetype></prop></propfind>")),
              kHead + Response("/Ferro/gen3/f.txt", Type(false)) + kEnd);
}

TEST_F(StandardPropFind, Conditions_AreJudged)
{
    EXPECT_EQ(Types("/Ferro/gen3/none", "0"), Plain("404"));
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0", "").Header("If", "([\"other\"])")), Plain("412"));
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0", "").Header("If", "([\"v1\"])")).substr(0, 3),
              "207");
    EXPECT_EQ(Run(Find("/Ferro/gen3/f.txt", "0", "").Header("If", "(")).substr(0, 3), "400");
}

TEST(StandardPropFindRoot, ListsTheRootsOfAllProviders)
{
    World world({{.name = "gen3", .generations = 6}, {.name = "other", .generations = 6}},
                StandardDialect());
    world["gen3"].AddFile("/gen3/f", "x");
    const Request request = Request(KestMethodPropFind, "/Ferro/")
                                .Header("Depth", "1")
                                .Body({Prop("<p:resourcetype/><p:displayname/>")});
    const auto folder = [](const std::string& name) {
        return "<D:displayname>" + name + "</D:displayname>" + Type(true);
    };
    EXPECT_EQ(world.Run(request).text, kHead + Response("/Ferro/", folder("Ferro")) +
                                           Response("/Ferro/gen3/", folder("gen3")) +
                                           Response("/Ferro/other/", folder("other")) + kEnd);
    world.ExpectAtRest();
}

// What no provider serves is answered in full all the same.
TEST(StandardPropFindRoot, AnswersEveryProperty)
{
    World world({{.name = "gen3", .generations = 6}}, StandardDialect());
    const auto find = [&](const std::string& body) {
        return world.Run(Request(KestMethodPropFind, "/Ferro/").Header("Depth", "0").Body({body}));
    };
    const std::string text =
        find(Prop("<p:displayname/><p:resourcetype/><p:creationdate/><p:getlastmodified/>"
                  "<p:lockdiscovery/><p:supportedlock/><p:current-user-privilege-set/>"
                  "<p:quota-used-bytes/><p:getetag/><p:getcontentlength/><p:getcontenttype/>"))
            .text;
    const std::string found = text.substr(0, text.find(kFound));
    for (const char* const property :
         {"<D:displayname>Ferro</D:displayname>", "<D:resourcetype><D:collection/>",
          "<D:creationdate>2", "<D:getlastmodified>", "<D:lockdiscovery></D:lockdiscovery>",
          "<D:supportedlock/>", "<D:privilege><D:read/>"})
        EXPECT_THAT(found, HasSubstr(property));
    EXPECT_THAT(text, HasSubstr(std::string(kFound) +
                                "<D:propstat><D:prop><D:getcontentlength/><D:getcontenttype/>"
                                "<D:getetag/><D:quota-used-bytes/>" +
                                kMissing));
    EXPECT_THAT(find("").text, HasSubstr("<D:lockdiscovery></D:lockdiscovery><D:supportedlock/>"));
    world.ExpectAtRest();
}

// Conditions hold of the root as of anything else: it is there, and has no tag and no lock.
TEST(StandardRoot, ConditionsAreJudged)
{
    World world({{.name = "gen3", .generations = 6}}, StandardDialectWithPages());
    world["gen3"].AddFile("/gen3/f", "x");
    struct Row {
        const char* header;
        const char* value;
        bool holds;
    };
    for (const auto& [header, value, holds] :
         std::vector<Row>{{"If-Match", "*", true},
                          {"If-Match", "\"v1\"", false},
                          {"If", "(<opaquelocktoken:t>)", false},
                          {"If", "(Not <opaquelocktoken:t>)", true},
                          {"If", "</Ferro/gen3/f> ([\"v1\"])", true},
                          {"If", "</Ferro/gen3/f> ([\"v2\"])", false},
                          {"If-Unmodified-Since", "Sat, 31 Jan 1970 12:00:00 GMT", false}})
        for (const UINT32 method : {KestMethodGet, KestMethodHead, KestMethodPropFind}) {
            const Request request =
                Request(method, "/Ferro/").Header("Depth", "0").Header(header, value);
            EXPECT_EQ(world.Run(request).text.substr(0, 1), holds ? "2" : "4")
                << method << " " << header << ": " << value;
        }
    EXPECT_EQ(world.Run(Request(KestMethodPropFind, "/Ferro/").Header("If-None-Match", "*"))
                  .text.substr(0, 3),
              "412");
    world.ExpectAtRest();
}

TEST(StandardPropFindFailures, EveryFailureIsSurvived)
{
    const auto make = [] {
        auto world = MakeWorld();
        (*world)["gen3"].Find("/gen3/c/a")->dead = {{"urn:x", "p", "<p xmlns=\"urn:x\">v</p>"}};
        (*world)["gen3"].Find("/gen3/c/a")->locks = {{Write, Exclusive, 0, -1, "me", "tok"}};
        return world;
    };
    harness::ExpectEveryFailureIsSurvived(
        make, Request(KestMethodPropFind, "/Ferro/gen3/c")
                  .Header("Depth", "1")
                  .Body({Prop("<p:lockdiscovery/><p xmlns=\"urn:x\"/>")}));
}

TEST_F(StandardPropFind, OlderProviders_AnswerAsTheyAlwaysHave)
{
    EXPECT_THAT(Types("/Ferro/gen2/f.txt", "0"), HasSubstr("<a:multistatus"));
}

} // namespace

} // namespace standard_tests
