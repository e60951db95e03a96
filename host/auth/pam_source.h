// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by PAM: the modules that a service's file in /etc/pam.d lists check the password and the
// account.
//
// The name is what the modules make of it (PAM_USER), the groups are those that the system knows
// the name to be in.
#pragma once

#include <memory>
#include <string>

#include "host/auth/credentials_source.h"

namespace kestd {

// Modules may ask other machines: checks take as long as they do. Each check has a transaction of
// its own, and modules that want to talk with the user about more than a password fail. Whoever is
// looked for without a password is one whom the account modules let in.
std::shared_ptr<CredentialsSource> MakePamSource(std::string service);

} // namespace kestd
