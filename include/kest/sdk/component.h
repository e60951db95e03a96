// SPDX-License-Identifier: Apache-2.0
//
// What a component is called in statuses, and how it fails. Header-only, as all of sdk/: for C++
// code on either side of the contract. Nothing here crosses the boundary.
#pragma once

#include <new>
#include <utility>

#include <kest/com.h>
#include <kest/host/call_context.h>
#include <kest/status.h>
#include <kest/types.h>

namespace kest {

// The failures of one component. A component derives its own from it, and hides Fault where it has
// another way to tell:
//
//     struct MyStore : kest::Component<0xC7B0> {};
template <UINT16 Facility> struct Component {
    // A failure that answers what was asked.
    [[nodiscard]] static constexpr TALSTATUS Failure(UINT16 code) noexcept
    {
        return MakeStatus(Facility, code);
    }

    // A failure that is the system's fault and no answer to what was asked. The running request's
    // host is told: the module takes most failures for "nothing there", and says so.
    [[nodiscard]] static TALSTATUS Fault(UINT16 code) noexcept
    {
        const TALSTATUS status = Failure(code);
        Ref<IKestCallContext> context;
        if (!Failed(Create(CLSID_KestCallContext, context)))
            (void)context->ReportFailure(status); // without a request there is nobody to tell
        return status;
    }
};

// Runs the body of an operation of the contract: no exception leaves it. Memory that runs out
// becomes a fault with code 5, anything else that is thrown one with code 1.
template <class Component, class Body> TALSTATUS AtBoundary(Body&& body) noexcept
{
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return Component::Fault(kCodeInsufficientResources);
    } catch (...) {
        return Component::Fault(kCodeUnsuccessful);
    }
}

} // namespace kest
