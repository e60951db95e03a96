// SPDX-License-Identifier: Apache-2.0
//
// The state of a request: failures, error pages, reset and reuse.
#include "host/pipeline/exchange.h"

#include "host/http/error_status.h"
#include <kest/sdk/refusal.h>
#include <kest/status.h>

namespace kestd {

namespace {

constinit thread_local ExchangePool* t_pool = nullptr; // the thread's own, if it has one

} // namespace

ExchangePool::ExchangePool() noexcept : before_(std::exchange(t_pool, this)) {}

ExchangePool::~ExchangePool()
{
    t_pool = before_;
}

std::unique_ptr<Exchange> AcquireExchange()
{
    ExchangePool* const pool = t_pool;
    if (!pool || pool->count_ == 0)
        return std::make_unique<Exchange>();
    return std::move(pool->exchanges_[--pool->count_]);
}

void ReleaseExchange(std::unique_ptr<Exchange> exchange) noexcept
{
    ExchangePool* const pool = t_pool;
    if (!pool || pool->count_ == pool->exchanges_.size())
        return;
    exchange->Reset();
    pool->exchanges_[pool->count_++] = std::move(exchange);
}

void Exchange::Reset() noexcept
{
    body.Reset();
    response.Reset();
    session.Release();
    access.Reset(); // before what it points into
    auth.Clear();
    if (request.method == KestMethodCopy || request.method == KestMethodMove)
        copyMove = {}; // nobody else has touched it
    conditions = {};
    lockReply.Reset();
    call = nullptr;
    failure_ = 0;
    errorPageStatus_ = 0;
    start = {};
    request.Reset(); // last: what the others hold may lie in its memory
}

void Exchange::ReportFailure(TALSTATUS failure) noexcept
{
    const auto isFault = [](TALSTATUS it) { return kest::HttpStatusOfFailure(it) >= 500; };
    if (Failed(failure) && (!failure_ || (!isFault(failure_) && isFault(failure))))
        failure_ = failure;
}

int Exchange::FaultStatus() const noexcept
{
    const int status = kest::HttpStatusOfFailure(failure_);
    return status >= 500 ? status : 0;
}

void Exchange::ReplaceOrCut()
{
    const int status = kest::HttpStatusOfFailure(failure_);
    const int said = response.Status();
    if (response.HeadersSent())
        response.Cut();
    else if (said < 300 || said == 404 || (status >= 500 && said != status))
        ReplyWithFailure(status);
}

void Exchange::ReplyWithFailure(int status)
{
    const bool isSeen = // in a browser
        request.method == KestMethodGet || request.method == KestMethodPost;
    response.Replace(status, kErrorType, isSeen ? ErrorText(status) : std::string());
    if (status == 503)
        response.AddLateHeader("Retry-After", kRetrySeconds);
}

void Exchange::SetErrorPage(int status, std::string_view text)
{
    errorPage_ = request.arena.Copy(text);
    errorPageStatus_ = status;
}

void Exchange::ReplaceByErrorPage()
{
    if (errorPageStatus_ == response.Status() && response.IsBodyEmpty())
        response.Replace(errorPageStatus_, "text/html; charset=utf-8", errorPage_);
}

} // namespace kestd
