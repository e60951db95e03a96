// SPDX-License-Identifier: Apache-2.0
//
// The store's failure statuses, and what an error of the system beneath means in them.
#pragma once

#include <new>
#include <utility>

#include <kest/status.h>

namespace filestore {

// A failure made by this component.
constexpr TALSTATUS Failure(UINT16 code) noexcept
{
    return MakeStatus(kFacilityFileStore, code);
}

// The status for an errno value; 0 gives success. What would tell a client about the world outside
// a volume (a link that leads out, a loop) is reported as "not found". What is the system's fault
// and not the request's stands in the log, too.
[[nodiscard]] TALSTATUS StatusFromErrno(int error) noexcept;

// Runs an operation of an interface. Memory that runs out becomes code 5, anything else that is
// thrown code 1: no exception crosses the binary boundary.
template <class F> TALSTATUS Protected(F&& operation) noexcept
{
    try {
        return std::forward<F>(operation)();
    } catch (const std::bad_alloc&) {
        return Failure(kCodeInsufficientResources);
    } catch (...) {
        return Failure(kCodeUnsuccessful);
    }
}

} // namespace filestore
