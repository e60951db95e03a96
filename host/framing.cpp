// SPDX-License-Identifier: Apache-2.0
#include "host/framing.h"

#include <algorithm>
#include <cstring>

#include "host/text.h"

namespace kestd {

namespace {

// Enough for any client that means well; a bound, since these bytes are read without being used.
// Renewed by chunks that carry data.
constexpr uint32_t kOverheadLimit = 16 * 1024;

} // namespace

int ReadFraming(const RequestHead& head, Framing& out)
{
    out = {};
    const Field* length = nullptr;
    const Field* coding = nullptr;
    for (const Field& field : head.fields) {
        if (EqualsIgnoringCase(field.name, "Content-Length")) {
            if (length)
                return 400;
            length = &field;
        } else if (EqualsIgnoringCase(field.name, "Transfer-Encoding")) {
            if (coding)
                return 400;
            coding = &field;
        }
    }
    if (coding) {
        if (length || head.version == 10)
            return 400;
        if (!EqualsIgnoringCase(coding->value, "chunked"))
            return 501;
        out.kind = Framing::Kind::Chunked;
    } else if (length) {
        if (!ParseDecimal(length->value, out.length))
            return 400;
        out.kind = out.length ? Framing::Kind::Length : Framing::Kind::None;
    }
    return 0;
}

bool ChunkDecoder::Decode(const char* in, size_t size, size_t& used, char* out, size_t room,
                          size_t& made)
{
    used = made = 0;
    while (used < size && state_ != State::Done) {
        if (state_ != State::Data) {
            if (!Step(in[used]))
                return false;
            ++used;
            continue;
        }
        const auto take =
            static_cast<size_t>(std::min<uint64_t>(left_, std::min(size - used, room - made)));
        if (take == 0)
            return true; // no room
        std::memcpy(out + made, in + used, take);
        used += take;
        made += take;
        SkipData(take);
    }
    return true;
}

void ChunkDecoder::SkipData(uint64_t bytes) noexcept
{
    left_ -= bytes;
    overhead_ = 0;
    if (left_ == 0)
        state_ = State::DataCr;
}

bool ChunkDecoder::Step(char c)
{
    const bool isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    switch (state_) {
    case State::SizeStart:
    case State::Size:
        if (const int value = HexValue(c); value >= 0) {
            if (++digits_ > 15) // 60 bits
                return false;
            left_ = left_ << 4 | static_cast<uint64_t>(value);
            state_ = State::Size;
            return true;
        }
        if (state_ == State::SizeStart)
            return false;
        if (c == '\r')
            state_ = State::SizeLf;
        else if (c == ';' || c == ' ' || c == '\t')
            state_ = State::Extension;
        else
            return false;
        return true;
    case State::Extension:
        if (c == '\r')
            state_ = State::SizeLf;
        else if (isControl && c != '\t')
            return false;
        return ++overhead_ <= kOverheadLimit;
    case State::SizeLf:
        if (c != '\n')
            return false;
        digits_ = 0;
        state_ = left_ ? State::Data : State::TrailerStart;
        return true;
    case State::DataCr:
        state_ = State::DataLf;
        return c == '\r';
    case State::DataLf:
        state_ = State::SizeStart;
        return c == '\n';
    case State::TrailerStart:
        if (c == '\r') {
            state_ = State::LastLf;
            return true;
        }
        state_ = State::Trailer;
        [[fallthrough]];
    case State::Trailer:
        if (c == '\r')
            state_ = State::TrailerLf;
        else if (isControl && c != '\t')
            return false;
        return ++overhead_ <= kOverheadLimit;
    case State::TrailerLf:
        state_ = State::TrailerStart;
        return c == '\n';
    case State::LastLf:
        state_ = State::Done;
        return c == '\n';
    case State::Data:
    case State::Done:
        break;
    }
    return false;
}

} // namespace kestd
