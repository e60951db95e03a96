// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH in the standard dialect: what providers are handed, and whole replies.
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kResponseHead[] = "207\nTransfer-Encoding: chunked\n"
                                 "Content-Type: application/xml; charset=\"utf-8\"\n\n"
                                 "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                                 "<D:multistatus xmlns:D=\"DAV:\">\n"
                                 "<D:response><D:href>/Ferro/gen3/f.txt</D:href>";
constexpr char kResponseEnd[] = "</D:response>\n</D:multistatus>\n";

std::string PropStat(const std::string& names, const std::string& status)
{
    return "<D:propstat><D:prop>" + names + "</D:prop><D:status>HTTP/1.1 " + status +
           "</D:status>" +
           (status.starts_with("403") ? "<D:error><D:cannot-modify-protected-property/></D:error>"
                                      : "") +
           "</D:propstat>";
}

std::string Update(const std::string& content, const std::string& declarations = {})
{
    return "<D:propertyupdate xmlns:D=\"DAV:\"" + declarations + ">" + content +
           "</D:propertyupdate>";
}

std::string Set(const std::string& properties)
{
    return "<D:set><D:prop>" + properties + "</D:prop></D:set>";
}

class StandardPropPatch : public Standard {
  protected:
    Request Patch(const std::string& body)
    {
        return Request(KestMethodPropPatch, "/Ferro/gen3/f.txt").Body({body});
    }
    std::string Handed() const
    {
        const auto calls = world.Calls({"gen3.3.PatchProperties"});
        return calls.size() == 1 ? calls[0] : std::to_string(calls.size()) + " calls";
    }
};

TEST_F(StandardPropPatch, AllChanges_InTheirOrder)
{
    EXPECT_EQ(
        Run(Patch(Update(Set("<x:a>1</x:a><x:b/>") +
                             "<D:remove><D:prop><x:c/></D:prop></D:remove>" + Set("<x:a>2</x:a>"),
                         " xmlns:x=\"urn:x\""))),
        kResponseHead +
            PropStat("<n:a xmlns:n=\"urn:x\"/><n:b xmlns:n=\"urn:x\"/>"
                     "<n:c xmlns:n=\"urn:x\"/>",
                     "200 OK") +
            kResponseEnd);
    const std::string scope = " xmlns:x=\"urn:x\" xmlns:D=\"DAV:\"";
    EXPECT_EQ(Handed(), "gen3.3.PatchProperties(/gen3/f.txt, set {urn:x}a=<x:a" + scope +
                            ">1</x:a>, set {urn:x}b=<x:b" + scope +
                            "/>, remove {urn:x}c, set {urn:x}a=<x:a" + scope + ">2</x:a>, -)");
}

TEST_F(StandardPropPatch, Values_AreKeptWhole)
{
    struct Row {
        const char* why;
        std::string property;
        std::string value;
    };
    const std::string dav = " xmlns:D=\"DAV:\"";
    for (const Row& row : {
             Row{"an attribute and a default namespace", "<p xmlns=\"urn:y\" q=\"1\">v</p>",
                 "<p xmlns=\"urn:y\"" + dav + " q=\"1\">v</p>"},
             Row{"elements of several namespaces",
                 "<a:p xmlns:a=\"urn:a\"><b:q xmlns:b=\"urn:b\" b:r=\"2\"/><a:s/></a:p>",
                 "<a:p xmlns:a=\"urn:a\"" + dav +
                     "><b:q xmlns:b=\"urn:b\" b:r=\"2\"/><a:s/></a:p>"},
             Row{"no namespace", "<p>v</p>", "<p" + dav + ">v</p>"},
             Row{"a namespace taken back", "<p xmlns=\"urn:y\"><q xmlns=\"\"/></p>",
                 "<p xmlns=\"urn:y\"" + dav + "><q xmlns=\"\"/></p>"},
             Row{"references and blanks", "<p> &amp;&#60;]]&gt;\n&#13; </p>",
                 "<p" + dav + "> &amp;&lt;]]&gt;\n&#13; </p>"},
             Row{"a section of characters", "<p><![CDATA[<a&b>]]></p>",
                 "<p" + dav + ">&lt;a&amp;b&gt;</p>"},
             Row{"blanks and quotes in an attribute", "<p q='\"&#10;&#9;&lt;'/>",
                 "<p" + dav + " q=\"&quot;&#10;&#9;&lt;\"/>"},
             Row{"a language", "<p xml:lang=\"de\"><q/></p>",
                 "<p" + dav + " xml:lang=\"de\"><q/></p>"},
             Row{"beyond the basic plane", "<p>\xF0\x9F\x98\x80</p>",
                 "<p" + dav + ">\xF0\x9F\x98\x80</p>"},
         }) {
        auto own = MakeWorld();
        EXPECT_EQ(own->Run(Patch(Update(Set(row.property)))).text.substr(0, 3), "207") << row.why;
        const auto& dead = (*own)["gen3"].Find("/gen3/f.txt")->dead;
        ASSERT_EQ(dead.size(), 1U) << row.why;
        EXPECT_EQ(dead[0].value, row.value) << row.why;
    }
}

