// SPDX-License-Identifier: Apache-2.0
//
// Which requests are well-formed (RFC 9110 section 7, RFC 9112 sections 2 to 6).
#pragma once

#include "host/config/settings_holder.h"
#include "host/http/message_framing.h"
#include "host/http/request.h"

namespace kestd {

// Fills `request` from its head, whose text is complete: framing, host, target, method, and what a
// trusted proxy (`request.isFromProxy`) says of its client. 0, or the
// status to refuse it with. `mustClose` is set when nobody can tell where the next request starts.
int ReadRequest(Request& request, const EffectiveSettings& settings, MessageFraming& framing,
                bool& mustClose);

// Whether the client lets the connection stay open (RFC 9112 section 9.3).
bool WantsKeepAlive(const RequestHead& head) noexcept;

} // namespace kestd
