// SPDX-License-Identifier: Apache-2.0
//
// How many connections there may be, stop, reload, addresses.
#include <thread>

#include "tests/contract/host/net/gate.h"

namespace kestd::test {

namespace {

using std::chrono::milliseconds;
using Limits = ServerTest;

TEST_F(Limits, OneConnectionTooManyIsTurnedAway)
{
    ServerSettings settings = QuietSettings();
    settings.limits.connections = 3;
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        EXPECT_EQ(clients.back()->Ask(kGet).status, 200);
    }
    {
        Client over(port);
        const Answer answer = over.Receive();
        EXPECT_EQ(answer.status, 503);
        EXPECT_EQ(answer.body.size(), 24u);
        EXPECT_TRUE(over.IsClosed());
    }
    EXPECT_EQ(clients[0]->Ask(kGet).status, 200);
    clients[0]->Close();
    clients[1]->Close();
    Answer again;
    for (int i = 0; i < 100 && again.status != 200; ++i) { // until the server has noticed
        Client client(port);
        again = client.Ask(kGet);
    }
    EXPECT_EQ(again.status, 200);
}

TEST_F(Limits, OneAddressHasSoManyConnections)
{
    ServerSettings settings = QuietSettings();
    settings.limits.connectionsPerAddress = 3;
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        EXPECT_EQ(clients.back()->Ask(kGet).status, 200);
    }
    EXPECT_EQ(Client(port).Receive().status, 503);
    Client other(port, 0, "127.0.0.2");
    EXPECT_EQ(other.Ask(kGet).status, 200);
}

