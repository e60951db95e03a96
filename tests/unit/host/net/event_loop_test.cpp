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
class End final : public Watched {
  public:
    explicit End(Poller& poller) : poller_(poller)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair_.data()), 0);
        ticket = poller.Add(pair_[0], *this);
    }
    ~End()
    {
        poller_.Remove(ticket);
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
        } while (!poller_.LetGo(ticket) && (running_.exchange(true), true));
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
    Poller::Ticket ticket = 0;
    std::atomic<int> calls{0};
    std::atomic<bool> sawEnd{false};

  private:
    Poller& poller_;
    std::array<int, 2> pair_{-1, -1};
    std::atomic<bool> running_{false};
};

TEST(PollerEvents, AreLeftToAThreadThatIsFree)
{
    Poller poller;
    End end(poller);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    Poller::Batch& batch = poller.AddThread(); // and it is not busy
    end.Send('a');
    poller.Poke(end.ticket);
    poller.RunReady();
    EXPECT_EQ(end.calls, 0);
    end.work = [&] { poller.Stop(); };
    std::thread thread([&] { poller.Run(batch); });
    thread.join();
    EXPECT_GE(end.calls, 1);
}

TEST(PollerEvents, ComeOncePerArrivalWhileNobodyHolds)
{
    Poller poller;
    End end(poller);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    poller.RunReady();
    EXPECT_EQ(end.calls, 0);
    end.Send('a');
    poller.RunReady();
    poller.RunReady();
    EXPECT_EQ(end.calls, 1);
    end.Send('b');
    poller.RunReady();
    EXPECT_EQ(end.calls, 2);
    EXPECT_FALSE(end.sawEnd);
}

TEST(PollerEvents, TellTheHolderThatSomethingCameMeanwhile)
{
    Poller poller;
    End end(poller); // held by this thread
    end.Send('a');
    poller.RunReady();
    EXPECT_EQ(end.calls, 0);
    EXPECT_FALSE(poller.LetGo(end.ticket));
    EXPECT_TRUE(poller.LetGo(end.ticket));
    poller.RunReady();
    EXPECT_EQ(end.calls, 0);
}

TEST(PollerEvents, SayThatTheOtherSideMayHaveEnded)
{
    Poller poller;
    End end(poller);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    end.Send('a');
    end.ClosePeer();
    poller.RunReady();
    EXPECT_EQ(end.calls, 1);
    EXPECT_TRUE(end.sawEnd);
}

TEST(PollerEvents, OfARegistrationThatIsGoneReachNobody)
{
    Poller poller;
    auto first = std::make_unique<End>(poller);
    ASSERT_TRUE(poller.LetGo(first->ticket));
    const Poller::Ticket old = first->ticket;
    first.reset();
    End second(poller); // takes the place
    ASSERT_TRUE(poller.LetGo(second.ticket));
    EXPECT_NE(second.ticket, old);
    poller.Poke(old);
    poller.RunReady();
    EXPECT_EQ(second.calls, 0);
    poller.Poke(second.ticket);
    poller.RunReady();
    EXPECT_EQ(second.calls, 1);
    EXPECT_TRUE(second.sawEnd) << "nobody knows";
}

TEST(PollerEvents, FollowWhatTheHolderExpects)
{
    Poller poller;
    End end(poller);
    poller.Expect(end.ticket, end.Fd(), Poller::Interest::Output);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    poller.RunReady();
    EXPECT_EQ(end.calls, 1); // it takes output
    end.Send('a');
    poller.RunReady();
    EXPECT_EQ(end.calls, 1);
    poller.Expect(end.ticket, end.Fd(), Poller::Interest::Input); // tells what came before
    poller.RunReady();
    EXPECT_EQ(end.calls, 2);
    EXPECT_EQ(end.Receive(), 'a');
}

