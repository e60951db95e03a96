// SPDX-License-Identifier: Apache-2.0
//
// What trusted proxies say about a request: "Forwarded" (RFC 7239) and "X-Forwarded-…".
#pragma once

#include "host/config/settings_holder.h"
#include "host/http/request.h"

namespace kestd {

// For a request whose peer is a trusted proxy, and whose head has been parsed: sets the client's
// address, whether it speaks TLS, and the host and port that it asked for, as far as they are said.
// 0, or 400 for a "Forwarded" that is malformed. Throws std::bad_alloc.
//
// The client is the last address in the list of hops that is no trusted proxy's: whatever stands
// before it is its own word. Scheme and host are those that the proxy has told that named it. Where
// a proxy hides the client or does not know it, nothing that stands before is looked at.
int ReadForwarded(Request& request, const EffectiveSettings& settings);

} // namespace kestd
