// SPDX-License-Identifier: Apache-2.0
//
// A lock that was granted is told to its client, or does not stand; and of a provider's description
// of one nothing is believed that it cannot hold.
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kInfo[] = "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope>"
                         "<D:locktype><D:write/></D:locktype>"
                         "<D:owner><D:href>me</D:href></D:owner></D:lockinfo>";

class StandardGrantedLock : public Standard {
  protected:
    static Request Lock() { return Request(KestMethodLock, "/Ferro/gen3/f.txt").Body({kInfo}); }
    static Request Refresh()
    {
        return Request(KestMethodLock, "/Ferro/gen3/f.txt")
            .Header("If", "(<opaquelocktoken:held>)");
    }
    std::vector<harness::LockRecord>& Locks() { return world["gen3"].Find("/gen3/f.txt")->locks; }
    // Failures of the platform's memory as soon as a call is made.
    void FailMemoryFrom(const std::string& name)
    {
        world.recorder.onCall = [this, name](std::string_view call) {
            if (call == name)
                world.recorder.FailAlways("platform.TalxAllocPagedMemory", kInjected);
        };
    }
};

// Nobody tries to say something else once the head could not be sent.
TEST_F(StandardGrantedLock, WhoseHeadCannotBeSent_IsTakenBack)
{
    world.Fail("io.SendHeader", kInjected);
    EXPECT_EQ(world.Run(Lock()).heads, 1);
    EXPECT_TRUE(Locks().empty());
    EXPECT_EQ(world.Calls({"gen3.3.Unlock"}).size(), 1U);
}

TEST_F(StandardGrantedLock, WhoseBodyCannotBeSent_IsTakenBack)
{
    for (const char* call : {"io.PutString", "io.Write"}) {
        world.Fail(call, kInjected);
        EXPECT_EQ(world.Run(Lock()).heads, 1) << call;
        EXPECT_TRUE(Locks().empty()) << call;
    }
}

TEST_F(StandardGrantedLock, WhoseTokenCannotBeTold_IsTakenBack)
{
    world.Fail("io.SetReplyHeader", ProviderFailure(kCodeInsufficientResources));
    EXPECT_EQ(Run(Lock()).substr(0, 3), "503");
    EXPECT_TRUE(Locks().empty());
    world["gen3"].nextToken = std::string(600, 't');
    EXPECT_EQ(Run(Lock()).substr(0, 3), "500") << "a token of no length that tokens have";
    EXPECT_TRUE(Locks().empty());
    world["gen3"].nextToken = "";
    EXPECT_EQ(Run(Lock()).substr(0, 3), "500") << "no token, which nobody could name";
}

TEST_F(StandardGrantedLock, IsToldWithoutMemory)
{
    const std::string told = Run(Lock());
    EXPECT_THAT(told, HasSubstr("<D:owner><D:href xmlns:D=\"DAV:\">me</D:href></D:owner>"));
    Locks().clear();
    FailMemoryFrom("gen3.3.Lock");
    EXPECT_EQ(Run(Lock()), told);
    EXPECT_EQ(Locks().size(), 1U);
}

TEST_F(StandardGrantedLock, IsTakenBackWithoutMemory)
{
    FailMemoryFrom("gen3.3.Lock");
    world.Fail("io.SendHeader", kInjected);
    (void)Run(Lock());
    EXPECT_TRUE(Locks().empty());
}

TEST_F(StandardGrantedLock, ThatIsRefreshed_IsGivenTheRoomThatItTakes)
{
    const std::string owner(20'000, 'o'); // another dialect keeps longer ones
    Locks().push_back({Write, Exclusive, 0, -1, owner, "held"});
    EXPECT_THAT(Run(Refresh()),
                testing::AllOf(testing::StartsWith("200\n"), HasSubstr("<D:owner>" + owner)));
    EXPECT_EQ(world.Calls({"gen3.3.RefreshLock"}).size(), 2U);
    world.Fail("gen3.3.RefreshLock", ProviderFailure(kCodeBufferTooSmall), 2);
    EXPECT_EQ(Run(Refresh()).substr(0, 3), "500") << "never satisfied";
    world.Fail("gen3.3.RefreshLock", ProviderFailure(kCodeBufferTooSmall));
    EXPECT_EQ(Run(Refresh()).substr(0, 3), "500") << "without saying how much";
    EXPECT_EQ(Locks().size(), 1U) << "the client has it";
}

TEST_F(StandardGrantedLock, ThatClaimsMoreThanItsRecordHolds_IsNotBelieved)
{
    Locks().push_back({Write, Exclusive, 0, -1, "owner", "held", true});
    EXPECT_EQ(Run(Refresh()), Plain("500"));
    EXPECT_EQ(Locks().size(), 1U);
    const std::string found =
        Run(Request(KestMethodPropFind, "/Ferro/gen3/f.txt").Header("Depth", "0"));
    EXPECT_THAT(found, HasSubstr("<D:lockdiscovery></D:lockdiscovery>"));
}

// A LOCK without a body gives a lock more time, and a PROPFIND without one asks for everything.
TEST_F(StandardGrantedLock, WhoseRequestCannotBeRead_IsNotTakenForARefresh)
{
    Locks().push_back({Write, Exclusive, 0, 7, "them", "held"});
    for (const Request& request :
         {Refresh().Body({kInfo}),
          Request(KestMethodPropFind, "/Ferro/gen3/f.txt").Header("Depth", "0").Body({"<x/>"})}) {
        world.Fail("io.IsClientPayloadAvailable", ProviderFailure(kCodeInsufficientResources));
        EXPECT_EQ(Run(request), Plain("503"));
    }
    EXPECT_EQ(Locks()[0].timeout, 7);
}

TEST(StandardGrantedLockFailures, NoLockStandsBehindAFailure)
{
    harness::ExpectEveryFailureIsSurvived(
        MakeWorld, Request(KestMethodLock, "/Ferro/gen3/f.txt").Body({kInfo}),
        [](World& world, const Reply& reply) {
            if (reply.text[0] != '2') {
                EXPECT_TRUE(world["gen3"].Find("/gen3/f.txt")->locks.empty()) << reply.text;
            }
        });
}

} // namespace

} // namespace standard_tests
