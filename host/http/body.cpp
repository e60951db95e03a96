// SPDX-License-Identifier: Apache-2.0
//
// What all bodies have in common: limits, failures that stay, "100 Continue".
#include "host/http/body.h"

#include <algorithm>

#include "host/component.h"
#include <kest/status.h>

namespace kestd {

namespace {

constexpr size_t kSkipLimit = 64 * 1024;

TALSTATUS StatusOf(ssize_t failure) noexcept
{
    switch (failure) {
    case BodyReader::kMalformed:
        return HostFailure(kCodeInvalidRequest);
    case SocketStream::kTooSlow:
        return HostFailure(kCodeTimeout);
    default:
        return HostFailure(kCodeUnsuccessful);
    }
}

} // namespace

void Body::Start(const MessageFraming& framing, Buffer& in, SocketStream& stream, Waiter& waiter,
                 bool sendsContinue, std::chrono::milliseconds idle) noexcept
{
    Reset();
    framing_ = framing;
    source_ = {&in, &stream, &waiter, idle};
    length_.Start(framing.length);
    if (framing.kind == MessageFraming::Kind::Chunked)
        reader_ = &chunked_;
    sendsContinue_ = sendsContinue && framing.kind != MessageFraming::Kind::None && in.Size() == 0;
}

void Body::Reset() noexcept
{
    framing_ = {};
    reader_ = &length_;
    length_.Start(0);
    chunked_.Start();
    fetched_.Reset();
    delivered_ = limit_ = 0;
    isOverLimit_ = false;
    sendsContinue_ = isAbandoned_ = false;
    failure_ = TAL_STATUS_SUCCESS;
}

Fetched Body::Fetch(uint64_t limit, size_t enough)
{
    const bool isChunked = framing_.kind == MessageFraming::Kind::Chunked;
    if (!isChunked && length_.Left() > limit)
        return Fetched::TooLarge;
    SendContinue();
    if (!isChunked)
        return length_.Fetch(enough);
    reader_ = &fetched_;
    return fetched_.Fetch(limit, enough);
}

TALSTATUS Body::Read(UINT32 size, UINT8* to, UINT32* read)
{
    *read = 0;
    if (failure_)
        return failure_;
    if (IsAtEnd())
        return HostFailure(kCodeEndOfFile);
    if (size == 0)
        return TAL_STATUS_SUCCESS;
    SendContinue();
    const ssize_t got = reader_->Read(to, size);
    if (got == 0) // the last chunk
        return HostFailure(kCodeEndOfFile);
    if (got < 0)
        return failure_ = StatusOf(got);
    delivered_ += static_cast<size_t>(got);
    if (limit_ && delivered_ > limit_) {
        isOverLimit_ = true;
        return failure_ = HostFailure(kCodeInvalidRequest);
    }
    *read = static_cast<UINT32>(got);
    return TAL_STATUS_SUCCESS;
}

UINT32 Body::Available() const noexcept
{
    if (failure_ || IsAtEnd())
        return 0;
    return static_cast<UINT32>(std::min<uint64_t>(reader_->Left(), UINT32_MAX));
}

bool Body::Skip()
{
    if (failure_)
        return false;
    fetched_.Reset();
    if (sendsContinue_) // it was never asked for; it may come or not, so nobody can tell
        return false;
    size_t received = 0;
    while (!reader_->IsAtEnd()) {
        if (source_.in->Size()) {
            if (!reader_->Drop())
                return false;
            continue;
        }
        if (received >= kSkipLimit || reader_->Left() > kSkipLimit)
            return false;
        if (source_.ReceiveAhead(4096)) // the client has gone, or has not sent it yet
            return false;
        received += source_.in->Size();
    }
    return true;
}

void Body::SendContinue()
{
    if (!sendsContinue_)
        return;
    sendsContinue_ = false;
    static constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
    const iovec piece{const_cast<char*>(kContinue), sizeof kContinue - 1};
    (void)source_.stream->Send(&piece, 1, false, source_.idle,
                               *source_.waiter); // a client that is gone shows on reading
}

} // namespace kestd
