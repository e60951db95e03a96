// SPDX-License-Identifier: Apache-2.0
//
// The pace of the thread that looks after waits: often while there is something to look after, and
// hardly ever while there is not.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kestd {

inline constexpr std::chrono::milliseconds kTick{100};      // between two looks at a busy server
inline constexpr std::chrono::milliseconds kLongTick{1000}; // and at an idle one

// Says how long the thread may sleep. For that thread only; knows no clock itself.
class ClockPace {
  public:
    // `now` and `due` in milliseconds of one clock. `served`: events so far. `due`: when the first
    // of the pending waits is to be looked at; not later than `now` while there is one that has to
    // be watched.
    std::chrono::milliseconds Next(int64_t now, uint64_t served, int64_t due) noexcept;

  private:
    uint64_t servedBefore_ = 0;
    int64_t lastServed_ = INT64_MIN; // when an event had been served since the look before
};

// The sleep of that thread.
class ServerClock {
  public:
    // For the thread: until the time is over or, where that is more than a tick, work begins. False
    // at the end.
    bool Sleep(std::chrono::milliseconds time);
    // From any thread, where work begins. Costs a look at one variable unless the clock sleeps
    // long.
    void Rouse() noexcept
    {
        if (dozes_.load(std::memory_order_relaxed))
            Wake();
    }
    void End(); // from any thread, once

  private:
    void Wake() noexcept;

    std::mutex mutex_; // guards ends_
    std::condition_variable wake_;
    bool ends_ = false;
    alignas(64) std::atomic<bool> dozes_{false}; // read by every thread, hardly ever written
};

} // namespace kestd
