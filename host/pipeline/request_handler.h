// SPDX-License-Identifier: Apache-2.0
//
// Who makes the replies, at the end of the pipeline.
#pragma once

#include <string>
#include <string_view>

#include "host/pipeline/exchange.h"

namespace kestd {

// What a subrequest was answered.
struct SubrequestResult {
    int status = 0;           // 0: the handler sent none
    std::string lastModified; // "Last-Modified"; empty: not told
};

class RequestHandler {
  public:
    virtual ~RequestHandler() = default;

    // Answers through the exchange, on a fiber.
    virtual void Handle(Exchange& exchange) = 0;
    // Answers a request without headers (but "Lock-Token", unless `lockToken` is empty) and body,
    // in memory, on behalf of another one and in its session. `path` is unescaped and begins with
    // the location. A failure that a component reports is that of `behind`; then the result tells
    // nothing. Throws std::bad_alloc.
    virtual SubrequestResult Subrequest(Exchange& behind, std::string_view path, UINT32 method,
                                        std::string lockToken) = 0;
};

} // namespace kestd
