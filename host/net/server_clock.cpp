// SPDX-License-Identifier: Apache-2.0
//
// Sleeping as long as nothing is to be looked after.
#include "host/net/server_clock.h"

#include <algorithm>

namespace kestd {

using std::chrono::milliseconds;

milliseconds ClockPace::Next(int64_t now, uint64_t served, int64_t due) noexcept
{
    if (served != servedBefore_ || lastServed_ == INT64_MIN)
        lastServed_ = now;
    servedBefore_ = served;
    if (now - lastServed_ < kLongTick.count() || due <= now)
        return kTick;
    return std::clamp(milliseconds(std::min<int64_t>(due - now, kLongTick.count())), kTick,
                      kLongTick);
}

bool ServerClock::Sleep(milliseconds time)
{
    std::unique_lock lock(mutex_);
    const bool isLong = time > kTick;
    dozes_ = isLong;
    wake_.wait_for(lock, time, [&] { return ends_ || (isLong && !dozes_); });
    dozes_ = false;
    return !ends_;
}

// The lock keeps the word from being said between the sleeper's last look and its sleep.
void ServerClock::Wake() noexcept
{
    {
        const std::lock_guard lock(mutex_);
        dozes_ = false;
    }
    wake_.notify_all();
}

void ServerClock::End()
{
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    wake_.notify_all();
}

} // namespace kestd
