// SPDX-License-Identifier: Apache-2.0
//
// What a connection takes: no memory, no descriptor and no call more than it needs, whatever fails.
#include <dirent.h>
#include <sys/epoll.h>
#include <sys/syscall.h>

#include <cstdlib>
#include <new>
#include <thread>

#include "tests/contract/host/harness.h"

namespace {

std::atomic<int> g_changesOfTheSet{0};
// How many allocations of the server's threads succeed before one fails; below 0 all do.
std::atomic<int> g_allocationsLeft{-1};
thread_local bool t_isTest = false;

bool MustFail()
{
    return !t_isTest && g_allocationsLeft.load() >= 0 && g_allocationsLeft.fetch_sub(1) == 0;
}

} // namespace

extern "C" int epoll_ctl(int set, int operation, int fd, epoll_event* event) noexcept
{
    ++g_changesOfTheSet;
    return static_cast<int>(syscall(SYS_epoll_ctl, set, operation, fd, event));
}

// Not inlined: else the compiler takes the pairs apart and calls them mismatched.
[[gnu::noinline]] void* operator new(size_t size)
{
    void* const memory = MustFail() ? nullptr : std::malloc(size ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return MustFail() ? nullptr : std::malloc(size ? size : 1);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

namespace kestd::test {

namespace {

using Accept = ServerTest;

int OpenDescriptors()
{
    DIR* const directory = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(directory))
        ++count;
    closedir(directory);
    return count;
}

TEST_F(Accept, ConnectionIsWatchedByOneCall)
{
    ServerSettings settings = QuietSettings();
    settings.limits.workerThreads = 4;
    settings.limits.connectionsPerAddress = 5000;
    const Running running = Start(settings);
    constexpr int kClients = 1500;
    const int before = g_changesOfTheSet;
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        ASSERT_TRUE(clients.back()->Send(kGet));
    }
    for (const auto& client : clients)
        ASSERT_EQ(client->Receive().status, 200);
    EXPECT_EQ(g_changesOfTheSet - before, kClients);
}

// Every allocation in turn, from the client's arrival to its reply.
TEST_F(Accept, ConnectionForWhichMemoryFailsIsClosed)
{
    t_isTest = true;
    ServerSettings settings = QuietSettings();
    settings.limits.workerThreads = 2;
    const Running running = Start(settings);
    const int before = OpenDescriptors();
    EXPECT_EQ(Ask(kGet).status, 200); // what is made once is there
    int failures = 0;
    for (int skipped = 0; skipped < 200; ++skipped) {
        g_allocationsLeft = skipped;
        Client client(port);
        (void)client.Send(kGet);
        client.EndSending();
        const Answer answer = client.Receive();
        const bool hasFailed = g_allocationsLeft.exchange(-1) < 0;
        EXPECT_TRUE(client.IsClosed()) << skipped;
        EXPECT_TRUE(answer.status == 0 || answer.status == 200 || answer.status >= 500)
            << answer.status;
        failures += hasFailed && answer.status != 200;
        if (!hasFailed)
            break;
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(Ask(kGet).status, 200);
    for (int i = 0; i < 1000 && OpenDescriptors() > before; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace

} // namespace kestd::test
