// SPDX-License-Identifier: Apache-2.0
//
// Lock discovery in PROPFIND replies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "deadprops.h"
#include "replies.h"
#include "text.h"
#include "world.h"

using harness::LockRecord;
using harness::ProviderFailure;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace deadprops_tests;

namespace {

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

} // namespace
