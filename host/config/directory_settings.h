// SPDX-License-Identifier: Apache-2.0
//
// Where users' directory records come from: the tables 'Directory' and 'Directory\Attributes'.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/config/registry_reader.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kDirectoryKey = u"Kest\\Configuration\\Directory";
inline constexpr const char16_t* kDirectoryAttributesKey =
    u"Kest\\Configuration\\Directory\\Attributes";

// Value names behind each member.
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

struct DirectorySettings {
    bool usesLdap = false;     // 'Backend': "users" or "ldap"
    std::string tree = "KEST"; // 'Tree': of users whose record names none
    LdapSettings ldap;
};

// `settings` holds the defaults on entry. Empty on success, else all problems.
std::string ReadDirectorySettings(ITalpl& platform, DirectorySettings& settings);
KnownNames DirectorySettingNames();

} // namespace kestd
