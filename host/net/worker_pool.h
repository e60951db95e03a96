// SPDX-License-Identifier: Apache-2.0
//
// The threads that serve a loop: a few, and more when the store keeps them waiting. Clients
// keep none waiting.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/net/event_loop.h"
#include "host/net/worker_growth.h"

namespace kestd {

class WorkerPool {
  public:
    // What a worker does: sets up what its thread needs and runs the loop.
    using Serve = void (*)(EventLoop& loop, EventLoop::ReadyQueue& queue);

    WorkerPool(EventLoop& loop, Serve serve) : loop_(loop), serve_(serve) {}

    // Throws std::system_error when not even one thread can be started.
    void Start(unsigned count, unsigned limit);
    void SetLimit(unsigned limit) noexcept { limit_.store(limit, std::memory_order_relaxed); }
    // After the loop has been stopped: waits for the threads to end, at most that long. False
    // when some have not; then it may be called again.
    bool Join(std::chrono::milliseconds time);

    // Called every 100 ms by a thread that is no worker, the same each time: does what WorkerGrowth
    // advises. Where workers are stuck, the caller itself turns away what is ready.
    void OnTimer();
    unsigned Limit() const noexcept { return limit_.load(std::memory_order_relaxed); }
    unsigned Count() const noexcept { return count_.load(std::memory_order_relaxed); }

  private:
    void AddWorker();
    std::optional<ThreadActivity> Measure();

    EventLoop& loop_;
    const Serve serve_;
    std::atomic<unsigned> count_{0};
    std::atomic<unsigned> limit_{1};
    WorkerGrowth growth_; // of the ticking thread
    std::mutex mutex_;    // guards running_, threads_ and ids_
    std::condition_variable hasEnded_;
    unsigned running_ = 0;
    std::vector<std::thread> threads_;
    std::vector<pid_t> ids_;
};

} // namespace kestd