TEST_F(StandardPropPatch, LanguageInEffect_GoesWithTheValue)
{
    EXPECT_EQ(Run(Patch("<D:propertyupdate xmlns:D=\"DAV:\" xml:lang=\"fr\"><D:set><D:prop>"
                        "<p/></D:prop></D:set></D:propertyupdate>"))
                  .substr(0, 3),
              "207");
    EXPECT_EQ(world["gen3"].Find("/gen3/f.txt")->dead[0].value,
              "<p xmlns:D=\"DAV:\" xml:lang=\"fr\"/>");
}

TEST_F(StandardPropPatch, Dates_AreSet)
{
    struct Row {
        std::string property;
        std::string handed;
    };
    const std::string z = " xmlns:z=\"urn:schemas-microsoft-com:\"";
    for (const Row& row : {
             Row{"<D:getlastmodified>Sat, 31 Jan 2026 12:00:00 GMT</D:getlastmodified>",
                 "modified=134143344000000000"},
             Row{"<D:lastmodified>1769860800</D:lastmodified>", "modified=134143344000000000"},
             Row{"<z:Win32LastModifiedTime>Sat, 31 Jan 2026 12:00:00 "
                 "GMT</z:Win32LastModifiedTime>",
                 "modified=134143344000000000"},
             Row{"<D:creationdate>2026-01-31T13:00:00.25+01:00</D:creationdate>",
                 "created=134143344000000000"},
             Row{"<z:Win32FileAttributes>00000023</z:Win32FileAttributes>", "attributes=3"},
         }) {
        world.recorder.Clear();
        EXPECT_THAT(Run(Patch(Update(Set(row.property), z))), HasSubstr("HTTP/1.1 200 OK"))
            << row.property;
        EXPECT_EQ(Handed(), "gen3.3.PatchProperties(/gen3/f.txt, " + row.handed + ", -)");
    }
}

TEST_F(StandardPropPatch, ProtectedAndSenseless_ChangeNothing)
{
    EXPECT_EQ(Run(Patch(Update(Set("<a/><D:getetag>x</D:getetag>"
                                   "<D:getlastmodified>soon</D:getlastmodified>") +
                               "<D:remove><D:prop><D:creationdate/></D:prop></D:remove>"))),
              kResponseHead + PropStat("<D:getetag/><D:creationdate/>", "403 Forbidden") +
                  PropStat("<D:getlastmodified/>", "409 Conflict") +
                  PropStat("<a/>", "424 Failed Dependency") + kResponseEnd);
    EXPECT_EQ(Handed(), "0 calls");
}

TEST_F(StandardPropPatch, RefusedByTheProvider_FailsTheOthers)
{
    world["gen3"].refusedProperty = "b";
    EXPECT_EQ(Run(Patch(Update(Set("<a/><b/>")))),
              kResponseHead + PropStat("<b/>", "403 Forbidden") +
                  PropStat("<a/>", "424 Failed Dependency") + kResponseEnd);
    EXPECT_TRUE(world["gen3"].Find("/gen3/f.txt")->dead.empty());
}

