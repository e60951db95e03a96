// SPDX-License-Identifier: Apache-2.0
//
// Sign-in by an LDAP server: the user is searched for by what he has typed, and the server is asked
// whether the password is that of what was found ("search then bind").
//
// The user's name is what the server has in an attribute, not what was typed: servers compare
// without case and blanks, rules do not.
#pragma once

#include "host/auth/clock.h"
#include "host/auth/credentials_source.h"
#include "host/config/auth_settings.h"

namespace kestd {

// Connects when it is first asked; keeps as many connections as were used at once, up to a bound.
// After a failure the server is left alone for the retry time, and nothing is available. `tree` is
// the directory tree of its users. `clock` outlives it.
std::shared_ptr<CredentialsSource> MakeLdapSource(const LdapSignIn& settings, std::string tree,
                                                  const Clock& clock);

// A text as it stands in a filter (RFC 4515 section 3), also "%", which stands for something in the
// settings. Throws std::bad_alloc.
std::string EscapedForFilter(std::string_view text);

} // namespace kestd
