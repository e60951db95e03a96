// SPDX-License-Identifier: Apache-2.0
//
// PROPPATCH: what is taken out of a body, and what providers are handed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proppatch.h"
#include "text.h"
#include "world.h"

using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace proppatch_tests;

namespace {

// -- What is patched

TEST_F(PropPatch, SetProperty_IsHandedOverAndAnswered)
{
    world.Remember("/Ferro/p/a");
    const Reply reply = Patch(Update(Set("<x:author>me</x:author>")));
    EXPECT_EQ(reply.text,
              "207\n"
              "Transfer-Encoding: chunked\n"
              "Content-Type: text/xml\n"
              "\n"
              "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
              "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
              "xmlns:a=\"DAV:\" xmlns:c=\"xml:\"><a:response>"
              "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n"
              "<a:prop><x:author></x:author></a:prop></a:propstat>"
              "</a:response></a:multistatus>\n");
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/a)", "p.Create(IKestDAVResource2)",
                            "p.res.Associate(/p/a, create=0, access=0, share=3, flags=0, "
                            "token=null)",
                            "p.res.SetNamedPropertyEnh(x:author, \"me\")"));
    world.ExpectAtRest();
}

TEST_F(PropPatch, MethodSeven_IsServedAlike)
{
    const std::string body = Update(Set("<x:a>1</x:a>"));
    EXPECT_EQ(world.Run(Request(7, "/Ferro/p/a").Body({body})).text, Patched(Done("x:a")));
}

