// SPDX-License-Identifier: Apache-2.0
#include "host/connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cstring>
#include <utility>

#include "host/front.h"
#include "host/judge.h"
#include "host/preconditions.h"
#include "host/relocation.h"
#include "host/request_io.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

// Bodies up to this length are received before the module is called, so that a slow client of a
// small upload holds no thread.
constexpr uint64_t kFetchedBody = 64 * 1024;
// A refused client is listened to for this long and this much, so that it gets to read why instead
// of having its connection reset.
constexpr milliseconds kLingerTime{2000};
constexpr size_t kLingerBytes = 4 * 1024 * 1024;

// Requests of one client that are served in a row.
constexpr int kRounds = 64;

// Requests that are not in use, kept with their memory. Few: one for each that a thread has open.
thread_local std::vector<std::unique_ptr<RequestIo>> t_spare;

std::unique_ptr<RequestIo> TakeRequest()
{
    if (t_spare.empty())
        return std::make_unique<RequestIo>();
    std::unique_ptr<RequestIo> request = std::move(t_spare.back());
    t_spare.pop_back();
    return request;
}

void GiveRequest(std::unique_ptr<RequestIo> request)
{
    request->Reset();
    if (t_spare.size() < 4)
        t_spare.push_back(std::move(request));
}

bool IsXmlMethod(UINT32 method) noexcept
{
    return method == KestMethodPropFind || method == KestMethodPropPatch ||
           method == KestMethodLock;
}

} // namespace

Connection::Connection(Front& front, Descriptor socket, const sockaddr_storage& peer,
                       const Live& live)
    : front_(front), socket_(std::move(socket)), transport_(socket_.Number(), live.tls.get())
{
    const int on = 1;
    (void)setsockopt(socket_.Number(), IPPROTO_TCP, TCP_NODELAY, &on,
                     sizeof on); // replies leave whole anyway
    const void* address =
        peer.ss_family == AF_INET6
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr)
            : &reinterpret_cast<const sockaddr_in&>(peer).sin_addr;
    if (!inet_ntop(peer.ss_family, address, remote_, sizeof remote_))
        remote_[0] = '-';
    ticket_ = front_.poller.Reserve(*this);
    front_.Add(*this);
}

Connection::~Connection()
{
    if (request_ && request_->isAdmitted)
        front_.doorkeeper.Leave(request_->admission.session);
    front_.Remove(*this);
    front_.poller.Remove(ticket_);
}

void Connection::Begin() noexcept
{
    SetDeadline(front_.Current().settings.limits.headTime);
    Watch();
}

// Whoever is free serves what has come already: the listener must not wait for what its client asks
// for.
void Connection::Watch() noexcept
{
    if (const int error = front_.poller.Watch(ticket_, socket_.Number())) {
        TolmLog(kLogWarning, "kestd", std::strerror(error));
        delete this;
    }
}

void Connection::SetDeadline(milliseconds fromNow) noexcept
{
    deadline_.store(NowMs() + fromNow.count(), std::memory_order_relaxed);
}

void Connection::ExpireIfDue(int64_t now) noexcept
{
    int64_t due = deadline_.load(std::memory_order_relaxed);
    if (due > 0 && due <= now && deadline_.compare_exchange_strong(due, -1))
        (void)shutdown(socket_.Number(), SHUT_RD); // makes the wait end
}

void Connection::ExpireIfIdle() noexcept
{
    int64_t due = deadline_.load(std::memory_order_relaxed);
    if (isIdle_ && due > 0 && deadline_.compare_exchange_strong(due, -1))
        (void)shutdown(socket_.Number(), SHUT_RD);
}

void Connection::Abort() noexcept
{
    (void)shutdown(socket_.Number(), SHUT_RDWR);
}

void Connection::Expect(Poller::Interest interest) noexcept
{
    if (interest_ != interest)
        front_.poller.Expect(ticket_, socket_.Number(), interest);
    interest_ = interest;
}

// Lets go of the connection, which another thread may run from here on. False when there is
// something to do already.
bool Connection::Wait()
{
    Expect(transport_.WantsToSend() ? Poller::Interest::InputAndOutput : Poller::Interest::Input);
    return front_.poller.LetGo(ticket_);
}

// The running thread is going to wait for the client by itself: what comes need not wake others.
void Connection::BeforeWait()
{
    Expect(Poller::Interest::Nothing);
    front_.workers.BeforeWait();
}

void Connection::OnReady(bool mayHaveEnded) noexcept
{
    try {
        Run(mayHaveEnded);
    } catch (const std::exception& error) { // out of memory; the client sees its connection close
        TolmLog(kLogWarning, "kestd", error.what());
        delete this;
    }
}

