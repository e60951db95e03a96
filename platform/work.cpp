// SPDX-License-Identifier: Apache-2.0
//
// Work items and timers. Callbacks run on a few pool threads that start with the first one and stay
// for the life of the process; one more thread watches the timers and hands those that are due to
// the pool. A work item and a timer are the same thing here: something that is scheduled at most
// once at a time and runs on the pool, at once or later.
#include <pthread.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

#include <kest/tolm.h>

#include "platform/internal.h"
#include "platform/talpl.h"
#include "platform/wait.h"

namespace tolm {
namespace {

constexpr int kPoolThreads = 4;

enum class State { Idle, Waiting, Queued };

// Everything below is under g_lock.
struct Task : Object {
    explicit Task(Kind k) noexcept : Object(k) {}
    TALX_CALLBACK callback = nullptr;
    void* context = nullptr;
    State state = State::Idle;
    timespec due{};
    UINT32 running = 0;   // callbacks in progress; two when one was scheduled again meanwhile
    bool doomed = false;  // destroyed by its own callback; freed when that returns
    Task* next = nullptr; // in the pool's queue
};

struct Timer : Task {
    static constexpr Kind kKind = Kind::Timer;
    Timer() noexcept : Task(kKind) {}
};

struct WorkItem : Task {
    static constexpr Kind kKind = Kind::WorkItem;
    WorkItem() noexcept : Task(kKind) {}
};

struct Pool {
    Lock lock;
    Condition work;     // the queue has a task
    Condition timers;   // the next due time changed
    Condition finished; // a callback returned
    Task* first = nullptr;
    Task* last = nullptr;
    std::vector<Timer*> waiting; // a heap, earliest on top; room is made when a timer is
    std::size_t timerCount = 0;  // timers that exist
    int threads = 0;
    bool watches = false; // the timer thread runs
};

// Never destroyed: its threads outlive every destructor.
Pool& ThePool() noexcept
{
    alignas(Pool) static unsigned char room[sizeof(Pool)];
    static Pool* const pool = new (room) Pool;
    return *pool;
}

thread_local Task* t_running = nullptr; // whose callback runs on this thread

void Free(Task* task) noexcept
{
    if (task->kind == Kind::Timer) {
        --ThePool().timerCount;
        DeleteObject(static_cast<Timer*>(task));
    } else {
        DeleteObject(static_cast<WorkItem*>(task));
    }
}

void Enqueue(Pool& pool, Task& task) noexcept
{
    task.state = State::Queued;
    task.next = nullptr;
    (pool.last ? pool.last->next : pool.first) = &task;
    pool.last = &task;
    pool.work.WakeOne();
}

void Unqueue(Pool& pool, const Task& task) noexcept
{
    Task* before = nullptr;
    for (Task* t = pool.first; t != &task; t = t->next)
        before = t;
    (before ? before->next : pool.first) = task.next;
    if (pool.last == &task)
        pool.last = before;
}

bool IsLater(const Timer* a, const Timer* b) noexcept
{
    return IsBefore(b->due, a->due);
}

// Takes a task back before it runs. False when there was nothing to take back.
bool Withdraw(Pool& pool, Task& task) noexcept
{
    if (task.state == State::Idle)
        return false;
    if (task.state == State::Queued) {
        Unqueue(pool, task);
    } else {
        std::erase(pool.waiting, &task);
        std::make_heap(pool.waiting.begin(), pool.waiting.end(), IsLater);
    }
    task.state = State::Idle;
    return true;
}

void* RunPool(void*)
{
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    for (;;) {
        pool.work.WaitFor(pool.lock, kTalxForever, [&] { return pool.first != nullptr; });
        Task* task = pool.first;
        pool.first = task->next;
        if (!pool.first)
            pool.last = nullptr;
        task->state = State::Idle;
        ++task->running;
        const TALX_CALLBACK callback = task->callback;
        void* const context = task->context;
        pool.lock.unlock();
        t_running = task;
        callback(context);
        t_running = nullptr;
        pool.lock.lock();
        if (--task->running == 0 && task->doomed)
            Free(task);
        pool.finished.WakeAll();
    }
}

void* WatchTimers(void*)
{
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    for (;;) {
        if (pool.waiting.empty()) {
            pool.timers.Wait(pool.lock);
            continue;
        }
        Timer* next = pool.waiting.front();
        const timespec now = DeadlineIn(0);
        if (IsBefore(now, next->due)) {
            const timespec due = next->due; // the timer may be gone when the wait ends
            pool.timers.WaitUntil(pool.lock, due);
            continue;
        }
        std::pop_heap(pool.waiting.begin(), pool.waiting.end(), IsLater);
        pool.waiting.pop_back();
        Enqueue(pool, *next);
    }
}

bool Start(void* (*routine)(void*)) noexcept
{
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, routine, nullptr) != 0)
        return false;
    pthread_detach(thread);
    return true;
}

