// SPDX-License-Identifier: Apache-2.0
//
// Answers one request to the listener for metrics: /metrics, /health and /ready.
#pragma once

#include <string>
#include <string_view>

#include "host/metrics/exposition.h"

namespace kestd {

// What can be asked for. Called by the listener's thread; may throw std::bad_alloc.
class MetricsSource {
  public:
    virtual std::string Metrics(MetricsFormat format) = 0;
    // Empty when all is well, else why not, in a line.
    virtual std::string WhatIsWrong() = 0;    // the process does not get on
    virtual std::string WhatIsNotReady() = 0; // it cannot serve (yet, or any more)

  protected:
    ~MetricsSource() = default;
};

// The whole reply to a head with its empty line; the connection closes behind it.
std::string AnswerScrape(std::string_view head, MetricsSource& source);
// One that says nothing but its status.
std::string ShortScrapeReply(int status);

// The format that an "Accept" header asks for: the older one unless OpenMetrics is wanted more.
MetricsFormat FormatFor(std::string_view accept) noexcept;

} // namespace kestd
