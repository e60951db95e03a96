// SPDX-License-Identifier: Apache-2.0
//
// Runs a scenario over keep-alive connections and checks every reply.
#pragma once

#include <cstdint>
#include <map>
#include <netinet/in.h>
#include <string>
#include <vector>

#include "scenario.h"

namespace bench {

struct Outcome {
    uint64_t sequences = 0;
    uint64_t requests = 0;
    uint64_t wrong = 0;     // replies that are not what the scenario expects
    std::string firstWrong; // what the first of them was
    uint64_t reconnects = 0;
    uint64_t bytesIn = 0;
    uint64_t bytesOut = 0;
    double seconds = 0;
    std::map<int, uint64_t> statuses;
    std::vector<uint32_t> firstByteMicros; // one per request
    std::vector<uint32_t> wholeMicros;
};

// Works through the scenario against a server on `address`. `host` is the Host header's value.
// A connection that fails to open, or a server that answers nothing for a minute, counts as wrong.
Outcome RunLoad(const Scenario& scenario, const sockaddr_in& address, const std::string& host);

} // namespace bench
