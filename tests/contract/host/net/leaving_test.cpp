// SPDX-License-Identifier: Apache-2.0
//
// Requests whose clients leave, or whose server stops, while they run.
#include <condition_variable>
#include <thread>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

bool IsCancelled()
{
    void* out = nullptr;
    EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
              TAL_STATUS_SUCCESS);
    BOOLEAN cancelled = 0;
    EXPECT_EQ(static_cast<IKestCallContext*>(out)->IsCancelled(&cancelled), TAL_STATUS_SUCCESS);
    return cancelled != 0;
}

// Works on until it is told that nobody waits for it, or 20 seconds have passed.
class Leaving : public ServerTest {
  protected:
    using Ask = std::function<bool(IKestIO_5&)>; // true when the request has no use any more

    void StartWorking(Ask ask, seconds most = seconds(20),
                      const ServerSettings& settings = QuietSettings())
    {
        module.handler = [this, ask = std::move(ask), most](IKestIO_5& io, UINT32) {
            isRunning = true;
            const auto end = steady_clock::now() + most;
            while (steady_clock::now() < end && !wasTold) {
                wasTold = ask(io);
                std::this_thread::sleep_for(milliseconds(1));
            }
            hasReturned = true;
            return io.SendHeader(200);
        };
        StartUntilTearDown(settings);
    }
    void WaitFor(const std::atomic<bool>& what)
    {
        const auto end = steady_clock::now() + seconds(20);
        while (!what && steady_clock::now() < end)
            std::this_thread::sleep_for(milliseconds(1));
        EXPECT_TRUE(what);
    }
    static void Reset(Client& client)
    {
        const linger atOnce{1, 0};
        setsockopt(client.Fd(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        client.Close();
    }

    std::atomic<bool> isRunning{false};
    std::atomic<bool> wasTold{false};
    std::atomic<bool> hasReturned{false};
};

TEST_F(Leaving, ResetIsTold)
{
    StartWorking([](IKestIO_5&) { return IsCancelled(); });
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    WaitFor(isRunning);
    Reset(client);
    WaitFor(wasTold);
}

TEST_F(Leaving, CloseIsTold)
{
    StartWorking([](IKestIO_5&) { return IsCancelled(); });
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    WaitFor(isRunning);
    client.Close();
    WaitFor(wasTold);
}

TEST_F(Leaving, WorkingFails)
{
    StartWorking([](IKestIO_5& io) { return Failed(io.Working()); });
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    WaitFor(isRunning);
    client.Close();
    WaitFor(wasTold);
}

// A range that begins far behind: what comes before it is read and dropped.
TEST_F(Leaving, WriteFailsAlsoWhereItSendsNothing)
{
    module.handler = [this](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "1000000000000");
        if (Failed(io.SendHeader(200)))
            return TAL_STATUS_SUCCESS; // it is asked again, for the whole
        isRunning = true;
        const std::string block(65536, 'x');
        const auto end = steady_clock::now() + seconds(20);
        TALSTATUS status = 0;
        while (steady_clock::now() < end && !Failed(status))
            status = Write(io, block);
        wasTold = Failed(status);
        return status;
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send("GET /Ferro/a HTTP/1.1\r\nHost: h\r\n"
                            "Range: bytes=900000000000-900000000001\r\n\r\n"));
    WaitFor(isRunning);
    client.Close();
    WaitFor(wasTold);
}

TEST_F(Leaving, WhoOnlySendsNoMoreGetsItsReply)
{
    StartWorking([](IKestIO_5&) { return IsCancelled(); }, seconds(1));
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    client.EndSending();
    Answer answer = client.Receive();
    if (answer.status == 102)
        answer = client.Receive();
    EXPECT_EQ(answer.status, 200);
    EXPECT_FALSE(wasTold);
}

TEST_F(Leaving, WhoStaysIsNotTakenForGone)
{
    StartWorking([](IKestIO_5& io) { return IsCancelled() || Failed(io.Working()); }, seconds(1));
    Client client(port);
    EXPECT_EQ(client.Ask(kGet).status, 200); // and no interim reply
    EXPECT_FALSE(wasTold);
}

TEST_F(Leaving, StopIsToldAfterItsTime)
{
    ServerSettings settings = QuietSettings();
    settings.limits.shutdownTime = milliseconds(300);
    StartWorking([](IKestIO_5&) { return IsCancelled(); }, seconds(20), settings);
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    WaitFor(isRunning);
    EXPECT_TRUE(server->Stop());
    EXPECT_TRUE(wasTold);
    EXPECT_TRUE(hasReturned);
}

TEST_F(Leaving, StopDoesNotWaitForACallThatNeverReturns)
{
    ServerSettings settings = QuietSettings();
    settings.limits.shutdownTime = milliseconds(100);
    mayStick = true;
    std::atomic<bool> mayReturn{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        isRunning = true;
        while (!mayReturn)
            std::this_thread::sleep_for(milliseconds(1));
        return io.SendHeader(200);
    };
    const Running running = Start(settings);
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    WaitFor(isRunning);
    EXPECT_FALSE(server->Stop());
    mayReturn = true;
    server.reset();
}

TEST_F(Leaving, StopUnwindsCallsThatWaitForTheirClients)
{
    ServerSettings settings = QuietSettings();
    settings.limits.shutdownTime = milliseconds(100);
    settings.limits.workerThreads = 1;
    std::atomic<int> inside{0};
    std::atomic<int> ended{0};
    module.handler = [&](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        ++inside;
        (void)ReadBody(io, status);
        EXPECT_TRUE(IsCancelled());
        ++ended;
        return io.SendHeader(400);
    };
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        ASSERT_TRUE(clients.back()->Send(
            "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 100000\r\n\r\n" +
            std::string(10'000, 'x')));
    }
    while (inside < 20)
        std::this_thread::yield();
    EXPECT_TRUE(server->Stop());
    EXPECT_EQ(ended, 20);
}

} // namespace

} // namespace kestd::test
