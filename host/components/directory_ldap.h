// SPDX-License-Identifier: Apache-2.0
//
// The directory service's LDAP side: entries of a server, read when they are asked for and kept for
// a while, so that a page does not cost a search each time and a server that is gone does not hold
// up every page.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/auth/clock.h"
#include "host/components/directory.h"

namespace kestd {

// Registry key 'Kest\Configuration\Directory', value names behind each member.
struct LdapSettings {
    std::string server;        // 'Server': ldap://HOST[:PORT] or ldaps://HOST[:PORT]
    std::string base;          // 'Base': LDAP name that all names end with; may be empty
    std::string bindName;      // 'Bind Name': LDAP name to sign in with; empty: anonymous
    std::string bindPassword;  // 'Bind Password'
    bool startsTls = false;    // 'Start TLS': switch an ldap:// connection to TLS, or fail
    std::string caCertificate; // 'CA Certificate', PEM; empty: the system's
    std::chrono::milliseconds timeout{3000}; // 'Timeout': of a connection and of a search
    std::chrono::seconds cacheTime{60};      // 'Cache Time': also for entries that are missing
    uint32_t cacheEntries = 1000;            // 'Cache Entries'
    std::chrono::seconds retryTime{10};      // 'Retry Time': after a failure, until the next try
    // 'Kest\Configuration\Directory\Attributes': what components ask for, and what it is called in
    // the server's schema.
    std::vector<std::pair<std::string, std::string>> attributes = {
        {"Internet EMail Address", "mail"}, {"CN", "cn"},
        {"Full Name", "displayName"},       {"Surname", "sn"},
        {"Given Name", "givenName"},        {"Telephone Number", "telephoneNumber"}};
};

// A backend over one server. Connects when it is first asked. `clock` outlives it.
std::unique_ptr<DirectoryBackend> MakeLdapDirectory(const LdapSettings& settings,
                                                    const Clock& clock);

} // namespace kestd
