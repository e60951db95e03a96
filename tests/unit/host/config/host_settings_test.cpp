// SPDX-License-Identifier: Apache-2.0
#include "host/config/host_settings.h"

#include <fstream>
#include <string>

#include "host/commands/setup.h"
#include "host/config/access_settings.h"
#include "host/config/addresses.h"
#include "tests/unit/host/config/settings_fixture.h"

namespace kestd {
namespace {

class Settings : public SettingsFile {
  protected:
    // What EveryValueIsTakenOver gives.
    static void ExpectGivenLimits(const Limits& l);
    static void ExpectGivenSessions(const HostSettings& s);
    // Loads the text as the server's key and reads the settings.
    std::string Read(const std::string& text, HostSettings& settings)
    {
        return ReadAll("['Kest\\Configuration\\Server']\n" + text, settings);
    }
};

TEST_F(Settings, WithoutAFile_AreTheDefaults)
{
    HostSettings settings;
    EXPECT_EQ(ReadHostSettings(*platform_.Get(), settings), "");
    EXPECT_EQ(settings.server.listen, (std::vector<ListenAddress>{{"127.0.0.1", 8080}}));
    EXPECT_EQ(settings.server.limits.connections, 10000U);
    EXPECT_EQ(settings.users.sessions.idleTime.count(), 1200);
    EXPECT_GE(settings.users.auth.hashesAtOnce, 1U);
}

TEST_F(Settings, EveryValueIsTakenOver)
{
    HostSettings s;
    ASSERT_EQ(Read(R"('Listen' = ['0.0.0.0:80', '[::1]:8081']
'TLS Certificate' = '/c'
'TLS Key' = '/k'
'Public URL' = 'https://files.example.org'
'Realm' = 'R'
'Access Log' = false
'Wharf Directory' = '/w'
'Connections' = 1
'Connections Per Address' = 106
'Waiting Requests' = 107
'Waiting Requests Per Address' = 108
'Least Rate' = 0
'Rate Time' = 109
'Worker Threads' = 2
'Head Size' = 1025
'Target Size' = 300
'XML Body Size' = 1026
'Body Size' = 5000000000
'Head Time' = 101
'Body Idle Time' = 102
'Send Stall Time' = 103
'Keep-Alive Time' = 104
'Shutdown Time' = 105
'Session Timeout' = 60
'Sessions' = 7
'Browser Sessions' = 8
'Session Objects' = 9
'Users File' = '/u'
'Password Hashes' = 3
'Password Waiters' = 0
'Credential Cache' = 10
'Credential Time' = 11
'PROXY Protocol' = ['[::1]:8081']
'Trusted Proxies' = ['192.0.2.1', '10.0.0.0/8', 'fd00::/8']
'Proxy Headers' = 'x-forwarded'
)",
                   s),
              "");
    EXPECT_EQ(s.server.listen, (std::vector<ListenAddress>{{"0.0.0.0", 80}, {"::1", 8081}}));
    EXPECT_EQ(s.server.tlsCertificate + s.server.tlsKey + s.server.publicUrl + s.server.realm +
                  s.server.wharfDirectory + s.users.usersFile,
              "/c/khttps://files.example.orgR/w/u");
    EXPECT_FALSE(s.server.accessLog);
    EXPECT_EQ(s.server.proxyProtocol, (std::vector<ListenAddress>{{"::1", 8081}}));
    ASSERT_EQ(s.server.trustedProxies.size(), 3U);
    EXPECT_EQ(base::FormatIpAddress(s.server.trustedProxies[1].address), "10.0.0.0");
    EXPECT_EQ(s.server.proxyHeaders, ProxyHeaders::XForwarded);
    ExpectGivenLimits(s.server.limits);
    ExpectGivenSessions(s);
}

void Settings::ExpectGivenLimits(const Limits& l)
{
    EXPECT_EQ(l.connections, 1U);
    EXPECT_EQ(l.connectionsPerAddress, 106U);
    EXPECT_EQ(l.waitingRequests, 107U);
    EXPECT_EQ(l.waitingPerAddress, 108U);
    EXPECT_EQ(l.leastRate, 0U);
    EXPECT_EQ(l.rateTime.count(), 109);
    EXPECT_EQ(l.workerThreads, 2U);
    EXPECT_EQ(l.headBytes, 1025U);
    EXPECT_EQ(l.targetBytes, 300U);
    EXPECT_EQ(l.xmlBodyBytes, 1026U);
    EXPECT_EQ(l.bodyBytes, 5000000000U);
    EXPECT_EQ(l.headTime.count(), 101);
    EXPECT_EQ(l.bodyIdleTime.count(), 102);
    EXPECT_EQ(l.sendStallTime.count(), 103);
    EXPECT_EQ(l.keepAliveTime.count(), 104);
    EXPECT_EQ(l.shutdownTime.count(), 105);
}

void Settings::ExpectGivenSessions(const HostSettings& s)
{
    EXPECT_EQ(s.users.sessions.idleTime.count(), 60);
    EXPECT_EQ(s.users.sessions.sessions, 7U);
    EXPECT_EQ(s.users.sessions.cookieSessionsPerUser, 8U);
    EXPECT_EQ(s.users.objectsPerSession, 9U);
    EXPECT_EQ(s.users.auth.hashesAtOnce, 3U);
    EXPECT_EQ(s.users.auth.waiters, 0U);
    EXPECT_EQ(s.users.auth.cacheEntries, 10U);
    EXPECT_EQ(s.users.auth.cacheTime.count(), 11);
}

TEST_F(Settings, ThePathOfThePublicUrlIsThePrefix)
{
    const struct {
        const char* url;
        const char* prefix;
    } kRows[] = {
        {"https://h", ""},
        {"https://h/", ""},
        {"https://h/dav", "/dav"},
        {"https://h:8443/dav/", "/dav"},
        {"https://h/a-b/~c_d.e", "/a-b/~c_d.e"},
    };
    for (const auto& row : kRows) {
        HostSettings settings;
        const std::string url = std::string("'Public URL' = '") + row.url + "'\n";
        EXPECT_EQ(
            Read(url + "['Kest\\Configuration\\KestDav']\n'Dialect' = 'standard'\n", settings), "");
        EXPECT_EQ(settings.server.pathPrefix, row.prefix) << row.url;
    }
}

TEST_F(Settings, WrongValue_IsNamedWithItsPlace)
{
    struct Row {
        const char* text;
        const char* expected;
    };
    const Row rows[] = {
        {"'Listen' = 'x'", "expected a list of texts"},
        {"'Listen' = []", "at least one"},
        {"'Listen' = ['localhost:80']", "not 'localhost:80'"},
        {"'Trusted Proxies' = '10.0.0.0/8'", "expected a list of texts"},
        {"'Trusted Proxies' = ['::1', 'proxy']", "not 'proxy'"},
        {"'Trusted Proxies' = ['10.0.0.1/8']", "expected '10.0.0.0/8'"},
        {"'Trusted Proxies' = ['10.0.0.0/33']", "expected 0 to 32 bits"},
        {"'Public URL' = 'https://h/a b'", "letters, digits"},
        {"'Public URL' = 'https://h/a'", "needs the standard dialect"},
        {"'Public URL' = 'https://h/a?b'", "letters, digits"},
        {"'Public URL' = 'https://h/a//b'", "letters, digits"},
        {"'Public URL' = 'https://h/a/../b'", "letters, digits"},
        {"'Public URL' = 'https://h?a'", "letters, digits"},
        {"'PROXY Protocol' = ['127.0.0.1:8080']", "without 'Trusted Proxies'"},
        {"'PROXY Protocol' = ['127.0.0.1:81']\n'Trusted Proxies' = ['::1']",
         "'127.0.0.1:81' is none of the addresses of 'Listen'"},
        {"'PROXY Protocol' = ['all']", "not 'all'"},
        {"'Proxy Headers' = 'via'", "expected 'any', 'forwarded' or 'x-forwarded'"},
        {"'Realm' = 5", "expected a text"},
        {"'Realm' = ''", "expected a text"},
        {"'Access Log' = 2", "true or false"},
        {"'Access Log' = 'yes'", "true or false"},
        {"'Connections' = 0", "from 1 to 1000000, not 0"},
        {"'Connections' = 'many'", "expected a number"},
        {"'Connections' = 99999999999", "from 1 to"},
        {"'Session Timeout' = 5", "from 10"},
        {"'Public URL' = 'x'", "expected http"},
        {"'TLS Key' = '/k'", "belong together"},
    };
    for (const Row& row : rows) {
        HostSettings settings;
        const std::string problem = Read(std::string("# first\n") + row.text + "\n", settings);
        EXPECT_NE(problem.find(row.expected), std::string::npos) << row.text << ": " << problem;
        EXPECT_TRUE(problem.starts_with(file_ + ":3: ")) << problem;
    }
}

class AccessSettings : public Settings {
  protected:
    // Reads groups and one rule with these lines.
    std::string ReadRule(const std::string& lines, HostSettings& settings)
    {
        const std::string problem = Read(R"(
['Kest\Configuration\Access\Groups']
'Staff' = ['anna', 'ben']
'empty' = []
['Kest\Configuration\Access\Rules\first']
)" + lines + "\n",
                                         settings);
        return problem.empty() ? ReadAccessRules(*platform_.Get(), settings.server.access)
                               : problem;
    }
};

