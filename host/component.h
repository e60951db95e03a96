// SPDX-License-Identifier: Apache-2.0
//
// The host as a component: its failure statuses, and the base of what it hands out.
#pragma once

#include <kest/sdk/component.h>
#include <kest/sdk/object.h>

namespace kestd {

struct HostComponent : kest::Component<kFacilityHost> {};

// A failure made by the host.
constexpr TALSTATUS HostFailure(UINT16 code) noexcept
{
    return HostComponent::Failure(code);
}

// Runs an operation of an interface: no exception leaves it.
template <class Body> TALSTATUS AtBoundary(Body&& body) noexcept
{
    return kest::AtBoundary<HostComponent>(std::forward<Body>(body));
}

template <class Final, class... Interfaces>
using Object = kest::Object<Final, HostComponent, Interfaces...>;

} // namespace kestd
