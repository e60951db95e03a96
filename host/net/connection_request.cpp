// SPDX-License-Identifier: Apache-2.0
//
// A connection's requests, from the end of the head to the end of the reply.
#include <array>
#include <utility>

#include "host/module/call_context.h"
#include "host/module/kest_io.h"
#include "host/net/connection.h"
#include "host/net/connection_registry.h"
#include "host/pipeline/conditional_requests.h"
#include "host/pipeline/copy_move_headers.h"
#include "host/pipeline/granted_lock.h"
#include "host/pipeline/router.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

// Bodies up to this length are received before the module is called. They wait without a fiber and
// without what the module opens for them.
constexpr uint64_t kGatheredBody = 64 * 1024;
// Of a longer one, what is received first: who sends no more opens nothing.
constexpr size_t kGatheredBeginning = 8 * 1024;

// Requests that are not in use, kept with their memory. Few: one for each that a thread has open.
struct Spare {
    std::array<std::unique_ptr<KestIo>, 4> requests;
    size_t count = 0;
};
thread_local Spare t_spare;

std::unique_ptr<KestIo> AcquireRequest()
{
    if (t_spare.count == 0)
        return std::make_unique<KestIo>();
    return std::move(t_spare.requests[--t_spare.count]);
}

void ReleaseRequest(std::unique_ptr<KestIo> request) noexcept
{
    request->Reset();
    if (t_spare.count < t_spare.requests.size())
        t_spare.requests[t_spare.count++] = std::move(request);
}

bool IsXmlMethod(UINT32 method) noexcept
{
    return method == KestMethodPropFind || method == KestMethodPropPatch ||
           method == KestMethodLock;
}

} // namespace

void Connection::StartReply()
{
    Response::Options terms;
    terms.isHead = request_->method == KestMethodHead;
    terms.mayChunk = request_->head.version == 11;
    terms.mayKeepAlive = WantsKeepAlive(request_->head) && !front_.isStopping;
    terms.saysKeepAlive = request_->head.version == 10;
    terms.stall = live_->settings.limits.sendStallTime;
    request_->response.Start(terms, request_->arena, request_->body, stream_, *this);
}

Connection::Step Connection::OnHead(size_t size)
{
    const EffectiveSettings& live = *live_;
    request_ = AcquireRequest();
    KestIo& request = *request_;
    if (live.settings.accessLog)
        request.start = std::chrono::steady_clock::now();
    request.remote = remote_;
    request.isSecure = stream_.IsTls() || live.isPublicSecure;
    request.headText.Append(in_.Data(), size);
    in_.Consume(size);
    scanned_ = 0;
    isFirst_ = false;
    MessageFraming framing;
    bool mustClose = false;
    const int refusal = ReadRequest(request, live, framing, mustClose);
    const bool expects = request.head.version == 11 && request.head.Find("Expect") != nullptr;
    request.body.Start(mustClose ? MessageFraming{} : framing, in_, stream_, *this, expects,
                       live.settings.limits.bodyIdleTime);
    StartReply();
    if (mustClose)
        request.response.Close();
    if (refusal)
        return AnswerAndEnd(refusal);
    return event_.isOverload ? RejectForOverload() : StartCall(&Connection::Handle);
}

Connection::Step Connection::Refuse(int status)
{
    request_ = AcquireRequest();
    if (live_->settings.accessLog)
        request_->start = std::chrono::steady_clock::now();
    request_->remote = remote_;
    request_->body.Start({}, in_, stream_, *this, false, milliseconds(0));
    StartReply();
    request_->response.Close();
    return AnswerAndEnd(status);
}

Connection::Step Connection::RejectForOverload()
{
    request_->response.SetHeader("Retry-After", "5");
    return AnswerAndEnd(503);
}

// For short answers without the fiber: what the client does not take is kept.
Connection::Step Connection::AnswerAndEnd(int status)
{
    AnswerError(*request_, status);
    FinishReply();
    return EndRequest();
}

// -- On the fiber ----------------------------------------------------------------------------

Connection::Step Connection::StartCall(Work work)
{
    fiber_ = AcquireFiber();
    work_ = work;
    hasFailed_ = isToGather_ = false;
    return GoOn();
}

void Connection::RunWork(void* self) noexcept
{
    auto& connection = *static_cast<Connection*>(self);
    try {
        (connection.*connection.work_)();
    } catch (const std::exception& error) { // out of memory
        TolmLog(kLogWarning, "kestd", error.what());
        connection.hasFailed_ = true;
    }
}

// Starts or resumes the handler. True when it has returned.
bool Connection::RunCall() noexcept
{
    RunningCall* const outside = ExchangeRunningCall(call_);
    const bool hasReturned =
        state_ == State::Call ? fiber_->Resume() : fiber_->Start(&RunWork, this);
    call_ = ExchangeRunningCall(outside);
    return hasReturned;
}

Connection::Step Connection::GoOn()
{
    if (!RunCall()) {
        state_ = State::Call;
        return WaitFor(waitsFor_, callDeadline_);
    }
    ReleaseFiber(std::move(fiber_));
    state_ = State::Body;
    if (hasFailed_)
        return Step::Close;
    return isToGather_ ? Step::Again : EndRequest();
}

