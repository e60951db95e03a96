// SPDX-License-Identifier: Apache-2.0
//
// App passwords: secrets that the program makes, for one program of a user each. They stand beside
// the user's own password, end, can be taken back, and may be bound to a volume and to reading.
//
// The file has a line "key:HEX" and one for each password,
// "USER:ID:HASH:MADE:ENDS:VOLUME:RIGHTS:NAME". A secret has 160 random bits, which nobody guesses:
// it is kept as a keyed hash that costs nothing to compute (HMAC-SHA-256; the key is the file's
// own, so that equal files are not searched for together), where a password of people's choice
// needs a slow one.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/access/access_rules.h"
#include "host/auth/text_file.h"

namespace kestd {

inline constexpr size_t kLargestAppPasswordsFile = 16 * 1024 * 1024; // bytes
inline constexpr size_t kLongestAppPasswordName = 100;               // bytes

struct AppPassword {
    std::string user;
    std::string id;          // 8 characters, also a part of the secret
    std::string hash;        // 64 hexadecimal digits
    int64_t made = 0;        // seconds since 1970; so the others
    int64_t ends = 0;        // 0: never
    std::string volume;      // empty: all
    bool isReadOnly = false; // list and read only
    std::string name;        // the user's own

    // What it may be used for, besides what its user may do; null: all that.
    std::shared_ptr<const AccessRules> limits;
    // When it was last used, 0 for never: counts in memory, written down now and then.
    std::shared_ptr<std::atomic<int64_t>> used = std::make_shared<std::atomic<int64_t>>(0);
};

// Those of a file, by their identifiers.
struct AppPasswords {
    std::string key; // 32 bytes; empty while there are none
    std::map<std::string, std::shared_ptr<const AppPassword>, std::less<>> entries;

    // The one that has this secret and has not ended; null for none.
    std::shared_ptr<const AppPassword> Find(std::string_view secret, int64_t now) const;
    // Null when there is none, or it is another user's.
    std::shared_ptr<const AppPassword> Find(std::string_view id, std::string_view user) const;
};

// Whether a password has the form of such a secret: no other source is asked about it.
bool IsAppSecret(std::string_view password) noexcept;

// Empty when it can be used; else what is wrong with it.
std::string WhatIsWrongWithAppPasswordName(std::string_view name);
std::string WhatIsWrongWithVolume(std::string_view volume);

// Reads a file; a missing one holds none. Empty on success, else "FILE:LINE: reason" or "FILE:
// reason", and `all` as it was.
std::string LoadAppPasswords(const std::string& path, AppPasswords& all);
// Makes one of `wanted`, whose identifier, hash and limits it fills, and adds it to the file. The
// secret is nowhere else. Empty on success.
std::string AddAppPassword(const std::string& path, AppPassword wanted, std::string& secret);
// Takes one away by its identifier or its name. Empty on success.
std::string RevokeAppPassword(const std::string& path, std::string_view user,
                              std::string_view idOrName);

// The times of the last use lie in a file of their own beside, which the server alone writes.
void LoadUses(const std::string& path, const AppPasswords& all);
// Empty on success, or when there is nothing new since `written`, which it brings up to date.
std::string WriteUses(const std::string& path, const AppPasswords& all, std::string& written);

} // namespace kestd
