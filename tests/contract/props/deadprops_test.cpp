// SPDX-License-Identifier: Apache-2.0
//
// Dead properties in PROPFIND replies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deadprops.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::ProviderFailure;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace deadprops_tests;

namespace {

// -- All of them

TEST_F(DeadProperties, AllProp_ListsThemInTheProvidersOrder)
{
    file.properties = {{u"z:b", "two"}, {u"a", ""}, {u"\u00E9", "<x y='1'>raw & odd</x>"}};
    EXPECT_EQ(Ask(kAllProp).text,
              All(Dead("z:b", "two") + Dead("a", "") + Dead("\xC3\xA9", "<x y='1'>raw & odd</x>")));
    EXPECT_THAT(world.Calls({"p.res.GetFirstProperty", "p.res.GetNextProperty"}),
                ElementsAre("p.res.GetFirstProperty(32768)", "p.res.GetNextProperty(32768)",
                            "p.res.GetNextProperty(32768)", "p.res.GetNextProperty(32768)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, PackedRecords_AreAllTaken)
{
    for (int i = 0; i < 10; ++i)
        file.properties.emplace_back(harness::Wide("n" + std::to_string(i)),
                                     std::string(static_cast<size_t>(i), 'v'));
    const std::string one = Ask(kAllProp).text;
    for (const size_t packed : {2u, 3u, 10u, 11u}) {
        provider.recordsPerCall = packed;
        EXPECT_EQ(Ask(kAllProp).text, one) << packed;
    }
    EXPECT_THAT(one, HasSubstr(Dead("n9", "vvvvvvvvv")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, PropName_ListsTheirNamesOnly)
{
    file.properties = {{u"a", "one"}, {u"b", "two"}};
    EXPECT_THAT(Ask("<propfind><propname/></propfind>").body,
                HasSubstr("<a:iscollection/>\n<a/><b/></a:prop>"));
}

TEST_F(DeadProperties, EmptyBody_ListsNone)
{
    file.properties = {{u"a", "one"}};
    EXPECT_EQ(world.Run(Request(KestMethodPropFind, "/Ferro/p/a")).text,
              MultiStatus(DefaultFile("/p/a", "5", "a")));
    EXPECT_THAT(world.Calls({"p.res.GetFirstProperty", "p.res.GetNamedProperty"}), IsEmpty());
}

TEST_F(DeadProperties, NamesAskedForBeforeAllProp_AreListedOnce)
{
    file.properties = {{u"a", "one"}};
    EXPECT_EQ(Ask(Asking("<x:a/><x:none/><D:allprop/>")).text, All(Dead("a", "one")));
}

TEST_F(DeadProperties, ProviderWithoutThem_IsNeverAsked)
{
    World plain({{.name = "p"}});
    plain["p"].AddFile("/p/a", "hello").properties = {{u"a", "one"}};
    EXPECT_EQ(plain.Run(Request(KestMethodPropFind, "/Ferro/p/a").Body({Asking("<x:a/>")})).text,
              MultiStatus(ResourceElement("/p/a", "")));
    EXPECT_EQ(plain.Run(Request(KestMethodPropFind, "/Ferro/p/a").Body({kAllProp})).text, All(""));
    plain["p"].AddCollection("/p/c").properties = {{u"a", "one"}};
    EXPECT_EQ(plain.Run(Request(KestMethodPropFind, "/Ferro/p/c").Body({Asking("<x:a/>")})).text,
              MultiStatus(CollectionElement("/p/c/", "")));
    EXPECT_EQ(plain.Run(Request(KestMethodPropFind, "/Ferro/p/c").Body({kAllProp})).text,
              MultiStatus(DefaultCollection("/p/c/", "c")));
    EXPECT_THAT(plain.Calls({"p.res.GetFirstProperty", "p.res.GetNamedProperty",
                             "p.col.GetFirstProperty", "p.col.GetNamedProperty"}),
                IsEmpty());
}

TEST_F(DeadProperties, RecordBeyondTheBuffer_DoublesItAndStartsOver)
{
    const std::string large(40000, 'v');
    const std::string larger(100000, 'w');
    file.properties = {{u"a", "one"}, {u"b", large}, {u"c", larger}};
    EXPECT_EQ(Ask(kAllProp).text, All(Dead("a", "one") + Dead("b", large) + Dead("c", larger)));
    EXPECT_THAT(world.Calls({"p.res.GetFirstProperty"}),
                ElementsAre("p.res.GetFirstProperty(32768)", "p.res.GetFirstProperty(65536)",
                            "p.res.GetFirstProperty(131072)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, SeventhBuffer_IsTheLast)
{
    const std::string largest(2 * 1024 * 1024 - 64, 'v');
    file.properties = {{u"a", "one"}, {u"b", largest}};
    EXPECT_EQ(Ask(kAllProp).text, All(Dead("a", "one") + Dead("b", largest)));
    file.properties[1].second.append(100, 'v');
    world.recorder.Clear();
    EXPECT_EQ(Ask(kAllProp).text, All(Dead("a", "one"))) << "what was collected before stays";
    EXPECT_THAT(world.Calls({"p.res.GetFirstProperty"}),
                ElementsAre("p.res.GetFirstProperty(32768)", "p.res.GetFirstProperty(65536)",
                            "p.res.GetFirstProperty(131072)", "p.res.GetFirstProperty(262144)",
                            "p.res.GetFirstProperty(524288)", "p.res.GetFirstProperty(1048576)",
                            "p.res.GetFirstProperty(2097152)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, ListingThatFails_ShowsWhatCameBefore)
{
    file.properties = {{u"a", "one"}, {u"b", "two"}, {u"c", "three"}};
    world.Fail("p.res.GetNextProperty", ProviderFailure(kCodeUnsuccessful), 2);
    EXPECT_EQ(Ask(kAllProp).text, All(Dead("a", "one") + Dead("b", "two")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NameBeyondEightyBytes_IsSkipped)
{
    std::u16string fits;
    for (int i = 0; i < 26; ++i)
        fits += u'\u4E2D'; // three bytes each
    file.properties = {{fits + u"xx", "fits"}, {fits + u"xxx", "too long"}, {u"a", "one"}};
    EXPECT_EQ(Ask(kAllProp).text,
              All(Dead(harness::Narrow(fits + u"xx"), "fits") + Dead("a", "one")));
}

TEST_F(DeadProperties, ValuesBeyondWhatOneRequestKeeps_AreLeftOut)
{
    const std::string value(1024 * 1024, 'v');
    for (int i = 0; i < 20; ++i)
        file.properties.emplace_back(harness::Wide("n" + std::to_string(i)), value);
    const std::string body = Ask(kAllProp).body;
    EXPECT_THAT(body.substr(body.size() - 220), HasSubstr("</n14>\n</a:prop>"));
    world.ExpectAtRest();
}

// -- Requested ones

TEST_F(DeadProperties, RequestedNames_AreAskedInOrderAndKeptInDuplicate)
{
    file.properties = {{u"a", "one"}, {u"b", "two"}};
    EXPECT_EQ(Ask(Asking("<x:b/><x:a/><y:b/>")).text,
              MultiStatus(
                  ResourceElement("/p/a", Dead("b", "two") + Dead("a", "one") + Dead("b", "two"))));
    EXPECT_THAT(world.Calls({"p.res.GetNamedProperty"}),
                ElementsAre("p.res.GetNamedProperty(b)", "p.res.GetNamedProperty(a)",
                            "p.res.GetNamedProperty(b)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, FirstUnknownName_EndsTheCollection)
{
    file.properties = {{u"a", "one"}, {u"c", "three"}};
    EXPECT_EQ(Ask(Asking("<x:a/><x:none/><x:c/>")).text,
              MultiStatus(ResourceElement("/p/a", Dead("a", "one"))));
    EXPECT_THAT(world.Calls({"p.res.GetNamedProperty"}),
                ElementsAre("p.res.GetNamedProperty(a)", "p.res.GetNamedProperty(none)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NameBeyondFortyCharacters_EndsTheCollection)
{
    const std::string fits(40, 'n');
    file.properties = {{harness::Wide(fits), "one"}, {u"c", "three"}};
    EXPECT_EQ(Ask(Asking("<x:" + fits + "/><x:" + fits + "n/><x:c/>")).text,
              MultiStatus(ResourceElement("/p/a", Dead(fits, "one"))));
    EXPECT_THAT(world.Calls({"p.res.GetNamedProperty"}),
                ElementsAre("p.res.GetNamedProperty(" + fits + ")"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, RequestedValueBeyondTheBuffer_IsAskedForAgain)
{
    const std::string large(70000, 'v');
    file.properties = {{u"a", "one"}, {u"b", large}, {u"c", "three"}};
    EXPECT_EQ(Ask(Asking("<x:a/><x:b/><x:c/>")).text,
              MultiStatus(ResourceElement("/p/a", Dead("a", "one") + Dead("b", large) +
                                                      Dead("c", "three"))));
    EXPECT_THAT(world.Calls({"p.res.GetNamedProperty"}),
                ElementsAre("p.res.GetNamedProperty(a)", "p.res.GetNamedProperty(b)",
                            "p.res.GetNamedProperty(b)", "p.res.GetNamedProperty(b)",
                            "p.res.GetNamedProperty(c)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, RequestedValueBeyondTheSeventhBuffer_IsLeftOut)
{
    file.properties = {{u"a", "one"}, {u"b", std::string(2 * 1024 * 1024 + 1, 'v')}};
    EXPECT_EQ(Ask(Asking("<x:a/><x:b/>")).text,
              MultiStatus(ResourceElement("/p/a", Dead("a", "one"))));
    EXPECT_EQ(world.recorder.Count("p.res.GetNamedProperty"), 8);
    world.ExpectAtRest();
}

// -- Of collections

TEST_F(DeadProperties, CollectionsOwn_AreRepeatedInEveryMember)
{
    provider.AddCollection("/p/c").properties = {{u"author", "me"}};
    provider.AddFile("/p/c/x", "x").properties = {{u"author", "you"}};
    provider.AddCollection("/p/c/y");
    const std::string own = Dead("author", "me");
    EXPECT_EQ(Ask(Asking("<x:author/>"), "/Ferro/p/c", 1).text,
              MultiStatus(CollectionElement("/p/c/", own) + ResourceElement("/p/c/x", own) +
                          CollectionElement("/p/c/y/", own)));
    EXPECT_EQ(Ask(kAllProp, "/Ferro/p/c").text,
              MultiStatus(CollectionElement("/p/c/", CollectionProperties("c") + own)));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, CollectionRecordBeyondTheBuffer_DoublesItToo)
{
    const std::string large(40000, 'v');
    provider.AddCollection("/p/c").properties = {{u"a", "one"}, {u"b", large}};
    EXPECT_EQ(Ask(kAllProp, "/Ferro/p/c").text,
              MultiStatus(CollectionElement("/p/c/", CollectionProperties("c") + Dead("a", "one") +
                                                         Dead("b", large))));
    EXPECT_EQ(Ask(Asking("<b/>"), "/Ferro/p/c").text,
              MultiStatus(CollectionElement("/p/c/", Dead("b", large))));
    world.ExpectAtRest();
}

} // namespace
