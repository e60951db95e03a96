// SPDX-License-Identifier: Apache-2.0
//
// The names of all settings, and what a file sets beside them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/config/registry_reader.h"
#include <kest/talpl.h>

namespace kestd {

// Of the tables whose settings have names of our choice.
const std::vector<KnownNames>& KnownSettings();

// Says of each table and setting of the file that nobody has read and nobody knows where it stands,
// and the known name that is nearest to it; empty for none. Called when all settings have been
// read. Classes other than `ownClasses` ("{…}") may read tables that the host does not know: where
// there are such, only a table whose name is nearly that of a known one is told.
std::string UnknownSettings(ITalpl& platform, const std::vector<std::u16string>& ownClasses);

// The candidate that a misspelt name was meant to be, compared without case; empty when none is
// near.
std::string NearestName(std::string_view name, const std::vector<std::string>& candidates);

} // namespace kestd
