// SPDX-License-Identifier: Apache-2.0
//
// The states of the chunked coding, byte by byte.
#include "host/http/chunked_decoder.h"

#include <algorithm>
#include <cstring>

#include "base/ascii.h"
#include "base/hex.h"

namespace kestd {

namespace {

// Enough for any client that means well; a bound, since these bytes are read without being used.
// Renewed by chunks that carry data.
constexpr uint32_t kOverheadLimit = 16 * 1024;

} // namespace

bool ChunkedDecoder::Decode(const char* in, size_t size, size_t& used, char* out, size_t room,
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

void ChunkedDecoder::SkipData(uint64_t bytes) noexcept
{
    left_ -= bytes;
    overhead_ = 0;
    if (left_ == 0)
        state_ = State::DataCr;
}

bool ChunkedDecoder::Step(char c) noexcept
{
    switch (state_) {
    case State::SizeStart:
    case State::Size:
        return StepSize(c);
    case State::SizeLf:
        digits_ = 0;
        state_ = left_ ? State::Data : State::TrailerStart;
        return c == '\n';
    case State::DataCr:
        state_ = State::DataLf;
        return c == '\r';
    case State::DataLf:
        state_ = State::SizeStart;
        return c == '\n';
    case State::TrailerStart:
    case State::TrailerName:
    case State::Trailer:
        return ++overhead_ <= kOverheadLimit && StepTrailer(c);
    case State::TrailerLf:
        state_ = State::TrailerStart;
        return c == '\n';
    case State::LastLf:
        state_ = State::Done;
        return c == '\n';
    case State::Data:
    case State::Done:
        return false;
    default:
        return ++overhead_ <= kOverheadLimit && StepExtension(c);
    }
}

bool ChunkedDecoder::StepSize(char c) noexcept
{
    if (const int value = base::HexValue(c); value >= 0) {
        if (++digits_ > 15) // 60 bits
            return false;
        left_ = left_ << 4 | static_cast<uint64_t>(value);
        return Become(State::Size);
    }
    if (state_ == State::SizeStart)
        return false;
    if (c == '\r')
        return Become(State::SizeLf);
    if (c == ';')
        return Become(State::ExtensionStart);
    return base::IsBlank(c) && Become(State::ExtensionGap);
}

// RFC 9112 section 7.1.1. Blanks stand around ";" and "=" only, never at the line's end.
bool ChunkedDecoder::StepExtension(char c) noexcept
{
    const bool isText = static_cast<unsigned char>(c) >= 0x20 ? c != 0x7F : c == '\t';
    const auto goesOn = [&] { // behind a name or a value that may be the last
        if (c == '\r')
            return Become(State::SizeLf);
        return c == ';' && Become(State::ExtensionStart);
    };
    switch (state_) {
    case State::ExtensionGap:
        return base::IsBlank(c) || (c == ';' && Become(State::ExtensionStart));
    case State::ExtensionStart:
        return base::IsBlank(c) || (base::IsTokenChar(c) && Become(State::ExtensionName));
    case State::ExtensionName:
        if (base::IsBlank(c))
            return Become(State::ExtensionEquals);
        if (c == '=')
            return Become(State::ExtensionValueStart);
        return base::IsTokenChar(c) || goesOn();
    case State::ExtensionEquals:
        if (c == '=')
            return Become(State::ExtensionValueStart);
        return base::IsBlank(c) || (c == ';' && Become(State::ExtensionStart));
    case State::ExtensionValueStart:
        if (c == '"')
            return Become(State::ExtensionQuoted);
        return base::IsBlank(c) || (base::IsTokenChar(c) && Become(State::ExtensionValue));
    case State::ExtensionQuoted:
        if (c == '"')
            return Become(State::ExtensionEnd);
        return isText && (c != '\\' || Become(State::ExtensionEscape));
    case State::ExtensionEscape:
        return isText && Become(State::ExtensionQuoted);
    default: // ExtensionValue, ExtensionEnd
        if (base::IsBlank(c))
            return Become(State::ExtensionGap);
        return (state_ == State::ExtensionValue && base::IsTokenChar(c)) || goesOn();
    }
}

bool ChunkedDecoder::StepTrailer(char c) noexcept
{
    const bool isText = static_cast<unsigned char>(c) >= 0x20 ? c != 0x7F : c == '\t';
    switch (state_) {
    case State::TrailerStart:
        if (c == '\r')
            return Become(State::LastLf);
        return base::IsTokenChar(c) && Become(State::TrailerName);
    case State::TrailerName:
        return base::IsTokenChar(c) || (c == ':' && Become(State::Trailer));
    default:
        return isText || (c == '\r' && Become(State::TrailerLf));
    }
}

} // namespace kestd
