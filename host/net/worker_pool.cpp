// SPDX-License-Identifier: Apache-2.0
//
// Starts workers, and more of them when those there are wait for disks.
#include "host/net/worker_pool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <system_error>

#include "host/net/event_loop.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

// Ticks without any progress before waiting requests are turned away: a second.
constexpr unsigned kPatience = 10;

} // namespace

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

// Whether the workers spent most of the time since the last call neither running nor waiting for a
// processor. Only the latter two say that more threads would be of no use.
bool WorkerPool::AreWaiting(std::chrono::steady_clock::time_point now)
{
    std::vector<pid_t> ids;
    {
        const std::lock_guard lock(mutex_);
        ids = ids_;
    }
    uint64_t active = 0; // nanoseconds, all workers
    for (const pid_t id : ids) {
        const std::string path = "/proc/self/task/" + std::to_string(id) + "/schedstat";
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return false; // not known here: then only those that stay stuck add threads
        char text[96] = {};
        const ssize_t size = read(fd, text, sizeof text - 1);
        close(fd);
        unsigned long long ran = 0;
        unsigned long long queued = 0;
        if (size <= 0 || std::sscanf(text, "%llu %llu", &ran, &queued) != 2)
            return false;
        active += ran + queued;
    }
    const auto wall = std::chrono::duration_cast<std::chrono::nanoseconds>(now - tickBefore_);
    const uint64_t all = static_cast<uint64_t>(wall.count()) * ids.size();
    const bool result =
        activeBefore_ && active >= activeBefore_ && active - activeBefore_ < all / 2;
    activeBefore_ = active;
    tickBefore_ = now;
    return result;
}

void WorkerPool::OnTimer()
{
    const uint64_t served = loop_.Served();
    const bool isFull = loop_.IsFull();
    const bool isStuck = isFull && served == servedBefore_;
    servedBefore_ = served;
    stuckTicks_ = isStuck ? stuckTicks_ + 1 : 0;
    if (!isFull) {
        loop_.WakeIdle();
        activeBefore_ = 0;
        return;
    }
    if (Count() < limit_) {
        // Threads that compute, or wait for a processor, only get in each other's way when there
        // are more of them; still, short requests must not stand behind long ones for ever.
        if (AreWaiting(std::chrono::steady_clock::now()) || stuckTicks_ >= kPatience / 2)
            for (unsigned i = 0, more = Count() / 2 + 1; i < more; ++i)
                AddWorker();
    } else if (stuckTicks_ > kPatience) {
        loop_.RunReady();
    }
}

} // namespace kestd