void Connection::Run(bool mayHaveEnded)
{
    do {
        hasExpired_ = deadline_.exchange(0) == -1;
        mayHaveEnded_ = mayHaveEnded;
        isDrained_ = false;
        Step step = Step::Again;
        for (int rounds = 0; step == Step::Again && rounds < kRounds; ++rounds)
            step = Serve();
        if (step == Step::Close) {
            delete this;
            return;
        }
        if (step == Step::Again) // a long pipeline lets others have their turn
            front_.poller.Poke(ticket_);
        mayHaveEnded = true; // if it goes on at once: nobody has said
    } while (!Wait());
}

Connection::Step Connection::Serve()
{
    switch (state_) {
    case State::Head:
        return ReadHead();
    case State::Body:
        return FetchBody();
    case State::Linger:
        return Linger();
    }
    return Step::Close;
}

Connection::Step Connection::ReadHead()
{
    const Limits& limits = front_.Current().settings.limits;
    for (;;) {
        while (scanned_ == 0 && in_.View().substr(0, 2) == "\r\n")
            in_.Consume(2); // RFC 9112 section 2.2: an empty line before a request is ignored
        if (in_.Size() > 1) {
            const size_t end = FindHeadEnd(in_.View(), scanned_);
            if (end > limits.headBytes || (!end && in_.Size() >= limits.headBytes)) {
                const size_t line = in_.View().substr(0, limits.headBytes).find('\n');
                return Refuse(line == std::string_view::npos ? 414 : 431);
            }
            if (end)
                return OnHead(end);
        }
        if (hasExpired_)
            return in_.Size() ? Refuse(408) : Step::Close;
        if (isDrained_)
            break;
        const bool wasIdle = in_.Size() == 0;
        const size_t room = in_.Reserve(4096);
        const ssize_t got = transport_.Receive(in_.Tail(), room);
        if (got == Transport::kWouldBlock) {
            if (wasIdle)
                in_.Release();
            break;
        }
        if (got <= 0)
            return Step::Close;
        in_.Grew(static_cast<size_t>(got));
        // Less than there was room for is all there was; an end behind it would not be told again.
        isDrained_ = !transport_.IsTls() && !mayHaveEnded_ && static_cast<size_t>(got) < room;
        if (wasIdle && isIdle_)
            headStart_ = NowMs();
        isIdle_ = false;
    }
    if (front_.isStopping && in_.Size() == 0)
        return Step::Close;
    // The time for a head runs from its first byte, however slowly the rest comes.
    if (isIdle_)
        SetDeadline(isFirst_ ? limits.headTime : limits.keepAliveTime);
    else
        deadline_.store(headStart_ + limits.headTime.count(), std::memory_order_relaxed);
    return Step::Wait;
}

void Connection::StartReply(const Live& live)
{
    Reply::Terms terms;
    terms.isHead = request_->method == KestMethodHead;
    terms.mayChunk = request_->head.version == 11;
    terms.mayKeepAlive = WantsKeepAlive(request_->head) && !front_.isStopping;
    terms.saysKeepAlive = request_->head.version == 10;
    terms.stall = Workers::IsOverloaded() ? milliseconds(0) : live.settings.limits.sendStallTime;
    request_->reply.Start(terms, request_->arena, request_->body, transport_, *this);
}

Connection::Step Connection::OnHead(size_t size)
{
    const Live& live = front_.Current();
    request_ = TakeRequest();
    RequestIo& request = *request_;
    if (live.settings.accessLog)
        request.start = std::chrono::steady_clock::now();
    request.remote = remote_;
    request.isSecure = transport_.IsTls() || live.isPublicSecure;
    request.headText.Append(in_.Data(), size);
    in_.Consume(size);
    scanned_ = 0;
    isFirst_ = false;
    Framing framing;
    bool mustClose = false;
    const int refusal = ReadRequest(request, live, framing, mustClose);
    const bool expects = request.head.version == 11 && request.head.Find("Expect") != nullptr;
    request.body.Start(mustClose ? Framing{} : framing, in_, transport_, *this, expects,
                       live.settings.limits.bodyIdleTime);
    StartReply(live);
    if (mustClose)
        request.reply.Close();
    if (refusal) {
        AnswerError(request, refusal);
        return EndRequest();
    }
    if (Decide(request, front_, live) != Route::Module)
        return EndRequest();
    const Limits& limits = live.settings.limits;
    const uint64_t limit = IsXmlMethod(request.method) ? limits.xmlBodyBytes : limits.bodyBytes;
    if (limit && framing.length > limit) {
        AnswerError(request, 413);
        return EndRequest();
    }
    request.body.SetLimit(limits.bodyBytes);
    const bool isFetched = IsXmlMethod(request.method)
                               ? framing.kind != Framing::Kind::None
                               : framing.length && framing.length <= kFetchedBody;
    if (!isFetched)
        return CallModule();
    state_ = State::Body;
    return Step::Again;
}

