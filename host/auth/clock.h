// SPDX-License-Identifier: Apache-2.0
//
// The time that services use for idle limits, injected so that tests move it.
#pragma once

#include <time.h>

#include <chrono>

namespace kestd {

using TimePoint = std::chrono::steady_clock::time_point;

class Clock {
  public:
    virtual ~Clock() = default;
    virtual TimePoint Now() const = 0; // never goes back
};

class SteadyClock final : public Clock {
  public:
    // A few milliseconds coarse, which is enough for idle limits, and asked in every request.
    TimePoint Now() const override
    {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // the steady clock's time
        return TimePoint(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
    }
};

} // namespace kestd
