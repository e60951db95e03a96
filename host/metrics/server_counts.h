// SPDX-License-Identifier: Apache-2.0
//
// What one server counts for its metrics.
#pragma once

#include <atomic>
#include <cstdint>

#include "host/metrics/request_counts.h"

namespace kestd {

// Connections that were let in, and those that were not. Thread-safe.
struct ConnectionCounts {
    std::atomic<uint64_t> accepted{0};
    std::atomic<uint64_t> refusedAsTooMany{0}; // 'Connections'
    std::atomic<uint64_t> refusedToAddress{0}; // 'Connections Per Address'
    std::atomic<uint64_t> refusedUntrusted{0}; // 'PROXY Protocol' and no trusted proxy
};

struct ServerCounts {
    explicit ServerCounts(VolumeIndex volumes) : requests(std::move(volumes)) {}

    RequestCounts requests;
    ConnectionCounts connections;
};

// How things stand in a server at one moment.
struct ServerFigures {
    size_t connections = 0;
    size_t idleConnections = 0; // of them: wait for a request
    uint64_t workers = 0;
    uint64_t busyWorkers = 0;
    uint64_t mostWorkers = 0;     // 'Worker Threads'
    uint64_t waitingRequests = 0; // for their clients
    uint64_t givenUpRequests = 0; // so far: were ended because too many waited
};

} // namespace kestd