TEST_F(AccessSettings, Rules_AreTakenOver)
{
    HostSettings s;
    ASSERT_EQ(ReadHostSettings(*platform_.Get(), s), "");
    EXPECT_EQ(s.server.access, nullptr);
    ASSERT_EQ(ReadRule(R"('Who' = ['group:STAFF', 'user:Carl', 'anonymous']
'Path' = '/docs'
'Rights' = ['list', 'read']
['Kest\Configuration\Access\Rules\Own folders']
'Who' = ['everybody']
'Path' = '/homes/%u'
'Allow' = ['all']
'Deny' = []
'Make' = true
['Kest\Configuration\Access\Rules\drop']
'Who' = ['everybody']
'Path' = '/docs/drop/*'
'Allow' = ['create']
'Deny' = ['list', 'read'])",
                       s),
              "");
    ASSERT_NE(s.server.access, nullptr);
    const std::vector<AccessRule>& rules = s.server.access->Rules();
    ASSERT_EQ(rules.size(), 3U);
    EXPECT_EQ(rules[0].name + rules[1].name + rules[2].name, "firstOwn foldersdrop");
    EXPECT_EQ(rules[0].who, (std::vector<Who>{{Who::Kind::Group, "staff"},
                                              {Who::Kind::User, "Carl"},
                                              {Who::Kind::Anonymous, ""}}));
    EXPECT_EQ(rules[0].allowed, kRightList | kRightRead);
    EXPECT_EQ(rules[0].denied, kRightCreate | kRightChange | kRightDelete);
    EXPECT_EQ(rules[1].path, "/homes/%u");
    EXPECT_EQ(rules[1].allowed, kRightsAll);
    EXPECT_TRUE(rules[1].makes);
    EXPECT_EQ(rules[2].allowed, kRightCreate);
    EXPECT_EQ(rules[2].denied, kRightList | kRightRead);
    EXPECT_FALSE(rules[2].makes);
    EXPECT_EQ(s.server.access->GroupsOf("ben"), std::vector<std::string>{"staff"});
    EXPECT_EQ(WarningsAbout(*s.server.access, *platform_.Get(),
                            [](const std::string& user) { return user == "anna"; })
                  .size(),
              4U); // Carl, and the volumes
    std::string unread;
    TolmRegistryReportUnread(
        [](const char* line, void* all) { *static_cast<std::string*>(all) += line; }, &unread);
    EXPECT_EQ(unread, "");
}

