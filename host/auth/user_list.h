// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by a list of users with their password hashes: the users file, or an htpasswd file.
#pragma once

#include <functional>

#include "host/auth/credentials_source.h"
#include "host/auth/users.h"

namespace kestd {

// Whether a password fits a hash; takes its time. Any thread.
using PasswordMatcher = std::function<bool(std::string_view password, const std::string& hash)>;

// `name` is the source's.
std::shared_ptr<CredentialsSource> MakeUserList(std::string name, UserMap users,
                                                PasswordMatcher matches);

} // namespace kestd
