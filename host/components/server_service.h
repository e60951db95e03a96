// SPDX-License-Identifier: Apache-2.0
//
// CLSID_KestSrv: what components may know of the host's configuration and of a session's user.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/auth/sessions.h"
#include <kest/host.h>

namespace kestd {

// What IKestConfig answers with.
struct HostIdentity {
    std::string hostname; // with the port unless it is the protocol's own
    std::string port;     // decimal
    std::u16string proxy; // "host:port" of the proxy for outgoing requests; empty for none
};

// A new IKestConfig with one reference. `sessions` outlives it.
IKestConfig* MakeConfigService(std::shared_ptr<const HostIdentity> identity,
                               const SessionTable& sessions);

// A new IKestSession with one reference. `sessions` outlives it.
IKestSession* MakeSessionService(SessionTable& sessions);

} // namespace kestd
