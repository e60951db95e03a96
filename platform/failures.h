// SPDX-License-Identifier: Apache-2.0
//
// The platform layer's failure statuses.
#pragma once

#include <utility>

#include <kest/sdk/component.h>
#include <kest/status.h>

namespace tolm {

// The platform layer as a component. What fails here is answered to whoever called, who knows
// whether a request has to hear of it.
struct PlatformComponent : kest::Component<kFacilityPlatform> {
    [[nodiscard]] static constexpr TALSTATUS Fault(UINT16 code) noexcept { return Failure(code); }
};

constexpr TALSTATUS Fail(UINT16 code) noexcept
{
    return PlatformComponent::Failure(code);
}

// Runs `body`, which may use the C++ library, and turns what it throws into a status: nothing may
// leave the library as an exception.
template <class Body> TALSTATUS Guarded(Body&& body) noexcept
{
    return kest::AtBoundary<PlatformComponent>(std::forward<Body>(body));
}

} // namespace tolm
