// SPDX-License-Identifier: Apache-2.0
//
// Dead properties and lock discovery in PROPFIND replies, and bodies that mean harm.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "replies.h"
#include "text.h"
#include "world.h"

using harness::LockRecord;
using harness::Node;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kAllProp[] = "<propfind><allprop/></propfind>";

class DeadProperties : public testing::Test {
  protected:
    World world{{{.name = "p", .caps = kCapsNamedProperties}}};
    harness::Provider& provider = world["p"];
    Node& file = provider.AddFile("/p/a", "hello");

    Reply Ask(const std::string& body, const std::string& path = "/Ferro/p/a", int depth = 0)
    {
        return world.Run(
            Request(KestMethodPropFind, path).Header("Depth", std::to_string(depth)).Body({body}));
    }
    // The element of /p/a in a reply to allprop.
    static std::string All(const std::string& dead)
    {
        return MultiStatus(
            ResourceElement("/p/a", FileProperties("5", "a") + dead, kNoContentType));
    }
};

std::string Dead(const std::string& name, const std::string& value)
{
    return "<" + name + ">\n" + value + "</" + name + ">\n";
}

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

// -- Lock discovery

constexpr char kLockDiscovery[] = "<D:lockdiscovery/>";

LockRecord Lock(DAV_LOCK_SCOPE scope, INT64 seconds, const std::string& owner,
                const std::string& token)
{
    LockRecord lock;
    lock.scope = scope;
    lock.depth = 0;
    lock.timeout = seconds * 10000000;
    lock.owner = owner;
    lock.token = token;
    return lock;
}