TEST(PollerEvents, HaveRoomForManyRegistrations)
{
    Poller poller;
    End end(poller);
    std::vector<Poller::Ticket> tickets;
    for (int i = 0; i < 3000; ++i) { // several chunks; the same descriptor again is refused
        const int fd = eventfd(0, EFD_CLOEXEC);
        ASSERT_GE(fd, 0);
        tickets.push_back(poller.Add(fd, end));
        poller.Remove(tickets.back());
        close(fd);
        EXPECT_THROW(poller.Add(end.Fd(), end), std::exception);
    }
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < 400; ++i) {
        ends.push_back(std::make_unique<End>(poller));
        ASSERT_TRUE(poller.LetGo(ends.back()->ticket));
        ends.back()->Send('a');
    }
    poller.RunReady();
    for (const auto& each : ends)
        EXPECT_EQ(each->calls, 1);
}

// Threads that serve a poller until the scope ends.
class Threads {
  public:
    Threads(Poller& poller, int count) : poller_(poller)
    {
        for (int i = 0; i < count; ++i)
            threads_.emplace_back([&poller, &batch = poller.AddThread()] { poller.Run(batch); });
    }
    ~Threads()
    {
        poller_.Stop();
        for (std::thread& thread : threads_)
            thread.join();
    }

  private:
    Poller& poller_;
    std::vector<std::thread> threads_;
};

template <class Condition> void WaitUntil(Condition&& condition)
{
    while (!condition())
        std::this_thread::yield();
}

TEST(PollerThreads, ServeEverythingThatComes)
{
    constexpr int kEnds = 40;
    constexpr int kSent = 500;
    Poller poller;
    std::atomic<int> received{0};
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < kEnds; ++i) {
        ends.push_back(std::make_unique<End>(poller));
        End& end = *ends.back();
        end.work = [&end, &received] {
            while (end.Receive() >= 0)
                ++received;
        };
        ASSERT_TRUE(poller.LetGo(end.ticket));
    }
    const Threads threads(poller, 4);
    for (int i = 0; i < kSent; ++i)
        for (const auto& end : ends)
            end->Send('x');
    WaitUntil([&] { return received == kEnds * kSent; });
}

TEST(PollerThreads, TakeWhatStandsBehindOneThatIsStuck)
{
    Poller poller;
    std::atomic<bool> isStuck{false};
    std::atomic<bool> goesOn{false};
    std::vector<std::unique_ptr<End>> ends;
    for (int i = 0; i < 8; ++i) {
        ends.push_back(std::make_unique<End>(poller));
        ASSERT_TRUE(poller.LetGo(ends.back()->ticket));
    }
    for (const auto& end : ends)
        end->work = [&] {
            if (!isStuck.exchange(true))
                WaitUntil([&] { return goesOn.load(); });
        };
    for (const auto& end : ends)
        end->Send('x'); // all ready before the first thread looks: it takes them all
    {
        const Threads first(poller, 1);
        WaitUntil([&] { return isStuck.load(); });
        EXPECT_TRUE(poller.IsFull());
        {
            std::thread second([&poller, &batch = poller.AddThread()] { poller.Run(batch); });
            const auto served = [&] {
                int calls = 0;
                for (const auto& end : ends)
                    calls += end->calls;
                return calls;
            };
            WaitUntil([&] { return served() == 8; });
            goesOn = true;
            poller.Stop();
            second.join();
        }
    }
}

TEST(PollerThreads, WakeForWhatIsPoked)
{
    Poller poller;
    End end(poller);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    const Threads threads(poller, 2);
    for (int i = 1; i <= 200; ++i) {
        const int before = end.calls;
        poller.Poke(end.ticket);
        WaitUntil([&] { return end.calls > before; });
    }
}

TEST(PollerThreads, CountWhatTheyServe)
{
    Poller poller;
    End end(poller);
    ASSERT_TRUE(poller.LetGo(end.ticket));
    const Threads threads(poller, 1);
    end.Send('a');
    WaitUntil([&] { return poller.Served() == 1; });
}

} // namespace
} // namespace kestd
