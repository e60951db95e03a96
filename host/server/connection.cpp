// SPDX-License-Identifier: Apache-2.0
//
// A connection between its requests: waits, deadlines, heads, the lingering close.
#include "host/server/connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cstring>
#include <utility>

#include "base/descriptor.h"
#include "host/config/settings_holder.h"
#include "host/net/monotonic_clock.h"
#include "host/net/server_clock.h"
#include "host/pipeline/exchange.h"
#include "host/server/connection_registry.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

// A refused client is listened to for this long and this much, so that it gets to read why instead
// of having its connection reset.
constexpr milliseconds kLingerTime{2000};
constexpr size_t kLingerBytes = 4 * 1024 * 1024;

// Where few more connections may be opened, one gives way whose next head takes longer than this.
constexpr milliseconds kCrowdedTime{2000};

// Requests of one client that are served in a row.
constexpr int kRounds = 8;

} // namespace

Connection::Connection(const ConnectionServices& services,
                       std::shared_ptr<const EffectiveSettings> settings, base::Descriptor socket,
                       ClientLimits::Place place, const sockaddr_storage& peer, bool awaitsPreamble)
    : services_(services), place_(std::move(place)), socket_(std::move(socket)),
      stream_(socket_.Number(), settings->tls.get()), settings_(std::move(settings))
{
    const int on = 1;
    (void)setsockopt(socket_.Number(), IPPROTO_TCP, TCP_NODELAY, &on,
                     sizeof on); // replies leave whole anyway
    const void* address =
        peer.ss_family == AF_INET6
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr)
            : &reinterpret_cast<const sockaddr_in&>(peer).sin_addr;
    if (!inet_ntop(peer.ss_family, address, peer_.text, sizeof peer_.text))
        peer_.text[0] = '-';
    (void)base::IpAddressOf(peer, peer_.address); // no other is accepted
    if (awaitsPreamble)
        state_ = State::Preamble;
    registration_ = services_.loop.Reserve(*this);
    services_.registry.Add(*this);
}

Connection::~Connection()
{
    isGivenUp_ = true;
    if (isListed_)
        services_.clients.EndWait(*this);
    if (state_ == State::Call)
        while (!RunCall())
            ;
    exchange_.reset();
    services_.registry.Remove(*this);
    services_.loop.Remove(registration_);
}

void Connection::Begin() noexcept
{
    head_.idleStart = NowMs();
    wait_.headStart = head_.idleStart;
    wait_.deadline = head_.idleStart + settings_->server.limits.headTime.count();
    services_.clock.Rouse();
    Watch();
}

// Whoever is free serves what has come already: the listener must not wait for what its client asks
// for.
void Connection::Watch() noexcept
{
    if (const int error = services_.loop.Watch(registration_, socket_.Number())) {
        TolmLog(kLogWarning, "kestd", std::strerror(error));
        delete this;
    }
}

void Connection::Expire(int64_t due) noexcept
{
    if (wait_.deadline.compare_exchange_strong(due, -1))
        (void)shutdown(socket_.Number(), SHUT_RD); // makes the wait end
}

int64_t Connection::Check(const Moment& moment, const Limits& limits) noexcept
{
    const int64_t due = wait_.deadline.load(std::memory_order_relaxed);
    if (due <= 0)
        return moment.now;
    if (due == kUntilWoken) {
        if (wait_.looksForClient.load(std::memory_order_relaxed))
            Wake();
        return moment.now;
    }
    const int64_t headWaitStart = wait_.headStart.load(std::memory_order_relaxed);
    const bool keepsOut =
        moment.isCrowded && headWaitStart && moment.now - headWaitStart >= kCrowdedTime.count();
    if (IsTooSlow(moment.elapsed, limits) || due <= moment.now || keepsOut)
        Expire(due);
    const bool isWatched =
        moment.isCrowded || wait_.movedAndOne.load(std::memory_order_relaxed) != 0;
    return isWatched ? moment.now : due;
}

