// SPDX-License-Identifier: Apache-2.0
#include "host/net/event_loop.h"

#include <gtest/gtest.h>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace kestd {
namespace {

// One end of a connection, and what is done when something comes at it.
class End final : public EventHandler {
  public:
    explicit End(EventLoop& loop) : loop_(loop)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair_.data()), 0);
        registration = loop.Add(pair_[0], *this);
    }
    ~End()
    {
        loop_.Remove(registration);
        close(pair_[0]);
        ClosePeer();
    }
    End(const End&) = delete;
    End& operator=(const End&) = delete;

    void OnReady(Event event) noexcept override
    {
        EXPECT_EQ(running_.exchange(true), false) << "two threads at once";
        sawEnd = sawEnd || event.mayHaveEnded;
        do {
            ++calls;
            if (work)
                work();
            running_ = false;
        } while (!loop_.Release(registration) && (running_.exchange(true), true));
    }
    void Send(char c) { EXPECT_EQ(send(pair_[1], &c, 1, MSG_NOSIGNAL), 1); }
    int Receive()
    {
        char c = 0;
        return recv(pair_[0], &c, 1, MSG_DONTWAIT) == 1 ? c : -1;
    }
    void ClosePeer()
    {
        if (pair_[1] >= 0)
            close(pair_[1]);
        pair_[1] = -1;
    }
    int Fd() const { return pair_[0]; }

    std::function<void()> work;
    EventLoop::Registration registration = 0;
    std::atomic<int> calls{0};
    std::atomic<bool> sawEnd{false};

  private:
    EventLoop& loop_;
    std::array<int, 2> pair_{-1, -1};
    std::atomic<bool> running_{false};
};

TEST(EventLoopEvents, AreLeftToAThreadThatIsFree)
{
    EventLoop loop;
    End end(loop);
    ASSERT_TRUE(loop.Release(end.registration));
    EventLoop::ReadyQueue& queue = loop.AddThread(); // and it is not busy
    end.Send('a');
    loop.Schedule(end.registration);
    loop.RunReady();
    EXPECT_EQ(end.calls, 0);
    end.work = [&] { loop.Stop(); };
    std::thread thread([&] { loop.Run(queue); });
    thread.join();
    EXPECT_GE(end.calls, 1);
}

TEST(EventLoopEvents, ComeOncePerArrivalWhileNobodyHolds)
{
    EventLoop loop;
    End end(loop);
    ASSERT_TRUE(loop.Release(end.registration));
    loop.RunReady();
    EXPECT_EQ(end.calls, 0);
    end.Send('a');
    loop.RunReady();
    loop.RunReady();
    EXPECT_EQ(end.calls, 1);
    end.Send('b');
    loop.RunReady();
    EXPECT_EQ(end.calls, 2);
    EXPECT_FALSE(end.sawEnd);
}

TEST(EventLoopEvents, TellTheHolderThatSomethingCameMeanwhile)
{
    EventLoop loop;
    End end(loop); // held by this thread
    end.Send('a');
    loop.RunReady();
    EXPECT_EQ(end.calls, 0);
    EXPECT_FALSE(loop.Release(end.registration));
    EXPECT_TRUE(loop.Release(end.registration));
    loop.RunReady();
    EXPECT_EQ(end.calls, 0);
}

TEST(EventLoopEvents, SayThatTheOtherSideMayHaveEnded)
{
    EventLoop loop;
    End end(loop);
    ASSERT_TRUE(loop.Release(end.registration));
    end.Send('a');
    end.ClosePeer();
    loop.RunReady();
    EXPECT_EQ(end.calls, 1);
    EXPECT_TRUE(end.sawEnd);
}

TEST(EventLoopEvents, OfARegistrationThatIsGoneReachNobody)
{
    EventLoop loop;
    auto first = std::make_unique<End>(loop);
    ASSERT_TRUE(loop.Release(first->registration));
    const EventLoop::Registration old = first->registration;
    first.reset();
    End second(loop); // takes the place
    ASSERT_TRUE(loop.Release(second.registration));
    EXPECT_NE(second.registration, old);
    loop.Schedule(old);
    loop.RunReady();
    EXPECT_EQ(second.calls, 0);
    loop.Schedule(second.registration);
    loop.RunReady();
    EXPECT_EQ(second.calls, 1);
    EXPECT_TRUE(second.sawEnd) << "nobody knows";
}

