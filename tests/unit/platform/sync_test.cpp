// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>
#include <vector>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

const TALSTATUS kBusy = Failure(kCodeTimeout);

template <class F> auto OnAnotherThread(F&& f)
{
    decltype(f()) result{};
    std::thread([&] { result = f(); }).join();
    return result;
}

// Gives another thread that is about to block a chance to do so. Right or wrong does not depend on
// whether it did.
void Yield()
{
    for (int i = 0; i < 200; ++i)
        std::this_thread::yield();
}

TEST(Mutex, IsRecursiveAndKnowsItsOwner)
{
    HANDLE m = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocMutex(&m));
    EXPECT_EQ(Failure(kCodeAccessDenied), Platform().TalxReleaseMutex(m)) << "nobody holds it";
    EXPECT_EQ(0u, Platform().TalxAcquireMutex(m, TRUE));
    EXPECT_EQ(0u, Platform().TalxAcquireMutex(m, FALSE));
    const auto tryIt = [&] { return Platform().TalxAcquireMutex(m, FALSE); };
    EXPECT_EQ(kBusy, OnAnotherThread(tryIt));
    EXPECT_EQ(Failure(kCodeAccessDenied),
              OnAnotherThread([&] { return Platform().TalxReleaseMutex(m); }));
    EXPECT_EQ(Failure(kCodeConflict), Platform().TalxDestroyMutex(m)) << "held";
    EXPECT_EQ(Failure(kCodeConflict),
              OnAnotherThread([&] { return Platform().TalxDestroyMutex(m); }));
    EXPECT_EQ(0u, Platform().TalxReleaseMutex(m));
    EXPECT_EQ(kBusy, OnAnotherThread(tryIt));
    EXPECT_EQ(0u, Platform().TalxReleaseMutex(m));
    EXPECT_EQ(0u, OnAnotherThread([&] {
                  const TALSTATUS got = Platform().TalxAcquireMutex(m, FALSE);
                  return got | Platform().TalxReleaseMutex(m);
              }));
    EXPECT_EQ(0u, Platform().TalxDestroyMutex(m));
}

// Several threads count in plain memory; a sanitizer sees whether the lock orders them.
template <class Acquire, class Release> void CountUnder(Acquire acquire, Release release)
{
    constexpr int kRounds = 2000;
    int count = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                EXPECT_EQ(0u, acquire());
                ++count;
                EXPECT_EQ(0u, release());
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(4 * kRounds, count);
}

TEST(Mutex, OrdersThreads)
{
    HANDLE m = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocMutex(&m));
    CountUnder([&] { return Platform().TalxAcquireMutex(m, TRUE); },
               [&] { return Platform().TalxReleaseMutex(m); });
    EXPECT_EQ(0u, Platform().TalxDestroyMutex(m));
}

TEST(SpinLock, OrdersThreads)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocSpinLock(&l));
    EXPECT_EQ(Failure(kCodeAccessDenied), Platform().TalxReleaseSpinLock(l));
    CountUnder([&] { return Platform().TalxAcquireSpinLock(l); },
               [&] { return Platform().TalxReleaseSpinLock(l); });
    EXPECT_EQ(0u, Platform().TalxAcquireSpinLock(l));
    EXPECT_EQ(Failure(kCodeConflict), Platform().TalxDestroySpinLock(l));
    EXPECT_EQ(0u, Platform().TalxReleaseSpinLock(l));
    EXPECT_EQ(0u, Platform().TalxDestroySpinLock(l));
}

TEST(ReadWriteLock, WritersExcludeEverybody)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocReadWriteLock(&l));
    CountUnder([&] { return Platform().TalxAcquireLockForWriteAccess(l, TRUE); },
               [&] { return Platform().TalxReleaseReadWriteLock(l); });
    const auto tryRead = [&] { return Platform().TalxAcquireLockForReadAccess(l, FALSE); };
    const auto tryWrite = [&] { return Platform().TalxAcquireLockForWriteAccess(l, FALSE); };
    const auto destroy = [&] { return Platform().TalxDestroyReadWriteLock(l); };
    EXPECT_EQ(0u, tryWrite());
    EXPECT_EQ(kBusy, OnAnotherThread(tryRead));
    EXPECT_EQ(kBusy, OnAnotherThread(tryWrite));
    EXPECT_EQ(Failure(kCodeConflict), OnAnotherThread(destroy));
    EXPECT_EQ(0u, Platform().TalxReleaseReadWriteLock(l));
    EXPECT_EQ(0u, tryRead());
    EXPECT_EQ(kBusy, OnAnotherThread(tryWrite));
    EXPECT_EQ(Failure(kCodeConflict), OnAnotherThread(destroy));
    EXPECT_EQ(0u, OnAnotherThread([&] {
                  const TALSTATUS got = tryRead();
                  return got | Platform().TalxReleaseReadWriteLock(l);
              }));
    EXPECT_EQ(0u, Platform().TalxReleaseReadWriteLock(l));
    EXPECT_EQ(0u, destroy());
}

