// SPDX-License-Identifier: Apache-2.0
//
// The beginning of a connection that a proxy announces (PROXY protocol), before TLS and HTTP.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "host/config/settings_holder.h"
#include "host/net/monotonic_clock.h"
#include "host/net/proxy_preamble.h"
#include "host/server/connection.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

// The number of bytes, 0 at the end, SocketStream::kWouldBlock or kBroken.
ssize_t ReceiveNow(int fd, char* to, size_t size, int flags) noexcept
{
    ssize_t got = 0;
    do
        got = recv(fd, to, size, flags | MSG_DONTWAIT);
    while (got < 0 && errno == EINTR);
    if (got >= 0)
        return got;
    return errno == EAGAIN || errno == EWOULDBLOCK ? SocketStream::kWouldBlock
                                                   : SocketStream::kBroken;
}

} // namespace

void WarnOfPreamble(const char* peer, const char* what)
{
    constexpr int64_t kInterval = 1000; // ms, so that nobody fills the log
    static std::atomic<int64_t> warnsAgain{0};
    const int64_t now = NowMs();
    int64_t due = warnsAgain.load(std::memory_order_relaxed);
    if (now >= due && warnsAgain.compare_exchange_strong(due, now + kInterval))
        TolmLog(kLogWarning, "kestd",
                (std::string("connection from ") + peer + " closed: " + what).c_str());
}

// Takes no byte that stands behind the preamble: TLS has to find its own.
Connection::Step Connection::ReadPreamble()
{
    for (;;) {
        if (turn_.hasExpired) {
            WarnOfPreamble(peer_.text, "its PROXY preamble did not come in time");
            return Step::Close;
        }
        const size_t before = in_.Size();
        const size_t room = std::min(in_.Reserve(512), kLongestPreamble - before);
        const ssize_t got = ReceiveNow(socket_.Number(), in_.Tail(), room, MSG_PEEK);
        if (got == SocketStream::kWouldBlock)
            return WaitFor(For::Input, head_.idleStart + settings_->server.limits.headTime.count());
        if (got <= 0) // a look whether somebody listens here sends nothing
            return Step::Close;
        ProxyPreamble preamble;
        const auto seen = before + static_cast<size_t>(got);
        const PreambleState state = ReadProxyPreamble({in_.Data(), seen}, preamble);
        if (state == PreambleState::Malformed) {
            WarnOfPreamble(peer_.text, "its PROXY preamble is malformed");
            return Step::Close;
        }
        const bool isWhole = state == PreambleState::Complete;
        const size_t taken = (isWhole ? preamble.size : seen) - before;
        if (ReceiveNow(socket_.Number(), in_.Tail(), taken, 0) != static_cast<ssize_t>(taken))
            return Step::Close; // they were there a moment ago
        in_.Grew(taken);
        if (isWhole)
            return TakePreamble(preamble);
    }
}

// The client that the proxy has named takes the proxy's place.
Connection::Step Connection::TakePreamble(const ProxyPreamble& preamble)
{
    in_.Release();
    state_ = State::Head;
    peer_.isSecure = preamble.isSecure;
    if (!preamble.client)
        return Step::Again;
    peer_.address = *preamble.client;
    const std::string text = base::FormatIpAddress(peer_.address);
    std::memcpy(peer_.text, text.c_str(), text.size() + 1);
    place_ = services_.clients.Enter(base::SocketAddressOf(peer_.address));
    if (place_.Connections() <= settings_->server.limits.connectionsPerAddress)
        return Step::Again;
    return stream_.IsTls() ? Step::Close : Refuse(503); // TLS would need a handshake first
}

} // namespace kestd
