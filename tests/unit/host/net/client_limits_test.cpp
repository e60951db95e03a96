// SPDX-License-Identifier: Apache-2.0
#include "host/net/client_limits.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace kestd {
namespace {

sockaddr_storage Peer(const char* text)
{
    sockaddr_storage peer{};
    auto& v4 = reinterpret_cast<sockaddr_in&>(peer);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(peer);
    if (inet_pton(AF_INET, text, &v4.sin_addr) == 1)
        v4.sin_family = AF_INET;
    else if (inet_pton(AF_INET6, text, &v6.sin6_addr) == 1)
        v6.sin6_family = AF_INET6;
    return peer;
}

struct Request final : WaitingRequest {
    explicit Request(ClientLimits& all, const char* address) : place(all.Enter(Peer(address))) {}
    void GiveUp() noexcept override { isGivenUp = true; }
    ClientLimits::Place place;
    bool isGivenUp = false;
};

TEST(ClientLimits, ConnectionsAreCountedByAddress)
{
    ClientLimits clients;
    const ClientLimits::Place first = clients.Enter(Peer("192.0.2.1"));
    {
        const ClientLimits::Place second = clients.Enter(Peer("192.0.2.1"));
        EXPECT_EQ(second.Connections(), 2u);
        EXPECT_EQ(clients.Enter(Peer("::ffff:192.0.2.1")).Connections(), 3u);
    }
    EXPECT_EQ(clients.Enter(Peer("192.0.2.1")).Connections(), 2u);
    EXPECT_EQ(clients.Enter(Peer("192.0.2.2")).Connections(), 1u);
}

TEST(ClientLimits, NetworkOfASubscriberIsOneAddress)
{
    ClientLimits clients;
    const ClientLimits::Place first = clients.Enter(Peer("2001:db8:1:2::1"));
    EXPECT_EQ(clients.Enter(Peer("2001:db8:1:2:ffff::7")).Connections(), 2u);
    EXPECT_EQ(clients.Enter(Peer("2001:db8:1:3::1")).Connections(), 1u);
}

TEST(ClientLimits, WhoWaitsLongestGivesWay)
{
    ClientLimits clients;
    Request a(clients, "192.0.2.1");
    Request b(clients, "192.0.2.2");
    Request c(clients, "192.0.2.3");
    const ClientLimits::Bounds bounds{2, 2};
    clients.BeginWait(a, a.place, bounds);
    clients.BeginWait(b, b.place, bounds);
    clients.EndWait(a); // gets on, and waits again
    clients.BeginWait(a, a.place, bounds);
    EXPECT_FALSE(a.isGivenUp || b.isGivenUp);
    clients.BeginWait(c, c.place, bounds);
    EXPECT_TRUE(b.isGivenUp);
    EXPECT_FALSE(a.isGivenUp || c.isGivenUp);
    EXPECT_EQ(clients.Waiting(), 2u);
    EXPECT_EQ(clients.GivenUp(), 1u);
    for (Request* each : {&a, &b, &c})
        clients.EndWait(*each);
    EXPECT_EQ(clients.Waiting(), 0u);
}

TEST(ClientLimits, AddressGivesWayToItselfOnly)
{
    ClientLimits clients;
    Request other(clients, "192.0.2.1");
    const ClientLimits::Bounds bounds{100, 3};
    clients.BeginWait(other, other.place, bounds);
    std::vector<std::unique_ptr<Request>> greedy;
    for (int i = 0; i < 10; ++i) {
        greedy.push_back(std::make_unique<Request>(clients, "192.0.2.2"));
        clients.BeginWait(*greedy.back(), greedy.back()->place, bounds);
    }
    EXPECT_FALSE(other.isGivenUp);
    for (size_t i = 0; i < greedy.size(); ++i)
        EXPECT_EQ(greedy[i]->isGivenUp, i < 7) << i;
    for (const auto& each : greedy)
        clients.EndWait(*each);
    clients.EndWait(other);
}

TEST(ClientLimits, OneTooManyMayBeTheOnlyOne)
{
    ClientLimits clients;
    Request only(clients, "192.0.2.1");
    clients.BeginWait(only, only.place, {0, 0});
    EXPECT_TRUE(only.isGivenUp);
    EXPECT_EQ(clients.Waiting(), 0u);
    clients.EndWait(only);
}

} // namespace
} // namespace kestd
