// SPDX-License-Identifier: Apache-2.0
//
// Threads, work items and timers.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

void WaitUntil(const std::atomic<bool>& flag)
{
    while (!flag)
        std::this_thread::yield();
}

TEST(Threads, ReturnTheirStatus)
{
    HANDLE t = nullptr;
    UINT32 context = 40;
    ASSERT_EQ(0u, Platform().TalxCreateThread([](void* c) { return *static_cast<UINT32*>(c) + 2; },
                                              &context, &t));
    EXPECT_EQ(0u, Platform().TalxWaitForThreadExit(t, kTalxForever));
    UINT32 status = 0;
    EXPECT_EQ(0u, Platform().TalxGetThreadExitStatus(t, &status));
    EXPECT_EQ(42u, status);
    EXPECT_EQ(Failure(kCodeNotFound), Platform().TalxSetThreadPriority(t, 1)) << "it has ended";
    EXPECT_EQ(0u, Platform().TalxDestroyThread(t));
}

TEST(Threads, MayLeaveFromTheMiddle)
{
    HANDLE t = nullptr;
    ASSERT_EQ(0u, Platform().TalxCreateThread(
                      [](void*) -> UINT32 {
                          Platform().TalxExitThread(7);
                          return 8;
                      },
                      nullptr, &t));
    EXPECT_EQ(0u, Platform().TalxWaitForThreadExit(t, kTalxForever));
    UINT32 status = 0;
    EXPECT_EQ(0u, Platform().TalxGetThreadExitStatus(t, &status));
    EXPECT_EQ(7u, status);
    EXPECT_EQ(0u, Platform().TalxDestroyThread(t));
    EXPECT_EQ(Failure(kCodeNotSupported), Platform().TalxExitThread(1))
        << "this thread is not the platform's";
}

TEST(Threads, ThatRunAreNotDestroyed)
{
    HANDLE go = nullptr;
    HANDLE t = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocEvent(TRUE, FALSE, &go));
    ASSERT_EQ(0u, Platform().TalxCreateThread(
                      [](void* e) -> UINT32 {
                          return Platform().TalxWaitForSingleEvent(e, kTalxForever);
                      },
                      go, &t));
    UINT32 status = 99;
    EXPECT_EQ(Failure(kCodeTimeout), Platform().TalxWaitForThreadExit(t, 0));
    EXPECT_EQ(Failure(kCodeTimeout), Platform().TalxWaitForThreadExit(t, 1));
    EXPECT_EQ(Failure(kCodeTimeout), Platform().TalxGetThreadExitStatus(t, &status));
    EXPECT_EQ(99u, status);
    EXPECT_EQ(Failure(kCodeConflict), Platform().TalxDestroyThread(t));
    EXPECT_EQ(0u, Platform().TalxSetThreadPriority(t, 5));
    EXPECT_EQ(kRefused, Platform().TalxSetThreadPriority(t, 20));
    EXPECT_EQ(kRefused, Platform().TalxSetThreadPriority(t, -21));
    EXPECT_EQ(0u, Platform().TalxSignalEvent(go));
    EXPECT_EQ(0u, Platform().TalxWaitForThreadExit(t, kTalxForever));
    EXPECT_EQ(0u, Platform().TalxDestroyThread(t));
    EXPECT_EQ(0u, Platform().TalxDestroyEvent(go));
    EXPECT_EQ(kRefused, Platform().TalxCreateThread(nullptr, nullptr, &t));
    EXPECT_EQ(kRefused, Platform().TalxCreateThread([](void*) { return 0u; }, nullptr, nullptr));
}

struct Count {
    std::atomic<int> runs{0};
    std::atomic<bool> entered{false};
    std::atomic<bool> leave{false};
    HANDLE handle = nullptr;
    std::atomic<TALSTATUS> result{0xFFFFFFFF};
};

void CountRun(void* c)
{
    ++static_cast<Count*>(c)->runs;
}

void Hold(void* c)
{
    auto* count = static_cast<Count*>(c);
    ++count->runs;
    count->entered = true;
    WaitUntil(count->leave);
}

TEST(WorkItems, RunOncePerSchedule)
{
    Count count;
    HANDLE item = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocWorkItem(&item));
    EXPECT_EQ(kRefused, Platform().TalxScheduleWorkItem(item, nullptr, nullptr));
    for (int i = 1; i <= 100; ++i) {
        ASSERT_EQ(0u, Platform().TalxScheduleWorkItem(item, CountRun, &count));
        while (count.runs < i)
            std::this_thread::yield();
    }
    EXPECT_EQ(0u, Platform().TalxDestroyWorkItem(item));
    EXPECT_EQ(100, count.runs);
}

TEST(WorkItems, MayBeScheduledAgainWhileTheyRunAndOnlyOnceAhead)
{
    Count blocking[4];
    std::vector<HANDLE> items(4);
    for (int i = 0; i < 4; ++i) { // every pool thread is busy
        ASSERT_EQ(0u, Platform().TalxAllocWorkItem(&items[static_cast<std::size_t>(i)]));
        ASSERT_EQ(0u, Platform().TalxScheduleWorkItem(items[static_cast<std::size_t>(i)], Hold,
                                                      &blocking[i]));
        WaitUntil(blocking[i].entered);
    }
    Count again;
    EXPECT_EQ(0u, Platform().TalxScheduleWorkItem(items[0], CountRun, &again));
    EXPECT_EQ(Failure(kCodeConflict), Platform().TalxScheduleWorkItem(items[0], CountRun, &again));
    Count never;
    HANDLE taken = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocWorkItem(&taken));
    EXPECT_EQ(0u, Platform().TalxScheduleWorkItem(taken, CountRun, &never));
    EXPECT_EQ(0u, Platform().TalxDestroyWorkItem(taken)) << "takes it back";
    for (Count& b : blocking)
        b.leave = true;
    while (again.runs < 1)
        std::this_thread::yield();
    for (HANDLE item : items)
        EXPECT_EQ(0u, Platform().TalxDestroyWorkItem(item));
    EXPECT_EQ(0, never.runs);
    EXPECT_EQ(1, again.runs);
}

