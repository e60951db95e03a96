// SPDX-License-Identifier: Apache-2.0
//
// A connection's requests, from the end of the head to the end of the reply.
#include <utility>

#include "host/config/settings_holder.h"
#include "host/http/error_status.h"
#include "host/http/method.h"
#include "host/http/short_reply.h"
#include "host/log/access_log.h"
#include "host/log/audit.h"
#include "host/metrics/server_counts.h"
#include "host/module/call_context.h"
#include "host/net/monotonic_clock.h"
#include "host/pipeline/body_limits.h"
#include "host/pipeline/exchange.h"
#include "host/pipeline/pipeline.h"
#include "host/pipeline/request_validator.h"
#include "host/server/connection.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

// Bodies up to this length are received before the module is called. They wait without a fiber and
// without what the module opens for them.
constexpr uint64_t kGatheredBody = 64 * 1024;
// Of a longer one, what is received first: who sends no more opens nothing.
constexpr size_t kGatheredBeginning = 8 * 1024;

// A header as it was sent; empty for none.
std::string_view ValueOf(const RequestHead& head, std::string_view name)
{
    const Field* const field = head.Find(name);
    return field ? field->value : std::string_view();
}

} // namespace

void Connection::StartReply()
{
    const Request& request = exchange_->request;
    Response::Options options;
    options.isHead = request.method == KestMethodHead;
    options.mayChunk = request.head.version == 11;
    options.mayKeepAlive = WantsKeepAlive(request.head) && !services_.isStopping;
    options.saysKeepAlive = request.head.version == 10;
    options.stall = settings_->server.limits.sendStallTime;
    exchange_->response.Start(options, exchange_->request.arena, exchange_->body, stream_, *this);
}

// An exchange with what is known before the head is read.
void Connection::StartExchange()
{
    exchange_ = AcquireExchange();
    exchange_->settings = settings_.get();
    exchange_->call = this;
    exchange_->pipeline = &services_.pipeline;
    if (settings_->server.accessLog || services_.counts)
        exchange_->start = std::chrono::steady_clock::now();
    exchange_->request.remote = peer_.text;
    exchange_->request.id.Make();
    const std::vector<base::IpPrefix>& trusted = settings_->server.trustedProxies;
    peer_.isProxy = !trusted.empty() && base::IsInAny(trusted, peer_.address);
    exchange_->request.isFromProxy = peer_.isProxy;
    if (head_.isFirst && !settings_->server.clientCa.empty())
        peer_.certificateUser = stream_.ClientName();
    exchange_->request.certificateUser = peer_.certificateUser;
    exchange_->request.isSecure = stream_.IsTls() || peer_.isSecure || settings_->isPublicSecure;
}

Connection::Step Connection::OnHead(size_t size)
{
    StartExchange();
    Exchange& exchange = *exchange_;
    Request& request = exchange.request;
    request.headText.Append(in_.Data(), size);
    in_.Consume(size);
    head_.scanned = 0;
    head_.isFirst = false;
    MessageFraming framing;
    bool mustClose = false;
    const int refusal = ReadRequest(request, *settings_, framing, mustClose);
    if (peer_.isProxy)
        (void)request.id.Take(ValueOf(request.head, "X-Request-Id")); // else ours stays
    const bool expects = framing.kind != MessageFraming::Kind::None && !mustClose &&
                         request.head.version == 11 && request.head.Find("Expect") != nullptr;
    exchange.body.Start(mustClose ? MessageFraming{} : framing, in_, stream_, *this, expects,
                        settings_->server.limits.bodyIdleTime);
    StartReply();
    if (mustClose)
        exchange.response.Close();
    if (refusal)
        return AnswerAndEnd(refusal);
    if (request.client && !EnterClient())
        return RejectForOverload();
    return turn_.event.isOverload ? RejectForOverload() : StartCall(&Connection::Handle);
}

// Counts a client that a proxy has told of among those of its address. False when there are too
// many.
bool Connection::EnterClient()
{
    clientPlace_ = services_.clients.Enter(base::SocketAddressOf(*exchange_->request.client));
    return clientPlace_.Connections() <= settings_->server.limits.connectionsPerAddress;
}

