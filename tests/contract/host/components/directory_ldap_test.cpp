// SPDX-License-Identifier: Apache-2.0
//
// The LDAP side of the directory service against a real server.
#include "host/components/directory_ldap.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/component.h"
#include "tests/contract/host/components/slapd_fixture.h"

namespace kestd {
namespace {

constexpr const char16_t* kAnna = u"\\\\TREE\\O=org\\OU=dev\\CN=anna";
constexpr const char16_t* kOtto = u"\\\\TREE\\O=org\\OU=private\\CN=otto";

class Ldap : public SlapdCase {
  protected:
    void SetUp() override { Use(settings_); }
    void Make() { directory_ = MakeLdapDirectory(settings_, clock_); }
    // The values of an attribute with ";" between them, or "code N".
    std::string Ask(const char16_t* name, const char16_t* attribute = kMailAttribute)
    {
        if (!directory_)
            Make();
        std::shared_ptr<const DirectoryEntry> entry;
        if (const TALSTATUS status = directory_->Read(name, entry); Failed(status))
            return "code " + std::to_string(Code(status));
        const auto found = entry->find(FoldedName(attribute));
        std::string text;
        if (found != entry->end())
            for (const std::u16string& value : found->second) {
                text += text.empty() ? "" : ";";
                text.append(value.begin(), value.end()); // the values asked for here are ASCII
            }
        return text;
    }

    LdapSettings settings_;
    std::unique_ptr<DirectoryBackend> directory_;
};

TEST_F(Ldap, AttributesAreReadByTheirDirectoryNames)
{
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org");
    EXPECT_EQ(Ask(kAnna, u"Surname"), "Archer");
    EXPECT_EQ(Ask(kAnna, u"cn"), "anna");
    EXPECT_EQ(Ask(kAnna, u"Given Name"), "");
    std::shared_ptr<const DirectoryEntry> entry;
    ASSERT_EQ(directory_->Read(kAnna, entry), 0U);
    EXPECT_EQ(entry->at(FoldedName(u"Full Name")).at(0), u"Anna \u00c4rcher");
}

TEST_F(Ldap, TypelessNamesGetTheUsualTypes)
{
    EXPECT_EQ(Ask(u"\\\\TREE\\org\\dev\\anna"), "anna@example.org;second@example.org");
}

TEST_F(Ldap, SpecialCharactersInNames_StayText)
{
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=a,b+c=d"), "special@example.org");
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=*"), "code 11");
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=anna,ou=dev"), "code 11");
    EXPECT_EQ(Ask(u"anna"), "code 16");
}

TEST_F(Ldap, Base_IsAppendedToNames)
{
    settings_.base = "o=org";
    EXPECT_EQ(Ask(u"\\\\TREE\\OU=dev\\CN=anna"), "anna@example.org;second@example.org");
}

TEST_F(Ldap, AttributeMap_IsTheAdministrators)
{
    settings_.attributes = {{"Internet EMail Address", "employeeType"}};
    EXPECT_EQ(Ask(kAnna), "ranger");
    EXPECT_EQ(Ask(kAnna, u"Surname"), "");
}

TEST_F(Ldap, WhatOnlyUsersMaySee_NeedsASignIn)
{
    EXPECT_EQ(Ask(kOtto), "code 11");
    settings_.bindName = "cn=root,o=org";
    settings_.bindPassword = "secret";
    Make();
    EXPECT_EQ(Ask(kOtto), "otto@example.org");
    settings_.bindPassword = "wrong";
    Make();
    EXPECT_EQ(Ask(kOtto), "code 1");
}

TEST_F(Ldap, Tls_NeedsACertificateThatIsTrusted)
{
    for (const bool startsTls : {true, false}) {
        settings_.server = startsTls ? server_->Url() : server_->SecureUrl();
        settings_.startsTls = startsTls;
        settings_.caCertificate = server_->CaCertificate();
        Make();
        EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org") << startsTls;
        settings_.caCertificate.clear(); // the system's authorities do not know it
        Make();
        EXPECT_EQ(Ask(kAnna), "code 1") << startsTls;
        settings_.caCertificate = "/nonexistent";
        Make();
        EXPECT_EQ(Ask(kAnna), "code 1") << startsTls;
    }
}

TEST_F(Ldap, ServerThatIsGone_CostsOneTryAndComesBack)
{
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org");
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=nobody"), "code 11");
    server_->Stop();
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org"); // kept
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=nobody"), "code 11");     // kept, too
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=other"), "code 1");
    server_->Start();
    ASSERT_EQ(server_->Problem(), "");
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=other"), "code 1"); // not asked again so soon
    clock_.Advance(10);
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=other"), "code 11");
}

TEST_F(Ldap, ConnectionThatBrokeWhileIdle_IsReplaced)
{
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org");
    server_->Stop();
    server_->Start();
    ASSERT_EQ(server_->Problem(), "");
    clock_.Advance(60); // what was kept is too old
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org");
}

TEST_F(Ldap, Cache_IsBounded)
{
    settings_.cacheEntries = 1;
    EXPECT_EQ(Ask(kAnna), "anna@example.org;second@example.org");
    EXPECT_EQ(Ask(u"\\\\TREE\\O=org\\CN=nobody"), "code 11"); // takes the place
    server_->Stop();
    EXPECT_EQ(Ask(kAnna), "code 1");
    server_->Start();
    ASSERT_EQ(server_->Problem(), "");
}

TEST_F(Ldap, ManyThreads_AskAtOnce)
{
    settings_.cacheTime = std::chrono::seconds(0); // every question goes to the server
    Make();
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i)
                right += Ask(kAnna) == "anna@example.org;second@example.org";
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, 120);
}

} // namespace
} // namespace kestd
