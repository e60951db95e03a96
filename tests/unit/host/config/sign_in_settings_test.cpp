// SPDX-License-Identifier: Apache-2.0
#include "host/config/sign_in_settings.h"

#include <string>

#include "tests/unit/host/config/settings_fixture.h"

namespace kestd {
namespace {

class SignInTables : public SettingsFile {};

TEST_F(SignInTables, SourcesOfCredentialsAreListed)
{
    HostSettings s;
    EXPECT_EQ(ReadAll("", s), "");
    EXPECT_EQ(s.users.signIn.sources, std::vector<std::string>{"users"});
    EXPECT_FALSE(s.server.takesPlainPasswords);
    EXPECT_EQ(ReadAll(R"(
['Kest\Configuration\Auth']
'Plain HTTP Passwords' = true
'Sources' = ['ldap', 'users', 'htpasswd']
'Htpasswd File' = '/h'
['Kest\Configuration\Auth\LDAP']
'Server' = 'ldap://example.org'
'Start TLS' = true
'CA Certificate' = '/c'
'Bind Name' = 'b'
'Bind Password' = 'p'
'Base' = 'o=x'
'User Filter' = '(cn=%u)'
'User Name' = 'n'
'Group Attribute' = 'ga'
'Group Base' = 'gb'
'Group Filter' = '(g=%d)'
'Group Name' = 'gn'
'Timeout' = 101
'Retry Time' = 0
'Checks At Once' = 7
)",
                      s),
              "");
    EXPECT_TRUE(s.server.takesPlainPasswords);
    const SignInSettings& in = s.users.signIn;
    EXPECT_EQ(in.sources, (std::vector<std::string>{"ldap", "users", "htpasswd"}));
    const LdapSignIn& l = in.ldap;
    EXPECT_TRUE(l.startsTls);
    EXPECT_EQ(in.htpasswdFile + l.server + l.caCertificate + l.bindName + l.bindPassword + l.base +
                  l.userFilter + l.userName + l.groupAttribute + l.groupBase + l.groupFilter +
                  l.groupName,
              "/hldap://example.org/cbpo=x(cn=%u)ngagb(g=%d)gn");
    EXPECT_EQ(l.timeout.count() + l.retryTime.count(), 101);
    EXPECT_EQ(s.users.auth.remoteAtOnce, 7U);
}

TEST_F(SignInTables, LdapNamesAServerWherePasswordsAreNotRead)
{
    const struct {
        const char* server;
        bool isFine;
    } kRows[] = {{"ldaps://example.org", true},  {"ldap://example.org", false},
                 {"ldap://127.0.0.1:389", true}, {"ldap://[::1]:389", true},
                 {"ldap://localhost/", true},    {"ldap://192.0.2.1", false},
                 {"http://example.org", false},  {"ldap://127.0.0.1.example.org", false}};
    for (const auto& row : kRows) {
        HostSettings s;
        const std::string problem = ReadAll("['Kest\\Configuration\\Auth']\n'Sources' = ['ldap']\n"
                                            "['Kest\\Configuration\\Auth\\LDAP']\n'Server' = '" +
                                                std::string(row.server) + "'\n",
                                            s);
        EXPECT_EQ(problem.empty(), row.isFine) << row.server << ": " << problem;
    }
}

TEST_F(SignInTables, AProxyThatSignsInHasToBeTrusted)
{
    const std::string proxy = "['Kest\\Configuration\\Auth']\n'Sources' = ['proxy']\n";
    const std::string trust =
        "['Kest\\Configuration\\Server']\n'Trusted Proxies' = ['127.0.0.1']\n";
    const auto problem = [&](const std::string& text) {
        HostSettings settings;
        return ReadAll(text, settings);
    };
    const auto fields = [&](const std::string& text) {
        HostSettings settings;
        EXPECT_EQ(ReadAll(text, settings), "") << text;
        return settings.server.proxyUserHeader + "," + settings.server.proxyGroupsHeader;
    };
    EXPECT_NE(problem(proxy).find("without 'Trusted Proxies'"), std::string::npos);
    EXPECT_EQ(fields(trust), ",");
    EXPECT_EQ(fields(trust + proxy), "Remote-User,Remote-Groups");
    EXPECT_EQ(fields(trust + proxy + "'Proxy User Header' = 'X'\n'Proxy Groups Header' = ''\n"),
              "X,");
    for (const char* name : {"", "a b", "a:"})
        EXPECT_NE(problem(trust + proxy + "'Proxy User Header' = '" + name + "'\n"), "") << name;
}

TEST_F(SignInTables, CertificatesNeedThoseWhoVouchForThem)
{
    const std::string sources = "['Kest\\Configuration\\Auth']\n'Sources' = ['certificate']\n";
    const std::string tls = "['Kest\\Configuration\\Server']\n'TLS Certificate' = '/c'\n"
                            "'TLS Key' = '/k'\n";
    const auto problem = [&](const std::string& text) {
        HostSettings settings;
        return ReadAll(text, settings);
    };
    EXPECT_NE(problem(tls + sources).find("needs 'Client CA'"), std::string::npos);
    EXPECT_NE(problem(sources + "'Client CA' = '/a'\n").find("without 'TLS Certificate'"),
              std::string::npos);
    HostSettings s;
    EXPECT_EQ(ReadAll(tls + sources + "'Client CA' = '/a'\n'Client CRL' = '/r'\n", s), "");
    EXPECT_EQ(s.server.clientCa + s.server.clientCrl, "/a/r");
    EXPECT_TRUE(s.users.signIn.HasUnlistedUsers());
    HostSettings unused;
    EXPECT_EQ(ReadAll("['Kest\\Configuration\\Auth']\n'Client CA' = '/a'\n", unused), "");
    EXPECT_EQ(unused.server.clientCa, "");
}

} // namespace
} // namespace kestd
