// SPDX-License-Identifier: Apache-2.0
//
// The listener for metrics and its clients: many at once, slow ones, its end.
#include "host/metrics/metrics_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace kestd {

namespace {

class LargeSource final : public MetricsSource {
  public:
    std::string Metrics(MetricsFormat) override
    {
        ++asked;
        return std::string(100'000, 'm');
    }
    std::string WhatIsWrong() override { return {}; }
    std::string WhatIsNotReady() override { return {}; }

    std::atomic<int> asked{0};
};

class ListenerTest : public testing::Test {
  protected:
    void SetUp() override
    {
        base::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        where_.sin_family = AF_INET;
        where_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof where_;
        ASSERT_EQ(bind(socket.Number(), reinterpret_cast<sockaddr*>(&where_), size), 0);
        ASSERT_EQ(listen(socket.Number(), 128), 0);
        getsockname(socket.Number(), reinterpret_cast<sockaddr*>(&where_), &size);
        std::vector<base::Descriptor> sockets;
        sockets.push_back(std::move(socket));
        listener_ = std::make_unique<MetricsListener>(source_, std::move(sockets));
        listener_->Begin();
    }
    base::Descriptor Connect(std::string_view text) const
    {
        base::Descriptor client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(
            connect(client.Number(), reinterpret_cast<const sockaddr*>(&where_), sizeof where_), 0);
        EXPECT_EQ(send(client.Number(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
        return client;
    }
    static std::string ReadAll(const base::Descriptor& client)
    {
        std::string text;
        char piece[4096];
        ssize_t got = 0;
        while ((got = recv(client.Number(), piece, sizeof piece, 0)) > 0)
            text.append(piece, static_cast<size_t>(got));
        return text;
    }

    LargeSource source_;
    sockaddr_in where_{};
    std::unique_ptr<MetricsListener> listener_;
};

TEST_F(ListenerTest, AnswersManyAtOnce)
{
    constexpr int kThreads = 8;
    std::atomic<int> whole{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < 5; ++n) {
                    const std::string text = ReadAll(Connect("GET /metrics HTTP/1.1\r\n\r\n"));
                    whole += text.starts_with("HTTP/1.1 200 ") && text.ends_with("mmmm") &&
                                     text.size() > 100'000
                                 ? 1
                                 : 0;
                }
            });
    }
    EXPECT_EQ(whole, kThreads * 5);
    EXPECT_EQ(source_.asked, kThreads * 5);
}

TEST_F(ListenerTest, TakesAHeadByteByByte)
{
    const base::Descriptor client = Connect("G");
    for (const char c : std::string_view("ET /health HTTP/1.1\r\nA: b\r\n\r\n"))
        ASSERT_EQ(send(client.Number(), &c, 1, MSG_NOSIGNAL), 1);
    EXPECT_TRUE(ReadAll(client).starts_with("HTTP/1.1 200 "));
}

TEST_F(ListenerTest, LetsTheFirstGoWhereThereAreTooMany)
{
    std::vector<base::Descriptor> idle;
    for (size_t i = 0; i < MetricsListener::kMostClients; ++i)
        idle.push_back(Connect("GET"));
    // Connections are accepted in their order, so that all the idle ones are held by then.
    EXPECT_TRUE(ReadAll(Connect("GET /ready HTTP/1.1\r\n\r\n")).starts_with("HTTP/1.1 200 "));
    EXPECT_EQ(ReadAll(idle.front()), "");
}

TEST_F(ListenerTest, EndsWithClientsThatSayNothing)
{
    const base::Descriptor client = Connect("GET /metrics");
    listener_->Stop();
    listener_->Stop();
    listener_.reset();
    EXPECT_EQ(ReadAll(client), "");
}

} // namespace

} // namespace kestd
