// SPDX-License-Identifier: Apache-2.0
#include "host/auth/sessions.h"

#include <thread>

#include <gtest/gtest.h>

#include "tests/unit/host/fixtures.h"

namespace kestd {
namespace {

using std::chrono::seconds;

class Sessions : public testing::Test {
  protected:
    void SetUp() override { Make({}); }
    void TearDown() override { table_->EndAll(); }

    void Make(SessionLimits limits)
    {
        if (table_)
            table_->EndAll();
        ended_.clear();
        table_ = std::make_unique<SessionTable>(limits, clock_);
        table_->OnEnd([this](SCHANDLE session) {
            const std::lock_guard lock(mutex_);
            ended_.push_back(session);
        });
    }
    bool HasEnded(SCHANDLE session)
    {
        for (const SCHANDLE ended : ended_)
            if (IsSame(ended, session))
                return true;
        return false;
    }

    ManualClock clock_;
    std::unique_ptr<SessionTable> table_;
    std::mutex mutex_; // guards ended_ where several threads end sessions
    std::vector<SCHANDLE> ended_;
};

TEST_F(Sessions, EqualKeys_ShareOneSession)
{
    const SCHANDLE first = table_->HoldShared(MakeUser("anna"));
    const SCHANDLE second = table_->HoldShared(MakeUser("anna"));
    const SCHANDLE other = table_->HoldShared(MakeUser("otto"));
    EXPECT_TRUE(IsSame(first, second));
    EXPECT_FALSE(IsSame(first, other));
    EXPECT_EQ(table_->PrincipalOf(other)->name, "otto");
    for (const SCHANDLE session : {first, second, other})
        table_->ReleaseSession(session);
}

TEST_F(Sessions, IdleTime_EndsOnlyWhatNobodyUses)
{
    const SCHANDLE used = table_->HoldShared(MakeUser("anna"));
    const SCHANDLE idle = table_->HoldShared(MakeUser("otto"));
    table_->ReleaseSession(idle);
    clock_.Advance(seconds(1199));
    table_->EndIdle();
    EXPECT_EQ(table_->Count(), 2U);
    clock_.Advance(seconds(1));
    table_->EndIdle();
    EXPECT_TRUE(HasEnded(idle));
    EXPECT_FALSE(HasEnded(used));
    table_->ReleaseSession(used);
    clock_.Advance(seconds(1199)); // counted from the end of the last request
    table_->EndIdle();
    EXPECT_FALSE(HasEnded(used));
    clock_.Advance(seconds(1));
    table_->EndIdle();
    EXPECT_TRUE(HasEnded(used));
    EXPECT_EQ(table_->Count(), 0U);
}

TEST_F(Sessions, EndedHandle_IsNotTakenForTheNextInItsPlace)
{
    const SCHANDLE first = table_->HoldShared(MakeUser("anna"));
    table_->ReleaseSession(first);
    table_->EndAll();
    const SCHANDLE second = table_->HoldShared(MakeUser("otto"));
    EXPECT_FALSE(IsSame(first, second));
    EXPECT_FALSE(table_->Hold(first));
    EXPECT_EQ(table_->PrincipalOf(first), nullptr);
    table_->ReleaseSession(first); // does nothing
    table_->ReleaseSession(second);
}

TEST_F(Sessions, MadeUpHandles_AreFoundOut)
{
    const SCHANDLE real = table_->HoldShared(MakeUser("anna"));
    int own = 0;
    for (const SCHANDLE forged :
         {SCHANDLE{}, SCHANDLE{real.hTypeId, nullptr}, SCHANDLE{nullptr, real.hId},
          SCHANDLE{&own, real.hId}, SCHANDLE{real.hTypeId, &own},
          SCHANDLE{real.hTypeId, reinterpret_cast<HANDLE>(~uint64_t{0})}}) {
        EXPECT_FALSE(table_->Lock(forged));
        EXPECT_FALSE(table_->Hold(forged));
    }
    table_->ReleaseSession(real);
}

TEST_F(Sessions, CookieOfAnotherUser_DoesNotOpenHisSession)
{
    std::string cookie;
    const SCHANDLE session = table_->HoldNew(MakeUser("anna"), cookie);
    EXPECT_EQ(cookie.size(), 32U);
    EXPECT_TRUE(IsSame(table_->HoldByCookie(MakeUser("anna"), cookie), session));
    EXPECT_EQ(table_->HoldByCookie(MakeUser("otto"), cookie).hId, nullptr);
    EXPECT_EQ(table_->HoldByCookie(MakeUser("anna"), "0123").hId, nullptr);
    EXPECT_EQ(table_->HoldByCookie(MakeUser("anna"), "").hId, nullptr);
    table_->ReleaseSession(session);
    table_->ReleaseSession(session);
    std::string other;
    const SCHANDLE second = table_->HoldNew(MakeUser("anna"), other);
    EXPECT_FALSE(IsSame(second, session));
    EXPECT_NE(other, cookie);
    table_->ReleaseSession(second);
}

TEST_F(Sessions, OneBrowserTooMany_EndsTheOldest)
{
    SessionLimits limits;
    limits.cookieSessionsPerUser = 3;
    Make(limits);
    std::vector<SCHANDLE> sessions;
    std::string cookie;
    for (int i = 0; i < 3; ++i) {
        sessions.push_back(table_->HoldNew(MakeUser("anna"), cookie));
        table_->ReleaseSession(sessions.back());
        clock_.Advance(seconds(1));
    }
    const SCHANDLE used = sessions[0];
    EXPECT_TRUE(table_->Hold(used));
    table_->ReleaseSession(table_->HoldNew(MakeUser("otto"), cookie));
    EXPECT_TRUE(ended_.empty()); // other users count for themselves
    table_->ReleaseSession(table_->HoldNew(MakeUser("anna"), cookie));
    EXPECT_EQ(ended_.size(), 1U);
    EXPECT_TRUE(HasEnded(sessions[1]));
    table_->ReleaseSession(used);
}

TEST_F(Sessions, FullTable_MakesRoomOrRefuses)
{
    SessionLimits limits;
    limits.sessions = 2;
    Make(limits);
    const SCHANDLE first = table_->HoldShared(MakeUser("a"));
    const SCHANDLE second = table_->HoldShared(MakeUser("b"));
    EXPECT_EQ(table_->HoldShared(MakeUser("c")).hId, nullptr);
    table_->ReleaseSession(first);
    clock_.Advance(seconds(1));
    table_->ReleaseSession(second);
    const SCHANDLE third = table_->HoldShared(MakeUser("c"));
    EXPECT_NE(third.hId, nullptr);
    EXPECT_TRUE(HasEnded(first));
    EXPECT_FALSE(HasEnded(second));
    std::string cookie = "left over";
    EXPECT_TRUE(table_->Hold(second));
    EXPECT_EQ(table_->HoldNew(MakeUser("d"), cookie).hId, nullptr);
    EXPECT_EQ(cookie, "");
    table_->ReleaseSession(second);
    table_->ReleaseSession(third);
}

TEST_F(Sessions, GonePrincipals_LoseTheirSessionsWhenTheRequestIsOver)
{
    const SCHANDLE idle = table_->HoldShared(MakeUser("anna"));
    table_->ReleaseSession(idle);
    const SCHANDLE used = table_->HoldShared(MakeUser("otto"));
    const SCHANDLE kept = table_->HoldShared(MakeUser("emma"));
    table_->EndWhere([](const Principal& principal) { return principal.name != "emma"; });
    EXPECT_TRUE(HasEnded(idle));
    EXPECT_FALSE(HasEnded(used));
    EXPECT_FALSE(table_->Hold(used)); // no further request
    const SCHANDLE fresh = table_->HoldShared(MakeUser("otto"));
    EXPECT_FALSE(IsSame(fresh, used));
    table_->ReleaseSession(used);
    table_->EndIdle();
    EXPECT_TRUE(HasEnded(used));
    EXPECT_FALSE(HasEnded(kept));
    EXPECT_TRUE(table_->Hold(fresh));
    for (const SCHANDLE session : {kept, fresh, fresh})
        table_->ReleaseSession(session);
}

TEST_F(Sessions, ManyThreads_NeverMeetAForeignSession)
{
    SessionLimits limits;
    limits.sessions = 8;
    Make(limits);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                const std::string name(1, static_cast<char>('a' + (t * 7 + i) % 12));
                const SCHANDLE session = table_->HoldShared(MakeUser(name));
                if (!session.hId)
                    continue;
                const auto owner = table_->PrincipalOf(session);
                if (!owner || owner->name != name)
                    ++wrong;
                table_->ReleaseSession(session);
                if (i % 50 == 0)
                    table_->EndIdle();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_LE(table_->Count(), 8U);
}

} // namespace
} // namespace kestd
