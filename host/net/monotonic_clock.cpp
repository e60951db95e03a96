// SPDX-License-Identifier: Apache-2.0
//
// Asks the system's coarse clock.
#include "host/net/monotonic_clock.h"

#include <time.h>

namespace kestd {

int64_t NowMs() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // a few ms coarse is enough for time limits
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace kestd