TEST_F(AccessSettings, BadRule_IsNamedWithItsPlace)
{
    struct Row {
        const char* text;
        const char* expected;
    };
    const std::string good = "'Who' = ['everybody']\n'Path' = '/a'\n";
    for (const Row& row : {
             Row{"'Who' = ['everybody']\n'Rights' = []", "begins with '/'"},
             Row{"'Path' = '/a'\n'Rights' = []", "expected a list of 'everybody'"},
             Row{"'Path' = '/a'\n'Rights' = []\n'Who' = []", "expected a list of 'everybody'"},
             Row{"'Path' = '/a'\n'Rights' = []\n'Who' = 'everybody'", "a list of texts"},
             Row{"'Path' = '/a'\n'Rights' = []\n'Who' = ['anna']", "not 'anna'"},
             Row{"'Path' = '/a'\n'Rights' = []\n'Who' = ['group:none']", "no group 'none'"},
             Row{"'Path' = 5\n'Rights' = []\n'Who' = ['everybody']", "expected a text"},
             Row{"'Path' = '/a/../b'\n'Rights' = []\n'Who' = ['everybody']", "nor '..'"},
             Row{"+", "expected 'Rights', 'Allow' or 'Deny'"},
             Row{"+'Rights' = ['write']", "not 'write'"},
             Row{"+'Rights' = 'read'", "a list of texts"},
             Row{"+'Rights' = ['read']\n'Deny' = ['list']", "either 'Rights' or"},
             Row{"+'Allow' = ['read']\n'Deny' = ['read']", "allowed and denied"},
             Row{"+'Rights' = []\n'Make' = 'yes'", "true or false"},
             Row{"'Who' = ['everybody']\n'Rights' = []\n'Path' = '/a/*'\n'Make' = true",
                 "the folder that is to be made"},
         }) {
        HostSettings settings;
        const std::string text = row.text[0] == '+' ? good + (row.text + 1) : row.text;
        const std::string problem = ReadRule(text, settings);
        EXPECT_NE(problem.find(row.expected), std::string::npos) << row.text << ": " << problem;
        EXPECT_NE(problem.find("Access\\Rules\\first'"), std::string::npos) << problem;
        EXPECT_EQ(settings.server.access, nullptr);
    }
}

