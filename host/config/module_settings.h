// SPDX-License-Identifier: Apache-2.0
//
// The table of the WebDAV module, which reads it itself and falls back to defaults in silence: what
// is wrong there is said before anybody is served.
#pragma once

#include <string>

#include "host/config/registry_reader.h"
#include "host/config/settings.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kModuleKey = u"Kest\\Configuration\\KestDav";

// What the host needs of it. Anything else than "standard" is classic: CheckModuleSettings refuses
// what is neither.
Dialect ReadDialect(ITalpl& platform);
// Empty when all is well.
std::string CheckModuleSettings(ITalpl& platform);
KnownNames ModuleSettingNames();

} // namespace kestd