// Answers a head that is too long or came too slowly.
Connection::Step Connection::Refuse(int status)
{
    StartExchange();
    exchange_->body.Start({}, in_, stream_, *this, false, milliseconds(0));
    StartReply();
    exchange_->response.Close();
    return AnswerAndEnd(status);
}

Connection::Step Connection::RejectForOverload()
{
    exchange_->response.SetHeader("Retry-After", kRetrySeconds);
    return AnswerAndEnd(503);
}

// For short answers without the fiber: what the client does not take is kept.
Connection::Step Connection::AnswerAndEnd(int status)
{
    SendError(exchange_->response, status);
    FinishReply();
    return EndRequest();
}

// -- On the fiber ----------------------------------------------------------------------------

Connection::Step Connection::StartCall(Work work)
{
    handler_.fiber = AcquireFiber();
    handler_.work = work;
    handler_.hasFailed = handler_.isToGather = false;
    return GoOn();
}

void Connection::RunWork(void* self) noexcept
{
    auto& connection = *static_cast<Connection*>(self);
    try {
        (connection.*connection.handler_.work)();
    } catch (const std::exception& error) { // out of memory
        TolmLog(kLogWarning, "kestd", error.what());
        connection.handler_.hasFailed = true;
    }
}

// Starts or resumes the handler. True when it has returned.
bool Connection::RunCall() noexcept
{
    RunningCall* const outside = ExchangeRunningCall(handler_.call);
    TolmLogMark(exchange_->request.id.Text());
    const bool hasReturned =
        state_ == State::Call ? handler_.fiber->Resume() : handler_.fiber->Start(&RunWork, this);
    TolmLogMark(nullptr);
    handler_.call = ExchangeRunningCall(outside);
    return hasReturned;
}

Connection::Step Connection::GoOn()
{
    if (!RunCall()) {
        state_ = State::Call;
        return WaitFor(waitsFor_, handler_.deadline);
    }
    ReleaseFiber(std::move(handler_.fiber));
    state_ = State::Body;
    if (handler_.hasFailed)
        return Step::Close;
    return handler_.isToGather ? Step::Again : EndRequest();
}

// For the handler, on its fiber: it stops here and goes on on another thread.
bool Connection::Wait(For what, int64_t deadline)
{
    if (!handler_.fiber || isGivenUp_)
        return false;
    waitsFor_ = what;
    handler_.deadline = deadline;
    handler_.fiber->Suspend();
    return !turn_.hasExpired && !isGivenUp_;
}

// Likewise, but for somebody who wakes it. That takes as long as it takes: it has no deadline. It
// ends when the server stops, and when its client has left.
bool Connection::Suspend()
{
    if (!handler_.fiber || !MayStayAway())
        return false;
    waitsFor_ = For::Wake;
    handler_.deadline = kUntilWoken;
    handler_.fiber->Suspend();
    return MayStayAway();
}

// The end of what a client sends is told once, and whether it has left takes several looks: the
// clock has them made.
bool Connection::MayStayAway() noexcept
{
    if (isGivenUp_ || services_.isStopping)
        return false;
    const bool looks = turn_.event.mayHaveEnded && stream_.Look() != SocketStream::Peer::Present;
    wait_.looksForClient.store(looks, std::memory_order_relaxed);
    return !looks || !exchange_->response.HasClientLeft();
}

void Connection::Wake() noexcept
{
    services_.loop.Schedule(registration_);
}

void Connection::Handle()
{
    if (!services_.pipeline.OnRequest(*exchange_))
        return FinishReply();
    uint64_t gathered = 0;
    size_t enough = 0;
    if (!exchange_->body.IsHere() && MustGather(gathered, enough)) {
        handler_.isToGather = true;
        return;
    }
    CallModule();
}

void Connection::CallModule()
{
    services_.pipeline.Call(*exchange_);
    FinishReply();
}

void Connection::FinishReply()
{
    reply_.goesOn = services_.pipeline.Finish(*exchange_);
}

// -- Without it ------------------------------------------------------------------------------