TEST(ReadWriteLock, ItsWriterIsToldThatItWouldWaitForItself)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocReadWriteLock(&l));
    ASSERT_EQ(0u, Platform().TalxAcquireLockForWriteAccess(l, TRUE));
    EXPECT_EQ(Failure(kCodeConflict), Platform().TalxAcquireLockForReadAccess(l, TRUE));
    EXPECT_EQ(0u, Platform().TalxReleaseReadWriteLock(l));
    EXPECT_EQ(0u, Platform().TalxDestroyReadWriteLock(l));
}

TEST(ReadWriteLock, ReadingEndsOnAnyThread)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocReadWriteLock(&l));
    const auto release = [&] { return Platform().TalxReleaseReadWriteLock(l); };
    EXPECT_EQ(Failure(kCodeAccessDenied), release()); // nobody holds it
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(0u, Platform().TalxAcquireLockForReadAccess(l, TRUE));
        EXPECT_EQ(
            0u, OnAnotherThread([&] { return Platform().TalxAcquireLockForReadAccess(l, TRUE); }));
        std::thread writer([&] {
            EXPECT_EQ(0u, Platform().TalxAcquireLockForWriteAccess(l, TRUE));
            EXPECT_EQ(0u, release());
        });
        EXPECT_EQ(0u, OnAnotherThread(release));
        EXPECT_EQ(0u, release());
        writer.join();
    }
    EXPECT_EQ(0u, Platform().TalxAcquireLockForWriteAccess(l, TRUE));
    EXPECT_EQ(Failure(kCodeAccessDenied), OnAnotherThread(release));
    EXPECT_EQ(0u, release());
    EXPECT_EQ(0u, Platform().TalxDestroyReadWriteLock(l));
}

TEST(ReadWriteLock, ANestedReaderPassesAWaitingWriter)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocReadWriteLock(&l));
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(0u, Platform().TalxAcquireLockForReadAccess(l, TRUE));
        std::atomic<bool> wrote{false};
        std::atomic<bool> started{false};
        std::thread writer([&] {
            started = true;
            EXPECT_EQ(0u, Platform().TalxAcquireLockForWriteAccess(l, TRUE));
            wrote = true;
            EXPECT_EQ(0u, Platform().TalxReleaseReadWriteLock(l));
        });
        while (!started)
            std::this_thread::yield();
        Yield();
        // With a writer in the queue these would wait for ever if it were preferred.
        for (int depth = 0; depth < 3; ++depth)
            EXPECT_EQ(0u, Platform().TalxAcquireLockForReadAccess(l, TRUE));
        EXPECT_FALSE(wrote);
        for (int depth = 0; depth < 4; ++depth)
            EXPECT_EQ(0u, Platform().TalxReleaseReadWriteLock(l));
        writer.join();
        EXPECT_TRUE(wrote);
    }
    EXPECT_EQ(0u, Platform().TalxDestroyReadWriteLock(l));
}

TEST(ReadWriteLock, ReadersSeeWhatWritersWrote)
{
    HANDLE l = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocReadWriteLock(&l));
    int a = 0;
    int b = 0;
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                Platform().TalxAcquireLockForReadAccess(l, TRUE);
                EXPECT_EQ(a, b);
                Platform().TalxReleaseReadWriteLock(l);
            }
        });
    for (int i = 0; i < 200; ++i) {
        Platform().TalxAcquireLockForWriteAccess(l, TRUE);
        ++a;
        ++b;
        Platform().TalxReleaseReadWriteLock(l);
    }
    for (std::thread& t : readers)
        t.join();
    EXPECT_EQ(0u, Platform().TalxDestroyReadWriteLock(l));
}

TEST(Interlocked, CountsFromAllThreads)
{
    UINT32 value = 5;
    EXPECT_EQ(6u, Platform().TalxInterlockedIncrement(&value));
    EXPECT_EQ(5u, Platform().TalxInterlockedDecrement(&value));
    EXPECT_EQ(5u, Platform().TalxInterlockedExchange(&value, 0));
    EXPECT_EQ(0xFFFFFFFFu, Platform().TalxInterlockedDecrement(&value));
    EXPECT_EQ(0u, Platform().TalxInterlockedIncrement(&value));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                Platform().TalxInterlockedIncrement(&value);
                Platform().TalxInterlockedIncrement(&value);
                Platform().TalxInterlockedDecrement(&value);
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(4000u, value);
}

