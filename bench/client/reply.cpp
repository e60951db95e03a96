// SPDX-License-Identifier: Apache-2.0
#include "reply.h"

#include <charconv>
#include <strings.h>

namespace bench {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

void ReplyReader::Begin(bool headOnly)
{
    state_ = State::Head;
    head_.clear();
    line_.clear();
    left_ = 0;
    status_ = 0;
    headOnly_ = headOnly;
    keeps_ = true;
    started_ = false;
}

std::string_view ReplyReader::Header(std::string_view name) const
{
    std::string_view text = head_;
    size_t at = text.find("\r\n");
    while (at != std::string_view::npos && at + 2 < text.size()) {
        const size_t start = at + 2;
        const size_t end = text.find("\r\n", start);
        const std::string_view line = text.substr(start, end - start);
        const size_t colon = line.find(':');
        if (colon != std::string_view::npos && EqualsIgnoringCase(line.substr(0, colon), name)) {
            std::string_view value = line.substr(colon + 1);
            while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
                value.remove_prefix(1);
            while (!value.empty() && (value.back() == ' ' || value.back() == '\t'))
                value.remove_suffix(1);
            return value;
        }
        at = end;
    }
    return {};
}

void ReplyReader::ParseHead()
{
    state_ = State::Broken;
    if (head_.compare(0, 7, "HTTP/1.") != 0 || head_.size() < 12)
        return;
    const auto parsed = std::from_chars(head_.data() + 9, head_.data() + 12, status_);
    if (parsed.ec != std::errc() || parsed.ptr != head_.data() + 12)
        return;
    if (status_ / 100 == 1) { // an interim reply: the real one follows
        head_.clear();
        state_ = State::Head;
        return;
    }
    const std::string_view connection = Header("connection");
    keeps_ = head_[7] == '1' ? !EqualsIgnoringCase(connection, "close")
                             : EqualsIgnoringCase(connection, "keep-alive");
    if (headOnly_ || status_ == 204 || status_ == 304) {
        state_ = State::Done;
        return;
    }
    if (EqualsIgnoringCase(Header("transfer-encoding"), "chunked")) {
        state_ = State::ChunkSize;
        return;
    }
    const std::string_view length = Header("content-length");
    if (length.empty()) {
        state_ = State::UntilEnd;
        left_ = UINT64_MAX;
        keeps_ = false;
        return;
    }
    const auto number = std::from_chars(length.data(), length.data() + length.size(), left_);
    if (number.ec != std::errc() || number.ptr != length.data() + length.size())
        return;
    state_ = left_ == 0 ? State::Done : State::Length;
}

bool ReplyReader::TakeLine(const char* data, size_t size, size_t& taken)
{
    for (taken = 0; taken < size;) {
        const char c = data[taken++];
        if (c == '\n') {
            if (!line_.empty() && line_.back() == '\r')
                line_.pop_back();
            return true;
        }
        line_ += c;
        if (line_.size() > 4096) {
            state_ = State::Broken;
            return false;
        }
    }
    return false;
}

void ReplyReader::TakeChunkSize()
{
    const auto parsed = std::from_chars(line_.data(), line_.data() + line_.size(), left_, 16);
    if (parsed.ec != std::errc()) {
        state_ = State::Broken;
        return;
    }
    state_ = left_ == 0 ? State::Trailer : State::ChunkData;
}

bool ReplyReader::TakeEnd()
{
    if (state_ != State::UntilEnd)
        return false;
    state_ = State::Done;
    return true;
}

} // namespace bench
