// SPDX-License-Identifier: Apache-2.0
//
// When workers become more, on a clock and with threads that only the test knows.
#include "host/net/worker_growth.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/net/thread_activity.h"

namespace kestd {
namespace {

constexpr int64_t kTick = 100'000'000; // ns

// Workers under a load, tick by tick.
class Workers {
  public:
    uint32_t count = 4;
    uint32_t limit = 64;
    bool isFull = true;

    // A tick in which `served` events ended, and each worker was active for a part of it.
    WorkerGrowth::Advice Tick(uint64_t served, double active)
    {
        now_ += kTick;
        served_ += served;
        active_ += static_cast<uint64_t>(active * static_cast<double>(kTick) * count);
        WorkerGrowth::Tick tick{isFull, served_, count, limit, std::nullopt};
        if (tells && WorkerGrowth::Asks(isFull, count, limit))
            tick.activity = ThreadActivity{now_, active_, count};
        return growth_.OnTick(tick);
    }
    bool tells = true; // the system, of its threads

  private:
    WorkerGrowth growth_;
    int64_t now_ = 0;
    uint64_t served_ = 0;
    uint64_t active_ = 0;
};

const WorkerGrowth::Advice kNothing;

TEST(WorkerGrowth, WorkersThatWaitForDisksBecomeMore)
{
    Workers workers;
    EXPECT_EQ(workers.Tick(100, 0.1), kNothing); // nothing to compare with
    EXPECT_EQ(workers.Tick(100, 0.1), (WorkerGrowth::Advice{.more = 3}));
    workers.count = 7;
    EXPECT_EQ(workers.Tick(100, 0.49), (WorkerGrowth::Advice{.more = 4}));
}

TEST(WorkerGrowth, WorkersThatComputeDoNot)
{
    Workers workers;
    for (int tick = 0; tick < 50; ++tick)
        EXPECT_EQ(workers.Tick(100, 0.6), kNothing) << tick;
}

TEST(WorkerGrowth, LongComputationsAreJoinedByOthersAfterHalfASecond)
{
    Workers workers;
    (void)workers.Tick(100, 1);
    for (int tick = 0; tick < 4; ++tick)
        EXPECT_EQ(workers.Tick(0, 1), kNothing) << tick;
    EXPECT_EQ(workers.Tick(0, 1), (WorkerGrowth::Advice{.more = 3}));
    EXPECT_EQ(workers.Tick(1, 1), kNothing); // something got on
}

TEST(WorkerGrowth, SystemThatTellsNothingOfItsThreadsAddsToStuckOnes)
{
    Workers workers;
    workers.tells = false;
    for (int tick = 0; tick < 20; ++tick)
        EXPECT_EQ(workers.Tick(100, 0), kNothing) << tick;
    for (int tick = 0; tick < 4; ++tick)
        EXPECT_EQ(workers.Tick(0, 0), kNothing) << tick;
    EXPECT_EQ(workers.Tick(0, 0), (WorkerGrowth::Advice{.more = 3}));
}

TEST(WorkerGrowth, FreeWorkerIsWokenAndForgetsWhatWas)
{
    Workers workers;
    (void)workers.Tick(100, 0.1);
    workers.isFull = false;
    EXPECT_EQ(workers.Tick(100, 0.1), (WorkerGrowth::Advice{.wakesIdle = true}));
    workers.isFull = true;
    EXPECT_EQ(workers.Tick(100, 0.1), kNothing); // nothing to compare with again
}

TEST(WorkerGrowth, AllThereMayBeAndStuckForASecondTurnAway)
{
    Workers workers;
    workers.limit = workers.count;
    (void)workers.Tick(100, 0);
    for (int tick = 0; tick < 10; ++tick)
        EXPECT_EQ(workers.Tick(0, 0), kNothing) << tick;
    EXPECT_EQ(workers.Tick(0, 0), (WorkerGrowth::Advice{.rejects = true}));
    EXPECT_EQ(workers.Tick(1, 0), kNothing); // something got on
}

TEST(ThreadActivity, IsThatOfTheThreadsOrOfNone)
{
    const auto own = MeasureActivity({gettid()});
    if (own) { // else the system keeps no such figures
        EXPECT_GT(own->active, 0U);
        EXPECT_EQ(own->threads, 1U);
        EXPECT_GT(own->now, 0);
    }
    EXPECT_FALSE(MeasureActivity({gettid(), 1 << 29})); // no thread has this number
}

} // namespace
} // namespace kestd
