// SPDX-License-Identifier: Apache-2.0
//
// Receives a body, gathers its beginning, takes chunks apart.
#include "host/http/body.h"

#include <algorithm>
#include <cstring>

#include "host/component.h"
#include <kest/status.h>

namespace kestd {

namespace {

constexpr size_t kSkipLimit = 64 * 1024;

} // namespace

void Body::Start(const MessageFraming& framing, Buffer& in, SocketStream& stream, Waiter& waiter,
                 bool sendsContinue, std::chrono::milliseconds idle) noexcept
{
    Reset();
    framing_ = framing;
    in_ = &in;
    stream_ = &stream;
    waiter_ = &waiter;
    idle_ = idle;
    wireLeft_ = framing.length;
    sendsContinue_ = sendsContinue && framing.kind != MessageFraming::Kind::None && in.Size() == 0;
}

void Body::Reset() noexcept
{
    framing_ = {};
    wireLeft_ = delivered_ = limit_ = 0;
    isOverLimit_ = false;
    decoder_.Reset();
    whole_.Release();
    sendsContinue_ = isAbandoned_ = false;
    failure_ = TAL_STATUS_SUCCESS;
}

bool Body::IsHere() const noexcept
{
    switch (framing_.kind) {
    case MessageFraming::Kind::None:
        return true;
    case MessageFraming::Kind::Length:
        return in_->Size() >= wireLeft_;
    case MessageFraming::Kind::Chunked:
        return decoder_.IsDone();
    }
    return true;
}

// Decodes what has come of a chunked body. More: nothing is left to decode.
Body::Fetched Body::DecodeAhead(uint64_t limit)
{
    while (in_->Size() && !decoder_.IsDone()) {
        const size_t room = whole_.Reserve(1);
        size_t used = 0;
        size_t made = 0;
        if (!decoder_.Decode(in_->Data(), in_->Size(), used, whole_.Tail(), room, made))
            return Fetched::Malformed;
        in_->Consume(used);
        whole_.Grew(made);
        if (whole_.Size() > limit)
            return Fetched::TooLarge;
    }
    return decoder_.IsDone() ? Fetched::Whole : Fetched::More;
}

Body::Fetched Body::Fetch(uint64_t limit, size_t enough)
{
    const bool isChunked = framing_.kind == MessageFraming::Kind::Chunked;
    if (!isChunked && wireLeft_ > limit)
        return Fetched::TooLarge;
    SendContinue();
    while (!IsHere()) {
        if (isChunked)
            if (const Fetched decoded = DecodeAhead(limit); decoded != Fetched::More)
                return decoded;
        if ((isChunked ? whole_ : *in_).Size() >= enough)
            return Fetched::Enough;
        // Bounded by `limit` or `enough`; a chunked body arrives in pieces of the usual size.
        const auto goal = static_cast<size_t>(std::min<uint64_t>(wireLeft_, enough));
        const size_t want = isChunked ? 4096 : goal - in_->Size();
        const size_t room = in_->Reserve(want);
        const ssize_t got = stream_->Receive(in_->Tail(), room);
        if (got == SocketStream::kWouldBlock)
            return Fetched::More;
        if (got <= 0)
            return Fetched::Gone;
        in_->Grew(static_cast<size_t>(got));
    }
    return Fetched::Whole;
}

bool Body::IsAtEnd() const noexcept
{
    if (isAbandoned_ || framing_.kind == MessageFraming::Kind::None)
        return true;
    if (framing_.kind == MessageFraming::Kind::Length)
        return wireLeft_ == 0;
    return whole_.Size() == 0 && decoder_.IsDone();
}

// Hands out bytes that have been received already.
size_t Body::TakeReceived(UINT8* to, size_t room, bool& malformed)
{
    malformed = false;
    if (framing_.kind == MessageFraming::Kind::Length) {
        const size_t take =
            static_cast<size_t>(std::min<uint64_t>(wireLeft_, std::min(room, in_->Size())));
        if (take == 0)
            return 0;
        std::memcpy(to, in_->Data(), take);
        in_->Consume(take);
        wireLeft_ -= take;
        return take;
    }
    if (whole_.Size()) {
        const size_t take = std::min(room, whole_.Size());
        std::memcpy(to, whole_.Data(), take);
        whole_.Consume(take);
        return take;
    }
    size_t used = 0;
    size_t made = 0;
    malformed =
        !decoder_.Decode(in_->Data(), in_->Size(), used, reinterpret_cast<char*>(to), room, made);
    in_->Consume(used);
    return made;
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
    for (;;) {
        bool malformed = false;
        size_t got = in_->Size() || whole_.Size() ? TakeReceived(to, size, malformed) : 0;
        if (got == 0 && !malformed && IsAtEnd()) // the last chunk
            return HostFailure(kCodeEndOfFile);
        if (malformed)
            return failure_ = HostFailure(kCodeInvalidRequest);
        if (got == 0) {
            // What is the body's for certain goes straight to the reader.
            const uint64_t ahead =
                framing_.kind == MessageFraming::Kind::Length ? wireLeft_ : decoder_.DataAhead();
            const bool isDirect = ahead >= 4096 || framing_.kind == MessageFraming::Kind::Length;
            void* place = to;
            size_t room = static_cast<size_t>(std::min<uint64_t>(size, ahead));
            if (!isDirect) {
                room = in_->Reserve(4096);
                place = in_->Tail();
            }
            const ssize_t came = isDirect ? stream_->ReceiveFull(place, room, idle_, *waiter_)
                                          : stream_->ReceiveSome(place, room, idle_, *waiter_);
            if (came <= 0)
                return failure_ = HostFailure(came == SocketStream::kTooSlow ? kCodeTimeout
                                                                             : kCodeUnsuccessful);
            got = static_cast<size_t>(came);
            if (!isDirect) {
                in_->Grew(got);
                continue;
            }
            if (framing_.kind == MessageFraming::Kind::Length)
                wireLeft_ -= got;
            else
                decoder_.SkipData(got);
        }
        delivered_ += got;
        if (limit_ && delivered_ > limit_) {
            isOverLimit_ = true;
            return failure_ = HostFailure(kCodeInvalidRequest);
        }
        *read = static_cast<UINT32>(got);
        return TAL_STATUS_SUCCESS;
    }
}

UINT32 Body::Available() const noexcept
{
    if (failure_ || IsAtEnd())
        return 0;
    uint64_t left = wireLeft_;
    if (framing_.kind == MessageFraming::Kind::Chunked)
        left = whole_.Size() + decoder_.DataAhead() + (decoder_.IsDone() ? 0 : 1);
    return static_cast<UINT32>(std::min<uint64_t>(left, UINT32_MAX));
}

bool Body::HasArrived() const noexcept
{
    return !failure_ && IsHere();
}

bool Body::Skip()
{
    if (failure_)
        return false;
    whole_.Release();
    if (sendsContinue_) // it was never asked for; it may come or not, so nobody can tell
        return false;
    size_t received = 0;
    while (!IsHere() || (framing_.kind == MessageFraming::Kind::Length && wireLeft_)) {
        if (in_->Size()) {
            if (framing_.kind == MessageFraming::Kind::Length) {
                const auto take = static_cast<size_t>(std::min<uint64_t>(wireLeft_, in_->Size()));
                in_->Consume(take);
                wireLeft_ -= take;
            } else {
                char scratch[4096];
                size_t used = 0;
                size_t made = 0;
                if (!decoder_.Decode(in_->Data(), in_->Size(), used, scratch, sizeof scratch, made))
                    return false;
                in_->Consume(used);
            }
            continue;
        }
        if (received >= kSkipLimit || wireLeft_ > kSkipLimit)
            return false;
        const size_t room = in_->Reserve(4096);
        const ssize_t got = stream_->Receive(in_->Tail(), room);
        if (got <= 0)
            return false;
        in_->Grew(static_cast<size_t>(got));
        received += static_cast<size_t>(got);
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
    (void)stream_->Send(&piece, 1, false, idle_,
                        *waiter_); // a client that is gone shows on reading
}

} // namespace kestd
