// SPDX-License-Identifier: Apache-2.0
//
// Starts workers, and more of them when those there are wait for disks.
#include "host/net/worker_pool.h"

#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "host/net/event_loop.h"
#include "host/net/thread_activity.h"
#include <kest/tolm.h>

namespace kestd {

void WorkerPool::Start(unsigned count, unsigned limit)
{
    limit_ = std::max(limit, 1u);
    for (unsigned i = 0; i < std::min(count, limit_.load()); ++i)
        AddWorker();
    if (Count() == 0)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

void WorkerPool::AddWorker()
{
    const std::lock_guard lock(mutex_);
    if (count_ >= limit_ || loop_.IsStopped())
        return;
    EventLoop::ReadyQueue* queue = nullptr;
    try {
        ids_.reserve(threads_.size() + 1);
        threads_.reserve(threads_.size() + 1);
        queue = &loop_.AddThread();
        threads_.emplace_back([this, queue] {
            {
                const std::lock_guard own(mutex_);
                ids_.push_back(gettid());
            }
            serve_(loop_, *queue);
            const std::lock_guard own(mutex_);
            --running_;
            hasEnded_.notify_all();
        });
        ++running_; // it waits for the lock before it ends
        ++count_;
    } catch (const std::exception&) { // the system has no thread left: go on with those there are
        if (queue)
            loop_.DropThread();
        TolmLog(kLogWarning, "kestd", "cannot start another worker thread");
    }
}

bool WorkerPool::Join(std::chrono::milliseconds time)
{
    std::vector<std::thread> threads;
    {
        std::unique_lock lock(mutex_);
        if (!hasEnded_.wait_for(lock, time, [this] { return running_ == 0; }))
            return false;
        threads.swap(threads_);
    }
    for (std::thread& thread : threads)
        thread.join();
    return true;
}

std::optional<ThreadActivity> WorkerPool::Measure()
{
    std::vector<pid_t> ids;
    {
        const std::lock_guard lock(mutex_);
        ids = ids_;
    }
    return MeasureActivity(ids);
}

void WorkerPool::OnTimer()
{
    const bool isFull = loop_.IsFull();
    WorkerGrowth::Tick tick{isFull, loop_.Served(), Count(), limit_, std::nullopt};
    if (WorkerGrowth::Asks(isFull, tick.workers, tick.limit))
        tick.activity = Measure();
    const WorkerGrowth::Advice advice = growth_.OnTick(tick);
    if (advice.wakesIdle)
        loop_.WakeIdle();
    for (uint32_t i = 0; i < advice.more; ++i)
        AddWorker();
    if (advice.rejects)
        loop_.RunReady();
}

} // namespace kestd
