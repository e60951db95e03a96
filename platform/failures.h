// SPDX-License-Identifier: Apache-2.0
//
// The platform layer's failure statuses.
#pragma once

#include <utility>

#include <kest/sdk/component.h>
#include <kest/status.h>

namespace tolm {

// The platform layer as a component of kest/sdk. Its failures are returned and not reported to the
// host: only the caller knows whether a request depends on what failed.
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
