// SPDX-License-Identifier: Apache-2.0
//
// How users sign in: the tables 'Auth' and 'Auth\LDAP'.
#pragma once

#include <string>
#include <vector>

#include "host/config/auth_settings.h"
#include "host/config/registry_reader.h"
#include "host/config/settings.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kAuthKey = u"Kest\\Configuration\\Auth";
inline constexpr const char16_t* kAuthLdapKey = u"Kest\\Configuration\\Auth\\LDAP";

// The variables hold the defaults on entry, and `server` its proxies and TLS already. Empty on
// success, else all problems.
std::string ReadSignInSettings(ITalpl& platform, ServerSettings& server, UserSettings& users);
std::vector<KnownNames> SignInSettingNames();

} // namespace kestd
