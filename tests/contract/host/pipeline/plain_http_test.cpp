// SPDX-License-Identifier: Apache-2.0
//
// Who may send a password, and over what.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

constexpr char kPassword[] = "Authorization: Basic YW5uYTpzZWNyZXQ=\r\n";

// The peer is a trusted proxy, whose word about its client counts.
class PlainHttp : public ServerTest {
  protected:
    void SetUp() override
    {
        base::IpPrefix own;
        ASSERT_EQ(base::ParseIpPrefix("127.0.0.1", own), "");
        settings.trustedProxies = {own};
        settings.dialect = Dialect::Standard;
        door.judge = [this](const Credentials& credentials) {
            asked = asked + (credentials.authorization.empty() ? 0 : 1);
            AuthResult result;
            result.outcome = credentials.authorization.empty() ? AuthResult::Outcome::Unauthorized
                                                               : AuthResult::Outcome::Granted;
            result.challenge = "Basic realm=\"x\"";
            return result;
        };
        module.handler = [](IKestIO_5& io, UINT32) { return io.SendHeader(204); };
    }
    Answer Get(const std::string& fields, const char* from = "127.0.0.1")
    {
        Client client(port, 0, from);
        return client.Ask("GET /Ferro/a HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n");
    }

    ServerSettings settings = QuietSettings();
    std::atomic<int> asked{0}; // about a password
};

TEST_F(PlainHttp, FromAnotherMachineNoPasswordIsTakenNorAskedFor)
{
    const Running running = Start(settings);
    for (const std::string client :
         {"X-Forwarded-For: 192.0.2.1\r\n",
          "X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: http\r\n",
          "Forwarded: for=192.0.2.1;proto=http\r\n", "X-Forwarded-For: 2001:db8::1\r\n"})
        for (const std::string password : {kPassword, ""}) {
            const Answer answer = Get(client + password);
            EXPECT_EQ(answer.status, 403) << client;
            EXPECT_EQ(answer.Header("WWW-Authenticate"), "(none)");
            EXPECT_NE(answer.body.find("use https"), std::string::npos) << answer.body;
        }
    EXPECT_EQ(asked, 0);
    const Answer page = Get("X-Forwarded-For: 192.0.2.1\r\nAccept: text/html\r\n");
    EXPECT_EQ(page.status, 403);
    EXPECT_EQ(page.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(page.body.find("use https"), std::string::npos) << page.body;
}

TEST_F(PlainHttp, WhatNobodyCanReadOnItsWayIsTaken)
{
    const Running running = Start(settings);
    for (const std::string client :
         {"", "X-Forwarded-For: 127.0.0.1\r\n", "X-Forwarded-For: ::1\r\n",
          "X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: https\r\n",
          "Forwarded: for=192.0.2.1;proto=https\r\n"}) {
        EXPECT_EQ(Get(client + kPassword).status, 204) << client;
        EXPECT_EQ(Get(client).status, 401) << client;
    }
}

TEST_F(PlainHttp, OnlyTrustedProxiesSayWhatTheyWereAskedBy)
{
    settings.trustedProxies.clear();
    settings.takesPlainPasswords = false;
    const Running running = Start(settings);
    EXPECT_EQ(Get(std::string("X-Forwarded-For: 192.0.2.1\r\n") + kPassword).status, 204)
        << "the peer is this machine";
}

TEST_F(PlainHttp, ASettingTakesPasswords)
{
    settings.takesPlainPasswords = true;
    const Running running = Start(settings);
    EXPECT_EQ(Get(std::string("X-Forwarded-For: 192.0.2.1\r\n") + kPassword).status, 204);
    EXPECT_EQ(Get("X-Forwarded-For: 192.0.2.1\r\n").status, 401);
}

TEST_F(PlainHttp, WhereNobodySignsInNothingIsAsked)
{
    door.isOpen = true;
    door.judge = [](const Credentials&) {
        AuthResult result;
        result.outcome = AuthResult::Outcome::Granted;
        return result;
    };
    const Running running = Start(settings);
    Client client(port);
    EXPECT_EQ(client
                  .Ask("GET /Ferro/a HTTP/1.1\r\nHost: localhost\r\n"
                       "X-Forwarded-For: 192.0.2.1\r\n\r\n")
                  .status,
              204);
}

} // namespace

} // namespace kestd::test