TEST_F(DeadProperties, LockDiscovery_ListsEveryLock)
{
    file.locks = {Lock(Shared, 3600, "<href>mailto:me@example.org</href> & co", "token-1"),
                  Lock(Shared, 0, "", "token-2")};
    file.locks[1].timeout = -1;
    file.locks[1].depth = -1;
    file.locks[1].type = Read;
    EXPECT_EQ(Ask(Asking(kLockDiscovery)).text,
              MultiStatus(ResourceElement(
                  "/p/a", "<a:lockdiscovery>\n"
                          "<a:activelock>\n"
                          "<a:locktype><a:write/></a:locktype>\n"
                          "<a:lockscope><a:shared/></a:lockscope>\n"
                          "<a:depth>0</a:depth>\n"
                          "<a:owner><href>mailto:me@example.org</href> & co</a:owner>\n"
                          "<a:timeout>3540</a:timeout>\n"
                          "<a:locktoken>\n"
                          "<a:href>opaquelocktoken:token-1</a:href>\n"
                          "</a:locktoken>\n"
                          "</a:activelock>"
                          "<a:activelock>\n"
                          "<a:locktype><a:write/></a:locktype>\n"
                          "<a:lockscope><a:shared/></a:lockscope>\n"
                          "<a:depth>-1</a:depth>\n"
                          "<a:owner></a:owner>\n"
                          "<a:timeout>Infinite</a:timeout>\n"
                          "<a:locktoken>\n"
                          "<a:href>opaquelocktoken:token-2</a:href>\n"
                          "</a:locktoken>\n"
                          "</a:activelock>"
                          "</a:lockdiscovery>")));
    EXPECT_THAT(
        world.Calls({"p.res.GetFirstLock", "p.res.GetNextLock"}),
        ElementsAre("p.res.GetFirstLock(424)", "p.res.GetNextLock(424)", "p.res.GetNextLock(424)"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, RemainingTime_IsToldAMinuteShortAndWrapsBelowIt)
{
    const struct {
        INT64 units;
        const char* shown;
    } cases[] = {{36000000000, "3540"},
                 {600000000, "0"},
                 {599999999, "18446744073709551615"},
                 {0, "18446744073709551556"},
                 {-2, "18446744073709551556"}};
    for (const auto& c : cases) {
        file.locks = {Lock(Exclusive, 0, "", "t")};
        file.locks[0].timeout = c.units;
        const std::string body = Ask(Asking(kLockDiscovery)).body;
        EXPECT_THAT(body, HasSubstr("<a:timeout>" + std::string(c.shown) + "</a:timeout>\n"));
        EXPECT_THAT(body, HasSubstr("<a:lockscope><a:exclusive/></a:lockscope>\n"));
    }
}

TEST_F(DeadProperties, LongestOwnerAndToken_AreShownWhole)
{
    const std::string owner(260, 'o');
    const std::string token(132, 't');
    file.locks = {Lock(Exclusive, 100, owner, token)};
    const std::string body = Ask(Asking(kLockDiscovery)).body;
    EXPECT_THAT(body, HasSubstr("<a:owner>" + owner + "</a:owner>\n"));
    EXPECT_THAT(body, HasSubstr("<a:href>opaquelocktoken:" + token + "</a:href>\n"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, LocksThatClaimMoreThanTheirRecord_AreCut)
{
    file.locks = {Lock(Exclusive, 100, "me", "t")};
    file.locks[0].claimsMore = true;
    const std::string body = Ask(Asking(kLockDiscovery)).body;
    EXPECT_THAT(body,
                HasSubstr("<a:owner>me" + std::string(258, '\0') + "</a:owner>\n<a:timeout>40<"));
    EXPECT_THAT(body, HasSubstr("opaquelocktoken:t" + std::string(131, '\0') + "</a:href>"));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NoLocks_MakeLockDiscoveryMissing)
{
    const std::string missing =
        MultiStatus(ResourceElement("/p/a", "", NotReturned("<a:lockdiscovery/>\n")));
    EXPECT_EQ(Ask(Asking(kLockDiscovery)).text, missing);
    file.locks = {Lock(Exclusive, 100, "", "t")};
    world.Fail("p.res.GetFirstLock", ProviderFailure(kCodeUnsuccessful));
    EXPECT_EQ(Ask(Asking(kLockDiscovery)).text, missing);
}

TEST_F(DeadProperties, LocksThatBreakOff_ShowWhatCameBefore)
{
    file.locks = {Lock(Shared, 100, "", "t1"), Lock(Shared, 100, "", "t2")};
    world.Fail("p.res.GetNextLock", ProviderFailure(kCodeUnsuccessful));
    const std::string body = Ask(Asking(kLockDiscovery)).body;
    EXPECT_THAT(body, HasSubstr("opaquelocktoken:t1<"));
    EXPECT_THAT(body, Not(HasSubstr("opaquelocktoken:t2<")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, LocksOfCollections_AreNeverCollected)
{
    provider.AddCollection("/p/c").locks = {Lock(Exclusive, 100, "", "t")};
    EXPECT_EQ(Ask(Asking(kLockDiscovery), "/Ferro/p/c").text,
              MultiStatus(CollectionElement("/p/c/", "", NotReturned("<a:lockdiscovery/>\n"))));
    EXPECT_THAT(world.Calls({"p.col.GetFirstLock"}), IsEmpty());
}

TEST_F(DeadProperties, DefaultRequest_NeverAsksForLocks)
{
    file.locks = {Lock(Exclusive, 100, "", "t")};
    EXPECT_EQ(Ask(kAllProp).text, All(""));
    EXPECT_THAT(world.Calls({"p.res.GetFirstLock"}), IsEmpty());
}

TEST_F(DeadProperties, ListedEntries_AreMarkedWhenTheyAreFreed)
{
    file.properties = {{u"a", "one"}, {u"b", "two"}};
    file.locks = {Lock(Shared, 100, "", "t1"), Lock(Shared, 100, "", "t2")};
    world.Remember("/Ferro/p/a");
    const int before = world.platform.MarkedFrees();
    // Two names as asked for, two with their values, one without, and two locks.
    (void)Ask(Asking("<a/><b/><none/><D:lockdiscovery/>"));
    EXPECT_EQ(world.platform.MarkedFrees() - before, 7);
    world.ExpectAtRest();
}

// -- Bodies that mean harm

TEST_F(DeadProperties, MalformedBodies_CountUpToTheirError)
{
    const std::string etag = MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n"));
    const std::string nothing = MultiStatus(ResourceElement("/p/a", ""));
    const struct {
        std::string body;
        const std::string& reply;
    } cases[] = {
        {"<propfind><prop><getetag/>", etag},
        {"<propfind><prop><getetag/></prop></propfind><again/>", etag},
        {"<propfind><prop><getetag/><&></prop></propfind>", etag},
        {"<propfind><prop><getetag/><name", etag},
        {" ", nothing},
        {"nonsense", nothing},
        {"<propfind><prop", nothing},
        {std::string("\0\0\0", 3), nothing},
        {"\xFF\xFE<\0p\0", nothing},
        {"<?xml version='1.0' encoding='EBCDIC'?><propfind><prop><getetag/></prop></propfind>",
         nothing},
        {"<?xml version='1.0' encoding='utf-16'?><propfind><prop><getetag/></prop></propfind>",
         nothing},
        {"<propfind><prop><\xC3\x28/><getetag/></prop></propfind>", nothing},
        {"<propfind>&undefined;<prop><getetag/></prop></propfind>", nothing},
        {"<propfind xmlns:D='DAV:' xmlns:D='DAV:'><prop><getetag/></prop></propfind>", nothing},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Ask(c.body).text, c.reply) << c.body;
    world.ExpectAtRest();
}

TEST_F(DeadProperties, Utf16Body_IsUnderstood)
{
    std::string body = "\xFF\xFE";
    for (const char c : std::string("<propfind><prop><getetag/><author/></prop></propfind>"))
        body += {c, '\0'};
    file.properties = {{u"author", "me"}};
    EXPECT_EQ(Ask(body).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n" + Dead("author", "me"))));
}

TEST_F(DeadProperties, DeepNesting_IsSurvived)
{
    std::string open;
    for (int i = 0; i < 10000; ++i)
        open += "<x>";
    EXPECT_EQ(Ask("<propfind><prop><getetag/>" + open).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, AMillionElements_AreSurvived)
{
    std::string body = "<propfind><prop><getetag/>";
    for (int i = 0; i < 1000000; ++i)
        body += "<x/>";
    EXPECT_EQ(Ask(body + "</prop></propfind>").text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    EXPECT_EQ(world.recorder.Count("p.res.GetNamedProperty"), 1);
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NameOf100KB_IsSurvived)
{
    const std::string name(100000, 'n');
    EXPECT_EQ(Ask(Asking("<D:getetag/><" + name + "/>")).text,
              MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, NamesThatOnlyEntitiesRepeat_AreDropped)
{
    file.properties = {{u"author", "me"}};
    std::string entity;
    for (int i = 0; i < 100; ++i)
        entity += "<author/>";
    std::string uses;
    for (int i = 0; i < 100; ++i)
        uses += "&e;";
    const std::string body = "<!DOCTYPE d [<!ENTITY e \"" + entity + "\">]><propfind><prop>" +
                             uses + "</prop></propfind>";
    (void)Ask(body);
    // 10,000 uses; the body itself has room for a few hundred.
    EXPECT_LT(world.recorder.Count("p.res.GetNamedProperty"), 400);
    EXPECT_GE(world.recorder.Count("p.res.GetNamedProperty"), 100);
    world.ExpectAtRest();
}

TEST_F(DeadProperties, EntitiesOfEntities_AreBounded)
{
    std::string body = "<!DOCTYPE d [<!ENTITY e0 \"<x/>\">";
    for (int i = 1; i < 12; ++i) {
        body += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int k = 0; k < 10; ++k)
            body += "&e" + std::to_string(i - 1) + ";";
        body += "\">";
    }
    const Reply reply = Ask(body + "]><propfind><prop><getetag/>&e11;</prop></propfind>");
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
    world.ExpectAtRest();
}

TEST_F(DeadProperties, ExternalEntity_IsNotFetched)
{
    const Reply reply = Ask("<!DOCTYPE d [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>"
                            "<propfind><prop><getetag/><x>&e;</x></prop></propfind>");
    EXPECT_EQ(reply.text, MultiStatus(ResourceElement("/p/a", "<a:getetag/>\n")));
}

TEST_F(DeadProperties, AnnouncedLengthBeyondMemory_AsksForNothing)
{
    Request request(KestMethodPropFind, "/Ferro/p/a");
    request.Body({Asking("<D:getetag/>")});
    request.payloadAvailable = 0xFFFFFFFF;
    EXPECT_EQ(world.Run(request).text, MultiStatus(ResourceElement("/p/a", "")));
    world.ExpectAtRest();
}

} // namespace
