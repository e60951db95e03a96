// SPDX-License-Identifier: Apache-2.0
#include "host/net/connection_registry.h"

#include <time.h>

#include "host/net/connection.h"
#include <kest/tolm.h>

namespace kestd {

int64_t NowMs() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // a few ms coarse is enough for time limits
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

const EffectiveSettings& Front::Current()
{
    // Each thread keeps its own reference, so that asking costs neither a lock nor a shared count.
    thread_local std::shared_ptr<const EffectiveSettings> t_live;
    if (!t_live || t_live->version != liveVersion_.load(std::memory_order_acquire))
        t_live = Snapshot();
    return *t_live;
}

void Front::Publish(std::shared_ptr<const EffectiveSettings> live)
{
    const std::lock_guard lock(liveMutex_);
    live_ = std::move(live);
    liveVersion_.store(live_->version, std::memory_order_release);
}

std::shared_ptr<const EffectiveSettings> Front::Snapshot()
{
    const std::lock_guard lock(liveMutex_);
    return live_;
}

void Front::Add(Connection& connection)
{
    const std::lock_guard lock(mutex_);
    connection.next = first_;
    if (first_)
        first_->previous = &connection;
    first_ = &connection;
    ++count_;
}

void Front::Remove(Connection& connection)
{
    const std::lock_guard lock(mutex_);
    if (connection.previous)
        connection.previous->next = connection.next;
    else
        first_ = connection.next;
    if (connection.next)
        connection.next->previous = connection.previous;
    if (--count_ == 0)
        isEmpty_.notify_all();
}

void Front::ExpireDeadlines(int64_t now)
{
    const Limits& limits = Current().settings.limits;
    const int64_t elapsed = sweptBefore_ ? now - sweptBefore_ : 0;
    sweptBefore_ = now;
    const bool isCrowded = ConnectionCount() > limits.connections - limits.connections / 8;
    {
        const std::lock_guard lock(mutex_);
        for (Connection* each = first_; each; each = each->next)
            each->Check({now, elapsed, isCrowded}, limits);
    }
    ReportGivenUp(now);
}

void Front::ReportGivenUp(int64_t now)
{
    const uint64_t all = clients.GivenUp();
    if (all == givenUpBefore_ || now < saysAgain_)
        return;
    TolmLog(kLogWarning, "kestd",
            (std::to_string(all - givenUpBefore_) +
             " requests were ended that waited longest for their clients: too many waited")
                .c_str());
    givenUpBefore_ = all;
    saysAgain_ = now + 10'000;
}

void Front::Hurry(bool all)
{
    const std::lock_guard lock(mutex_);
    for (Connection* each = first_; each; each = each->next) {
        each->ExpireIfIdle();
        if (all)
            each->GiveUp();
    }
}

bool Front::WaitUntilEmpty(std::chrono::milliseconds time)
{
    std::unique_lock lock(mutex_);
    return isEmpty_.wait_for(lock, time, [this] { return count_ == 0; });
}

void Front::DeleteAll()
{
    while (first_)
        delete first_; // takes itself out
}

} // namespace kestd
