// SPDX-License-Identifier: Apache-2.0
//
// The store's failure statuses, and what an error of the system beneath means in them.
#pragma once

#include <utility>

#include <kest/sdk/component.h>
#include <kest/status.h>

namespace filestore {

// The store as a component. Fault tells the host through what the store knows of its request.
struct StoreComponent : kest::Component<kFacilityFileStore> {
    [[nodiscard]] static TALSTATUS Fault(UINT16 code) noexcept;
};

// A failure made by this component.
constexpr TALSTATUS Failure(UINT16 code) noexcept
{
    return StoreComponent::Failure(code);
}

// A failure that is the system's fault and no answer to what was asked.
[[nodiscard]] inline TALSTATUS Fault(UINT16 code) noexcept
{
    return StoreComponent::Fault(code);
}

// The status for an errno value; 0 gives success. What would tell a client about the world outside
// a volume (a link that leads out, a loop) is "not found". What is the system's fault is one, and
// stands in the log, too.
[[nodiscard]] TALSTATUS StatusFromErrno(int error) noexcept;
[[nodiscard]] bool IsFault(int error) noexcept; // whether it is that

// Hands on what a look has found. Where the module takes a refusal for "nothing there" as well, the
// host is told of it.
[[nodiscard]] TALSTATUS ReportIfDenied(TALSTATUS status) noexcept;

// Runs an operation of an interface: no exception leaves it.
template <class F> TALSTATUS Protected(F&& operation) noexcept
{
    return kest::AtBoundary<StoreComponent>(std::forward<F>(operation));
}

} // namespace filestore