// Whatever became of its changes, a property has one outcome.
TEST_F(StandardPropPatch, PropertyChangedTwice_IsNamedOnce)
{
    const std::string good = "<D:getlastmodified>Sat, 31 Jan 2026 12:00:00 GMT</D:getlastmodified>";
    const std::string bad = "<D:getlastmodified>soon</D:getlastmodified>";
    EXPECT_EQ(Run(Patch(Update(Set(good + bad + "<a/>") + Set(good)))),
              kResponseHead + PropStat("<D:getlastmodified/>", "409 Conflict") +
                  PropStat("<a/>", "424 Failed Dependency") + kResponseEnd)
        << "one of its values is none";
    EXPECT_EQ(Run(Patch(Update(Set(bad + "<a/>") +
                               "<D:remove><D:prop><D:getlastmodified/><a/></D:prop></D:remove>"))),
              kResponseHead + PropStat("<D:getlastmodified/>", "409 Conflict") +
                  PropStat("<a/>", "424 Failed Dependency") + kResponseEnd)
        << "the first of two failures counts";
    EXPECT_EQ(Run(Patch(Update(Set("<a/>") + "<D:remove><D:prop><a/></D:prop></D:remove>" +
                               Set("<a xmlns=\"urn:x\"/>")))),
              kResponseHead + PropStat("<a/><n:a xmlns:n=\"urn:x\"/>", "200 OK") + kResponseEnd)
        << "one of another namespace is another";
}

// RFC 8144 section 2.2.
TEST_F(StandardPropPatch, MinimalReply_IsEmptyWhenAllWasDone)
{
    const std::string minimal = "204\nPreference-Applied: return=minimal\n\n";
    EXPECT_EQ(Run(Patch(Update(Set("<a/>"))).Header("Prefer", "return=minimal")), minimal);
    EXPECT_EQ(Run(Patch(Update(Set("<b/>"))).Header("Prefer", "depth-noroot, return=minimal; a=1")),
              minimal);
    EXPECT_EQ(Run(Patch(Update(Set("<c/>"))).Header("Brief", "t")), minimal);
    EXPECT_EQ(world["gen3"].Find("/gen3/f.txt")->dead.size(), 3U);

    EXPECT_EQ(Run(Patch(Update(Set("<d/><D:getetag/>"))).Header("Prefer", "return=minimal")),
              kResponseHead + PropStat("<D:getetag/>", "403 Forbidden") +
                  PropStat("<d/>", "424 Failed Dependency") + kResponseEnd)
        << "what has failed is told";
    world["gen3"].refusedProperty = "e";
    EXPECT_EQ(Run(Patch(Update(Set("<e/>"))).Header("Prefer", "return=minimal")),
              kResponseHead + PropStat("<e/>", "403 Forbidden") + kResponseEnd);
}

TEST_F(StandardPropPatch, Locked_Answers423)
{
    world["gen3"].Find("/gen3/f.txt")->locks = {{Write, Exclusive, 0, -1, "me", "tok"}};
    EXPECT_EQ(Run(Patch(Update(Set("<a/>")))).substr(0, 3), "423");
    EXPECT_EQ(Run(Patch(Update(Set("<a/>"))).Header("If", "(<opaquelocktoken:tok>)")).substr(0, 3),
              "207");
}

TEST_F(StandardPropPatch, RefusedRequests)
{
    EXPECT_EQ(Run(Patch("<D:propertyupdate xmlns:D=\"DAV:\">")), Plain("400"));
    EXPECT_EQ(Run(Patch(Update(""))), Plain("400"));
    EXPECT_EQ(Run(Patch("<D:propfind xmlns:D=\"DAV:\"/>")), Plain("400"));
    EXPECT_EQ(Run(Request(KestMethodPropPatch, "/Ferro/gen3/f.txt")), Plain("400"));
    EXPECT_EQ(Run(Request(KestMethodPropPatch, "/Ferro/other/no").Body({Update(Set("<a/>"))})),
              Plain("404"));
    EXPECT_EQ(Run(Request(KestMethodPropPatch, "/Ferro").Body({Update(Set("<a/>"))})).substr(0, 3),
              "403");
}

TEST(StandardPropPatchFailures, EveryFailureIsSurvived)
{
    harness::ExpectEveryFailureIsSurvived(
        MakeWorld, Request(KestMethodPropPatch, "/Ferro/gen3/f.txt")
                       .Body({Update(Set("<x:a>1</x:a><b/>"), " xmlns:x=\"urn:x\"")}));
}

} // namespace

} // namespace standard_tests
