// SPDX-License-Identifier: Apache-2.0
//
// Counts connections and waiting requests by address, and gives up the one that waited longest.
#include "host/net/client_limits.h"

#include <netinet/in.h>

#include <cstring>

namespace kestd {

namespace {

std::array<unsigned char, 8> KeyOf(const sockaddr_storage& peer) noexcept
{
    std::array<unsigned char, 8> key{};
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr;
    if (peer.ss_family == AF_INET6 && !IN6_IS_ADDR_V4MAPPED(&v6)) {
        std::memcpy(key.data(), v6.s6_addr, key.size());
        return key;
    }
    // No network begins with zeroes.
    const void* const v4 = peer.ss_family == AF_INET6
                               ? static_cast<const void*>(v6.s6_addr + 12)
                               : &reinterpret_cast<const sockaddr_in&>(peer).sin_addr;
    std::memcpy(key.data() + 4, v4, 4);
    return key;
}

} // namespace

ClientLimits::Place ClientLimits::Enter(const sockaddr_storage& peer)
{
    const auto key = KeyOf(peer);
    const std::lock_guard lock(mutex_);
    Client& client = clients_[key];
    client.address = key;
    Place place;
    place.clients_ = this;
    place.client_ = &client;
    place.connections_ = ++client.connections;
    return place;
}

void ClientLimits::Leave(Client& client) noexcept
{
    const std::lock_guard lock(mutex_);
    if (--client.connections == 0)
        clients_.erase(std::array(client.address)); // not by what goes
}

void ClientLimits::BeginWait(WaitingRequest& request, const Place& place,
                             const Bounds& bounds) noexcept
{
    const std::lock_guard lock(mutex_);
    Client& client = *place.client_;
    request.link.client = &client;
    request.link.next = nullptr;
    request.link.previous = last_;
    (last_ ? last_->link.next : first_) = &request;
    last_ = &request;
    ++waiting_;
    if (++client.waiting > bounds.perAddress) {
        WaitingRequest* longest = first_;
        while (longest->link.client != &client)
            longest = longest->link.next;
        GiveUp(*longest);
    }
    if (waiting_ > bounds.all)
        GiveUp(*first_); // there is one: it counts
}

void ClientLimits::GiveUp(WaitingRequest& request) noexcept
{
    Unlink(request);
    ++givenUp_;
    request.GiveUp();
}

void ClientLimits::Unlink(WaitingRequest& request) noexcept
{
    (request.link.previous ? request.link.previous->link.next : first_) = request.link.next;
    (request.link.next ? request.link.next->link.previous : last_) = request.link.previous;
    --request.link.client->waiting;
    --waiting_;
    request.link.client = nullptr;
}

void ClientLimits::EndWait(WaitingRequest& request) noexcept
{
    const std::lock_guard lock(mutex_);
    if (request.link.client)
        Unlink(request);
}

uint32_t ClientLimits::Waiting() noexcept
{
    const std::lock_guard lock(mutex_);
    return waiting_;
}

uint64_t ClientLimits::GivenUp() noexcept
{
    const std::lock_guard lock(mutex_);
    return givenUp_;
}

} // namespace kestd