TEST_F(PropPatch, TwoPropertiesInOneProp_PatchOnlyTheFirst)
{
    EXPECT_EQ(Patch(Update(Set("<x:a>1</x:a><x:b>2</x:b>"))).text, Patched(Done("x:a")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(x:a, \"1\")"));
}

TEST_F(PropPatch, ElementsInsideAProperty_BelongToItsValue)
{
    EXPECT_EQ(Patch(Update(Set("<x:a><y>1 &amp; 2</y><z/></x:a>"))).text, Patched(Done("x:a")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(x:a, \"<y>1 &amp; 2</y><z/>\")"));
}

TEST_F(PropPatch, TwoSets_PatchBothInDocumentOrder)
{
    EXPECT_EQ(Patch(Update(Set("<x:b>2</x:b>") + Set("<x:a>1</x:a>"))).text,
              Patched(Done("x:b") + Done("x:a")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(x:b, \"2\")",
                                    "p.res.SetNamedPropertyEnh(x:a, \"1\")"));
}

TEST_F(PropPatch, SeveralPropsInOneSet_ArePatchedEach)
{
    EXPECT_EQ(
        Patch(Update("<D:set><D:prop><a>1</a></D:prop><D:prop><b>2</b></D:prop></D:set>")).text,
        Patched(Done("a") + Done("b")));
}

TEST_F(PropPatch, Remove_AnswersWhatTheProviderSays)
{
    file.properties = {{u"x:a", "1"}};
    provider.enhResult = "gone <b/>";
    EXPECT_EQ(Patch(Update(Remove("<x:a/>"))).text, Patched(Done("x:a", "gone <b/>")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(x:a, null)"));
    EXPECT_THAT(file.properties, IsEmpty());
}

TEST_F(PropPatch, LongestResult_IsEchoedWhole)
{
    provider.enhResult = std::string(1000, 'r');
    EXPECT_EQ(Patch(Update(Set("<a>1</a>"))).text, Patched(Done("a", provider.enhResult)));
    provider.enhResult += "cut";
    EXPECT_EQ(Patch(Update(Set("<a>1</a>"))).text, Patched(Done("a", std::string(1000, 'r'))));
}

TEST_F(PropPatch, SetAndRemove_AreDoneInDocumentOrder)
{
    EXPECT_EQ(Patch(Update(Set("<a>1</a>") + Remove("<a/>") + Set("<b>2</b>"))).text,
              Patched(Done("a") + Done("a") + Done("b")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(a, \"1\")",
                                    "p.res.SetNamedPropertyEnh(a, null)",
                                    "p.res.SetNamedPropertyEnh(b, \"2\")"));
}

TEST_F(PropPatch, RemovalBeforeASetOfTheSameName_TakesItsValue)
{
    // Kept: values are searched for in document order, whatever is done with them.
    (void)Patch(Update(Remove("<a/>") + Set("<a>1</a>")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(a, null)",
                                    "p.res.SetNamedPropertyEnh(a, \"\")"));
}

TEST_F(PropPatch, PropertyWithAnAttribute_IsStoredEmpty)
{
    EXPECT_EQ(Patch(Update(Set("<author xmlns=\"urn:y\">me</author>"))).text,
              Patched(Done("author")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(author, \"\")"));
    ASSERT_EQ(file.properties.size(), 1u);
    EXPECT_EQ(file.properties[0].second, "");
}

TEST_F(PropPatch, EmptyProperties_AreSetToNothing)
{
    EXPECT_EQ(Patch(Update(Set("<a></a>") + Set("<b/>"))).text, Patched(Done("a") + Done("b")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(a, \"\")",
                                    "p.res.SetNamedPropertyEnh(b, \"\")"));
}

TEST_F(PropPatch, PropertyOutsideSetAndRemove_IsAnsweredWithTheWholeBuffer)
{
    EXPECT_EQ(Patch(Update("<D:prop><a>1</a></D:prop>")).text,
              Patched(Done("a", std::string(1000, '\0'))));
    EXPECT_THAT(Sets(), IsEmpty());
}

TEST_F(PropPatch, WholeBuffer_ShowsNothingOfAnEarlierResult)
{
    provider.enhResult = "secret";
    EXPECT_EQ(Patch(Update(Set("<a>1</a>") + "<D:prop><b>1</b></D:prop>")).text,
              Patched(Done("a", "secret") + Done("b", std::string(1000, '\0'))));
}

TEST_F(PropPatch, SetInsideRemove_CountsAsSet)
{
    EXPECT_EQ(Patch(Update("<D:remove><D:set><D:prop><a>1</a></D:prop></D:set>"
                           "<D:prop><b>2</b></D:prop></D:remove>"))
                  .text,
              Patched(Done("a") + Done("b")));
    EXPECT_THAT(Sets(), ElementsAre("p.res.SetNamedPropertyEnh(a, \"1\")",
                                    "p.res.SetNamedPropertyEnh(b, null)"));
}

// -- How values are found

TEST_F(PropPatch, Values_AreSearchedFromWhereTheLastOneEnded)
{
    const struct {
        std::string body;
        std::vector<std::string> values;
    } cases[] = {
        // The same name twice: each gets its own.
        {Set("<a>1</a>") + Set("<a>2</a>"), {"1", "2"}},
        // The second is not where the search goes on, and the third starts over.
        {Set("<a>1</a>") + Set("<b k=''>2</b>") + Set("<a>3</a>"), {"1", "", "1"}},
        // A comment is text as any other.
        {"<!--<a>0</a>-->" + Set("<a>1</a>"), {"0"}},
        // Kept: a closing tag is found by its name's beginning.
        {Set("<a>1<ab>2</ab>3</a>"), {"1<ab>2"}},
        {Set("<a >1</a>"), {""}},
        {Set("<a>1</a >"), {"1"}},
        {Set("<a>\n 1 \n</a>"), {"\n 1 \n"}},
        {Set("<a><![CDATA[<]]></a>"), {"<![CDATA[<]]>"}},
    };
    for (const auto& c : cases) {
        world.recorder.Clear();
        (void)Patch(Update(c.body));
        std::vector<std::string> values;
        for (const std::string& call : Sets())
            values.push_back(call.substr(call.find('"') + 1, call.rfind('"') - call.find('"') - 1));
        EXPECT_EQ(values, c.values) << c.body;
    }
    world.ExpectAtRest();
}

TEST_F(PropPatch, LongestBody_Is7999Bytes)
{
    const auto body = [](size_t size) {
        const std::string empty = Update(Set("<a></a>"));
        return Update(Set("<a>" + std::string(size - empty.size(), 'v') + "</a>"));
    };
    ASSERT_EQ(body(7999).size(), 7999u);
    EXPECT_EQ(Patch(body(7999)).text, Patched(Done("a")));
    EXPECT_EQ(file.properties.at(0).second.size(), 7999 - Update(Set("<a></a>")).size());
    for (const size_t size : {8000u, 8001u, 100000u}) {
        EXPECT_EQ(Patch(body(size)).text, "417\nContent-Length: 0\n\n") << size;
        world.ExpectAtRest();
    }
}

TEST_F(PropPatch, BodyInPieces_IsReadToItsEnd)
{
    const std::string body = Update(Set("<a>1</a>"));
    EXPECT_EQ(world
                  .Run(Request(KestMethodPropPatch, "/Ferro/p/a")
                           .Body({body.substr(0, 10), body.substr(10, 40), body.substr(50)}))
                  .text,
              Patched(Done("a")));
    EXPECT_EQ(world.recorder.Count("io.ReadClientPayload"), 4);
}

TEST_F(PropPatch, BodyThatEndsWithoutACode_IsWhole)
{
    const std::string body = Update(Set("<a>1</a>"));
    EXPECT_EQ(world
                  .Run(Request(KestMethodPropPatch, "/Ferro/p/a")
                           .Body({body})
                           .BodyEndsWith(TAL_STATUS_SUCCESS))
                  .text,
              Patched(Done("a")));
}

// -- The attribute word

TEST_F(PropPatch, Win32FileAttributes_ChangeTheAttributesWithoutABlock)
{
    const struct {
        std::string value;
        UINT32 attributes;
    } cases[] = {{"33", 33}, {"00000020", 20}, {"4294967295", 4294967295},
                 {" 7 ", 7}, {"0x10", 0},      {"nonsense", 0},
                 {"", 0},    {"1<b/>2", 1},    {std::string(500, '0') + "1", 0}};
    for (const auto& c : cases) {
        file.attributes = 99;
        world.recorder.Clear();
        EXPECT_EQ(
            Patch(Update(Set("<Win32FileAttributes>" + c.value + "</Win32FileAttributes>"))).text,
            Patched(""));
        EXPECT_EQ(file.attributes, c.attributes) << c.value;
        EXPECT_THAT(file.properties, IsEmpty());
    }
    world.ExpectAtRest();
}

TEST_F(PropPatch, Win32FileAttributes_AreMatchedWithoutCaseButNeverWithAPrefix)
{
    file.attributes = 1;
    EXPECT_EQ(Patch(Update(Set("<wIN32fileATTRIBUTES>2</wIN32fileATTRIBUTES>"))).text, Patched(""));
    EXPECT_EQ(file.attributes, 2u);
    EXPECT_EQ(Patch(Update(Set("<x:Win32FileAttributes>3</x:Win32FileAttributes>"))).text,
              Patched(Done("x:Win32FileAttributes")));
    EXPECT_EQ(file.attributes, 2u);
}

TEST_F(PropPatch, Win32FileAttributesRemoved_DoNothing)
{
    file.attributes = 1;
    EXPECT_EQ(Patch(Update(Remove("<Win32FileAttributes/>"))).text, Patched(""));
    EXPECT_THAT(Sets(), IsEmpty());
}

TEST_F(PropPatch, Win32FileAttributesThatFail_StillHaveNoBlock)
{
    world.Fail("p.res.SetLiveAttributes", ProviderFailure(kCodeAccessDenied));
    EXPECT_EQ(Patch(Update(Set("<Win32FileAttributes>1</Win32FileAttributes>"))).text, Patched(""));
}

TEST_F(PropPatch, Win32FileAttributesOfACollection_AreANamedProperty)
{
    provider.AddCollection("/p/c");
    world.Remember("/Ferro/p/c");
    EXPECT_EQ(
        Patch(Update(Set("<Win32FileAttributes>16</Win32FileAttributes>")), "/Ferro/p/c").text,
        Patched(Done("Win32FileAttributes")));
    EXPECT_THAT(world.Calls({"p."}),
                ElementsAre("p.GetType(/p/c)", "p.Create(IKestDAVCollection2)",
                            "p.col.Associate(/p/c, token=null)",
                            "p.col.SetNamedPropertyEnh(Win32FileAttributes, \"16\")"));
    world.ExpectAtRest();
}

} // namespace
