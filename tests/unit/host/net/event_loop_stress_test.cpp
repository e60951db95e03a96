// SPDX-License-Identifier: Apache-2.0
//
// The event loop with everything at once: threads that add, fill, close, wake and time out
// descriptors while others serve them. The thread sanitizer and the address sanitizer see the rest.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/net/event_loop.h"

namespace kestd {
namespace {

constexpr int kServing = 4;
constexpr int kClients = 3;
constexpr std::chrono::milliseconds kTime{1500};

class Session;

// What all threads of the case share.
struct World {
    EventLoop loop;
    std::mutex mutex; // guards open
    std::set<Session*> open;
    std::atomic<uint64_t> made{0};
    std::atomic<uint64_t> ended{0};
    std::atomic<uint64_t> timedOut{0};
    std::atomic<uint64_t> received{0};
};

// A server's end: takes bytes until the other side has closed, then deletes itself.
class Session final : public EventHandler {
  public:
    Session(World& world, int fd, std::shared_ptr<const std::atomic<int>> sent)
        : world_(world), fd_(fd), sent_(std::move(sent)), registration_(world.loop.Reserve(*this))
    {
        const std::lock_guard lock(world_.mutex);
        world_.open.insert(this);
    }
    EventLoop::Registration Begin()
    {
        const EventLoop::Registration registration = registration_; // it may be gone at once
        EXPECT_EQ(world_.loop.Watch(registration, fd_), 0);
        return registration;
    }
    void OnReady(Event) noexcept override
    {
        do {
            EXPECT_FALSE(isRunning_.exchange(true)) << "two threads at once";
            const bool isOver = TakeAll();
            EXPECT_TRUE(isRunning_.exchange(false));
            if (isOver) {
                delete this;
                return;
            }
        } while (!world_.loop.Release(registration_));
    }
    // With the list's lock held, by any thread.
    void TimeOut() noexcept
    {
        hasTimedOut_ = true;
        (void)shutdown(fd_, SHUT_RD);
    }

  private:
    ~Session()
    {
        {
            const std::lock_guard lock(world_.mutex);
            world_.open.erase(this);
        }
        world_.loop.Remove(registration_);
        close(fd_);
        if (hasTimedOut_)
            ++world_.timedOut;
        else
            EXPECT_EQ(received_, *sent_) << "an end was told before all that came";
        ++world_.ended;
    }
    bool TakeAll() noexcept
    {
        char bytes[64];
        ssize_t got = 0;
        while ((got = recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
            received_ += static_cast<int>(got);
            world_.received += static_cast<uint64_t>(got);
        }
        return got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }

    World& world_;
    const int fd_;
    const std::shared_ptr<const std::atomic<int>> sent_;
    const EventLoop::Registration registration_;
    int received_ = 0;
    std::atomic<bool> isRunning_{false};
    std::atomic<bool> hasTimedOut_{false};
};

// A client's end of a session.
class Client {
  public:
    explicit Client(World& world) : world_(world)
    {
        std::array<int, 2> pair{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) != 0)
            throw std::system_error(errno, std::generic_category());
        fd_ = pair[0];
        ++world_.made;
        registration = (new Session(world, pair[1], sent_))->Begin(); // deletes itself
    }
    Client(Client&& other) noexcept
        : registration(other.registration), world_(other.world_), sent_(std::move(other.sent_)),
          fd_(std::exchange(other.fd_, -1))
    {
    }
    Client& operator=(Client&&) = delete;
    ~Client()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    void Send(int count)
    {
        const std::string text(static_cast<size_t>(count), 'x');
        sent_->fetch_add(count);
        (void)!send(fd_, text.data(), text.size(), MSG_NOSIGNAL); // it may have been timed out
    }

    EventLoop::Registration registration = 0; // stays known when the session is gone

  private:
    World& world_;
    std::shared_ptr<std::atomic<int>> sent_ = std::make_shared<std::atomic<int>>(0);
    int fd_ = -1;
};

void RunClients(World& world, unsigned seed, std::chrono::steady_clock::time_point end)
{
    std::mt19937 random(seed);
    std::vector<Client> clients;
    std::vector<EventLoop::Registration> known;
    while (std::chrono::steady_clock::now() < end) {
        const auto choice = random() % 8;
        if (clients.size() < 4 || (choice == 0 && clients.size() < 64)) {
            clients.emplace_back(world);
            known.push_back(clients.back().registration);
        } else if (choice < 5) {
            clients[random() % clients.size()].Send(1 + static_cast<int>(random() % 100));
        } else if (choice < 7) {
            world.loop.Schedule(known[random() % known.size()]); // of a session that may be gone
        } else {
            std::vector<Client> kept;
            const size_t gone = random() % clients.size();
            for (size_t i = 0; i < clients.size(); ++i)
                if (i != gone)
                    kept.push_back(std::move(clients[i]));
            clients.swap(kept);
        }
    }
}

// What the server's clock does: times out sessions, wakes threads and helps out.
void RunClock(World& world, std::chrono::steady_clock::time_point end)
{
    std::mt19937 random(7);
    while (std::chrono::steady_clock::now() < end) {
        {
            const std::lock_guard lock(world.mutex);
            if (!world.open.empty() && random() % 4 == 0)
                (*world.open.begin())->TimeOut();
        }
        world.loop.WakeIdle();
        world.loop.RunReady();
        std::this_thread::yield();
    }
}

} // namespace

TEST(EventLoopStress, EverySessionHearsAllThatWasSentAndItsEnd)
{
    World world;
    std::vector<std::thread> serving;
    for (int i = 0; i < kServing; ++i)
        serving.emplace_back([&world, &queue = world.loop.AddThread()] { world.loop.Run(queue); });

    const auto end = std::chrono::steady_clock::now() + kTime;
    std::vector<std::thread> others;
    for (unsigned i = 0; i < kClients; ++i)
        others.emplace_back([&world, i, end] { RunClients(world, i, end); });
    others.emplace_back([&world, end] { RunClock(world, end); });
    for (std::thread& thread : others)
        thread.join();

    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (world.ended != world.made && std::chrono::steady_clock::now() < patience)
        std::this_thread::yield();
    world.loop.Stop();
    for (std::thread& thread : serving)
        thread.join();
    EXPECT_EQ(world.ended, world.made) << "a session was not told of its end";
    EXPECT_GT(world.made, uint64_t{2 * kClients});
    EXPECT_GT(world.received, uint64_t{0});
}

} // namespace kestd