// For the handler, on its fiber: it stops here and goes on on another thread.
bool Connection::Wait(For what, int64_t deadline)
{
    if (!fiber_ || isGivenUp_)
        return false;
    waitsFor_ = what;
    callDeadline_ = deadline;
    fiber_->Suspend();
    return !hasExpired_ && !isGivenUp_;
}

void Connection::Handle()
{
    KestIo& request = *request_;
    if (Decide(request, front_, *live_) != RouteResult::Module)
        return FinishReply();
    const Limits& limits = live_->settings.limits;
    const uint64_t limit = IsXmlMethod(request.method) ? limits.xmlBodyBytes : limits.bodyBytes;
    if (limit && request.body.AnnouncedLength() > limit) {
        AnswerError(request, 413);
        return FinishReply();
    }
    request.body.SetLimit(limits.bodyBytes);
    uint64_t gathered = 0;
    size_t enough = 0;
    if (MustGather(gathered, enough) && !request.body.IsHere()) {
        isToGather_ = true;
        return;
    }
    CallModule();
}

void Connection::CallModule()
{
    KestIo& request = *request_;
    if (!MeetsConditions(request, front_)) {
        AnswerError(request, 412);
        return FinishReply();
    }
    do {
        if (request.method == KestMethodCopy || request.method == KestMethodMove)
            ResolveOverwrite(request, front_);
        if (request.HasFailed()) // what there is could not be looked at
            break;
        const CallScope scope(request);
        (void)front_.module->RequestHandler(&request, request.auth.session,
                                            request.method); // the reply says it all
    } while (request.TakeRetry());
    FinishReply();
}

void Connection::FinishReply()
{
    KestIo& request = *request_;
    if (request.response.Status() >= 400 && !request.body.HasArrived())
        request.response.Close();
    goesOn_ = request.Finish();
    RevokeUnsentLock(request, front_);
}

// -- Without it ------------------------------------------------------------------------------

// Whether something of the body is received before the module is called: at most `limit`, and no
// more than `enough`.
bool Connection::MustGather(uint64_t& limit, size_t& enough) const
{
    const Limits& limits = live_->settings.limits;
    const Body& body = request_->body;
    enough = SIZE_MAX;
    if (IsXmlMethod(request_->method)) {
        limit = limits.xmlBodyBytes;
        return true;
    }
    limit = limits.bodyBytes ? limits.bodyBytes : UINT64_MAX;
    if (body.AnnouncedLength() && body.AnnouncedLength() <= kGatheredBody)
        return true;
    enough = kGatheredBeginning;
    return !body.AwaitsContinue(); // the module may refuse it before it is sent
}

Connection::Step Connection::GatherBody()
{
    if (hasExpired_ && !request_->body.IsHere())
        return AnswerAndEnd(408);
    uint64_t limit = 0;
    size_t enough = 0;
    (void)MustGather(limit, enough);
    switch (request_->body.Fetch(limit, enough)) {
    case Body::Fetched::Whole:
    case Body::Fetched::Enough:
        return event_.isOverload ? RejectForOverload() : StartCall(&Connection::CallModule);
    case Body::Fetched::More:
        return WaitFor(ToReceive(), NowMs() + live_->settings.limits.bodyIdleTime.count());
    case Body::Fetched::TooLarge:
        return AnswerAndEnd(413);
    case Body::Fetched::Malformed:
    case Body::Fetched::Gone: // it may still listen
        break;
    }
    return AnswerAndEnd(400);
}

// The reply is complete, though perhaps not sent.
Connection::Step Connection::EndRequest()
{
    KestIo& request = *request_;
    const bool isBroken = request.response.IsBroken();
    hasUnread_ = in_.Size() || !request.body.HasArrived();
    if (request.isAdmitted) {
        front_.accessControl.ReleaseSession(request.auth.session);
        request.isAdmitted = false;
    }
    if (live_->settings.accessLog && request.start != decltype(request.start)())
        front_.log.Write({request.remote, request.auth.user, request.head.method,
                          request.head.target, request.head.version, request.response.Status(),
                          request.response.BodyBytes(),
                          std::chrono::duration_cast<std::chrono::microseconds>(
                              std::chrono::steady_clock::now() - request.start)});
    ReleaseRequest(std::move(request_));
    hasExpired_ = false;
    if (isBroken)
        return Step::Close;
    if (!stream_.HasUnsent())
        return AfterReply();
    state_ = State::Flush;
    hasUnread_ = true; // more may come before its end has left
    return Step::Again;
}

// The next request starts when this reply has left, so a client that reads nothing is served
// nothing.
Connection::Step Connection::Flush()
{
    if (hasExpired_)
        return Step::Close;
    if (stream_.Flush())
        return AfterReply();
    return WaitFor(stream_.ToSend(), NowMs() + live_->settings.limits.sendStallTime.count());
}

Connection::Step Connection::AfterReply()
{
    front_.Refresh(live_);
    if (!goesOn_) {
        stream_.EndSending();
        return hasUnread_ ? StartLinger() : Step::Close;
    }
    state_ = State::Head;
    headStart_ = NowMs();
    isIdle_ = in_.Size() == 0;
    if (isIdle_)
        in_.Release();
    return Step::Again;
}

} // namespace kestd
