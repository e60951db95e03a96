// SPDX-License-Identifier: Apache-2.0
//
// The time that services use for idle limits, injected so that tests move it.
#pragma once

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
    TimePoint Now() const override { return std::chrono::steady_clock::now(); }
};

} // namespace kestd
