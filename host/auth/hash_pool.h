// SPDX-License-Identifier: Apache-2.0
//
// The threads that compute password hashes, and the queue in front of them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kestd {

// Starts its threads when they are first needed. Thread-safe.
class HashPool {
  public:
    struct Limits {
        uint32_t threads = 1;
        uint32_t waiting = 32; // jobs that wait for a thread; one more is turned away
        std::chrono::milliseconds longestWait{5000}; // what has waited longer is not begun
    };
    class Job {
      public:
        virtual ~Job() = default;
        // On a thread of the pool, once. `isLate`: it has waited too long, and nothing is to be
        // computed. It is told so when its time is over, also while all others compute.
        virtual void Run(bool isLate) noexcept = 0;
    };
    // Those that stand for users go first.
    enum class Priority { User, Other };

    explicit HashPool(const Limits& limits) : limits_(limits) {}
    // What still waits is run as late.
    ~HashPool();
    HashPool(const HashPool&) = delete;
    HashPool& operator=(const HashPool&) = delete;

    void SetLimits(const Limits& limits);
    // Has the job run, in the order of arrival within its priority. `others`: further requests that
    // take places in the queue. Jobs of the lower priority take half of the places at most. False
    // when there is no place, or no thread can be started. Throws std::bad_alloc.
    [[nodiscard]] bool Submit(std::shared_ptr<Job> job, Priority priority, uint32_t others);
    // Jobs that wait for a thread.
    uint32_t Waiting() const;

  private:
    using TimePoint = std::chrono::steady_clock::time_point;
    struct Entry {
        std::shared_ptr<Job> job;
        TimePoint since;
    };
    using Queue = std::deque<Entry>;

    Queue& QueueOf(Priority priority) { return priority == Priority::User ? users_ : others_; }
    uint32_t Unfinished() const noexcept;
    bool HasThread() noexcept;
    static bool Take(Queue& queue, std::shared_ptr<Job>& job);
    bool TakeNext(std::unique_lock<std::mutex>& lock, std::shared_ptr<Job>& job, bool& isLate);
    void WaitForWork(std::unique_lock<std::mutex>& lock);
    void RunJobs() noexcept;

    mutable std::mutex mutex_; // guards everything below; never held while a job runs
    std::condition_variable hasWork_;
    Limits limits_;
    Queue users_;
    Queue others_;
    uint32_t running_ = 0;
    bool ends_ = false;
    std::vector<std::thread> threads_;
};

} // namespace kestd
