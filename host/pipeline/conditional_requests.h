// SPDX-License-Identifier: Apache-2.0
//
// Conditions under which a client wants a resource changed (RFC 9110 section 13).
#pragma once

#include <cstdint>
#include <string_view>

#include "host/pipeline/request_handler.h"
#include "host/pipeline/stage.h"

namespace kestd {

// Takes note of "If-Match", "If-Unmodified-Since" and "If-None-Match" of a request that changes
// something: providers judge them in the step that changes it (IKestCallContext::GetConditions).
class ConditionHeaders final : public Stage {
  public:
    Decision OnBody(Exchange& exchange) const override;
};

// The module knows conditions of "If" only; the others protect a client from replacing what
// somebody else has made meanwhile, and are judged here before, by a HEAD in the same session,
// which spares the client of a long body the sending. There are no entity tags: a list of them
// matches nothing,
// "*" whatever exists. Refuses with 412. Stands behind ConditionHeaders.
class ConditionalRequests final : public Stage {
  public:
    explicit ConditionalRequests(RequestHandler& handler) : handler_(handler) {}
    Decision OnBody(Exchange& exchange) const override;

  private:
    RequestHandler& handler_;
};

// A date of RFC 9110's preferred form as a system time, in units of 100 ns since 1601; 0 for any
// other text and for what was before.
uint64_t DateOrder(std::string_view date) noexcept;

} // namespace kestd