TEST(Handles, OfAnotherKindAreRefused)
{
    HANDLE event = nullptr;
    HANDLE mutex = nullptr;
    ASSERT_EQ(0u, Platform().TalxAllocEvent(TRUE, TRUE, &event));
    ASSERT_EQ(0u, Platform().TalxAllocMutex(&mutex));
    UINT32 status = 0;
    const auto callback = [](void*) {};
    for (HANDLE wrong : {HANDLE{nullptr}, event}) {
        EXPECT_EQ(kRefused, Platform().TalxAcquireMutex(wrong, TRUE));
        EXPECT_EQ(kRefused, Platform().TalxReleaseMutex(wrong));
        EXPECT_EQ(kRefused, Platform().TalxDestroyMutex(wrong));
        EXPECT_EQ(kRefused, Platform().TalxAcquireSpinLock(wrong));
        EXPECT_EQ(kRefused, Platform().TalxReleaseSpinLock(wrong));
        EXPECT_EQ(kRefused, Platform().TalxDestroySpinLock(wrong));
        EXPECT_EQ(kRefused, Platform().TalxAcquireLockForReadAccess(wrong, TRUE));
        EXPECT_EQ(kRefused, Platform().TalxAcquireLockForWriteAccess(wrong, TRUE));
        EXPECT_EQ(kRefused, Platform().TalxReleaseReadWriteLock(wrong));
        EXPECT_EQ(kRefused, Platform().TalxDestroyReadWriteLock(wrong));
        EXPECT_EQ(kRefused, Platform().TalxCancelTimer(wrong));
        EXPECT_EQ(kRefused, Platform().TalxDestroyTimer(wrong));
        EXPECT_EQ(kRefused, Platform().TalxScheduleTimer(wrong, callback, nullptr, 1));
        EXPECT_EQ(kRefused, Platform().TalxDestroyWorkItem(wrong));
        EXPECT_EQ(kRefused, Platform().TalxScheduleWorkItem(wrong, callback, nullptr));
        EXPECT_EQ(kRefused, Platform().TalxDestroyThread(wrong));
        EXPECT_EQ(kRefused, Platform().TalxGetThreadExitStatus(wrong, &status));
        EXPECT_EQ(kRefused, Platform().TalxSetThreadPriority(wrong, 0));
        EXPECT_EQ(kRefused, Platform().TalxWaitForThreadExit(wrong, 0));
        EXPECT_EQ(kRefused, Platform().TalxCloseKey(wrong));
    }
    for (HANDLE wrong : {HANDLE{nullptr}, mutex}) {
        EXPECT_EQ(kRefused, Platform().TalxSignalEvent(wrong));
        EXPECT_EQ(kRefused, Platform().TalxResetEvent(wrong));
        EXPECT_EQ(kRefused, Platform().TalxDestroyEvent(wrong));
        EXPECT_EQ(kRefused, Platform().TalxWaitForSingleEvent(wrong, 0));
    }
    EXPECT_EQ(kRefused, Platform().TalxAllocEvent(TRUE, TRUE, nullptr));
    EXPECT_EQ(kRefused, Platform().TalxAllocMutex(nullptr));
    EXPECT_EQ(kRefused, Platform().TalxAllocReadWriteLock(nullptr));
    EXPECT_EQ(kRefused, Platform().TalxAllocSpinLock(nullptr));
    EXPECT_EQ(kRefused, Platform().TalxAllocTimer(nullptr));
    EXPECT_EQ(kRefused, Platform().TalxAllocWorkItem(nullptr));
    EXPECT_EQ(0u, Platform().TalxDestroyEvent(event));
    EXPECT_EQ(0u, Platform().TalxDestroyMutex(mutex));
}

class Events : public testing::Test {
  protected:
    ~Events() override
    {
        for (HANDLE e : made_)
            EXPECT_EQ(0u, Platform().TalxDestroyEvent(e));
    }
    HANDLE Make(BOOLEAN manualReset, BOOLEAN signaled)
    {
        HANDLE e = nullptr;
        EXPECT_EQ(0u, Platform().TalxAllocEvent(manualReset, signaled, &e));
        made_.push_back(e);
        return e;
    }

  private:
    std::vector<HANDLE> made_;
};

