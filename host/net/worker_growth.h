// SPDX-License-Identifier: Apache-2.0
//
// Decides when more threads get more done, and when nothing can be begun any more.
#pragma once

#include <cstdint>
#include <optional>

namespace kestd {

// What some threads have done since they began, nanoseconds: the time in which each ran or stood in
// the queue for a processor. The rest of the time they waited for a disk, a lock or a client.
struct ThreadActivity {
    int64_t now = 0; // of a clock that never goes back
    uint64_t active = 0;
    uint32_t threads = 0;
};

// For one thread, which asks at regular intervals (ticks). Knows no clock and no thread itself.
class WorkerGrowth {
  public:
    struct Tick {
        bool isFull = false; // every worker serves something
        uint64_t served = 0; // events so far
        uint32_t workers = 0;
        uint32_t limit = 0;
        // Of the workers; none where the system does not tell, or nobody wants to know.
        std::optional<ThreadActivity> activity;
    };
    struct Advice {
        bool wakesIdle = false; // somebody is free: may take what stands behind something long
        uint32_t more = 0;      // workers to add
        bool rejects = false;   // refuse what is ready: all that there may be are stuck
        bool operator==(const Advice&) const = default;
    };

    // Whether the tick's activity counts.
    static bool Asks(bool isFull, uint32_t workers, uint32_t limit) noexcept
    {
        return isFull && workers < limit;
    }
    // Threads that compute, or wait for a processor, only get in each other's way when there are
    // more of them; those that wait for a disk do so for a few milliseconds each time, so that no
    // single wait need last a tick. So they become half as many again and one more where they have
    // waited for most of a tick; and where none of them has got anywhere for half a second, since
    // short requests must not stand behind long ones for ever.
    Advice OnTick(const Tick& tick) noexcept;

  private:
    bool HaveWaited(const std::optional<ThreadActivity>& activity) noexcept;

    uint64_t servedBefore_ = 0;
    uint32_t stuckTicks_ = 0; // in a row, in which all were busy and nothing was served
    std::optional<ThreadActivity> activityBefore_;
};

} // namespace kestd
