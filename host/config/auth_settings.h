// SPDX-License-Identifier: Apache-2.0
//
// What an administrator can set of passwords and sessions, with its defaults.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kestd {

struct AuthLimits {
    uint32_t hashesAtOnce = 1; // password hashes that run at the same time
    uint32_t waiters = 32;     // requests that wait for a hash; one more is turned away
    std::chrono::milliseconds longestWait{5000}; // for a hash to begin
    uint32_t cacheEntries = 4096;
    std::chrono::seconds cacheTime{600}; // unused for so long, a password is hashed again
    std::chrono::seconds guessDelay{60}; // the longest wait between wrong guesses; 0 for none
    uint32_t remoteAtOnce = 4;           // checks by another machine that run at the same time
};

struct SessionLimits {
    uint32_t sessions = 10'000;          // of all users; 1 to 2^20
    uint32_t cookieSessionsPerUser = 64; // browsers of one user; one more ends the oldest
    std::chrono::seconds idleTime{1200};
};

// Sign-in by an LDAP server: the table 'Auth\LDAP', value names behind each member.
struct LdapSignIn {
    std::string server;                      // 'Server': ldap://HOST[:PORT] or ldaps://HOST[:PORT]
    bool startsTls = false;                  // 'Start TLS'
    std::string caCertificate;               // 'CA Certificate', PEM; empty: the system's
    std::string bindName;                    // 'Bind Name': whom to search as; empty: anonymously
    std::string bindPassword;                // 'Bind Password'
    std::string base;                        // 'Base': where users are searched for, with all below
    std::string userFilter = "(uid=%u)";     // 'User Filter': %u is what the user has typed
    std::string userName = "uid";            // 'User Name': attribute with the name that rules know
    std::string groupAttribute = "memberOf"; // 'Group Attribute' of users; empty: none
    std::string groupBase;                   // 'Group Base': where groups are searched for; empty:
                                             // they are not
    std::string groupFilter = "(member=%d)"; // 'Group Filter': %d is the user's LDAP name
    std::string groupName = "cn";            // 'Group Name': attribute
    std::chrono::milliseconds timeout{3000}; // 'Timeout': of each step
    std::chrono::seconds retryTime{10};      // 'Retry Time': after a failure, until the next try
    bool operator==(const LdapSignIn&) const = default;
};

struct SignInSettings {
    std::vector<std::string> sources{"users"}; // 'Sources': in the order in which they are asked
    std::string htpasswdFile;                  // 'Htpasswd File'
    std::string appPasswordsFile;              // 'App Passwords File'; empty: the state directory's
    std::string pamService{"kest"};            // 'PAM Service': a file of /etc/pam.d
    LdapSignIn ldap;

    bool Uses(const std::string& source) const
    {
        for (const std::string& one : sources)
            if (one == source)
                return true;
        return false;
    }
    // Whether a source has users and groups that it does not list here.
    bool HasUnlistedUsers() const
    {
        return Uses("ldap") || Uses("pam") || Uses("proxy") || Uses("certificate");
    }
};

struct UserSettings {
    SignInSettings signIn;
    SessionLimits sessions;
    AuthLimits auth;
    uint32_t objectsPerSession = 64; // 'Session Objects'
    std::string usersFile;           // 'Users File'; empty: the state directory's
};

} // namespace kestd
