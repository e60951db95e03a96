// SPDX-License-Identifier: Apache-2.0
//
// Files of Apache's htpasswd: a line "name:hash" for each user.
//
// The hashes are judged by libaprutil's apr_password_validate where they are Apache's own (apr1,
// which no other library of Debian knows, and SHA-1 in base64), as Apache judges them; bcrypt and
// the others of crypt(3) by libcrypt, as those of the users file.
#pragma once

#include <string>
#include <string_view>

#include "host/auth/users.h"

namespace kestd {

// Reads the file; it has to be there. Further fields of a line are ignored. Empty on success, else
// "FILE:LINE: reason" or "FILE: reason", and `users` as they were.
std::string LoadHtpasswd(const std::string& path, UserMap& users);

// Whether a password fits a hash of such a file; false for a hash of another form. Takes the time
// of the hash. Any thread.
bool IsHtpasswdPassword(std::string_view password, const std::string& hash);

} // namespace kestd
