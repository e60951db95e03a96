// SPDX-License-Identifier: Apache-2.0
//
// Who makes the replies, at the end of the pipeline.
#pragma once

#include <string>

#include "host/pipeline/exchange.h"

namespace kestd {

class RequestHandler {
  public:
    virtual ~RequestHandler() = default;

    // Answers through the exchange, on a fiber.
    virtual void Handle(Exchange& exchange) = 0;
    // Gives up the lock on the path of a request that has been answered, in its session. `token`
    // is what "Lock-Token" of such a request would say. Nobody hears of a failure. Throws
    // std::bad_alloc.
    virtual void Unlock(Exchange& behind, std::string token) = 0;
};

} // namespace kestd
