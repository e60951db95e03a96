// SPDX-License-Identifier: Apache-2.0
//
// The directory service's LDAP side: entries of a server, read when they are asked for and kept for
// a while, so that a page does not cost a search each time and a server that is gone does not hold
// up every page.
#pragma once

#include <memory>

#include "host/auth/clock.h"
#include "host/components/directory.h"
#include "host/config/directory_settings.h"

namespace kestd {

// A backend over one server. Connects when it is first asked. `clock` outlives it.
std::unique_ptr<DirectoryBackend> MakeLdapDirectory(const LdapSettings& settings,
                                                    const Clock& clock);

} // namespace kestd