TEST(WorkItems, DestroyWaitsForTheCallback)
{
    Count count;
    HANDLE item = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocWorkItem(&item));
    ASSERT_EQ(0u, Platform().TalxScheduleWorkItem(item, Hold, &count));
    WaitUntil(count.entered);
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        EXPECT_EQ(0u, Platform().TalxDestroyWorkItem(item));
        destroyed = true;
    });
    for (int i = 0; i < 100; ++i)
        std::this_thread::yield();
    EXPECT_FALSE(destroyed);
    count.leave = true;
    destroyer.join();
}

TEST(WorkItems, MayDestroyThemselves)
{
    const UINT64 before = Statistics().LiveSyncObjects;
    Count count;
    ASSERT_EQ(0u, Platform().TalxAllocWorkItem(&count.handle));
    ASSERT_EQ(0u, Platform().TalxScheduleWorkItem(
                      count.handle,
                      [](void* c) {
                          auto* self = static_cast<Count*>(c);
                          self->result = Platform().TalxDestroyWorkItem(self->handle);
                      },
                      &count));
    while (Statistics().LiveSyncObjects != before)
        std::this_thread::yield();
    EXPECT_EQ(0u, count.result);
}

TEST(Timers, RunAfterTheirTime)
{
    Count count;
    HANDLE timer = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocTimer(&timer));
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 20));
    while (count.runs == 0)
        std::this_thread::yield();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_EQ(Failure(kCodeNotFound), Platform().TalxCancelTimer(timer)) << "nothing is left";
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 0));
    while (count.runs == 1)
        std::this_thread::yield();
    EXPECT_EQ(0u, Platform().TalxDestroyTimer(timer));
    EXPECT_EQ(2, count.runs);
}

TEST(Timers, ThatAreCancelledOrMovedDoNotRunAtTheOldTime)
{
    Count count;
    Count later;
    HANDLE timer = nullptr;
    HANDLE marker = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocTimer(&timer));
    ASSERT_EQ(0u, Platform().TalxAllocTimer(&marker));
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 3'600'000));
    EXPECT_EQ(0u, Platform().TalxCancelTimer(timer));
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 3'600'000));
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 1));
    while (count.runs == 0)
        std::this_thread::yield();
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 1));
    EXPECT_EQ(0u, Platform().TalxScheduleTimer(timer, CountRun, &count, 3'600'000));
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(marker, CountRun, &later, 5));
    while (later.runs == 0)
        std::this_thread::yield();
    EXPECT_LE(count.runs, 2) << "at most the one that was running already";
    EXPECT_EQ(0u, Platform().TalxDestroyTimer(timer));
    EXPECT_EQ(0u, Platform().TalxDestroyTimer(marker));
    EXPECT_EQ(kRefused, Platform().TalxScheduleTimer(nullptr, CountRun, &count, 1));
}

TEST(Timers, ManyRunInTheOrderOfTheirTimes)
{
    constexpr std::size_t kTimers = 200;
    std::vector<HANDLE> timers(kTimers);
    std::atomic<int> runs{0};
    for (std::size_t i = 0; i < kTimers; ++i) {
        ASSERT_EQ(0u, Platform().TalxAllocTimer(&timers[i]));
        ASSERT_EQ(0u, Platform().TalxScheduleTimer(
                          timers[i], [](void* c) { ++*static_cast<std::atomic<int>*>(c); }, &runs,
                          static_cast<UINT32>((i * 37) % 20)));
    }
    while (runs < static_cast<int>(kTimers))
        std::this_thread::yield();
    for (HANDLE timer : timers)
        EXPECT_EQ(0u, Platform().TalxDestroyTimer(timer));
}

TEST(Timers, ACallbackMayScheduleAndCancelItself)
{
    Count count;
    ASSERT_EQ(0u, Platform().TalxAllocTimer(&count.handle));
    const auto run = [](void* c) {
        auto* self = static_cast<Count*>(c);
        if (++self->runs < 5) {
            Platform().TalxScheduleTimer(
                self->handle,
                [](void* again) {
                    auto* me = static_cast<Count*>(again);
                    ++me->runs;
                    me->result = Platform().TalxCancelTimer(me->handle);
                },
                self, 0);
            Platform().TalxSleep(2); // both runs of the timer are under way now
            Platform().TalxCancelTimer(self->handle);
        }
    };
    ASSERT_EQ(0u, Platform().TalxScheduleTimer(count.handle, run, &count, 0));
    while (count.runs == 0)
        std::this_thread::yield();
    EXPECT_EQ(0u, Platform().TalxDestroyTimer(count.handle));
    EXPECT_LE(count.runs, 2);
}

} // namespace
} // namespace talpl_test
