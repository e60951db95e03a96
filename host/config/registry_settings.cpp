// SPDX-License-Identifier: Apache-2.0
//
// One reader for each table of the registry, with the checks of what it holds.
#include "host/config/registry_settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

#include <sys/stat.h>

#include "base/ascii.h"
#include "base/host_name.h"
#include "base/uri.h"
#include "base/utf.h"
#include <kest/registry_truth.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

std::string Narrowed(std::u16string_view text)
{
    return base::ToUtf8(text).value_or("?");
}

std::string PlaceOf(const char16_t* key, const char16_t* name)
{
    std::array<char, 4096> text{};
    UINT32 length = text.size() - 1;
    if (Failed(TolmRegistryWhere(key, name, text.data(), &length)))
        return {};
    return std::string(text.data(), length) + ": ";
}

} // namespace

void AddProblems(std::string& all, const std::string& more)
{
    if (!all.empty() && !more.empty())
        all.push_back('\n');
    all.append(more);
}

RegistryReader::RegistryReader(ITalpl& platform, const char16_t* key)
    : key_(key), open_(platform, key)
{
}

bool RegistryReader::Took(const char16_t* name, kest::ReadResult result, const char* expected)
{
    switch (result) {
    case kest::ReadResult::Read:
        return true;
    case kest::ReadResult::Missing:
        return false;
    case kest::ReadResult::OtherType:
        Refuse(name, expected);
        return false;
    case kest::ReadResult::Malformed:
        Refuse(name, "expected valid Unicode text");
        return false;
    case kest::ReadResult::Unreadable:
        break;
    }
    Refuse(name, "the value cannot be read");
    return false;
}

void RegistryReader::Refuse(const char16_t* name, const std::string& reason)
{
    AddProblems(problem_, PlaceOf(key_, name) + "'" + Narrowed(key_) + "' '" + Narrowed(name) +
                              "': " + reason);
}

bool RegistryReader::Has(const char16_t* name)
{
    return open_.Find(name) == kest::ReadResult::Read;
}

bool RegistryReader::Text(const char16_t* name, std::string& value)
{
    return Took(name, open_.Text(name, value), "expected a text");
}

bool RegistryReader::Texts(const char16_t* name, std::vector<std::string>& value)
{
    return Took(name, open_.Texts(name, value), "expected a list of texts");
}

bool RegistryReader::Number(const char16_t* name, uint64_t& value)
{
    uint64_t number = 0;
    if (!Took(name, open_.Number(name, number), "expected a number"))
        return false;
    if (TolmRegistryIsTruth(key_, name)) {
        Refuse(name, "expected a number, not true or false");
        return false;
    }
    value = number;
    return true;
}

bool RegistryReader::Number(const char16_t* name, uint32_t& value, uint32_t least, uint32_t most)
{
    uint64_t number = 0;
    if (!Number(name, number))
        return false;
    if (number < least || number > most) {
        Refuse(name, "expected a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not " + std::to_string(number));
        return false;
    }
    value = static_cast<uint32_t>(number);
    return true;
}

bool RegistryReader::Flag(const char16_t* name, bool& value)
{
    return Took(name, open_.Flag(name, value), "expected true or false");
}

void RegistryReader::AllTexts(std::vector<std::pair<std::string, std::string>>& values)
{
    std::u16string name;
    for (UINT32 index = 0;; ++index) {
        const kest::ReadResult found = open_.NameAt(index, name);
        if (found == kest::ReadResult::Missing)
            return;
        if (found != kest::ReadResult::Read) {
            return AddProblems(problem_, "'" + Narrowed(key_) + "': a value cannot be read");
        }
        std::string value;
        if (!Text(name.c_str(), value))
            continue;
        const std::string narrow = Narrowed(name);
        const auto known = std::find_if(values.begin(), values.end(), [&](const auto& one) {
            return base::EqualsIgnoringCase(one.first, narrow);
        });
        if (known != values.end())
            known->second = value;
        else
            values.emplace_back(narrow, value);
    }
}

