// SPDX-License-Identifier: Apache-2.0
//
// Takes a reply's bytes as they come and hands out its body in pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

class ReplyReader {
  public:
    // Begins a new reply; headOnly: the reply to a HEAD request.
    void Begin(bool headOnly);

    // Takes bytes up to the end of the reply, and calls body(data, size) for each piece of its
    // body. Returns how many it took; the rest belongs to the next reply.
    template <class Body> size_t Take(const char* data, size_t size, Body&& body);
    // The connection ended. True when that was the right end of this reply.
    bool TakeEnd();

    bool Started() const { return started_; }
    bool Done() const { return state_ == State::Done; }
    bool Broken() const { return state_ == State::Broken; }
    // The head stands complete, the body may be on its way.
    bool HasHead() const { return state_ != State::Head && state_ != State::Broken; }
    int Status() const { return status_; }
    bool Keeps() const { return keeps_; }
    // The value of a header, empty when absent; `name` in lower case.
    std::string_view Header(std::string_view name) const;

  private:
    enum class State {
        Head,
        Length,
        UntilEnd,
        ChunkSize,
        ChunkData,
        ChunkEnd,
        Trailer,
        Done,
        Broken
    };

    void ParseHead();
    bool TakeLine(const char* data, size_t size, size_t& taken);
    void TakeChunkSize();

    State state_ = State::Head;
    std::string head_; // status line and headers while they come
    std::string line_; // of a chunk's frame
    uint64_t left_ = 0;
    int status_ = 0;
    bool headOnly_ = false;
    bool keeps_ = true;
    bool started_ = false;
};

template <class Body> size_t ReplyReader::Take(const char* data, size_t size, Body&& body)
{
    size_t at = 0;
    if (size)
        started_ = true;
    while (at < size && state_ != State::Done && state_ != State::Broken) {
        switch (state_) {
        case State::Head: {
            // The end of the head may lie across two pieces.
            const size_t old = head_.size();
            head_.append(data + at, size - at);
            const size_t from = old < 3 ? 0 : old - 3;
            const size_t end = head_.find("\r\n\r\n", from);
            if (end == std::string::npos) {
                at = size;
                if (head_.size() > 65536)
                    state_ = State::Broken;
                break;
            }
            at += end + 4 - old;
            head_.resize(end + 2);
            ParseHead();
            break;
        }
        case State::Length:
        case State::UntilEnd:
        case State::ChunkData: {
            const size_t piece = left_ < size - at ? static_cast<size_t>(left_) : size - at;
            body(data + at, piece);
            at += piece;
            if (state_ == State::UntilEnd)
                break;
            left_ -= piece;
            if (left_ == 0)
                state_ = state_ == State::Length ? State::Done : State::ChunkEnd;
            break;
        }
        default: {
            size_t taken = 0;
            const bool whole = TakeLine(data + at, size - at, taken);
            at += taken;
            if (!whole)
                break;
            if (state_ == State::ChunkSize)
                TakeChunkSize();
            else if (state_ == State::ChunkEnd)
                state_ = line_.empty() ? State::ChunkSize : State::Broken;
            else if (line_.empty()) // the end of the trailer
                state_ = State::Done;
            line_.clear();
            break;
        }
        }
    }
    return at;
}

} // namespace bench
