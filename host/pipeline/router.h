// SPDX-License-Identifier: Apache-2.0
//
// Which requests are well-formed, where they go, and what the server answers without the module.
#pragma once

#include "host/module/kest_io.h"
#include "host/net/connection_registry.h"

namespace kestd {

enum class RouteResult {
    Refused,  // answered with an error
    Answered, // answered otherwise
    Module,   // to be handed on
};

// Fills `request` from its head, whose text is complete: framing, host, target, method. 0, or the
// status to refuse it with. `mustClose` is set when nobody can tell where the next request starts.
int ReadRequest(KestIo& request, const EffectiveSettings& live, MessageFraming& framing,
                bool& mustClose);

// Whether the client lets the connection stay open.
bool WantsKeepAlive(const RequestHead& head) noexcept;

// Decides who serves a request whose reply has been started, and serves what is not the module's.
// For the module's, the client has been authenticated.
RouteResult Decide(KestIo& request, Front& front, const EffectiveSettings& live);

// Answers with a short text.
void AnswerError(KestIo& request, int status);

} // namespace kestd
