// SPDX-License-Identifier: Apache-2.0
//
// Conditions under which a client wants a resource changed (RFC 9110 section 13). The module knows
// those of "If" only; the others protect a client from replacing what somebody else has made
// meanwhile, and are judged here by an internal HEAD in the same session. That spares the client of
// a long body the sending; a provider judges them again in the step that changes something
// (IKestCallContext::GetConditions).
#pragma once

#include "host/module/kest_io.h"
#include "host/net/connection_registry.h"

namespace kestd {

// Judges "If-Match", "If-Unmodified-Since" and "If-None-Match" of a request that changes something,
// and takes note of them in `request.preconditions`.
// There are no entity tags: a list of them matches nothing, "*" whatever exists. False when the
// answer has to be 412. Throws std::bad_alloc.
bool MeetsConditions(KestIo& request, Front& front);

// A date of RFC 9110's preferred form as a system time, in units of 100 ns since 1601; 0 for any
// other text and for what was before.
uint64_t DateOrder(std::string_view date) noexcept;

} // namespace kestd