namespace {

void ReadAddresses(RegistryReader& in, const char16_t* name, std::vector<ListenAddress>& addresses)
{
    std::vector<std::string> texts;
    if (!in.Texts(name, texts))
        return;
    addresses.clear();
    for (const std::string& text : texts) {
        ListenAddress address;
        if (ParseListenAddress(text, address))
            addresses.push_back(std::move(address));
        else
            in.Refuse(name, "expected ADDRESS:PORT with a numeric address, not '" + text + "'");
    }
}

void ReadListen(RegistryReader& in, ServerSettings& server)
{
    ReadAddresses(in, u"Listen", server.listen);
    if (server.listen.empty() && in.Problem().empty())
        in.Refuse(u"Listen", "expected at least one address");
    ReadAddresses(in, u"PROXY Protocol", server.proxyProtocol);
    for (const ListenAddress& address : server.proxyProtocol)
        if (std::find(server.listen.begin(), server.listen.end(), address) == server.listen.end())
            in.Refuse(u"PROXY Protocol", "'" + FormatListenAddress(address) +
                                             "' is none of the addresses of 'Listen'");
}

void ReadLimits(RegistryReader& in, Limits& limits)
{
    constexpr uint32_t kMostTime = 24 * 3600 * 1000; // ms
    in.Number(u"Connections", limits.connections, 1, 1'000'000);
    in.Number(u"Connections Per Address", limits.connectionsPerAddress, 1, 1'000'000);
    in.Number(u"Waiting Requests", limits.waitingRequests, 1, 1'000'000);
    in.Number(u"Waiting Requests Per Address", limits.waitingPerAddress, 1, 1'000'000);
    in.Number(u"Least Rate", limits.leastRate, 0, 1'000'000'000);
    in.Time(u"Rate Time", limits.rateTime, 100, kMostTime);
    in.Number(u"Worker Threads", limits.workerThreads, 1, 4096);
    in.Number(u"Head Size", limits.headBytes, 1024, 1024 * 1024);
    in.Number(u"Target Size", limits.targetBytes, 256, 60 * 1024);
    in.Number(u"XML Body Size", limits.xmlBodyBytes, 1024, 64 * 1024 * 1024);
    in.Number(u"Body Size", limits.bodyBytes);
    in.Time(u"Head Time", limits.headTime, 100, kMostTime);
    in.Time(u"Body Idle Time", limits.bodyIdleTime, 100, kMostTime);
    in.Time(u"Send Stall Time", limits.sendStallTime, 100, kMostTime);
    in.Time(u"Keep-Alive Time", limits.keepAliveTime, 100, kMostTime);
    in.Time(u"Shutdown Time", limits.shutdownTime, 0, kMostTime);
}

void ReadProxies(RegistryReader& in, ServerSettings& server)
{
    std::vector<std::string> texts;
    in.Texts(u"Trusted Proxies", texts);
    for (const std::string& text : texts) {
        base::IpPrefix prefix;
        if (const std::string wrong = base::ParseIpPrefix(text, prefix); !wrong.empty())
            in.Refuse(u"Trusted Proxies", wrong);
        server.trustedProxies.push_back(prefix);
    }
    if (!server.proxyProtocol.empty() && server.trustedProxies.empty())
        in.Refuse(u"PROXY Protocol", "nobody may connect there without 'Trusted Proxies'");
    std::string headers = "any";
    in.Text(u"Proxy Headers", headers);
    if (headers == "forwarded")
        server.proxyHeaders = ProxyHeaders::Forwarded;
    else if (headers == "x-forwarded")
        server.proxyHeaders = ProxyHeaders::XForwarded;
    else if (headers != "any")
        in.Refuse(u"Proxy Headers", "expected 'any', 'forwarded' or 'x-forwarded'");
}

void ReadServer(RegistryReader& in, ServerSettings& server)
{
    ReadListen(in, server);
    ReadProxies(in, server);
    in.Text(u"TLS Certificate", server.tlsCertificate);
    in.Text(u"TLS Key", server.tlsKey);
    in.Text(u"Public URL", server.publicUrl);
    in.Text(u"Realm", server.realm);
    in.Flag(u"Access Log", server.accessLog);
    in.Text(u"Wharf Directory", server.wharfDirectory);
    if (server.realm.empty() || base::HasControlOrTab(server.realm))
        in.Refuse(u"Realm", "expected a text without control characters");
    if (!server.publicUrl.empty())
        if (const std::string wrong = WhatIsWrongWithPublicUrl(server.publicUrl); !wrong.empty())
            in.Refuse(u"Public URL", wrong);
    server.pathPrefix = PathOfPublicUrl(server.publicUrl);
    if (server.tlsCertificate.empty() != server.tlsKey.empty())
        in.Refuse(server.tlsKey.empty() ? u"TLS Certificate" : u"TLS Key",
                  "'TLS Certificate' and 'TLS Key' belong together; one of them is missing");
}

} // namespace

namespace {

std::string ReadDirectory(ITalpl& platform, HostSettings& settings)
{
    RegistryReader in(platform, kDirectoryKey);
    LdapSettings& ldap = settings.ldap;
    std::string backend = "users";
    in.Text(u"Backend", backend);
    if (backend != "users" && backend != "ldap")
        in.Refuse(u"Backend", "expected 'users' or 'ldap'");
    settings.usesLdap = backend == "ldap";
    in.Text(u"Tree", settings.tree);
    if (settings.tree.find_first_of("\\:") != std::string::npos || settings.tree.empty())
        in.Refuse(u"Tree", "expected a name without '\\' and ':'");
    in.Text(u"Server", ldap.server);
    in.Text(u"Base", ldap.base);
    in.Text(u"Bind Name", ldap.bindName);
    in.Text(u"Bind Password", ldap.bindPassword);
    in.Flag(u"Start TLS", ldap.startsTls);
    in.Text(u"CA Certificate", ldap.caCertificate);
    in.Time(u"Timeout", ldap.timeout, 100, 60'000);
    in.Time(u"Cache Time", ldap.cacheTime, 0, 24 * 3600);
    in.Number(u"Cache Entries", ldap.cacheEntries, 1, 1'000'000);
    in.Time(u"Retry Time", ldap.retryTime, 0, 3600);
    const bool isUrl = ldap.server.starts_with("ldap://") || ldap.server.starts_with("ldaps://");
    if (settings.usesLdap && !isUrl)
        in.Refuse(ldap.server.empty() ? u"Backend" : u"Server",
                  "expected 'Server' to be ldap://HOST[:PORT] or ldaps://HOST[:PORT]");
    if (ldap.startsTls && ldap.server.starts_with("ldaps://"))
        in.Refuse(u"Start TLS", "an ldaps:// connection has TLS from its beginning");
    RegistryReader attributes(platform, kDirectoryAttributesKey);
    attributes.AllTexts(ldap.attributes);
    std::string problems = in.Problem();
    AddProblems(problems, attributes.Problem());
    return problems;
}

// What else it may be is refused by CheckModule.
void ReadDialect(ITalpl& platform, ServerSettings& server)
{
    RegistryReader in(platform, kModuleKey);
    std::string dialect;
    in.Text(u"Dialect", dialect);
    server.dialect = dialect == "standard" ? Dialect::Standard : Dialect::Classic;
}

} // namespace

std::string ReadHostSettings(ITalpl& platform, HostSettings& settings)
{
    // Half of the processors may be busy with passwords; the rest serves who is signed in.
    settings.auth.hashesAtOnce = std::max(1U, std::thread::hardware_concurrency() / 2);
    RegistryReader in(platform, kServerKey);
    ReadServer(in, settings.server);
    ReadLimits(in, settings.server.limits);
    ReadDialect(platform, settings.server);
    // The classic COPY finds the module's place in a URL only where that is a single segment.
    if (settings.server.dialect == Dialect::Classic && !settings.server.pathPrefix.empty())
        in.Refuse(u"Public URL", "a path behind the host needs the standard dialect");
    in.Time(u"Session Timeout", settings.sessions.idleTime, 10, 30 * 24 * 3600);
    in.Number(u"Sessions", settings.sessions.sessions, 1, 1'000'000);
    in.Number(u"Browser Sessions", settings.sessions.cookieSessionsPerUser, 1, 100'000);
    in.Number(u"Session Objects", settings.objectsPerSession, 1, 100'000);
    in.Text(u"Users File", settings.usersFile);
    in.Number(u"Password Hashes", settings.auth.hashesAtOnce, 1, 256);
    in.Number(u"Password Waiters", settings.auth.waiters, 0, 100'000);
    in.Number(u"Credential Cache", settings.auth.cacheEntries, 1, 1'000'000);
    in.Time(u"Credential Time", settings.auth.cacheTime, 1, 24 * 3600);
    in.Time(u"Guess Delay", settings.auth.guessDelay, 0, 24 * 3600);
    std::string problems = in.Problem();
    AddProblems(problems, ReadDirectory(platform, settings));
    return problems;
}

namespace {

// The module puts the names of its templates right behind the value, which it keeps as UTF-8; and
// it reads it from a record that has to hold the value's name, too. What it cannot take it replaces
// by another place, where nothing is found.
std::string WhatIsWrongWithTemplates(const std::string& directory)
{
    constexpr size_t kMostUnits = 239;
    constexpr size_t kMostBytes = 255;
    if (!directory.empty() && directory.back() != '/')
        return "expected a directory with a '/' at its end";
    const auto wide = base::ToUtf16(directory);
    if (!wide || wide->size() > kMostUnits || directory.size() > kMostBytes)
        return "expected at most " + std::to_string(kMostUnits) + " characters (" +
               std::to_string(kMostBytes) + " bytes); name it by a shorter path";
    return {};
}

std::string CheckModule(ITalpl& platform)
{
    RegistryReader in(platform, kModuleKey);
    uint32_t number = 262144;
    in.Number(u"Read-Write Block Size", number, 1024, 524288);
    uint64_t level = 0;
    in.Number(u"Debug Level", level);
    std::string templates;
    in.Text(u"Template Directory", templates);
    if (const std::string wrong = WhatIsWrongWithTemplates(templates); !wrong.empty())
        in.Refuse(u"Template Directory", wrong);
    std::string dialect = "classic";
    in.Text(u"Dialect", dialect);
    if (dialect != "classic" && dialect != "standard")
        in.Refuse(u"Dialect", "expected 'classic' or 'standard'");
    uint32_t entries = 0;
    in.Number(u"Infinity Entries", entries, 0, 100'000'000);
    std::string moniker = "/Ferro";
    in.Text(u"Moniker", moniker);
    const bool isPath = moniker.size() >= 2 && moniker.size() < 200 && moniker.front() == '/' &&
                        moniker.back() != '/' && !base::HasControlOrTab(moniker);
    if (!isPath)
        in.Refuse(u"Moniker", "expected a path such as '/Ferro', with a '/' at its beginning and "
                              "none at its end");
    return in.Problem();
}

std::string CheckStore(ITalpl& platform)
{
    RegistryReader in(platform, kStoreKey);
    std::string sync = "data";
    in.Text(u"Sync", sync);
    if (sync != "none" && sync != "data" && sync != "full")
        in.Refuse(u"Sync", "expected 'none', 'data' or 'full'");
    uint32_t days = 0;
    in.Number(u"Keep Deleted", days, 0, 36'500);
    uint32_t size = 0;
    in.Number(u"Keep Free", size, 0, 1U << 30);
    in.Number(u"Reserve", size, 0, 1U << 20);
    uint32_t seconds = 0;
    in.Number(u"Upload Time", seconds, 0, 31'536'000);
    std::string address = "127.0.0.1";
    in.Text(u"Server Address", address);
    if (!base::IsIpv4Address(address))
        in.Refuse(u"Server Address", "expected an IPv4 address");
    return in.Problem();
}

struct Volume {
    std::u16string name;
    std::string directory; // without symbolic links
};

// Two volumes with the same entries would each keep locks and properties of their own for them.
void CheckApart(RegistryReader& in, const Volume& volume, const std::vector<Volume>& others)
{
    for (const Volume& other : others) {
        const std::string name = "that of the volume '" + Narrowed(other.name) + "'";
        if (volume.directory == other.directory)
            in.Refuse(volume.name.c_str(), "its directory is " + name);
        else if (base::IsUnder(volume.directory, other.directory) || other.directory == "/")
            in.Refuse(volume.name.c_str(), "its directory lies in " + name);
        else if (base::IsUnder(other.directory, volume.directory) || volume.directory == "/")
            in.Refuse(volume.name.c_str(), "its directory holds " + name);
    }
}

std::string CheckVolumes(ITalpl& platform)
{
    RegistryReader in(platform, kVolumesKey);
    std::vector<std::pair<std::string, std::string>> volumes;
    in.AllTexts(volumes);
    std::vector<Volume> seen;
    for (const auto& [name, directory] : volumes) {
        const std::u16string wide = base::ToUtf16(name).value_or(u"?");
        struct stat info {};
        if (name.find('/') != std::string::npos || name == "." || name == "..")
            in.Refuse(wide.c_str(), "a volume's name holds no '/' and is neither '.' nor '..'");
        std::error_code error;
        const std::string real = std::filesystem::canonical(directory, error);
        if (stat(directory.c_str(), &info) != 0) {
            in.Refuse(wide.c_str(), "'" + directory + "': " + std::strerror(errno));
        } else if (!S_ISDIR(info.st_mode)) {
            in.Refuse(wide.c_str(), "'" + directory + "' is not a directory");
        } else if (!error) {
            CheckApart(in, {wide, real}, seen);
            seen.push_back({wide, real});
        }
    }
    return in.Problem();
}

} // namespace

std::string CheckComponentSettings(ITalpl& platform)
{
    std::string problems;
    for (const auto check : {CheckModule, CheckStore, CheckVolumes})
        AddProblems(problems, check(platform));
    return problems;
}

} // namespace kestd
