// SPDX-License-Identifier: Apache-2.0
//
// How often the server looks after its waits.
#include "host/net/server_clock.h"

#include <thread>

#include <gtest/gtest.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

constexpr int64_t kNever = INT64_MAX;

// Looks in ten seconds of a server in which nothing happens, `due` after each look.
int LooksWhileIdle(ClockPace& pace, int64_t& now, int64_t due)
{
    int looks = 0;
    for (const int64_t end = now + 10'000; now < end; ++looks)
        now += pace.Next(now, 7, due == kNever ? kNever : now + due).count();
    return looks;
}

TEST(ClockPace, WakesAnIdleServerOnceASecond)
{
    ClockPace pace;
    int64_t now = 5;
    (void)LooksWhileIdle(pace, now, kNever); // the beginning is something that happens
    EXPECT_LE(LooksWhileIdle(pace, now, kNever), 10) << "no connection";
    EXPECT_LE(LooksWhileIdle(pace, now, 60'000), 10) << "connections that wait for a request";
}

TEST(ClockPace, LooksOftenForASecondAfterWork)
{
    ClockPace pace;
    int64_t now = 5;
    (void)LooksWhileIdle(pace, now, kNever);
    EXPECT_EQ(pace.Next(now, 8, kNever), kTick);
    int looks = 1;
    while (pace.Next(now += kTick.count(), 8, kNever) == kTick)
        ++looks;
    EXPECT_EQ(looks, 10);
    EXPECT_EQ(pace.Next(now, 8, kNever), kLongTick);
}

TEST(ClockPace, IsThereWhenAWaitEnds)
{
    ClockPace pace;
    int64_t now = 5;
    (void)LooksWhileIdle(pace, now, kNever);
    EXPECT_EQ(pace.Next(now, 7, now + 400), milliseconds(400));
    EXPECT_EQ(pace.Next(now, 7, now + 30), kTick) << "never more often than that";
    EXPECT_EQ(pace.Next(now, 7, now), kTick) << "something has to be watched";
    EXPECT_EQ(pace.Next(now, 7, now - 5), kTick);
}

// Sleeps of minutes, which end at once.
TEST(ServerClock, IsRousedWhereWorkBegins)
{
    ServerClock clock;
    bool goesOn = false;
    std::atomic<bool> isAwake{false};
    std::thread sleeper([&] {
        goesOn = clock.Sleep(std::chrono::minutes(10));
        isAwake = true;
    });
    while (!isAwake) // it may not sleep yet
        clock.Rouse();
    sleeper.join();
    EXPECT_TRUE(goesOn);
}

TEST(ServerClock, EndsWhileItSleepsAndForGood)
{
    ServerClock clock;
    bool goesOn = true;
    std::thread sleeper([&] { goesOn = clock.Sleep(std::chrono::minutes(10)); });
    clock.End();
    sleeper.join();
    EXPECT_FALSE(goesOn);
    EXPECT_FALSE(clock.Sleep(kTick));
}

} // namespace

} // namespace kestd
