// SPDX-License-Identifier: Apache-2.0
#include "host/workers.h"

#include <system_error>

#include <boost/asio/io_context.hpp>

#include <kest/tolm.h>

namespace kestd {

namespace {

thread_local bool t_isOverloaded = false;

// Ticks without any progress before waiting requests are turned away: a second.
constexpr unsigned kPatience = 10;

} // namespace

Workers::Busy::Busy(Workers& workers) noexcept : workers_(workers)
{
    if (!t_isOverloaded)
        workers_.busy_.fetch_add(1, std::memory_order_relaxed);
}

Workers::Busy::~Busy()
{
    if (t_isOverloaded)
        return;
    workers_.busy_.fetch_sub(1, std::memory_order_relaxed);
    workers_.served_.fetch_add(1, std::memory_order_relaxed);
}

void Workers::Start(unsigned count, unsigned limit)
{
    limit_ = std::max(limit, 1u);
    for (unsigned i = 0; i < std::min(count, limit_.load()); ++i)
        Spawn();
    if (Count() == 0)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

void Workers::Spawn()
{
    const std::lock_guard lock(mutex_);
    if (count_ >= limit_ || io_.stopped())
        return;
    try {
        threads_.emplace_back([this] { io_.run(); });
        ++count_;
    } catch (const std::exception&) { // the system has no thread left: go on with those there are
        TolmLog(kLogWarning, "kestd", "cannot start another worker thread");
    }
}

void Workers::Join()
{
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mutex_);
        threads.swap(threads_);
    }
    for (std::thread& thread : threads)
        thread.join();
}

void Workers::BeforeWait()
{
    if (!t_isOverloaded && busy_.load(std::memory_order_relaxed) >= Count() && Count() < limit_)
        Spawn();
}

void Workers::Tick()
{
    const uint64_t served = served_.load(std::memory_order_relaxed);
    const bool isStuck =
        busy_.load(std::memory_order_relaxed) >= Count() && served == servedBefore_;
    servedBefore_ = served;
    stuckTicks_ = isStuck ? stuckTicks_ + 1 : 0;
    if (!isStuck)
        return;
    if (Count() < limit_) {
        for (unsigned i = 0, more = Count() / 2 + 1; i < more; ++i)
            Spawn();
    } else if (stuckTicks_ > kPatience) {
        t_isOverloaded = true;
        io_.poll();
        t_isOverloaded = false;
    }
}

bool Workers::IsOverloaded() noexcept
{
    return t_isOverloaded;
}

} // namespace kestd
