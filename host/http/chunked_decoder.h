// SPDX-License-Identifier: Apache-2.0
//
// The chunked transfer coding of request bodies (RFC 9112 section 7.1).
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestd {

// Takes the chunks of a body apart, in pieces of any size. Chunk extensions and trailer fields are
// checked for their form and dropped.
class ChunkedDecoder {
  public:
    // Decodes from `in` to `out` until either is used up or the body ends. `used` and `made` say
    // how far it got. False when the text is not chunked coding.
    bool Decode(const char* in, size_t size, size_t& used, char* out, size_t room, size_t& made);
    bool IsDone() const noexcept { return state_ == State::Done; }
    // Bytes of the running chunk's data that come next on the wire, so that they can be received
    // right where they belong; 0 outside of a chunk's data.
    uint64_t DataAhead() const noexcept { return state_ == State::Data ? left_ : 0; }
    void SkipData(uint64_t bytes) noexcept; // at most DataAhead bytes went past the decoder
    void Reset() noexcept { *this = ChunkedDecoder(); }

  private:
    enum class State {
        SizeStart,
        Size,
        ExtensionGap, // blanks, of which ";" has to follow
        ExtensionStart,
        ExtensionName,
        ExtensionEquals, // blanks behind a name
        ExtensionValueStart,
        ExtensionValue,
        ExtensionQuoted,
        ExtensionEscape,
        ExtensionEnd, // behind a quoted value
        SizeLf,
        Data,
        DataCr,
        DataLf,
        TrailerStart,
        TrailerName,
        Trailer,
        TrailerLf,
        LastLf,
        Done
    };
    // Each takes one byte outside of data; false when it does not belong there.
    bool Step(char c) noexcept;
    bool StepSize(char c) noexcept;
    bool StepExtension(char c) noexcept;
    bool StepTrailer(char c) noexcept;
    bool Become(State state) noexcept
    {
        state_ = state;
        return true;
    }

    State state_ = State::SizeStart;
    uint64_t left_ = 0;
    uint32_t digits_ = 0;
    uint32_t overhead_ = 0; // bytes of extensions and trailers, bounded
};

} // namespace kestd
