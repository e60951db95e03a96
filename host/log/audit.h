// SPDX-License-Identifier: Apache-2.0
//
// Who changed what, and who signed in: a JSON line each, in the audit part of the log.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/log/access_log.h"

namespace kestd {

// From now on changes and sign-ins are told; before, the functions below do nothing. Thread-safe.
void StartAudit() noexcept;
bool IsAudited() noexcept;

// Where memory is short a line is lost, and a warning stands in the log.
// `destination` is that of COPY and MOVE as it was sent, empty for none.
void AuditChange(const AccessRecord& request, std::string_view destination) noexcept;
// Counts the sign-in, too, also where nothing is told.
// `result` is "granted", "denied" or "throttled". Credentials that are remembered are not told
// again.
void AuditSignIn(std::string_view user, std::string_view remote, std::string_view result) noexcept;

// Sign-ins so far, as AuditSignIn was told of them.
struct SignInCounts {
    uint64_t granted;
    uint64_t denied;
    uint64_t throttled;
    uint64_t unavailable;
};
SignInCounts CountedSignIns() noexcept;

} // namespace kestd