bool Connection::IsTooSlow(int64_t elapsed, const Limits& limits) noexcept
{
    const uint64_t moved = wait_.movedAndOne.load(std::memory_order_relaxed);
    if (rate_.waited == 0 || moved == 0)
        rate_.movedBefore = moved;
    rate_.waited = moved ? rate_.waited + elapsed : 0;
    if (moved == 0 || rate_.waited < limits.rateTime.count())
        return false;
    const auto least = static_cast<uint64_t>(rate_.waited) * limits.leastRate / 1000;
    rate_.waited = 0;
    return moved - rate_.movedBefore < least;
}

void Connection::ExpireIfIdle() noexcept
{
    const int64_t due = wait_.deadline.load(std::memory_order_relaxed);
    if (due == kUntilWoken)
        Wake(); // it sees that the server stops
    else if (wait_.isIdle && due > 0)
        Expire(due);
}

void Connection::GiveUp() noexcept
{
    isGivenUp_ = true;
    (void)shutdown(socket_.Number(), SHUT_RDWR);
}

void Connection::OnReady(Event event) noexcept
{
    try {
        Run(event);
    } catch (const std::exception& error) { // out of memory; the client sees its connection close
        TolmLog(kLogWarning, "kestd", error.what());
        delete this;
    }
}

void Connection::Run(Event event)
{
    services_.clock.Rouse();
    do {
        if (state_ == State::Call && event.isOverload) { // a handler takes its time
            services_.loop.Schedule(registration_);
            continue;
        }
        turn_.hasExpired = wait_.deadline.exchange(0) == -1;
        if (isListed_)
            services_.clients.EndWait(*this);
        isListed_ = false;
        turn_.event = event;
        turn_.isDrained = false;
        if (!exchange_)
            services_.settings.Refresh(settings_);
        Step step = Step::Again;
        for (int rounds = 0; step == Step::Again && rounds < kRounds; ++rounds)
            step = Serve();
        if (step == Step::Close) {
            delete this;
            return;
        }
        if (step == Step::Again) // a long pipeline lets others have their turn
            services_.loop.Schedule(registration_);
        event.mayHaveEnded = true; // if it goes on at once: nobody has said
    } while (!Release());
}

// Lets go of the connection, which another thread may run from here on. False when there is
// something to do already.
bool Connection::Release() noexcept
{
    EventLoop::Interest wanted = interest_; // also of who waits to be woken
    if (waitsFor_ != For::Wake)
        wanted = waitsFor_ == For::Input ? EventLoop::Interest::Input : EventLoop::Interest::Output;
    if (interest_ != wanted)
        services_.loop.Expect(registration_, socket_.Number(), wanted);
    interest_ = wanted;
    PublishWait();
    return services_.loop.Release(registration_);
}

// Says what others must know of the wait that begins.
void Connection::PublishWait() noexcept
{
    // Of the client nothing is expected while the call waits to be woken.
    const bool isRequest = (exchange_ && waitsFor_ != For::Wake) || state_ == State::Flush;
    if (isRequest && !isListed_) {
        isListed_ = true;
        const Limits& limits = settings_->server.limits;
        // A proxy that does not say who its clients are stands for any number of them.
        const bool isForMany = peer_.isProxy && !clientPlace_;
        services_.clients.BeginWait(
            *this, clientPlace_ ? clientPlace_ : place_,
            {limits.waitingRequests, isForMany ? UINT32_MAX : limits.waitingPerAddress});
    }
    const int64_t start = wait_.isIdle ? head_.idleStart : head_.start;
    const bool isForHead = state_ == State::Head || state_ == State::Preamble;
    wait_.headStart.store(isForHead ? start : 0, std::memory_order_relaxed);
    wait_.movedAndOne.store(isRequest ? stream_.Moved() + 1 : 0, std::memory_order_relaxed);
}

Connection::Step Connection::Serve()
{
    switch (state_) {
    case State::Preamble:
        return ReadPreamble();
    case State::Head:
        return ReadHead();
    case State::Body:
        return GatherBody();
    case State::Call:
        return GoOn();
    case State::Flush:
        return Flush();
    case State::Linger:
        return Linger();
    }
    return Step::Close;
}