// The shipped file with its commented-out settings switched on.
std::string SampleFile()
{
    std::ifstream file(KEST_SAMPLE);
    std::string text;
    for (std::string line; std::getline(file, line);)
        text += (line.starts_with("#'") ? line.substr(1) : line) + "\n";
    return text;
}

void ExpectSame(const Limits& l, const Limits& d)
{
    EXPECT_EQ(l.connections, d.connections);
    EXPECT_EQ(l.connectionsPerAddress, d.connectionsPerAddress);
    EXPECT_EQ(l.waitingRequests, d.waitingRequests);
    EXPECT_EQ(l.waitingPerAddress, d.waitingPerAddress);
    EXPECT_EQ(l.leastRate, d.leastRate);
    EXPECT_EQ(l.rateTime, d.rateTime);
    EXPECT_EQ(l.workerThreads, d.workerThreads);
    EXPECT_EQ(l.headBytes, d.headBytes);
    EXPECT_EQ(l.targetBytes, d.targetBytes);
    EXPECT_EQ(l.xmlBodyBytes, d.xmlBodyBytes);
    EXPECT_EQ(l.bodyBytes, d.bodyBytes);
    EXPECT_EQ(l.headTime, d.headTime);
    EXPECT_EQ(l.bodyIdleTime, d.bodyIdleTime);
    EXPECT_EQ(l.sendStallTime, d.sendStallTime);
    EXPECT_EQ(l.keepAliveTime, d.keepAliveTime);
    EXPECT_EQ(l.shutdownTime, d.shutdownTime);
}

