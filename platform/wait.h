// SPDX-License-Identifier: Apache-2.0
//
// A condition variable on the monotonic clock: a step of the system's time neither cuts nor
// stretches a wait.
#pragma once

#include <pthread.h>
#include <time.h>

#include <cerrno>

#include <kest/talpl.h>

namespace tolm {

// The moment `milliseconds` from now on the monotonic clock.
inline timespec DeadlineIn(UINT32 milliseconds) noexcept
{
    timespec at{};
    clock_gettime(CLOCK_MONOTONIC, &at);
    at.tv_sec += milliseconds / 1000;
    at.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (at.tv_nsec >= 1'000'000'000) {
        ++at.tv_sec;
        at.tv_nsec -= 1'000'000'000;
    }
    return at;
}

inline bool IsBefore(const timespec& a, const timespec& b) noexcept
{
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

class Lock {
  public:
    Lock() noexcept { pthread_mutex_init(&mutex_, nullptr); }
    ~Lock() { pthread_mutex_destroy(&mutex_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    void lock() noexcept { pthread_mutex_lock(&mutex_); }
    bool try_lock() noexcept { return pthread_mutex_trylock(&mutex_) == 0; }
    void unlock() noexcept { pthread_mutex_unlock(&mutex_); }
    pthread_mutex_t* Native() noexcept { return &mutex_; }

  private:
    pthread_mutex_t mutex_;
};

class Condition {
  public:
    Condition() noexcept
    {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&condition_, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Condition() { pthread_cond_destroy(&condition_); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    void WakeAll() noexcept { pthread_cond_broadcast(&condition_); }
    void WakeOne() noexcept { pthread_cond_signal(&condition_); }
    void Wait(Lock& held) noexcept { pthread_cond_wait(&condition_, held.Native()); }
    // False when the deadline has passed.
    bool WaitUntil(Lock& held, const timespec& deadline) noexcept
    {
        return pthread_cond_timedwait(&condition_, held.Native(), &deadline) != ETIMEDOUT;
    }
    // Waits until `isDone`, at most `time` milliseconds. Returns whether it is done.
    template <class Done> bool WaitFor(Lock& held, UINT32 time, Done isDone) noexcept
    {
        if (time == kTalxForever) {
            while (!isDone())
                Wait(held);
            return true;
        }
        const timespec deadline = DeadlineIn(time);
        while (!isDone())
            if (!WaitUntil(held, deadline))
                return isDone();
        return true;
    }

  private:
    pthread_cond_t condition_;
};

} // namespace tolm