Connection::Step Connection::FetchBody()
{
    const Limits& limits = front_.Current().settings.limits;
    const uint64_t limit = IsXmlMethod(request_->method) ? limits.xmlBodyBytes : kFetchedBody;
    if (hasExpired_ && !request_->body.IsHere()) {
        AnswerError(*request_, 408);
        return EndRequest();
    }
    switch (request_->body.Fetch(limit)) {
    case Body::Fetched::Whole:
        return CallModule();
    case Body::Fetched::More:
        SetDeadline(limits.bodyIdleTime);
        return Step::Wait;
    case Body::Fetched::TooLarge:
        AnswerError(*request_, 413);
        return EndRequest();
    case Body::Fetched::Malformed:
        AnswerError(*request_, 400);
        return EndRequest();
    case Body::Fetched::Gone:
        break;
    }
    return Step::Close;
}

Connection::Step Connection::CallModule()
{
    RequestIo& request = *request_;
    if (Workers::IsOverloaded()) {
        request.reply.SetHeader("Retry-After", "5");
        AnswerError(request, 503);
        return EndRequest();
    }
    if (!MeetsPreconditions(request, front_)) {
        AnswerError(request, 412);
        return EndRequest();
    }
    do {
        if (request.method == KestMethodCopy || request.method == KestMethodMove)
            ClearMootOverwrite(request, front_);
        if (request.HasFailed()) // what there is could not be looked at
            return EndRequest();
        const CallScope scope(request);
        (void)front_.module->RequestHandler(&request, request.admission.session,
                                            request.method); // the reply says it all
    } while (request.MustAskAgain());
    return EndRequest();
}

Connection::Step Connection::EndRequest()
{
    RequestIo& request = *request_;
    if (request.reply.Status() >= 400 && !request.body.HasArrived())
        request.reply.Close();
    const bool goesOn = request.Finish();
    const bool isBroken = request.reply.IsBroken();
    const bool hasUnread = in_.Size() || !request.body.HasArrived();
    if (request.isAdmitted) {
        front_.doorkeeper.Leave(request.admission.session);
        request.isAdmitted = false;
    }
    if (front_.Current().settings.accessLog && request.start != decltype(request.start)())
        front_.log.Write({request.remote, request.admission.user, request.head.method,
                          request.head.target, request.head.version, request.reply.Status(),
                          request.reply.BodyBytes(),
                          std::chrono::duration_cast<std::chrono::microseconds>(
                              std::chrono::steady_clock::now() - request.start)});
    GiveRequest(std::move(request_));
    state_ = State::Head;
    hasExpired_ = false;
    headStart_ = NowMs();
    isIdle_ = in_.Size() == 0;
    if (isIdle_)
        in_.Release();
    if (goesOn)
        return Step::Again;
    if (isBroken)
        return Step::Close;
    transport_.EndSending();
    return hasUnread ? StartLinger() : Step::Close;
}

Connection::Step Connection::Refuse(int status)
{
    request_ = TakeRequest();
    if (front_.Current().settings.accessLog)
        request_->start = std::chrono::steady_clock::now();
    request_->remote = remote_;
    request_->body.Start({}, in_, transport_, *this, false, milliseconds(0));
    StartReply(front_.Current());
    request_->reply.Close();
    AnswerError(*request_, status);
    return EndRequest();
}

Connection::Step Connection::StartLinger()
{
    state_ = State::Linger;
    in_.Release();
    lingered_ = 0;
    isDrained_ = false;
    isIdle_ = true; // nothing is lost when a stop ends it
    return Step::Again;
}

Connection::Step Connection::Linger()
{
    char scratch[16 * 1024];
    while (!hasExpired_ && lingered_ < kLingerBytes) {
        const ssize_t got = transport_.Receive(scratch, sizeof scratch);
        if (got == Transport::kWouldBlock) {
            if (lingerEnd_ == 0)
                lingerEnd_ = NowMs() + kLingerTime.count();
            deadline_.store(lingerEnd_, std::memory_order_relaxed);
            return Step::Wait;
        }
        if (got <= 0)
            break;
        lingered_ += static_cast<size_t>(got);
    }
    return Step::Close;
}

void Connection::TurnAway()
{
    static constexpr std::string_view kText =
        "HTTP/1.1 503 Service Unavailable\r\nRetry-After: 5\r\nContent-Length: 24\r\n"
        "Content-Type: text/plain; charset=utf-8\r\nConnection: close\r\n\r\n"
        "503 Service Unavailable\n";
    if (!transport_.IsTls()) { // a TLS client would need a handshake first
        const iovec piece{const_cast<char*>(kText.data()), kText.size()};
        (void)transport_.Send(&piece, 1, milliseconds(0), *this);
    }
    transport_.EndSending();
    StartLinger();
    lingerEnd_ = NowMs() + 1000;
    deadline_.store(lingerEnd_, std::memory_order_relaxed);
    Watch();
}

} // namespace kestd
