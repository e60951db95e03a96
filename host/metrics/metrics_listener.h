// SPDX-License-Identifier: Apache-2.0
//
// The listener for metrics: a thread of its own, so that it answers while all workers are busy.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "host/metrics/scrape.h"

namespace kestd {

// Answers one request on each connection. Clients are held for a bounded time, and a bounded number
// of them: where there are more, the one that came first gives way.
class MetricsListener {
  public:
    static constexpr size_t kMostClients = 32;
    static constexpr size_t kMostHead = 8 * 1024; // bytes; more: 431
    static constexpr int64_t kClientTime = 5000;  // ms, from its coming to its going

    // `source` outlives the listener. The sockets listen already and do not block.
    MetricsListener(MetricsSource& source, std::vector<base::Descriptor> sockets);
    ~MetricsListener() { Stop(); }
    MetricsListener(const MetricsListener&) = delete;
    MetricsListener& operator=(const MetricsListener&) = delete;

    // Starts the thread. Throws std::system_error.
    void Begin();
    // Ends it, once what it asks the source for has been told. The second call does nothing.
    void Stop() noexcept;

  private:
    struct Client {
        base::Descriptor socket;
        int64_t until; // NowMs
        std::string received;
        size_t scanned = 0; // of it, for the end of the head
        std::string reply;  // empty until the head is there
        size_t sent = 0;
        bool isDone = false; // nothing is sent any more; it is listened to until it closes
    };

    void Run() noexcept;
    void RunOnce();
    void Accept(int socket);
    bool Serve(Client& client) noexcept;
    bool Receive(Client& client);
    bool Send(Client& client) noexcept;

    MetricsSource& source_;
    const std::vector<base::Descriptor> sockets_;
    base::Descriptor wakeup_;
    std::atomic<bool> isStopping_{false};
    std::vector<Client> clients_; // in the order in which they came; of the thread
    int64_t acceptsAgain_ = 0;    // likewise; NowMs, after a lack of descriptors
    std::thread thread_;
};

} // namespace kestd