TEST(EventLoopEvents, FollowWhatTheHolderExpects)
{
    EventLoop loop;
    End end(loop);
    loop.Expect(end.registration, end.Fd(), EventLoop::Interest::Output);
    ASSERT_TRUE(loop.Release(end.registration));
    loop.RunReady();
    EXPECT_EQ(end.calls, 1); // it takes output
    end.Send('a');
    loop.RunReady();
    EXPECT_EQ(end.calls, 1);
    loop.Expect(end.registration, end.Fd(), EventLoop::Interest::Input); // tells what came before
    loop.RunReady();
    EXPECT_EQ(end.calls, 2);
    EXPECT_EQ(end.Receive(), 'a');
}

TEST(EventLoopEvents, HaveRoomForManyRegistrations)
{
    EventLoop loop;
    End end(loop);
    std::vector<EventLoop::Registration> tickets;
    for (int i = 0; i < 3000; ++i) { // several chunks; the same descriptor again is refused
        const int fd = eventfd(0, EFD_CLOEXEC);
        ASSERT_GE(fd, 0);
        tickets.push_back(loop.Add(fd, end));
        loop.Remove(tickets.back());
        close(fd);
        EXPECT_THROW(loop.Add(end.Fd(), end), std::exception);
    }
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < 400; ++i) {
        ends.push_back(std::make_unique<End>(loop));
        ASSERT_TRUE(loop.Release(ends.back()->registration));
        ends.back()->Send('a');
    }
    loop.RunReady();
    for (const auto& each : ends)
        EXPECT_EQ(each->calls, 1);
}

// Threads that serve a loop until the scope ends.
class Threads {
  public:
    Threads(EventLoop& loop, int count) : loop_(loop)
    {
        for (int i = 0; i < count; ++i)
            threads_.emplace_back([&loop, &queue = loop.AddThread()] { loop.Run(queue); });
    }
    ~Threads()
    {
        loop_.Stop();
        for (std::thread& thread : threads_)
            thread.join();
    }

  private:
    EventLoop& loop_;
    std::vector<std::thread> threads_;
};

template <class Condition> void WaitUntil(Condition&& condition)
{
    while (!condition())
        std::this_thread::yield();
}

TEST(EventLoopThreads, ServeEverythingThatComes)
{
    constexpr int kEnds = 40;
    constexpr int kSent = 500;
    EventLoop loop;
    std::atomic<int> received{0};
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < kEnds; ++i) {
        ends.push_back(std::make_unique<End>(loop));
        End& end = *ends.back();
        end.work = [&end, &received] {
            while (end.Receive() >= 0)
                ++received;
        };
        ASSERT_TRUE(loop.Release(end.registration));
    }
    const Threads threads(loop, 4);
    for (int i = 0; i < kSent; ++i)
        for (const auto& end : ends)
            end->Send('x');
    WaitUntil([&] { return received == kEnds * kSent; });
}

TEST(EventLoopThreads, TakeWhatStandsBehindOneThatIsStuck)
{
    EventLoop loop;
    std::atomic<bool> isStuck{false};
    std::atomic<bool> goesOn{false};
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < 8; ++i) {
        ends.push_back(std::make_unique<End>(loop));
        ASSERT_TRUE(loop.Release(ends.back()->registration));
    }
    for (const auto& end : ends)
        end->work = [&] {
            if (!isStuck.exchange(true))
                WaitUntil([&] { return goesOn.load(); });
        };
    for (const auto& end : ends)
        end->Send('x'); // all ready before the first thread looks: it takes them all
    {
        const Threads first(loop, 1);
        WaitUntil([&] { return isStuck.load(); });
        EXPECT_TRUE(loop.IsFull());
        {
            std::thread second([&loop, &queue = loop.AddThread()] { loop.Run(queue); });
            const auto served = [&] {
                int calls = 0;
                for (const auto& end : ends)
                    calls += end->calls;
                return calls;
            };
            WaitUntil([&] { return served() == 8; });
            goesOn = true;
            loop.Stop();
            second.join();
        }
    }
}

TEST(EventLoopThreads, WakeForWhatIsScheduled)
{
    EventLoop loop;
    End end(loop);
    ASSERT_TRUE(loop.Release(end.registration));
    const Threads threads(loop, 2);
    for (int i = 1; i <= 200; ++i) {
        const int before = end.calls;
        loop.Schedule(end.registration);
        WaitUntil([&] { return end.calls > before; });
    }
}

TEST(EventLoopThreads, CountWhatTheyServe)
{
    EventLoop loop;
    End end(loop);
    ASSERT_TRUE(loop.Release(end.registration));
    const Threads threads(loop, 1);
    end.Send('a');
    WaitUntil([&] { return loop.Served() == 1; });
}

} // namespace
} // namespace kestd
