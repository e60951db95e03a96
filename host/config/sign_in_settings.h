// SPDX-License-Identifier: Apache-2.0
//
// How users sign in: the table 'Auth'.
#pragma once

#include <string>

#include "host/config/auth_settings.h"
#include "host/config/registry_reader.h"
#include "host/config/settings.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kAuthKey = u"Kest\\Configuration\\Auth";

// The variables hold the defaults on entry. Empty on success, else all problems.
std::string ReadSignInSettings(ITalpl& platform, ServerSettings& server);
std::vector<KnownNames> SignInSettingNames();

} // namespace kestd
