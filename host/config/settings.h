// SPDX-License-Identifier: Apache-2.0
//
// What an administrator can set, with its defaults. Filled from the registry and the command line,
// read by the HTTP server. A reload hands the server a new copy.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/ip_address.h"
#include "host/log/access_log.h"

namespace kestd {

class AccessRules;

// Bounds on what one client, or all of them, can take. A request waits while its client sends or
// takes nothing; where too many do, the one that has waited longest without getting on is ended.
// Registry key 'Kest\Configuration\Server', value names as given behind each member.
struct Limits {
    uint32_t connections = 10000;          // 'Connections'; one more gets 503
    uint32_t connectionsPerAddress = 1000; // 'Connections Per Address'; likewise
    uint32_t waitingRequests = 4096;       // 'Waiting Requests'; one more: see below
    uint32_t waitingPerAddress = 256;      // 'Waiting Requests Per Address'
    uint32_t leastRate = 500; // 'Least Rate': bytes a second, 0 = any; less: closed (or 408)
    std::chrono::milliseconds rateTime{60'000}; // 'Rate Time': of waiting, to measure it over
    uint32_t workerThreads = 64;                // 'Worker Threads'; grown on demand up to this
    uint32_t headBytes = 32 * 1024;             // 'Head Size'; more: 431 (414 for the target)
    uint32_t targetBytes = 8 * 1024;            // 'Target Size'; more: 414
    uint32_t xmlBodyBytes = 1024 * 1024;        // 'XML Body Size'; more: 413
    uint64_t bodyBytes = 0;                     // 'Body Size', 0 = unlimited; more: 413
    std::chrono::milliseconds headTime{15'000}; // 'Head Time': whole head; over: 408
    std::chrono::milliseconds bodyIdleTime{
        60'000}; // 'Body Idle Time': between two reads; over: 408
    std::chrono::milliseconds sendStallTime{60'000}; // 'Send Stall Time': client takes nothing
    std::chrono::milliseconds keepAliveTime{75'000}; // 'Keep-Alive Time': idle between requests
    std::chrono::milliseconds shutdownTime{10'000};  // 'Shutdown Time': running requests may finish
};

// How the module answers ('Dialect' of 'Kest\Configuration\KestDav'): as it always has, or as RFC
// 4918 and 9110 say. In the standard dialect it sees to conditions, ranges and overwriting itself.
enum class Dialect { Classic, Standard };

struct ListenAddress {
    std::string address; // numeric, IPv6 without brackets
    uint16_t port = 0;   // 0 takes a free one
    bool operator==(const ListenAddress&) const = default;
};

// Which headers of a trusted proxy count: what it does not write itself it hands on as the client
// sent it.
enum class ProxyHeaders {
    Any,        // "X-Forwarded-…" where one is there, else "Forwarded"
    Forwarded,  // RFC 7239
    XForwarded, // "X-Forwarded-For", "-Proto", "-Host", "-Port"
};

// Files of the log; empty: standard error, and no audit log.
struct LogFiles {
    std::string events;   // 'Log File'
    std::string requests; // 'Access Log File'
    std::string audit;    // 'Audit Log File'
};

struct ServerSettings {
    std::vector<ListenAddress> listen{{"127.0.0.1", 8080}}; // 'Listen'
    std::vector<ListenAddress> metricsListen;               // 'Metrics Listen'; empty: none
    std::string tlsCertificate; // 'TLS Certificate', PEM chain; empty: plain HTTP
    std::string tlsKey;         // 'TLS Key', PEM
    std::string publicUrl;      // 'Public URL', what clients see; empty: as asked
    std::string pathPrefix;     // its path, such as "/dav"; of the start, as the dialect
    std::string realm = "Kest"; // 'Realm'
    bool accessLog = true;      // 'Access Log': whether there is one
    AccessLogFormat accessLogFormat = AccessLogFormat::Text; // 'Access Log Format'
    LogFiles logFiles;
    bool compression = true;                       // 'Compression' of what the server says
    std::string wharfDirectory;                    // 'Wharf Directory', served under /Wharf/
    Dialect dialect = Dialect::Classic;            // of the start; a reload does not change it
    std::vector<base::IpPrefix> trustedProxies;    // 'Trusted Proxies'
    std::vector<ListenAddress> proxyProtocol;      // 'PROXY Protocol'; each is one of `listen`
    ProxyHeaders proxyHeaders = ProxyHeaders::Any; // 'Proxy Headers': "any" or one of the two
    // 'Plain HTTP Passwords' of the key 'Auth': whether clients on other machines may sign in
    // without TLS.
    bool takesPlainPasswords = false;
    // Of the key 'Auth', where its 'Sources' list 'proxy': the fields in which trusted proxies name
    // the user and his groups. Else empty.
    std::string proxyUserHeader;   // 'Proxy User Header'
    std::string proxyGroupsHeader; // 'Proxy Groups Header'; empty: none
    // Of the key 'Auth', where its 'Sources' list 'certificate', else empty: PEM files.
    std::string clientCa;  // 'Client CA', of those whose certificates name users
    std::string clientCrl; // 'Client CRL', what those have revoked; empty: nothing
    Limits limits;
    std::shared_ptr<const AccessRules> access; // who may do what; null: everybody everything
};

} // namespace kestd