// A client that sends or takes a little now and then, never so long silent that a time limit ends
// it.
TEST_F(Limits, ClientBelowTheLeastRateIsEnded)
{
    ServerSettings settings = QuietSettings();
    settings.limits.leastRate = 100'000;
    settings.limits.rateTime = milliseconds(600);
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        (void)ReadBody(io, status);
        return io.SendHeader(static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(status)));
    };
    const Running running = Start(settings);
    for (const size_t before : {size_t{1}, size_t{10'000}}) { // gathered, and in the module
        Client client(port);
        ASSERT_TRUE(client.Send("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: "
                                "1000000\r\n\r\n" +
                                std::string(before, 'x')));
        Answer answer;
        for (int i = 0; i < 400 && answer.status == 0; ++i) {
            (void)client.Send("x");
            answer = client.Receive(false, milliseconds(50));
        }
        EXPECT_EQ(answer.status, 408) << before;
    }
}

TEST_F(Limits, FastClientThatTakesLongIsNotEnded)
{
    ServerSettings settings = QuietSettings();
    settings.limits.leastRate = 1000;
    settings.limits.rateTime = milliseconds(1500);
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        return io.SendHeader(ReadBody(io, status).size() == 800'000 ? 200 : 500);
    };
    const Running running = Start(settings);
    Client client(port);
    ASSERT_TRUE(client.Send("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 800000\r\n\r\n"));
    for (int i = 0; i < 80; ++i) { // longer than the rate is measured, and far above it
        ASSERT_TRUE(client.Send(std::string(10'000, 'x')));
        std::this_thread::sleep_for(milliseconds(25));
    }
    EXPECT_EQ(client.Receive().status, 200);
}

TEST_F(Limits, OfTooManyWaitingRequestsTheOldestIsEnded)
{
    ServerSettings settings = QuietSettings();
    settings.limits.workerThreads = 1;
    settings.limits.waitingRequests = 5;
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        return io.SendHeader(ReadBody(io, status).size() == 100'000 ? 200 : 400);
    };
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        ASSERT_TRUE(clients.back()->Send(
            "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 100000\r\n\r\n" +
            std::string(i % 2 ? 10'000 : 10, 'x')));
        EXPECT_EQ(Ask("OPTIONS * HTTP/1.1\r\nHost: h\r\n\r\n").status, 200); // it waits by now
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(clients[static_cast<size_t>(i)]->IsClosed()) << i;
    for (size_t i = 3; i < 8; ++i)
        EXPECT_EQ(clients[i]->Ask(std::string(i % 2 ? 90'000 : 99'990, 'x')).status, 200) << i;
}

TEST_F(Limits, FullHouseLetsSilentConnectionsGo)
{
    ServerSettings settings = QuietSettings();
    settings.limits.connections = 16;
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> silent;
    for (int i = 0; i < 16; ++i) {
        silent.push_back(std::make_unique<Client>(port));
        ASSERT_TRUE(silent.back()->Send(i % 2 ? "GET /Ferro/a HT" : ""));
    }
    Answer answer;
    for (int i = 0; i < 1000 && answer.status != 200; ++i) {
        std::this_thread::sleep_for(milliseconds(10));
        answer = Ask(kGet);
    }
    EXPECT_EQ(answer.status, 200);
}

TEST_F(Limits, StopLetsRunningRequestsFinish)
{
    Gate gate;
    module.handler = [&](IKestIO_5& io, UINT32) {
        gate.Pass();
        return io.SendHeader(200);
    };
    const Running running = Start();
    Client idle(port);
    Client partial(port);
    Client asking(port);
    ASSERT_TRUE(partial.Send("GET /Ferro/a HT"));
    ASSERT_TRUE(asking.Send(kGet));
    gate.WaitFor(1);
    std::thread stopper([&] { EXPECT_TRUE(server->Stop()); });
    EXPECT_TRUE(idle.IsClosed());
    ASSERT_TRUE(partial.Send("TP/1.1\r\nHost: h\r\n\r\n"));
    gate.WaitFor(2);
    gate.Open();
    const Answer answer = asking.Receive();
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.Header("Connection"), "(none)"); // it was asked before the stop
    EXPECT_EQ(partial.Receive().Header("Connection"), "close");
    EXPECT_TRUE(asking.IsClosed());
    stopper.join();
    EXPECT_TRUE(server->Stop()); // does nothing
}

TEST_F(Limits, StopEndsWhatTakesTooLong)
{
    ServerSettings settings = QuietSettings();
    settings.limits.shutdownTime = milliseconds(200);
    std::atomic<bool> ended{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        (void)ReadBody(io, status);
        ended = true;
        return io.SendHeader(400);
    };
    const Running running = Start(settings);
    Client client(port);
    ASSERT_TRUE(client.Send("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 1000000\r\n\r\n" +
                            std::string(10000, 'x')));
    while (module.calls == 0)
        std::this_thread::yield();
    EXPECT_TRUE(server->Stop());
    EXPECT_TRUE(ended);
}

TEST_F(Limits, ReloadTakesEffectOrNothingChanges)
{
    ServerSettings settings = QuietSettings();
    const Running running = Start(settings);
    Client client(port);
    EXPECT_EQ(client.Ask(kGet).status, 200);
    settings.limits.targetBytes = 5;
    EXPECT_EQ(server->Apply(settings), "");
    EXPECT_EQ(client.Ask(kGet).status, 414);
    settings.limits.targetBytes = 500;
    settings.tlsCertificate = settings.tlsKey = "/nonexistent/cert.pem";
    EXPECT_NE(server->Apply(settings), "");
    EXPECT_EQ(client.Ask(kGet).status, 414);
    settings.tlsKey.clear();
    EXPECT_NE(server->Apply(settings), "");
    settings.tlsCertificate.clear();
    settings.publicUrl = "not a URL";
    EXPECT_NE(server->Apply(settings), "");
    settings.publicUrl.clear();
    EXPECT_EQ(server->Apply(settings), "");
    EXPECT_EQ(client.Ask(kGet).status, 200);
}

TEST_F(Limits, AddressesThatCannotBeHadAreNamed)
{
    const Running running = Start();
    ServerSettings settings = QuietSettings();
    settings.listen = {{"127.0.0.1", port}};
    Server taken(settings, door, &module, "/Ferro");
    EXPECT_NE(taken.Start().find("127.0.0.1:" + std::to_string(port)), std::string::npos);
    settings.listen = {{"localhost", 0}};
    Server named(settings, door, &module, "/Ferro");
    EXPECT_NE(named.Start().find("localhost"), std::string::npos);
}

TEST_F(Limits, SeveralAddressesAreServed)
{
    ServerSettings settings = QuietSettings();
    settings.listen = {{"127.0.0.1", 0}, {"127.0.0.1", 0}};
    const Running running = Start(settings);
    EXPECT_NE(server->Addresses()[0].port, server->Addresses()[1].port);
    for (const ListenAddress& address : server->Addresses()) {
        Client client(address.port);
        EXPECT_EQ(client.Ask(kGet).status, 200);
    }
}

} // namespace

} // namespace kestd::test
