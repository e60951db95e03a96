// SPDX-License-Identifier: Apache-2.0
//
// The tables of the file store, which reads them itself and falls back to defaults in silence: what
// is wrong there is said before anybody is served.
#pragma once

#include <string>
#include <vector>

#include "host/config/registry_reader.h"
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kStoreKey = u"Kest\\Configuration\\FileStore";
inline constexpr const char16_t* kVolumesKey = u"Kest\\Configuration\\FileStore\\Volumes";

// Empty when all is well, the volumes' directories included.
std::string CheckStoreSettings(ITalpl& platform);
KnownNames StoreSettingNames();
// The names of the volumes that are configured.
std::vector<std::string> VolumeNames(ITalpl& platform);

} // namespace kestd
