// SPDX-License-Identifier: Apache-2.0
//
// The threads that run an io_context: a few, and more when clients keep them waiting.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "host/transport.h"

namespace boost::asio {
class io_context;
}

namespace kestd {

class Workers final : public WaitWatcher {
  public:
    explicit Workers(boost::asio::io_context& io) : io_(io) {}

    // Throws std::system_error when not even one thread can be started.
    void Start(unsigned count, unsigned limit);
    void SetLimit(unsigned limit) noexcept { limit_.store(limit, std::memory_order_relaxed); }
    void Join(); // after the io_context has been stopped

    // Marks a thread as busy while it serves something.
    class Busy {
      public:
        explicit Busy(Workers& workers) noexcept;
        ~Busy();
        Busy(const Busy&) = delete;
        Busy& operator=(const Busy&) = delete;

      private:
        Workers& workers_;
    };

    // A busy thread is about to wait for a client: makes sure that another one is there.
    void BeforeWait() override;
    // Called at regular intervals by a thread that is no worker. Adds threads when all are busy and
    // wait (for a disk, say) rather than compute: then more of them get more done. Once there are
    // as many as there may be and they stay stuck, the caller itself serves what is ready,
    // overloaded.
    void Tick();
    // Whether the calling thread only turns requests away: it must not wait for anything.
    static bool IsOverloaded() noexcept;
    unsigned Count() const noexcept { return count_.load(std::memory_order_relaxed); }

  private:
    void Spawn();
    bool AreWaiting(std::chrono::steady_clock::time_point now);

    boost::asio::io_context& io_;
    std::atomic<unsigned> busy_{0};
    std::atomic<unsigned> count_{0};
    std::atomic<unsigned> limit_{1};
    std::atomic<uint64_t> served_{0};
    uint64_t servedBefore_ = 0; // of the ticking thread
    unsigned stuckTicks_ = 0;   // likewise
    uint64_t activeBefore_ = 0; // likewise: AreWaiting's measure of the last tick
    std::chrono::steady_clock::time_point tickBefore_;
    std::mutex mutex_; // guards threads_ and ids_
    std::vector<std::thread> threads_;
    std::vector<pid_t> ids_;
};

} // namespace kestd
