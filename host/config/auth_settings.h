// SPDX-License-Identifier: Apache-2.0
//
// What an administrator can set of passwords and sessions, with its defaults.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kestd {

struct AuthLimits {
    uint32_t hashesAtOnce = 1; // password hashes that run at the same time
    uint32_t waiters = 32;     // requests that wait for a hash; one more is turned away
    std::chrono::milliseconds longestWait{5000}; // for a hash to begin
    uint32_t cacheEntries = 4096;
    std::chrono::seconds cacheTime{600}; // unused for so long, a password is hashed again
    std::chrono::seconds guessDelay{60}; // the longest wait between wrong guesses; 0 for none
};

struct SessionLimits {
    uint32_t sessions = 10'000;          // of all users; 1 to 2^20
    uint32_t cookieSessionsPerUser = 64; // browsers of one user; one more ends the oldest
    std::chrono::seconds idleTime{1200};
};

struct UserSettings {
    SessionLimits sessions;
    AuthLimits auth;
    uint32_t objectsPerSession = 64; // 'Session Objects'
    std::string usersFile;           // 'Users File'; empty: the state directory's
};

} // namespace kestd
