// SPDX-License-Identifier: Apache-2.0
//
// Users who have signed in outside of HTTP's own credentials: a trusted proxy names them, or the
// certificate that they have shown to TLS.
#pragma once

#include <memory>
#include <string_view>

#include "host/auth/credentials_source.h"

namespace kestd {

// As the settings call them.
inline constexpr std::string_view kProxySource = "proxy";
inline constexpr std::string_view kCertificateSource = "certificate";

// Takes every name for a user's, since others know them, and no password for right. Listed among
// the sources it lets such users have app passwords, for clients that cannot sign in so. `name` is
// one of the two.
std::shared_ptr<CredentialsSource> MakeExternalSource(std::string_view name);

// Who has been named. `groups` is a list separated by commas.
std::shared_ptr<const Principal>
MakeExternalPrincipal(std::string_view source, std::string_view user, std::string_view groups);

} // namespace kestd