// One pool thread is enough to work with; a missing one is tried again at the next schedule.
bool HasThreads(Pool& pool, bool forTimer) noexcept
{
    while (pool.threads < kPoolThreads && Start(RunPool))
        ++pool.threads;
    if (forTimer && !pool.watches)
        pool.watches = Start(WatchTimers);
    return pool.threads > 0 && (!forTimer || pool.watches);
}

// Waits until no callback of `task` runs. A callback of the task itself does not wait: two of them
// would wait for each other.
void WaitUntilQuiet(Pool& pool, Task& task) noexcept
{
    if (t_running != &task)
        pool.finished.WaitFor(pool.lock, kTalxForever, [&] { return task.running == 0; });
}

TALSTATUS Destroy(Task* task) noexcept
{
    if (!task)
        return Fail(kCodeInvalidParameter);
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    Withdraw(pool, *task);
    WaitUntilQuiet(pool, *task);
    if (task->running != 0)
        task->doomed = true;
    else
        Free(task);
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS Talpl::TalxAllocTimer(HANDLE* out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    return Guarded([&] {
        Pool& pool = ThePool();
        const std::lock_guard lock(pool.lock);
        // Room for every timer that exists, so that scheduling one cannot fail for memory.
        if (pool.waiting.capacity() <= pool.timerCount)
            pool.waiting.reserve(2 * pool.timerCount + 16);
        Timer* timer = NewObject<Timer>();
        if (!timer)
            return Fail(kCodeInsufficientResources);
        ++pool.timerCount;
        *out = static_cast<Object*>(timer);
        return TAL_STATUS_SUCCESS;
    });
}

TALSTATUS Talpl::TalxAllocWorkItem(HANDLE* out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    WorkItem* item = NewObject<WorkItem>();
    if (!item)
        return Fail(kCodeInsufficientResources);
    *out = static_cast<Object*>(item);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxCancelTimer(HANDLE timer)
{
    auto* t = FromHandle<Timer>(timer);
    if (!t)
        return Fail(kCodeInvalidParameter);
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    const bool was = Withdraw(pool, *t);
    WaitUntilQuiet(pool, *t);
    return was ? TAL_STATUS_SUCCESS : Fail(kCodeNotFound);
}

TALSTATUS Talpl::TalxDestroyTimer(HANDLE timer)
{
    return Destroy(FromHandle<Timer>(timer));
}

TALSTATUS Talpl::TalxDestroyWorkItem(HANDLE item)
{
    return Destroy(FromHandle<WorkItem>(item));
}

TALSTATUS Talpl::TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                   UINT32 delay)
{
    auto* t = FromHandle<Timer>(timer);
    if (!t || !callback || delay == kTalxForever)
        return Fail(kCodeInvalidParameter);
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    if (t->doomed)
        return Fail(kCodeInvalidParameter);
    if (!HasThreads(pool, true))
        return Fail(kCodeInsufficientResources);
    Withdraw(pool, *t);
    t->callback = callback;
    t->context = context;
    t->due = DeadlineIn(delay);
    t->state = State::Waiting;
    pool.waiting.push_back(t);
    std::push_heap(pool.waiting.begin(), pool.waiting.end(), IsLater);
    pool.timers.WakeOne();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context)
{
    auto* w = FromHandle<WorkItem>(item);
    if (!w || !callback)
        return Fail(kCodeInvalidParameter);
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.lock);
    if (w->doomed)
        return Fail(kCodeInvalidParameter);
    if (w->state != State::Idle)
        return Fail(kCodeConflict);
    if (!HasThreads(pool, false))
        return Fail(kCodeInsufficientResources);
    w->callback = callback;
    w->context = context;
    Enqueue(pool, *w);
    return TAL_STATUS_SUCCESS;
}

} // namespace tolm
