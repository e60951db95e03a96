// SPDX-License-Identifier: Apache-2.0
//
// Who changed what, and who signed in: a JSON line each, in the audit part of the log.
#pragma once

#include <cstdint>
#include <string_view>

namespace kestd {

struct AuditedChange {
    std::string_view id;
    std::string_view remote;
    std::string_view user; // empty for none
    std::string_view method;
    std::string_view target;      // as sent
    std::string_view destination; // of COPY and MOVE, as sent
    int status = 0;
};

// From now on changes and sign-ins are told; before, the functions below do nothing. Thread-safe.
void StartAudit() noexcept;
bool IsAudited() noexcept;

// Where memory is short a line is lost, and a warning stands in the log.
void AuditChange(const AuditedChange& change) noexcept;
// `result` is "granted", "denied" or "throttled". Credentials that are remembered are not told
// again.
void AuditSignIn(std::string_view user, std::string_view remote, std::string_view result) noexcept;

} // namespace kestd
