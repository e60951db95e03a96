// SPDX-License-Identifier: Apache-2.0
//
// Requests for a part of a resource (RFC 9110 section 14): see range_request.h.
#pragma once

#include "host/pipeline/stage.h"

namespace kestd {

class RangeRequests final : public Stage {
  public:
    // Reads a GET's range. Refuses a PUT of a part with 400 (section 14.5): taking it for the whole
    // would destroy the rest.
    Decision OnRequest(Exchange& exchange) const override;
    // Fit the handler's reply to the range that the client wants, or have another one made.
    bool OnReplyHead(Exchange& exchange, int& status) const override;
    std::string_view OnReplyBody(Exchange& exchange, std::string_view piece,
                                 bool& isOver) const override;
};

} // namespace kestd
