// SPDX-License-Identifier: Apache-2.0
#include "host/auth/session_admission.h"

#include <gtest/gtest.h>

#include "host/auth/external_source.h"
#include "tests/unit/host/fixtures.h"

namespace kestd {
namespace {

using AuthOutcome = AuthResult::Outcome;

class Gate : public testing::Test {
  protected:
    void SetUp() override
    {
        UserMap users;
        for (const char* const name : {"anna", "otto"})
            users[name] = std::make_shared<const User>(User{name, "secret", {}, {}, {}});
        auth_.SetUsers(users);
        gate_.SetLocation("/Ferro x");
        gate_.RequireCredentials(true);
    }
    void TearDown() override { sessions_.EndAll(); }
    AuthResult Enter(const char* authorization, std::string_view cookie = {}, bool browser = false)
    {
        Credentials credentials;
        credentials.authorization = authorization;
        credentials.cookie = cookie;
        credentials.wantsCookie = browser;
        AuthResult result = gate_.Authenticate(credentials);
        if (result.outcome == AuthOutcome::Granted)
            gate_.ReleaseSession(result.session);
        return result;
    }
    static std::string CookieOf(const AuthResult& result)
    {
        return result.setCookie.substr(0, result.setCookie.find(';'));
    }

    static constexpr const char* kAnna = "Basic YW5uYTpzZWNyZXQ=";
    static constexpr const char* kOtto = "Basic b3R0bzpzZWNyZXQ=";
    ManualClock clock_;
    SessionTable sessions_{{}, clock_};
    Authenticator auth_{{}, clock_, [](std::string_view password, const std::string& hash) {
                            return password == hash;
                        }};
    SessionAdmission gate_{auth_, sessions_};
};

TEST_F(Gate, WithoutCredentials_ChallengesForUtf8)
{
    gate_.SetRealm("my \"files\"");
    const AuthResult result = Enter("");
    EXPECT_EQ(result.outcome, AuthOutcome::Unauthorized);
    EXPECT_EQ(result.challenge, "Basic realm=\"my \\\"files\\\"\", charset=\"UTF-8\"");
    EXPECT_EQ(result.session.hId, nullptr);
    EXPECT_EQ(Enter("Basic YW5uYTp3cm9uZw==").outcome, AuthOutcome::Unauthorized);
    EXPECT_EQ(sessions_.Count(), 0U);
}

TEST_F(Gate, ClientsWithoutCookies_ShareASessionPerUser)
{
    const AuthResult first = Enter(kAnna);
    EXPECT_EQ(first.outcome, AuthOutcome::Granted);
    EXPECT_EQ(first.user, "anna");
    EXPECT_EQ(first.setCookie, "");
    EXPECT_TRUE(IsSame(Enter(kAnna).session, first.session));
    EXPECT_FALSE(IsSame(Enter(kOtto).session, first.session));
    EXPECT_EQ(sessions_.Count(), 2U);
}

TEST_F(Gate, Browser_GetsACookieForTheLocationAndKeepsItsSession)
{
    const AuthResult first = Enter(kAnna, "theme=dark", true);
    const std::string cookie = CookieOf(first);
    EXPECT_EQ(cookie.size(), 12U + 32U);
    EXPECT_EQ(first.setCookie, cookie + "; Path=/Ferro%20x; SameSite=Lax");
    const AuthResult second = Enter(kAnna, "a=b; " + cookie + "; c=d", true);
    EXPECT_TRUE(IsSame(second.session, first.session));
    EXPECT_EQ(second.setCookie, "");
    EXPECT_TRUE(IsSame(Enter(kAnna, cookie).session, first.session)); // its scripts, too
    EXPECT_FALSE(IsSame(Enter(kAnna).session, first.session));
}

TEST_F(Gate, ForeignCookie_OpensNothing)
{
    const AuthResult anna = Enter(kAnna, "", true);
    const AuthResult otto = Enter(kOtto, CookieOf(anna), true);
    EXPECT_EQ(otto.outcome, AuthOutcome::Granted);
    EXPECT_FALSE(IsSame(otto.session, anna.session));
    EXPECT_NE(CookieOf(otto), CookieOf(anna));
    EXPECT_EQ(Enter("", CookieOf(anna), true).outcome, AuthOutcome::Unauthorized);
}

TEST_F(Gate, OpenDoor_AdmitsTheLocalUser)
{
    gate_.RequireCredentials(false);
    const AuthResult first = Enter("");
    EXPECT_EQ(first.outcome, AuthOutcome::Granted);
    EXPECT_EQ(first.user, "");
    EXPECT_TRUE(IsSame(Enter(kAnna).session, first.session));
    gate_.RequireCredentials(true);
    EXPECT_EQ(Enter("").outcome, AuthOutcome::Unauthorized);
}

TEST_F(Gate, EndedSession_IsReplaced)
{
    const AuthResult first = Enter(kAnna);
    const AuthResult browser = Enter(kAnna, "", true);
    clock_.Advance(std::chrono::hours(1));
    sessions_.EndIdle();
    EXPECT_EQ(sessions_.Count(), 0U);
    EXPECT_FALSE(IsSame(Enter(kAnna).session, first.session));
    EXPECT_NE(Enter(kAnna, CookieOf(browser), true).setCookie, "");
}

TEST(FullHouse, AnswersUnavailable)
{
    ManualClock clock;
    SessionLimits limits;
    limits.sessions = 1;
    SessionTable sessions(limits, clock);
    Authenticator auth({}, clock, [](auto&&...) { return true; });
    SessionAdmission gate(auth, sessions);
    Credentials browser;
    browser.wantsCookie = true;
    const AuthResult first = gate.Authenticate(browser);
    ASSERT_EQ(first.outcome, AuthOutcome::Granted);
    EXPECT_EQ(gate.Authenticate({}).outcome, AuthOutcome::Unavailable);
    gate.ReleaseSession(first.session);
    const AuthResult second = gate.Authenticate({});
    EXPECT_EQ(second.outcome, AuthOutcome::Granted);
    gate.ReleaseSession(second.session);
    sessions.EndAll();
}

TEST(CookieHeader, IsSearchedByWholeNames)
{
    struct Row {
        std::string_view header;
        std::string_view value;
    };
    for (const Row& row :
         {Row{"KestSession=abc", "abc"}, Row{" KestSession = abc ;x=y", "abc"},
          Row{"a=b;KestSession=abc", "abc"}, Row{"XKestSession=abc", ""},
          Row{"KestSessionX=abc", ""}, Row{"KestSession", ""}, Row{"KestSession=", ""},
          Row{";;;", ""}, Row{"", ""}, Row{"a=KestSession=no; KestSession=yes", "yes"}})
        EXPECT_EQ(FindCookie(row.header, kSessionCookie), row.value) << row.header;
}

TEST_F(Gate, WhoHasSignedInOutsideNeedsNoPasswordAndHasItsGroups)
{
    Credentials credentials;
    credentials.authorization = kOtto; // who has signed in outside counts before it
    credentials.externalUser = "berta";
    credentials.externalSource = kProxySource;
    credentials.externalGroups = "Staff, Editors,,";
    const AuthResult first = gate_.Authenticate(credentials);
    EXPECT_EQ(first.outcome, AuthOutcome::Granted);
    EXPECT_EQ(first.user, "berta");
    ASSERT_TRUE(first.groups);
    EXPECT_EQ(*first.groups, (std::vector<std::string>{"staff", "editors"}));
    const AuthResult second = gate_.Authenticate(credentials);
    EXPECT_EQ(second.session.hId, first.session.hId);
    credentials.externalGroups = "staff"; // with other rights no session of before
    const AuthResult third = gate_.Authenticate(credentials);
    EXPECT_NE(third.session.hId, first.session.hId);
    for (const AuthResult* one : {&first, &second, &third})
        gate_.ReleaseSession(one->session);
}

TEST_F(Gate, ACookieOfAnotherUserGivesOneWhoHasSignedInOutsideNothing)
{
    const AuthResult anna = Enter(kAnna, {}, true);
    Credentials credentials;
    credentials.externalUser = "berta";
    credentials.externalSource = kProxySource;
    const std::string cookie = CookieOf(anna);
    credentials.cookie = cookie;
    const AuthResult berta = gate_.Authenticate(credentials);
    EXPECT_EQ(berta.outcome, AuthOutcome::Granted);
    EXPECT_EQ(sessions_.PrincipalOf(berta.session)->name, "berta");
    gate_.ReleaseSession(berta.session);
}

} // namespace
} // namespace kestd
