// SPDX-License-Identifier: Apache-2.0
//
// Polls the sockets of the listener for metrics and of its clients.
#include "host/metrics/metrics_listener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/http/request_head.h"
#include "host/net/monotonic_clock.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

constexpr int64_t kPause = 200;          // ms, after a lack of descriptors or memory
constexpr size_t kMostUnread = 64 << 10; // what is received behind a request, before it is too much

} // namespace

MetricsListener::MetricsListener(MetricsSource& source, std::vector<base::Descriptor> sockets)
    : source_(source), sockets_(std::move(sockets)), wakeup_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeup_)
        throw std::system_error(errno, std::generic_category());
    clients_.reserve(kMostClients + 1);
}

void MetricsListener::Begin()
{
    thread_ = std::thread([this] { Run(); });
}

void MetricsListener::Stop() noexcept
{
    if (!thread_.joinable())
        return;
    isStopping_ = true;
    (void)eventfd_write(wakeup_.Number(), 1);
    thread_.join();
}

void MetricsListener::Run() noexcept
{
    while (!isStopping_) {
        try {
            RunOnce();
        } catch (const std::exception& error) { // no memory: those that are here try again
            TolmLog(kLogWarning, "kestd", error.what());
            clients_.clear();
            acceptsAgain_ = NowMs() + kPause;
        }
    }
}

// Waits, and serves whoever can be served.
void MetricsListener::RunOnce()
{
    const int64_t now = NowMs();
    const bool isPaused = now < acceptsAgain_;
    int64_t until = isPaused ? acceptsAgain_ : INT64_MAX;
    std::vector<pollfd> polled{{wakeup_.Number(), POLLIN, 0}};
    for (const base::Descriptor& socket : sockets_)
        polled.push_back({isPaused ? -1 : socket.Number(), POLLIN, 0});
    for (const Client& client : clients_) {
        const bool sends = !client.reply.empty() && !client.isDone;
        polled.push_back({client.socket.Number(), static_cast<short>(sends ? POLLOUT : POLLIN), 0});
        until = std::min(until, client.until);
    }
    const int64_t wait = until == INT64_MAX ? -1 : std::clamp<int64_t>(until - now, 0, kClientTime);
    if (poll(polled.data(), polled.size(), static_cast<int>(wait)) < 0)
        return; // interrupted
    const auto firstClient = polled.begin() + 1 + static_cast<std::ptrdiff_t>(sockets_.size());
    const int64_t after = NowMs();
    size_t i = 0;
    std::erase_if(clients_, [&](Client& client) {
        const bool isReady = firstClient[static_cast<std::ptrdiff_t>(i++)].revents != 0;
        return (isReady && !Serve(client)) || after >= client.until;
    });
    for (size_t s = 0; s < sockets_.size(); ++s)
        if (polled[s + 1].revents != 0)
            Accept(sockets_[s].Number());
}

void MetricsListener::Accept(int socket)
{
    base::Descriptor fresh(accept4(socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (fresh) {
        clients_.push_back({std::move(fresh), NowMs() + kClientTime, {}, 0, {}, 0, false});
        if (clients_.size() > kMostClients)
            clients_.erase(clients_.begin());
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        acceptsAgain_ = NowMs() + kPause; // it waits in the queue; asking again at once would spin
    }
}

// False when the client has to go.
bool MetricsListener::Serve(Client& client) noexcept
{
    try {
        return client.reply.empty() || client.isDone ? Receive(client) : Send(client);
    } catch (const std::exception& error) { // no memory
        TolmLog(kLogWarning, "kestd", error.what());
        return false;
    }
}

bool MetricsListener::Receive(Client& client)
{
    std::array<char, 4096> piece;
    const ssize_t size = recv(client.socket.Number(), piece.data(), piece.size(), 0);
    if (size < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
    if (size == 0)
        return false;
    if (client.isDone) { // it may still read: a close now would take the reply away from it
        client.scanned += static_cast<size_t>(size);
        return client.scanned < kMostUnread;
    }
    client.received.append(piece.data(), static_cast<size_t>(size));
    const size_t end = FindHeadEnd(client.received, client.scanned);
    if (end > kMostHead || (end == 0 && client.received.size() > kMostHead))
        client.reply = ShortScrapeReply(431);
    else if (end != 0)
        client.reply = AnswerScrape(std::string_view(client.received).substr(0, end), source_);
    return client.reply.empty() || Send(client);
}

bool MetricsListener::Send(Client& client) noexcept
{
    while (client.sent < client.reply.size()) {
        const ssize_t size = send(client.socket.Number(), client.reply.data() + client.sent,
                                  client.reply.size() - client.sent, MSG_NOSIGNAL);
        if (size < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        client.sent += static_cast<size_t>(size);
    }
    (void)shutdown(client.socket.Number(), SHUT_WR);
    client.isDone = true;
    client.scanned = 0;
    return true;
}

} // namespace kestd
