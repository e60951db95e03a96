// SPDX-License-Identifier: Apache-2.0
//
// All settings of the host, from all tables.
#pragma once

#include <string>

#include "host/config/auth_settings.h"
#include "host/config/directory_settings.h"
#include "host/config/settings.h"
#include <kest/talpl.h>

namespace kestd {

struct HostSettings {
    ServerSettings server;
    UserSettings users;
    DirectorySettings directory;
};

// Reads them, but for the access rules. Empty on success, else all problems. `settings` holds the
// defaults on entry.
std::string ReadHostSettings(ITalpl& platform, HostSettings& settings);

// Looks at the settings of the WebDAV module and of the file store. Empty when all is well.
std::string CheckComponentSettings(ITalpl& platform);

} // namespace kestd