Connection::Step Connection::WaitFor(For what, int64_t deadline) noexcept
{
    waitsFor_ = what;
    wait_.deadline.store(deadline, std::memory_order_relaxed);
    return Step::Wait;
}

Waiter::For Connection::ToReceive() const noexcept
{
    return stream_.WantsToSend() ? For::Output : For::Input;
}

Connection::Step Connection::ReadHead()
{
    for (;;) {
        while (head_.scanned == 0 && in_.View().substr(0, 2) == "\r\n")
            in_.Consume(2); // RFC 9112 section 2.2: an empty line before a request is ignored
        if (in_.Size() > 1) {
            const uint32_t limit = settings_->server.limits.headBytes;
            const size_t end = FindHeadEnd(in_.View(), head_.scanned);
            if (end > limit || (!end && in_.Size() >= limit)) {
                const size_t line = in_.View().substr(0, limit).find('\n');
                return Refuse(line == std::string_view::npos ? 414 : 431);
            }
            if (end)
                return OnHead(end);
        }
        if (turn_.hasExpired)
            return in_.Size() ? Refuse(408) : Step::Close;
        if (turn_.isDrained)
            return WaitForHead();
        const ssize_t got = ReceiveHead();
        if (got == SocketStream::kWouldBlock)
            return WaitForHead();
        if (got <= 0)
            return Step::Close;
    }
}

ssize_t Connection::ReceiveHead()
{
    const bool wasIdle = in_.Size() == 0;
    const size_t room = in_.Reserve(4096);
    const ssize_t got = stream_.Receive(in_.Tail(), room);
    if (got <= 0) {
        if (wasIdle)
            in_.Release();
        return got;
    }
    in_.Grew(static_cast<size_t>(got));
    // Less than there was room for is all there was; an end behind it would not be told again.
    turn_.isDrained =
        !stream_.IsTls() && !turn_.event.mayHaveEnded && static_cast<size_t>(got) < room;
    if (wasIdle && wait_.isIdle)
        head_.start = NowMs();
    wait_.isIdle = false;
    return got;
}

Connection::Step Connection::WaitForHead()
{
    if (services_.isStopping && in_.Size() == 0)
        return Step::Close;
    // The time for a head runs from its first byte, however slowly the rest comes.
    const Limits& limits = settings_->server.limits;
    if (!wait_.isIdle)
        return WaitFor(ToReceive(), head_.start + limits.headTime.count());
    const milliseconds time = head_.isFirst ? limits.headTime : limits.keepAliveTime;
    head_.idleStart = NowMs();
    return WaitFor(ToReceive(), head_.idleStart + time.count());
}

Connection::Step Connection::StartLinger()
{
    state_ = State::Linger;
    in_.Release();
    linger_.received = 0;
    turn_.isDrained = false;
    wait_.isIdle = true; // nothing is lost when a stop ends it
    return Step::Again;
}

Connection::Step Connection::Linger()
{
    char scratch[16 * 1024];
    while (!turn_.hasExpired && linger_.received < kLingerBytes) {
        const ssize_t got = stream_.Receive(scratch, sizeof scratch);
        if (got == SocketStream::kWouldBlock) {
            if (linger_.end == 0)
                linger_.end = NowMs() + kLingerTime.count();
            return WaitFor(For::Input, linger_.end);
        }
        if (got <= 0)
            break;
        linger_.received += static_cast<size_t>(got);
    }
    return Step::Close;
}

void Connection::RejectOverload()
{
    static constexpr std::string_view kText =
        "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\nContent-Length: 24\r\n"
        "Content-Type: text/plain; charset=utf-8\r\nConnection: close\r\n\r\n"
        "503 Service Unavailable\n";
    if (!stream_.IsTls()) { // a TLS client would need a handshake first
        const iovec piece{const_cast<char*>(kText.data()), kText.size()};
        (void)stream_.Send(&piece, 1, true, milliseconds(0), *this);
    }
    stream_.EndSending();
    (void)StartLinger();
    linger_.end = NowMs() + 1000;
    wait_.deadline = linger_.end;
    Watch();
}

} // namespace kestd
