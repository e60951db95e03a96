// SPDX-License-Identifier: Apache-2.0
//
// What decides about names and passwords at one time: the sources in their order, and app
// passwords.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/auth/app_passwords.h"
#include "host/auth/credentials_source.h"

namespace kestd {

// Immutable but for the times of use; any thread.
struct SignInOrder {
    CredentialsSources sources;
    AppPasswords apps;

    // Whether another machine is asked about the name, as far as it is known beforehand.
    bool NeedsRemote(std::string_view name) const noexcept;
    bool IsKnown(std::string_view name) const noexcept;
    // Whether a principal still stands for its user, as far as it is known without asking anybody.
    bool IsCurrent(const Principal& principal) const;
    // The first source that knows the name decides about its password; it is asked without one
    // where an app password was shown. `hasAskedRemote` is set when another machine was asked.
    // Takes the time of that, or of a hash. Throws std::bad_alloc.
    Verdict Ask(const std::string& name, std::string_view password, bool& hasAskedRemote) const;
    // The app password that a principal has signed in by; null for none.
    const AppPassword* AppOf(const Principal& principal) const;
};

} // namespace kestd