TEST_F(Settings, ShippedFile_HoldsTheDefaults)
{
    HostSettings defaults;
    ASSERT_EQ(ReadHostSettings(*platform_.Get(), defaults), "");
    Load(SampleFile());
    HostSettings s;
    // Other than the defaults, so that a setting that the file forgets shows.
    s.server.listen.clear();
    s.server.realm = "?";
    s.server.accessLog = false;
    s.server.limits = {1,
                       1,
                       1,
                       1,
                       1,
                       std::chrono::milliseconds(1),
                       1,
                       1,
                       1,
                       1,
                       1,
                       std::chrono::milliseconds(1),
                       std::chrono::milliseconds(1),
                       std::chrono::milliseconds(1),
                       std::chrono::milliseconds(1),
                       std::chrono::milliseconds(1)};
    s.users.sessions = {1, 1, std::chrono::seconds(1)};
    s.users.objectsPerSession = 1;
    s.users.auth.waiters = s.users.auth.cacheEntries = 1;
    s.users.auth.cacheTime = std::chrono::seconds(1);
    s.directory.tree = "?";
    s.directory.ldap.attributes.clear();
    ASSERT_EQ(ReadHostSettings(*platform_.Get(), s), "");
    EXPECT_EQ(s.server.listen, defaults.server.listen);
    EXPECT_EQ(s.server.realm, defaults.server.realm);
    EXPECT_EQ(s.server.accessLog, defaults.server.accessLog);
    ExpectSame(s.server.limits, defaults.server.limits);
    EXPECT_EQ(s.users.sessions.sessions, defaults.users.sessions.sessions);
    EXPECT_EQ(s.users.sessions.cookieSessionsPerUser,
              defaults.users.sessions.cookieSessionsPerUser);
    EXPECT_EQ(s.users.sessions.idleTime, defaults.users.sessions.idleTime);
    EXPECT_EQ(s.users.objectsPerSession, defaults.users.objectsPerSession);
    EXPECT_EQ(s.users.auth.waiters, defaults.users.auth.waiters);
    EXPECT_EQ(s.users.auth.cacheEntries, defaults.users.auth.cacheEntries);
    EXPECT_EQ(s.users.auth.cacheTime, defaults.users.auth.cacheTime);
    EXPECT_EQ(s.directory.tree, defaults.directory.tree);
    EXPECT_EQ(s.directory.usesLdap, defaults.directory.usesLdap);
    EXPECT_EQ(s.directory.ldap.attributes, defaults.directory.ldap.attributes);
    EXPECT_EQ(CheckComponentSettings(*platform_.Get()), "");
    std::string unread; // the file names nothing that nobody knows
    TolmRegistryReportUnread(
        [](const char* line, void* all) { *static_cast<std::string*>(all) += line; }, &unread);
    EXPECT_EQ(unread, "");
}

TEST_F(Settings, WrongSettingsOfComponents_AreNamedWithTheirPlace)
{
    struct Row {
        const char* key;
        const char* text;
        const char* expected;
    };
    for (const Row& row : {Row{"KestDav", "'Read-Write Block Size' = 1023", "from 1024 to 524288"},
                           Row{"KestDav", "'Moniker' = 'Ferro'", "expected a path"},
                           Row{"KestDav", "'Moniker' = '/Ferro/'", "expected a path"},
                           Row{"KestDav", "'Moniker' = 5", "expected a text"},
                           Row{"KestDav", "'Dialect' = 'strict'", "'classic' or 'standard'"},
                           Row{"KestDav", "'Dialect' = 2", "expected a text"},
                           Row{"KestDav", "'Infinity Entries' = 'all'", "expected a number"},
                           Row{"KestDav", "'Template Directory' = true", "expected a text"},
                           Row{"KestDav", "'Template Directory' = '/srv'", "a '/' at its end"},
                           Row{"FileStore", "'Sync' = 'perhaps'", "expected 'none'"},
                           Row{"FileStore", "'Keep Deleted' = 'week'", "expected a number"},
                           Row{"FileStore", "'Upload Time' = 31536001", "from 0 to 31536000"},
                           Row{"FileStore", "'Server Address' = '::1'", "IPv4"},
                           Row{"FileStore\\Volumes", "'a' = '/nonexistent'", "No such file"},
                           Row{"FileStore\\Volumes", "'a' = '/dev/null'", "not a directory"},
                           Row{"FileStore\\Volumes", "'a/b' = '/'", "holds no '/'"},
                           Row{"FileStore\\Volumes", "'a' = 5", "expected a text"}}) {
        Load(std::string("['Kest\\Configuration\\") + row.key + "']\n" + row.text + "\n");
        const std::string problem = CheckComponentSettings(*platform_.Get());
        EXPECT_NE(problem.find(row.expected), std::string::npos) << row.text << ": " << problem;
        EXPECT_TRUE(problem.starts_with(file_ + ":2: ")) << problem;
    }
}

