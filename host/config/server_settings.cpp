// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks the server's table.
#include "host/config/server_settings.h"

#include <algorithm>
#include <thread>

#include "base/ascii.h"
#include "base/ip_address.h"
#include "host/config/addresses.h"

namespace kestd {
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
    ReadAddresses(in, u"Metrics Listen", server.metricsListen);
    for (const ListenAddress& address : server.metricsListen)
        if (address.port != 0 &&
            std::find(server.listen.begin(), server.listen.end(), address) != server.listen.end())
            in.Refuse(u"Metrics Listen",
                      "'" + FormatListenAddress(address) + "' is one of the addresses of 'Listen'");
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

void ReadLogs(RegistryReader& in, ServerSettings& server)
{
    in.Flag(u"Access Log", server.accessLog);
    std::string format = "text";
    in.Text(u"Access Log Format", format);
    if (format == "json")
        server.accessLogFormat = AccessLogFormat::Json;
    else if (format != "text")
        in.Refuse(u"Access Log Format", "expected 'text' or 'json'");
    in.Text(u"Log File", server.logFiles.events);
    in.Text(u"Access Log File", server.logFiles.requests);
    in.Text(u"Audit Log File", server.logFiles.audit);
}

void ReadSite(RegistryReader& in, ServerSettings& server)
{
    ReadListen(in, server);
    ReadProxies(in, server);
    in.Text(u"TLS Certificate", server.tlsCertificate);
    in.Text(u"TLS Key", server.tlsKey);
    in.Text(u"Public URL", server.publicUrl);
    in.Text(u"Realm", server.realm);
    ReadLogs(in, server);
    in.Text(u"Wharf Directory", server.wharfDirectory);
    in.Flag(u"Compression", server.compression);
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

void ReadUsersAndSessions(RegistryReader& in, UserSettings& users)
{
    // Half of the processors may be busy with passwords; the rest serves who is signed in.
    users.auth.hashesAtOnce = std::max(1U, std::thread::hardware_concurrency() / 2);
    in.Time(u"Session Timeout", users.sessions.idleTime, 10, 30 * 24 * 3600);
    in.Number(u"Sessions", users.sessions.sessions, 1, 1'000'000);
    in.Number(u"Browser Sessions", users.sessions.cookieSessionsPerUser, 1, 100'000);
    in.Number(u"Session Objects", users.objectsPerSession, 1, 100'000);
    in.Text(u"Users File", users.usersFile);
    in.Number(u"Password Hashes", users.auth.hashesAtOnce, 1, 256);
    in.Number(u"Password Waiters", users.auth.waiters, 0, 100'000);
    in.Number(u"Credential Cache", users.auth.cacheEntries, 1, 1'000'000);
    in.Time(u"Credential Time", users.auth.cacheTime, 1, 24 * 3600);
    in.Time(u"Guess Delay", users.auth.guessDelay, 0, 24 * 3600);
}

} // namespace

std::vector<KnownNames> ServerSettingNames()
{
    return {
        {kServerKey,
         true,
         {u"Listen", u"Session Objects", u"PROXY Protocol", u"Log File", u"Access Log File",
          u"Audit Log File", u"Metrics Listen"}},
        {kServerKey, false, {u"TLS Certificate",  u"TLS Key",
                             u"Public URL",       u"Realm",
                             u"Access Log",       u"Access Log Format",
                             u"Wharf Directory",  u"Users File",
                             u"Connections",      u"Worker Threads",
                             u"Head Size",        u"Target Size",
                             u"XML Body Size",    u"Body Size",
                             u"Head Time",        u"Body Idle Time",
                             u"Send Stall Time",  u"Keep-Alive Time",
                             u"Shutdown Time",    u"Session Timeout",
                             u"Sessions",         u"Browser Sessions",
                             u"Password Hashes",  u"Password Waiters",
                             u"Credential Cache", u"Credential Time",
                             u"Guess Delay",      u"Connections Per Address",
                             u"Waiting Requests", u"Waiting Requests Per Address",
                             u"Least Rate",       u"Rate Time",
                             u"Trusted Proxies",  u"Proxy Headers",
                             u"Compression"}},
    };
}

std::string ReadServerSettings(ITalpl& platform, ServerSettings& server, UserSettings& users)
{
    RegistryReader in(platform, kServerKey);
    ReadSite(in, server);
    ReadLimits(in, server.limits);
    // The classic COPY finds the module's place in a URL only where that is a single segment.
    if (server.dialect == Dialect::Classic && !server.pathPrefix.empty())
        in.Refuse(u"Public URL", "a path behind the host needs the standard dialect");
    ReadUsersAndSessions(in, users);
    return in.Problem();
}

} // namespace kestd
