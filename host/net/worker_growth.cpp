// SPDX-License-Identifier: Apache-2.0
//
// Compares a tick with the one before it.
#include "host/net/worker_growth.h"

namespace kestd {

namespace {

// Ticks without any progress before what is ready is turned away: a second of them.
constexpr uint32_t kPatience = 10;

} // namespace

bool WorkerGrowth::HaveWaited(const std::optional<ThreadActivity>& activity) noexcept
{
    const std::optional<ThreadActivity> before = activityBefore_;
    activityBefore_ = activity;
    if (!before || !activity || activity->active < before->active)
        return false;
    const auto wall = static_cast<uint64_t>(activity->now - before->now);
    return activity->active - before->active < wall * activity->threads / 2;
}

WorkerGrowth::Advice WorkerGrowth::OnTick(const Tick& tick) noexcept
{
    const bool isStuck = tick.isFull && tick.served == servedBefore_;
    servedBefore_ = tick.served;
    stuckTicks_ = isStuck ? stuckTicks_ + 1 : 0;
    if (!tick.isFull) {
        activityBefore_.reset();
        return {.wakesIdle = true};
    }
    if (tick.workers >= tick.limit)
        return {.rejects = stuckTicks_ > kPatience};
    if (HaveWaited(tick.activity) || stuckTicks_ >= kPatience / 2)
        return {.more = tick.workers / 2 + 1};
    return {};
}

} // namespace kestd
