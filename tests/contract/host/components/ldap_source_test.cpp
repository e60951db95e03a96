// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by a real LDAP server.
#include "host/auth/ldap_source.h"

#include <atomic>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/contract/host/components/slapd_fixture.h"

namespace kestd {
namespace {

using Outcome = Verdict::Outcome;

class LdapSignIns : public SlapdCase {
  protected:
    void SetUp() override
    {
        Use(settings_);
        settings_.base = "o=org";
    }
    Verdict Check(const std::string& name, std::string_view password)
    {
        if (!source_)
            source_ = MakeLdapSource(settings_, "TREE", clock_);
        Verdict verdict = source_->Check(name, password);
        EXPECT_EQ(verdict.outcome == Outcome::Granted, verdict.who != nullptr);
        return verdict;
    }

    LdapSignIn settings_;
    std::shared_ptr<CredentialsSource> source_;
};

TEST_F(LdapSignIns, TheServerSaysWhoHasThePassword)
{
    const Verdict right = Check("anna", "apple");
    ASSERT_EQ(right.outcome, Outcome::Granted);
    EXPECT_EQ(right.who->name, "anna");
    EXPECT_EQ(right.who->source, "ldap");
    EXPECT_EQ(right.who->tree, "TREE");
    EXPECT_EQ(right.who->mail, "anna@example.org");
    EXPECT_EQ(right.who->groups, (std::vector<std::string>{"a,b", "staff"}));
    EXPECT_EQ(right.who->key.find("apple"), std::string::npos);
    EXPECT_TRUE(source_->IsCurrent(*right.who));
    EXPECT_EQ(Check("anna", "Apple").outcome, Outcome::Wrong);
    EXPECT_EQ(Check("otto", "x").outcome, Outcome::UnknownUser) << "not for these eyes";
    EXPECT_EQ(Check("nobody", "apple").outcome, Outcome::UnknownUser);
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Granted) << "by kept connections";
}

TEST_F(LdapSignIns, AnEmptyPasswordNeverBinds)
{
    EXPECT_EQ(Check("anna", "").outcome, Outcome::Wrong);
    EXPECT_EQ(Check("anna", std::string_view("\0", 1)).outcome, Outcome::Wrong);
}

TEST_F(LdapSignIns, NamesAreTextAndNoFilters)
{
    for (const char* name : {"*", "ann*", "anna)(uid=*", "*)(objectClass=*", "anna)(|(uid=*)",
                             "\\61nna", "%u", "anna\\"})
        EXPECT_EQ(Check(name, "apple").outcome, Outcome::UnknownUser) << name;
    EXPECT_EQ(Check(std::string("anna\0x", 6), "apple").outcome, Outcome::UnknownUser);
    const Verdict verdict = Check("st*r(x)\\y", "melon");
    EXPECT_EQ(verdict.outcome, Outcome::Wrong) << "found, but no name for a user: it holds '\\'";
}

TEST_F(LdapSignIns, TheNameIsTheServers)
{
    for (const char* typed : {"ANNA", "Anna", "anna ", " anna"}) {
        const Verdict verdict = Check(typed, "apple");
        ASSERT_EQ(verdict.outcome, Outcome::Granted) << typed;
        EXPECT_EQ(verdict.who->name, "anna");
    }
}

TEST_F(LdapSignIns, TwoEntriesOfANameAreNobody)
{
    EXPECT_EQ(Check("twin", "pear").outcome, Outcome::Wrong);
}

TEST_F(LdapSignIns, GroupsAreSearchedForWhereTheyAreNoAttribute)
{
    settings_.groupAttribute.clear();
    settings_.groupBase = "ou=dev,o=org";
    settings_.groupFilter = "(&(objectClass=groupOfNames)(member=%d))";
    const Verdict verdict = Check("anna", "apple");
    ASSERT_EQ(verdict.outcome, Outcome::Granted);
    EXPECT_EQ(verdict.who->groups, (std::vector<std::string>{"archivists", "staff"}));
}

TEST_F(LdapSignIns, GroupsThatCannotBeReadLetNobodyIn)
{
    settings_.groupBase = "ou=none,o=org";
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable);
}

TEST_F(LdapSignIns, WhatOnlyUsersMaySeeNeedsABindName)
{
    settings_.userName = "cn";
    settings_.userFilter = "(cn=%u)";
    EXPECT_EQ(Check("otto", "x").outcome, Outcome::UnknownUser);
    settings_.bindName = "cn=root,o=org";
    settings_.bindPassword = "secret";
    source_ = nullptr;
    EXPECT_EQ(Check("otto", "x").outcome, Outcome::Wrong) << "he has no password";
    settings_.bindPassword = "wrong";
    source_ = nullptr;
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable);
}

TEST_F(LdapSignIns, TlsNeedsACertificateThatIsTrusted)
{
    for (const bool startsTls : {true, false}) {
        settings_.server = startsTls ? server_->Url() : server_->SecureUrl();
        settings_.startsTls = startsTls;
        settings_.caCertificate = server_->CaCertificate();
        source_ = nullptr;
        EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Granted) << startsTls;
        settings_.caCertificate.clear(); // the system's authorities do not know it
        source_ = nullptr;
        EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable) << startsTls;
    }
}

TEST_F(LdapSignIns, AServerThatIsGoneLetsNobodyInUntilItIsBack)
{
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Granted);
    server_->Stop();
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable);
    server_->Start();
    ASSERT_EQ(server_->Problem(), "");
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable) << "not asked again so soon";
    clock_.Advance(10);
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Granted);
    server_->Stop();
    server_->Start();
    ASSERT_EQ(server_->Problem(), "");
    EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Granted)
        << "broken connections are replaced";
}

TEST_F(LdapSignIns, AServerThatSaysNothingIsNotWaitedForLong)
{
    const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(silent, 5), 0);
    ASSERT_EQ(getsockname(silent, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const std::string port = std::to_string(ntohs(address.sin_port));
    settings_.timeout = std::chrono::milliseconds(200);
    for (const bool isTls : {false, true}) {
        settings_.server = (isTls ? "ldaps://127.0.0.1:" : "ldap://127.0.0.1:") + port;
        source_ = nullptr;
        EXPECT_EQ(Check("anna", "apple").outcome, Outcome::Unavailable);
    }
    close(silent);
}

TEST_F(LdapSignIns, WhoIsAskedForIsFoundWithoutAPassword)
{
    (void)Check("nobody", "x");
    const Verdict found = source_->Find("anna");
    ASSERT_EQ(found.outcome, Outcome::Granted);
    EXPECT_EQ(found.who->groups, (std::vector<std::string>{"a,b", "staff"}));
    EXPECT_EQ(source_->Find("nobody").outcome, Outcome::UnknownUser);
    EXPECT_EQ(source_->Find("twin").outcome, Outcome::UnknownUser);
}

TEST_F(LdapSignIns, OtherSettingsAreAnotherServer)
{
    const Verdict verdict = Check("anna", "apple");
    ASSERT_EQ(verdict.outcome, Outcome::Granted);
    settings_.groupAttribute.clear();
    EXPECT_FALSE(MakeLdapSource(settings_, "TREE", clock_)->IsCurrent(*verdict.who));
}

TEST_F(LdapSignIns, ManyThreadsSignInAtOnce)
{
    (void)Check("nobody", "x"); // makes the source
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i)
                right += source_->Check("anna", t % 2 ? "apple" : "wrong").outcome ==
                         (t % 2 ? Outcome::Granted : Outcome::Wrong);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, 40);
}

} // namespace
} // namespace kestd