// Whether something of the body is received before the module is called: at most `limit`, and no
// more than `enough`.
bool Connection::MustGather(uint64_t& limit, size_t& enough) const
{
    const Limits& limits = settings_->server.limits;
    const Body& body = exchange_->body;
    enough = SIZE_MAX;
    if (HasXmlBody(*exchange_)) {
        limit = limits.xmlBodyBytes;
        return true;
    }
    limit = limits.bodyBytes ? limits.bodyBytes : UINT64_MAX;
    if (IsResumable(*exchange_))
        return false;
    if (body.AnnouncedLength() && body.AnnouncedLength() <= kGatheredBody)
        return true;
    enough = kGatheredBeginning;
    return !body.AwaitsContinue(); // the module may refuse it before it is sent
}

Connection::Step Connection::GatherBody()
{
    if (turn_.hasExpired && !exchange_->body.IsHere())
        return AnswerAndEnd(408);
    uint64_t limit = 0;
    size_t enough = 0;
    (void)MustGather(limit, enough);
    switch (exchange_->body.Fetch(limit, enough)) {
    case Fetched::Whole:
    case Fetched::Enough:
        return turn_.event.isOverload ? RejectForOverload() : StartCall(&Connection::CallModule);
    case Fetched::More:
        return WaitFor(ToReceive(), NowMs() + settings_->server.limits.bodyIdleTime.count());
    case Fetched::TooLarge:
        return AnswerAndEnd(413);
    case Fetched::Malformed:
    case Fetched::Gone: // it may still listen
        break;
    }
    return AnswerAndEnd(400);
}

// The reply is complete, though perhaps not sent.
Connection::Step Connection::EndRequest()
{
    const Response& response = exchange_->response;
    const bool isBroken = response.IsBroken();
    reply_.hasUnread = in_.Size() || !exchange_->body.HasArrived();
    if (settings_->server.accessLog || IsAudited())
        LogRequest();
    if (services_.counts)
        CountRequest();
    ReleaseExchange(std::move(exchange_));
    turn_.hasExpired = false;
    if (isBroken)
        return Step::Close;
    if (!stream_.HasUnsent())
        return AfterReply();
    state_ = State::Flush;
    reply_.hasUnread = true; // more may come before its end has left
    return Step::Again;
}

// In the access log, and in the audit log where somebody asked for a change of what is stored.
void Connection::LogRequest()
{
    const Request& request = exchange_->request;
    const Response& response = exchange_->response;
    AccessRecord record;
    record.id = request.id.Text();
    record.remote = request.remote;
    record.user = exchange_->auth.user;
    record.method = request.head.method;
    record.target = request.head.target;
    record.version = request.head.version;
    record.status = response.Status();
    if (IsAudited() && IsChange(request.method))
        AuditChange(record, ValueOf(request.head, "Destination"));
    if (!settings_->server.accessLog)
        return;
    const AccessLogFormat format = settings_->server.accessLogFormat;
    record.received = exchange_->body.BytesRead();
    record.sent = response.BodyBytes();
    record.duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - exchange_->start);
    if (format == AccessLogFormat::Json)
        record.userAgent = ValueOf(request.head, "User-Agent");
    services_.log.Write(record, format);
}

void Connection::CountRequest() noexcept
{
    RequestSample sample;
    sample.method = exchange_->request.method;
    sample.status = exchange_->response.Status();
    sample.path = exchange_->request.target.path;
    sample.received = exchange_->body.BytesRead();
    sample.sent = exchange_->response.BodyBytes();
    sample.duration = std::chrono::steady_clock::now() - exchange_->start;
    sample.failure = exchange_->ReportedFault();
    if (!sample.failure && (sample.status == 500 || sample.status == 507))
        sample.failure = sample.status; // the module has told it by itself
    services_.counts->requests.Count(sample);
}

// The next request starts when this reply has left, so a client that reads nothing is served
// nothing.
Connection::Step Connection::Flush()
{
    if (turn_.hasExpired)
        return Step::Close;
    if (stream_.Flush())
        return AfterReply();
    return WaitFor(stream_.ToSend(), NowMs() + settings_->server.limits.sendStallTime.count());
}

Connection::Step Connection::AfterReply()
{
    services_.settings.Refresh(settings_);
    if (clientPlace_)
        clientPlace_ = {};
    if (!reply_.goesOn) {
        stream_.EndSending();
        return reply_.hasUnread ? StartLinger() : Step::Close;
    }
    state_ = State::Head;
    head_.start = NowMs();
    wait_.isIdle = in_.Size() == 0;
    if (wait_.isIdle)
        in_.Release();
    return Step::Again;
}

} // namespace kestd