TEST_F(Events, AManualEventStaysSignaled)
{
    HANDLE e = Make(TRUE, FALSE);
    EXPECT_EQ(kBusy, Platform().TalxWaitForSingleEvent(e, 0));
    EXPECT_EQ(0u, Platform().TalxSignalEvent(e));
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(e, 0));
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(e, kTalxForever));
    EXPECT_EQ(0u, Platform().TalxResetEvent(e));
    EXPECT_EQ(kBusy, Platform().TalxWaitForSingleEvent(e, 1));
}

TEST_F(Events, AnAutomaticEventIsTakenByOneWait)
{
    HANDLE e = Make(FALSE, TRUE);
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(e, 0));
    EXPECT_EQ(kBusy, Platform().TalxWaitForSingleEvent(e, 0));
    EXPECT_EQ(0u, Platform().TalxSignalEvent(e));
    EXPECT_EQ(0u, Platform().TalxSignalEvent(e)) << "two signals are one";
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(e, 0));
    EXPECT_EQ(kBusy, Platform().TalxWaitForSingleEvent(e, 0));
}

TEST_F(Events, WaitingForOneTellsWhich)
{
    const HANDLE list[] = {Make(FALSE, FALSE), Make(FALSE, TRUE), Make(FALSE, TRUE)};
    UINT32 index = 9;
    EXPECT_EQ(0u, Platform().TalxWaitForMultipleEvents(3, list, FALSE, 0, &index));
    EXPECT_EQ(1u, index);
    EXPECT_EQ(0u, Platform().TalxWaitForMultipleEvents(3, list, FALSE, 0, &index));
    EXPECT_EQ(2u, index);
    index = 9;
    EXPECT_EQ(kBusy, Platform().TalxWaitForMultipleEvents(3, list, FALSE, 1, &index));
    EXPECT_EQ(9u, index);
}

TEST_F(Events, WaitingForAllTakesAllOrNone)
{
    const HANDLE list[] = {Make(FALSE, TRUE), Make(FALSE, FALSE)};
    EXPECT_EQ(kBusy, Platform().TalxWaitForMultipleEvents(2, list, TRUE, 1, nullptr));
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(list[0], 0)) << "the first was not taken";
    Platform().TalxSignalEvent(list[0]);
    Platform().TalxSignalEvent(list[1]);
    EXPECT_EQ(0u, Platform().TalxWaitForMultipleEvents(2, list, TRUE, 0, nullptr));
    EXPECT_EQ(kBusy, Platform().TalxWaitForMultipleEvents(2, list, FALSE, 0, nullptr));
}

TEST_F(Events, CountsOutsideOneToSixtyFourAreRefused)
{
    std::vector<HANDLE> list(65, Make(TRUE, TRUE));
    EXPECT_EQ(kRefused, Platform().TalxWaitForMultipleEvents(0, list.data(), TRUE, 0, nullptr));
    EXPECT_EQ(0u, Platform().TalxWaitForMultipleEvents(64, list.data(), TRUE, 0, nullptr));
    EXPECT_EQ(kRefused, Platform().TalxWaitForMultipleEvents(65, list.data(), TRUE, 0, nullptr));
    EXPECT_EQ(kRefused, Platform().TalxWaitForMultipleEvents(1, nullptr, TRUE, 0, nullptr));
}

TEST_F(Events, EachSignalWakesOneWaiter)
{
    HANDLE e = Make(FALSE, FALSE);
    constexpr UINT32 kWaiters = 4;
    std::atomic<UINT32> woken{0};
    std::vector<std::thread> threads;
    for (UINT32 i = 0; i < kWaiters; ++i)
        threads.emplace_back([&] {
            EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(e, kTalxForever));
            ++woken;
        });
    for (UINT32 i = 1; i <= kWaiters; ++i) {
        Platform().TalxSignalEvent(e);
        while (woken < i)
            std::this_thread::yield();
        Yield();
        EXPECT_EQ(i, woken);
    }
    for (std::thread& t : threads)
        t.join();
}

TEST_F(Events, ASignalReachesThreadsThatWaitForAll)
{
    const HANDLE list[] = {Make(FALSE, FALSE), Make(TRUE, FALSE)};
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        EXPECT_EQ(0u, Platform().TalxWaitForMultipleEvents(2, list, TRUE, kTalxForever, nullptr));
        done = true;
    });
    Platform().TalxSignalEvent(list[0]);
    Yield();
    EXPECT_FALSE(done);
    Platform().TalxSignalEvent(list[1]);
    waiter.join();
    EXPECT_EQ(kBusy, Platform().TalxWaitForSingleEvent(list[0], 0));
    EXPECT_EQ(0u, Platform().TalxWaitForSingleEvent(list[1], 0));
}

} // namespace
} // namespace talpl_test
