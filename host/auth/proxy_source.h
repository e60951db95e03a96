// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by a trusted proxy that has done it: the proxy names the user, and nobody's password
// comes this way.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/auth/credentials_source.h"

namespace kestd {

// Takes every name for a user's, since the proxy alone knows them, and no password for right.
// Listed among the sources it lets users of the proxy have app passwords, for clients that cannot
// pass by its pages.
std::shared_ptr<CredentialsSource> MakeProxySource();

// Who the proxy has named. `groups` is its list, separated by commas.
std::shared_ptr<const Principal> MakeProxyPrincipal(std::string_view name, std::string_view groups);

} // namespace kestd
