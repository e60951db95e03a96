// SPDX-License-Identifier: Apache-2.0
//
// Where names and passwords are checked: a file, or a server that knows the users.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/auth/sessions.h"

namespace kestd {

inline constexpr int kMostGroups = 1000; // of one user

// What a source says about a name and a password.
struct Verdict {
    enum class Outcome {
        Granted,     // `who` is set
        Wrong,       // the name is known here, and this is not its password
        UnknownUser, // another source may know the name
        Unavailable, // nothing can be said now; nobody is let in, and nothing is counted
    };
    Outcome outcome = Outcome::Unavailable;
    std::shared_ptr<const Principal> who; // with the groups that the source tells of
};

// Any thread. Checks take the time of a password hash, or that of another machine up to the
// source's own limits: they are made on threads of a pool.
class CredentialsSource {
  public:
    virtual ~CredentialsSource() = default;

    // As the settings call it, such as "users" or "ldap". Lives as long as the source.
    virtual std::string_view Name() const noexcept = 0;
    // Whether another machine is asked. Changes there are not told: what was right is remembered
    // for a time only.
    virtual bool IsRemote() const noexcept { return false; }
    // Whether there is a user of that name, as far as it is known without asking anybody.
    virtual bool Knows(std::string_view name) const noexcept = 0;
    // Throws std::bad_alloc; so does Find.
    virtual Verdict Check(const std::string& name, std::string_view password) = 0;
    // Who bears the name, without a look at a password: Granted, UnknownUser or Unavailable.
    virtual Verdict Find(const std::string& name) = 0;
    // Whether a principal that this source, or one in its place before, has granted still stands
    // for its user, as far as it is known without asking anybody.
    virtual bool IsCurrent(const Principal& principal) const = 0;
};

// In the order in which they are asked. The first that knows a name decides.
using CredentialsSources = std::vector<std::shared_ptr<CredentialsSource>>;

} // namespace kestd
