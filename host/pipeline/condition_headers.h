// SPDX-License-Identifier: Apache-2.0
//
// Conditions under which a client wants a resource changed (RFC 9110 section 13).
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

// Takes note of "If-Match", "If-Unmodified-Since" and "If-None-Match" of a request that changes
// something: providers judge them in the step that changes it (IKestCallContext::GetConditions).
class ConditionHeaders final : public Stage {
  public:
    Decision OnBody(Exchange& exchange) const override;
};

} // namespace kestd