TEST_F(Settings, TemplateDirectory_IsNoLongerThanTheModuleTakes)
{
    struct Row {
        const char* character;
        size_t count; // and one more for the "/"
        bool isRight;
    };
    for (const Row& row : {Row{"x", 238, true}, Row{"x", 239, false}, Row{"\u00e4", 127, true},
                           Row{"\u00e4", 128, false}, Row{"", 0, true}}) {
        std::string directory;
        for (size_t i = 0; i < row.count; ++i)
            directory += row.character;
        Load("['Kest\\Configuration\\KestDav']\n'Template Directory' = '" + directory + "/'\n");
        const std::string problem = CheckComponentSettings(*platform_.Get());
        EXPECT_EQ(problem.empty(), row.isRight) << row.count << ": " << problem;
    }
}

TEST(PublicName, IsTheUrlsOrTheFirstAddress)
{
    struct Row {
        const char* url;
        bool isSecure;
        ListenAddress listen;
        const char* hostname;
        const char* port;
    };
    for (const Row& row :
         {Row{"", false, {"127.0.0.1", 8080}, "127.0.0.1:8080", "8080"},
          Row{"", false, {"127.0.0.1", 80}, "127.0.0.1", "80"},
          Row{"", true, {"::1", 443}, "[::1]", "443"}, Row{"", true, {"::1", 80}, "[::1]:80", "80"},
          Row{"", false, {"127.0.0.1", 0}, "127.0.0.1", "0"},
          Row{"https://a.example/", false, {"127.0.0.1", 1}, "a.example", "443"},
          Row{"http://a.example:8080", true, {"127.0.0.1", 1}, "a.example:8080", "8080"},
          Row{"https://a.example:443", false, {"127.0.0.1", 1}, "a.example", "443"},
          Row{"http://[::1]", false, {"127.0.0.1", 1}, "[::1]", "80"}}) {
        ServerSettings settings;
        settings.publicUrl = row.url;
        settings.listen = {row.listen};
        if (row.isSecure)
            settings.tlsCertificate = "c";
        const HostName name = NameOfHost(settings);
        EXPECT_EQ(name.hostname, row.hostname) << row.url;
        EXPECT_EQ(name.port, row.port) << row.url;
    }
}

TEST(ListenAddresses, WithoutUsersOnlyLoopbackIsServed)
{
    struct Row {
        const char* address;
        bool isFine;
    };
    for (const Row& row : {Row{"127.0.0.1", true}, Row{"127.9.9.9", true}, Row{"::1", true},
                           Row{"::ffff:127.0.0.1", true}, Row{"0.0.0.0", false}, Row{"::", false},
                           Row{"192.168.1.1", false}, Row{"::ffff:10.0.0.1", false}}) {
        HostSettings settings;
        settings.server.listen = {{"127.0.0.1", 1}, {row.address, 1}};
        EXPECT_EQ(Setup::CheckAccessPolicy(settings, {}).empty(), row.isFine) << row.address;
        UserLists lists;
        lists.users["a"] = std::make_shared<const User>();
        EXPECT_EQ(Setup::CheckAccessPolicy(settings, lists), "");
        settings.users.signIn.sources = {"ldap"};
        EXPECT_EQ(Setup::CheckAccessPolicy(settings, {}), "");
    }
}

} // namespace
} // namespace kestd
