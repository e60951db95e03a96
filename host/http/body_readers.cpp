// SPDX-License-Identifier: Apache-2.0
//
// Receives what belongs to a body and no more, straight to its reader where that is certain.
#include "host/http/body_readers.h"

#include <algorithm>
#include <cstring>

namespace kestd {

namespace {

constexpr size_t kPiece = 4096; // what is received at once where the body's end is not known

size_t TakeFrom(Buffer& buffer, void* to, uint64_t size) noexcept
{
    const auto take = static_cast<size_t>(std::min<uint64_t>(size, buffer.Size()));
    std::memcpy(to, buffer.Data(), take);
    buffer.Consume(take);
    return take;
}

// Before its end a body does not end with its connection.
ssize_t FailureOf(ssize_t received) noexcept
{
    return received == 0 ? SocketStream::kBroken : received;
}

} // namespace

std::optional<Fetched> BodySource::ReceiveAhead(size_t want) const
{
    const size_t room = in->Reserve(want);
    const ssize_t got = stream->Receive(in->Tail(), room);
    if (got == SocketStream::kWouldBlock)
        return Fetched::More;
    if (got <= 0)
        return Fetched::Gone;
    in->Grew(static_cast<size_t>(got));
    return std::nullopt;
}

Fetched LengthReader::Fetch(size_t enough)
{
    while (!IsHere()) {
        const size_t size = source_.in->Size();
        if (size >= enough)
            return Fetched::Enough;
        const auto goal = static_cast<size_t>(std::min<uint64_t>(left_, enough));
        if (const auto ended = source_.ReceiveAhead(goal - size))
            return *ended;
    }
    return Fetched::Whole;
}

ssize_t LengthReader::Read(void* to, size_t size)
{
    const auto room = static_cast<size_t>(std::min<uint64_t>(size, left_));
    ssize_t got = 0;
    if (source_.in->Size())
        got = static_cast<ssize_t>(TakeFrom(*source_.in, to, room));
    else
        got = source_.stream->ReceiveFull(to, room, source_.idle, *source_.waiter);
    if (got <= 0)
        return FailureOf(got);
    left_ -= static_cast<size_t>(got);
    return got;
}

bool LengthReader::Drop() noexcept
{
    const auto take = static_cast<size_t>(std::min<uint64_t>(left_, source_.in->Size()));
    source_.in->Consume(take);
    left_ -= take;
    return true;
}

ssize_t ChunkedReader::Decode(void* to, size_t size)
{
    Buffer& in = *source_.in;
    size_t used = 0;
    size_t made = 0;
    const bool isChunked =
        decoder_.Decode(in.Data(), in.Size(), used, static_cast<char*>(to), size, made);
    in.Consume(used);
    return isChunked ? static_cast<ssize_t>(made) : kMalformed;
}

ssize_t ChunkedReader::Read(void* to, size_t size)
{
    Buffer& in = *source_.in;
    for (;;) {
        if (in.Size())
            if (const ssize_t made = Decode(to, size); made != 0)
                return made;
        if (decoder_.IsDone())
            return 0;
        const uint64_t ahead = decoder_.DataAhead();
        if (ahead >= kPiece) {
            const auto room = static_cast<size_t>(std::min<uint64_t>(size, ahead));
            const ssize_t got =
                source_.stream->ReceiveFull(to, room, source_.idle, *source_.waiter);
            if (got <= 0)
                return FailureOf(got);
            decoder_.SkipData(static_cast<size_t>(got));
            return got;
        }
        const size_t room = in.Reserve(kPiece);
        const ssize_t got =
            source_.stream->ReceiveSome(in.Tail(), room, source_.idle, *source_.waiter);
        if (got <= 0)
            return FailureOf(got);
        in.Grew(static_cast<size_t>(got));
    }
}

bool ChunkedReader::Drop()
{
    char dropped[kPiece];
    return Decode(dropped, sizeof dropped) != kMalformed;
}

// Decodes what has come. More: nothing is left to decode.
Fetched FetchedReader::DecodeAhead(uint64_t limit)
{
    while (source_.in->Size() && !rest_.IsHere()) {
        const size_t room = ahead_.Reserve(1);
        const ssize_t made = rest_.Decode(ahead_.Tail(), room);
        if (made < 0)
            return Fetched::Malformed;
        ahead_.Grew(static_cast<size_t>(made));
        if (ahead_.Size() > limit)
            return Fetched::TooLarge;
    }
    return rest_.IsHere() ? Fetched::Whole : Fetched::More;
}

Fetched FetchedReader::Fetch(uint64_t limit, size_t enough)
{
    while (!IsHere()) {
        if (const Fetched decoded = DecodeAhead(limit); decoded != Fetched::More)
            return decoded;
        if (ahead_.Size() >= enough)
            return Fetched::Enough;
        if (const auto ended = source_.ReceiveAhead(kPiece))
            return *ended;
    }
    return Fetched::Whole;
}

ssize_t FetchedReader::Read(void* to, size_t size)
{
    if (ahead_.Size())
        return static_cast<ssize_t>(TakeFrom(ahead_, to, size));
    return rest_.Read(to, size);
}

bool FetchedReader::Drop()
{
    ahead_.Release();
    return rest_.Drop();
}

} // namespace kestd
