// SPDX-License-Identifier: Apache-2.0
//
// Binds, listens, accepts.
#include "host/server/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/descriptor.h"
#include "base/ip_address.h"
#include "host/config/settings_holder.h"
#include "host/metrics/server_counts.h"
#include "host/net/monotonic_clock.h"
#include "host/server/connection_registry.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

// Connections over the limit that are told so at the same time, fewer where the limit is low; more
// are just closed.
constexpr size_t kRejectedAtOnce = 256;
constexpr int kAcceptBatch = 32;
constexpr int64_t kWarningInterval = 10'000; // ms

std::string Reason(const ListenAddress& where, int error)
{
    return "cannot listen on " + where.address + ":" + std::to_string(where.port) + ": " +
           std::strerror(error);
}

bool FillAddress(const ListenAddress& from, sockaddr_storage& out, socklen_t& size)
{
    out = {};
    auto& v4 = reinterpret_cast<sockaddr_in&>(out);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(out);
    if (inet_pton(AF_INET, from.address.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(from.port);
        size = sizeof v4;
        return true;
    }
    if (inet_pton(AF_INET6, from.address.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(from.port);
        size = sizeof v6;
        return true;
    }
    return false;
}

bool IsTrusted(const ServerSettings& settings, const sockaddr_storage& peer)
{
    base::IpAddress address;
    return !settings.trustedProxies.empty() && base::IpAddressOf(peer, address) &&
           base::IsInAny(settings.trustedProxies, address);
}

// Whether a connection beside as many as this is not even told that there are too many.
bool IsFarOver(size_t connections, size_t limit)
{
    return connections >= limit + std::min(kRejectedAtOnce, limit / 4 + 8);
}

} // namespace

base::Descriptor OpenListeningSocket(ListenAddress& where, std::string& error)
{
    sockaddr_storage address{};
    socklen_t size = 0;
    if (!FillAddress(where, address, size)) {
        error = "cannot listen on " + where.address + ": not a numeric address";
        return base::Descriptor();
    }
    base::Descriptor made(socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int fd = made.Number();
    const int on = 1;
    if (fd >= 0) {
        (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (address.ss_family == AF_INET6)
            (void)setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    }
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(fd, SOMAXCONN) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        error = Reason(where, errno);
        return base::Descriptor();
    }
    where.port = ntohs(address.ss_family == AF_INET6
                           ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                           : reinterpret_cast<const sockaddr_in&>(address).sin_port);
    return made;
}

Listener::Listener(const ConnectionServices& services, base::Descriptor socket, bool takesPreambles)
    : services_(services), socket_(std::move(socket)), takesPreambles_(takesPreambles),
      registration_(services.loop.Add(socket_.Number(), *this))
{
}

void Listener::Resume()
{
    if (isPaused_.exchange(false))
        services_.loop.Schedule(registration_);
}

void Listener::OnReady(Event) noexcept
{
    do {
        if (services_.isStopping)
            continue;
        if (AcceptSome())
            services_.loop.Schedule(registration_); // others have their turn
    } while (!services_.loop.Release(registration_));
}

// True when there may be more to take now.
bool Listener::AcceptSome()
{
    for (int i = 0; i < kAcceptBatch; ++i) {
        sockaddr_storage peer{};
        socklen_t size = sizeof peer;
        base::Descriptor client(accept4(socket_.Number(), reinterpret_cast<sockaddr*>(&peer), &size,
                                        SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (client.Number() >= 0) {
            Admit(std::move(client), peer);
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            Pause();
            return false;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINVAL) {
            return false; // nobody is there, or the listener is closed
        }                 // else a connection went away, or its network did
    }
    return true;
}

// The connection stays in the queue; asking again at once would spin.
void Listener::Pause()
{
    if (const int64_t now = NowMs(); now >= warnsAgain_) {
        TolmLog(kLogWarning, "kestd",
                "cannot accept a connection: too many open files or no memory");
        warnsAgain_ = now + kWarningInterval;
    }
    isPaused_ = true;
}

void Listener::Count(std::atomic<uint64_t> ConnectionCounts::*which) noexcept
{
    if (services_.counts)
        (services_.counts->connections.*which).fetch_add(1, std::memory_order_relaxed);
}

void Listener::Admit(base::Descriptor client, const sockaddr_storage& peer)
{
    const std::shared_ptr<const EffectiveSettings> settings = services_.settings.Snapshot();
    const Limits& limits = settings->server.limits;
    const bool isTrusted = IsTrusted(settings->server, peer);
    try {
        if (takesPreambles_ && !isTrusted) {
            base::IpAddress address;
            (void)base::IpAddressOf(peer, address); // no other is accepted
            Count(&ConnectionCounts::refusedUntrusted);
            return WarnOfPreamble(base::FormatIpAddress(address).c_str(), "it is no trusted proxy");
        }
        ClientLimits::Place place = services_.clients.Enter(peer);
        const size_t open = services_.registry.Count();
        // A proxy stands for any number of clients, which are counted with their requests.
        const size_t own = isTrusted ? 0 : place.Connections() - 1;
        const bool isFull = open >= limits.connections;
        const bool isRefused = isFull || own >= limits.connectionsPerAddress;
        Count(isFull      ? &ConnectionCounts::refusedAsTooMany
              : isRefused ? &ConnectionCounts::refusedToAddress
                          : &ConnectionCounts::accepted);
        if (IsFarOver(open, limits.connections) || IsFarOver(own, limits.connectionsPerAddress))
            return;
        // deletes itself
        auto* connection = new Connection(services_, settings, std::move(client), std::move(place),
                                          peer, takesPreambles_);
        if (isRefused)
            connection->RejectOverload();
        else
            connection->Begin();
    } catch (const std::exception& error) {
        TolmLog(kLogWarning, "kestd", error.what());
    }
}

} // namespace kestd
