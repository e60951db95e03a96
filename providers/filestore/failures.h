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

// A failure that is the system's fault and no answer to what was asked. The host is told of it: the
// module takes most failures for "nothing there", or for the end, and says so.
[[nodiscard]] TALSTATUS Fault(UINT16 code) noexcept;

// The status for an errno value; 0 gives success. What would tell a client about the world outside
// a volume (a link that leads out, a loop) is "not found". What is the system's fault is one, and
// stands in the log, too.
[[nodiscard]] TALSTATUS StatusFromErrno(int error) noexcept;
[[nodiscard]] bool IsFault(int error) noexcept; // whether it is that

// Hands on what a look has found. Where the module takes a refusal for "nothing there" as well, the
// host is told of it.
[[nodiscard]] TALSTATUS ToldIfDenied(TALSTATUS status) noexcept;

// Runs an operation of an interface. Memory that runs out becomes code 5, anything else that is
// thrown code 1, and both are faults: no exception crosses the binary boundary.
template <class F> TALSTATUS Protected(F&& operation) noexcept
{
    try {
        return std::forward<F>(operation)();
    } catch (const std::bad_alloc&) {
        return Fault(kCodeInsufficientResources);
    } catch (...) {
        return Fault(kCodeUnsuccessful);
    }
}

} // namespace filestore
