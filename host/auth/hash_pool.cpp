// SPDX-License-Identifier: Apache-2.0
//
// Runs jobs in their order, and tells those that have waited too long.
#include "host/auth/hash_pool.h"

#include <algorithm>
#include <utility>

#include <kest/tolm.h>

namespace kestd {
namespace {

// The longest that a thread sleeps without a look at the queues.
constexpr std::chrono::minutes kLongestSleep{1};

} // namespace

HashPool::~HashPool()
{
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    hasWork_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

void HashPool::SetLimits(const Limits& limits)
{
    const std::lock_guard lock(mutex_);
    limits_ = limits;
    hasWork_.notify_all(); // more may run at once
}

// With mutex_ held.
uint32_t HashPool::Unfinished() const noexcept
{
    return running_ + static_cast<uint32_t>(users_.size() + others_.size());
}

uint32_t HashPool::Waiting() const
{
    const std::lock_guard lock(mutex_);
    return Unfinished() - std::min(Unfinished(), limits_.threads);
}

bool HashPool::Submit(std::shared_ptr<Job> job, Priority priority, uint32_t others)
{
    const std::lock_guard lock(mutex_);
    const uint32_t places =
        priority == Priority::User ? limits_.waiting : (limits_.waiting + 1) / 2;
    if (Unfinished() >= limits_.threads && Unfinished() - limits_.threads + others >= places)
        return false;
    Queue& queue = QueueOf(priority);
    queue.push_back({std::move(job), std::chrono::steady_clock::now()});
    if (!HasThread()) {
        queue.pop_back();
        return false;
    }
    hasWork_.notify_one();
    return true;
}

// With mutex_ held: starts another thread where all have something to do. One more than may compute
// at once tells those that have waited too long while the others compute. False when there is none.
bool HashPool::HasThread() noexcept
{
    if (threads_.size() >= std::min(limits_.threads + 1, Unfinished()))
        return true;
    try {
        threads_.emplace_back([this] { RunJobs(); });
    } catch (const std::exception&) { // the system has none left: go on with those there are
        if (threads_.empty())
            TolmLog(kLogWarning, "kestd", "cannot start a thread for password hashes");
    }
    return !threads_.empty();
}

// With mutex_ held: takes the oldest job of a queue. False when there is none.
bool HashPool::Take(Queue& queue, std::shared_ptr<Job>& job)
{
    if (queue.empty())
        return false;
    job = std::move(queue.front().job);
    queue.pop_front();
    return true;
}

// With mutex_ held: waits for a job that may run now. What is late comes first: it takes no time,
// and somebody waits for it. False at the end.
bool HashPool::TakeNext(std::unique_lock<std::mutex>& lock, std::shared_ptr<Job>& job, bool& isLate)
{
    for (;;) {
        const TimePoint oldest = std::chrono::steady_clock::now() - limits_.longestWait;
        isLate = true;
        for (Queue* queue : {&users_, &others_})
            if (!queue->empty() && (ends_ || queue->front().since < oldest))
                return Take(*queue, job);
        isLate = false;
        if (running_ < limits_.threads && (Take(users_, job) || Take(others_, job)))
            return true;
        if (ends_)
            return false;
        WaitForWork(lock);
    }
}

// With mutex_ held, which is let go meanwhile: until there may be something to do, until the oldest
// job has waited too long, or for nothing after the longest wait.
void HashPool::WaitForWork(std::unique_lock<std::mutex>& lock)
{
    TimePoint until = std::chrono::steady_clock::now() + kLongestSleep;
    for (const Queue* queue : {&users_, &others_})
        if (!queue->empty())
            until = std::min(until, queue->front().since + limits_.longestWait +
                                        std::chrono::milliseconds(1)); // later than, not at
    (void)hasWork_.wait_until(lock, until);
}

void HashPool::RunJobs() noexcept
{
    std::shared_ptr<Job> job;
    bool isLate = false;
    std::unique_lock lock(mutex_);
    while (TakeNext(lock, job, isLate)) {
        const uint32_t computing = isLate ? 0 : 1;
        running_ += computing;
        lock.unlock();
        job->Run(isLate);
        job.reset();
        lock.lock();
        running_ -= computing;
        hasWork_.notify_one(); // one that could not run beside this one
    }
}

} // namespace kestd
