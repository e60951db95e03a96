// SPDX-License-Identifier: Apache-2.0
//
// The sources of credentials that the settings list.
#pragma once

#include <memory>
#include <string>

#include "host/auth/clock.h"
#include "host/auth/credentials_source.h"
#include "host/commands/setup.h"
#include "host/config/host_settings.h"

namespace kestd {

// The source that the settings call `name`, over the users that were read. `clock` outlives it.
std::shared_ptr<CredentialsSource> MakeSource(const std::string& name, const HostSettings& settings,
                                              const UserLists& lists, const Clock& clock);
// All of them, in their order; before them the users of the command line, where the settings do not
// list those. `ldap` is the LDAP server's, made already, or null.
CredentialsSources MakeSources(const HostSettings& settings, const UserLists& lists,
                               const Clock& clock, const std::shared_ptr<CredentialsSource>& ldap);

} // namespace kestd
