// SPDX-License-Identifier: Apache-2.0
//
// The server's own table: addresses, limits, users and sessions.
#pragma once

#include <string>
#include <vector>

#include "host/config/auth_settings.h"
#include "host/config/registry_reader.h"
#include "host/config/settings.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kServerKey = u"Kest\\Configuration\\Server";

// Both hold the defaults on entry, `server` the dialect also. Empty on success, else all problems.
std::string ReadServerSettings(ITalpl& platform, ServerSettings& server, UserSettings& users);
// Those that wait for the next start, and those that do not.
std::vector<KnownNames> ServerSettingNames();

} // namespace kestd
