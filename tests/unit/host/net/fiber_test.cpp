// SPDX-License-Identifier: Apache-2.0
#include "host/net/fiber.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kestd {
namespace {

// What runs on a fiber; given by a function object that may stop it.
struct Call {
    std::unique_ptr<Fiber> fiber = AcquireFiber();
    std::function<void(Call&)> body;
    int stops = 0;

    explicit Call(std::function<void(Call&)> work) : body(std::move(work)) {}
    void Stop()
    {
        ++stops;
        fiber->Suspend();
    }
    bool Start()
    {
        return fiber->Start([](void* self) noexcept { RunBody(*static_cast<Call*>(self)); }, this);
    }
    static void RunBody(Call& self) { self.body(self); }
};

// Runs something on a thread of its own.
template <class F> void OnAnotherThread(F work)
{
    std::thread(work).join();
}

TEST(Fiber, CallReturnsWithoutStopping)
{
    int ran = 0;
    Call call([&](Call&) { ++ran; });
    EXPECT_TRUE(call.Start());
    EXPECT_TRUE(call.Start()); // the stack serves the next one
    EXPECT_EQ(ran, 2);
}

TEST(Fiber, CallGoesOnOnOtherThreads)
{
    std::vector<std::thread::id> threads;
    Call call([&](Call& self) {
        std::string text;
        for (int i = 0; i < 50; ++i) {
            text += std::to_string(i);
            threads.push_back(std::this_thread::get_id());
            self.Stop();
        }
        EXPECT_EQ(text.size(), 10u + 2 * 40);
    });
    EXPECT_FALSE(call.Start());
    for (int i = 1; i < 50; ++i)
        OnAnotherThread([&] { EXPECT_FALSE(call.fiber->Resume()); });
    OnAnotherThread([&] { EXPECT_TRUE(call.fiber->Resume()); });
    EXPECT_EQ(call.stops, 50);
    EXPECT_NE(threads[0], threads[1]);
}

TEST(Fiber, ManyCallsStopAndGoOnOnManyThreads)
{
    constexpr int kCalls = 40;
    constexpr int kStops = 200;
    constexpr int kThreads = 4;
    std::vector<std::unique_ptr<Call>> calls;
    std::atomic<int> ended{0};
    std::vector<int> sums(kCalls);
    std::mutex mutex; // guards ready
    std::vector<int> ready;
    for (int i = 0; i < kCalls; ++i) {
        calls.push_back(std::make_unique<Call>([&sums, i](Call& self) {
            for (int stop = 0; stop < kStops; ++stop) {
                sums[static_cast<size_t>(i)] += stop;
                self.Stop();
            }
        }));
        ready.push_back(i);
    }
    std::vector<std::atomic<bool>> isStarted(kCalls);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            while (ended < kCalls) {
                int next = -1;
                {
                    const std::lock_guard lock(mutex);
                    if (!ready.empty()) {
                        next = ready.front();
                        ready.erase(ready.begin());
                    }
                }
                if (next < 0) {
                    std::this_thread::yield();
                    continue;
                }
                Call& call = *calls[static_cast<size_t>(next)];
                const bool hasReturned = isStarted[static_cast<size_t>(next)].exchange(true)
                                             ? call.fiber->Resume()
                                             : call.Start();
                const std::lock_guard lock(mutex);
                if (hasReturned)
                    ++ended;
                else
                    ready.push_back(next);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const int sum : sums)
        EXPECT_EQ(sum, kStops * (kStops - 1) / 2);
}

TEST(Fiber, ExceptionsAreTheCallsOwn)
{
    Call other([](Call& self) {
        try {
            throw std::logic_error("other");
        } catch (const std::exception& error) {
            self.Stop(); // with an exception in hand
            EXPECT_STREQ(error.what(), "other");
            try {
                throw;
            } catch (const std::logic_error& again) {
                EXPECT_STREQ(again.what(), "other");
            }
        }
        EXPECT_EQ(std::uncaught_exceptions(), 0);
        EXPECT_FALSE(std::current_exception());
    });
    Call call([&](Call& self) {
        try {
            self.Stop();
            throw std::runtime_error("mine");
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "mine");
            self.Stop();
            EXPECT_TRUE(std::current_exception());
        }
    });
    EXPECT_FALSE(other.Start());
    EXPECT_FALSE(std::current_exception()) << "the thread has caught nothing";
    EXPECT_FALSE(call.Start());
    try {
        throw 1;
    } catch (int) { // the thread's own
        EXPECT_FALSE(call.fiber->Resume());
        OnAnotherThread([&] { EXPECT_TRUE(other.fiber->Resume()); });
        EXPECT_TRUE(call.fiber->Resume());
        EXPECT_TRUE(std::current_exception());
    }
    EXPECT_FALSE(std::current_exception());
}

// The depth that handlers may use, minus what the sanitizers add to each frame.
[[gnu::noinline]] size_t UseStack(size_t bytes)
{
    volatile char page[4096];
    page[0] = static_cast<char>(bytes);
    return bytes > sizeof page ? UseStack(bytes - sizeof page) + static_cast<size_t>(page[0] * 0)
                               : 1;
}

TEST(Fiber, StackIsDeep)
{
    size_t result = 0;
    Call call([&](Call&) { result = UseStack(Fiber::kStackBytes / 2); });
    EXPECT_TRUE(call.Start());
    EXPECT_EQ(result, 1u);
    call.fiber->Trim();
    EXPECT_TRUE(call.Start());
}

TEST(FiberDeath, DeeperThanTheStackEndsTheProcessAtOnce)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(
        {
            Call call([](Call&) { (void)UseStack(4 * Fiber::kStackBytes); });
            (void)call.Start();
        },
        "");
}

TEST(FiberStock, KeepsNoMoreThanItSays)
{
    OnAnotherThread([] { // whose own stock is empty
        const size_t before = FiberCount();
        constexpr size_t kMany = kSharedFibers + kThreadFibers + 20;
        std::vector<std::unique_ptr<Fiber>> fibers;
        for (size_t i = 0; i < kMany; ++i)
            fibers.push_back(AcquireFiber());
        EXPECT_GE(FiberCount(), kMany);
        for (auto& fiber : fibers)
            ReleaseFiber(std::move(fiber));
        EXPECT_LE(FiberCount(), std::max(before, kSharedFibers + kThreadFibers));
        const size_t kept = FiberCount();
        ReleaseFiber(AcquireFiber());
        EXPECT_EQ(FiberCount(), kept) << "one that is kept is used";
    });
}

} // namespace
} // namespace kestd
