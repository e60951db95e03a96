// SPDX-License-Identifier: Apache-2.0
//
// Reads htpasswd files and checks their hashes.
#include "host/auth/htpasswd.h"

#include <apr_md5.h>
#include <openssl/crypto.h>

#include "base/ascii.h"
#include "host/auth/passwords.h"

namespace kestd {
namespace {

// The hashes that only Apache knows. Both are weak by today's standards, but those of files that
// there are.
bool IsApacheHash(std::string_view hash)
{
    constexpr size_t kShaLength = 28; // 20 bytes in base64
    constexpr std::string_view kSha = "{SHA}";
    return hash.starts_with("$apr1$") ||
           (hash.starts_with(kSha) && hash.size() == kSha.size() + kShaLength);
}

std::string ParseLine(std::string_view line, User& user)
{
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return "expected name:hash";
    user.name = line.substr(0, colon);
    line.remove_prefix(colon + 1);
    user.hash = line.substr(0, line.find(':'));
    if (std::string problem = WhatIsWrongWithName(user.name); !problem.empty())
        return problem;
    if (!IsApacheHash(user.hash) && !IsUsableHash(user.hash))
        return "the second field is no password hash that this system knows";
    return {};
}

} // namespace

std::string LoadHtpasswd(const std::string& path, UserMap& users)
{
    std::string text;
    if (std::string problem = ReadTextFile(path, kLargestUsersFile, text); !problem.empty())
        return problem;
    UserMap read;
    std::string problem =
        ForEachLine(text, [&](size_t number, std::string_view line) -> std::string {
            line = base::Trimmed(line);
            if (line.empty() || line.front() == '#')
                return {};
            User user;
            std::string wrong = ParseLine(line, user);
            if (wrong.empty())
                wrong = AddUser(read, std::move(user));
            return wrong.empty() ? wrong : AtLine(path, number, wrong);
        });
    if (problem.empty())
        users = std::move(read);
    return problem;
}

bool IsHtpasswdPassword(std::string_view password, const std::string& hash)
{
    if (!IsApacheHash(hash))
        return IsPassword(password, hash);
    if (password.size() > kLongestPassword || password.find('\0') != std::string_view::npos)
        return false;
    std::string text(password); // with a terminator
    const bool fits = apr_password_validate(text.c_str(), hash.c_str()) == APR_SUCCESS;
    OPENSSL_cleanse(text.data(), text.size());
    return fits;
}

} // namespace kestd
