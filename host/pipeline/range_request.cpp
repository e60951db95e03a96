// SPDX-License-Identifier: Apache-2.0
//
// Chooses what the module is asked for, and judges what it says.
#include "host/pipeline/range_request.h"

#include <algorithm>
#include <charconv>

#include "base/ascii.h"

namespace kestd {

namespace {

// The module reads positions into 32 bits with a sign.
constexpr uint64_t kLargestPosition = INT32_MAX;
// As a last position it is none below the size, whatever the size is: up to the end.
constexpr std::string_view kToTheEnd = "4294967295";
// Of a whole body only the low 32 bits of its length are sent.
constexpr uint64_t kLongestWhole = UINT32_MAX;

// Takes a number off the front; nothing when there is none.
std::optional<uint64_t> TakeNumber(std::string_view& text) noexcept
{
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::invalid_argument)
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc::result_out_of_range ? UINT64_MAX : number;
}

bool Take(std::string_view& text, std::string_view what) noexcept
{
    if (!base::EqualsIgnoringCase(text.substr(0, what.size()), what))
        return false;
    text.remove_prefix(what.size());
    return true;
}

struct SentRange {
    uint64_t first;
    uint64_t size;
};

// "bytes FIRST-LAST/SIZE", as the module writes it.
std::optional<SentRange> ParseSentRange(std::string_view text) noexcept
{
    if (!Take(text, "bytes "))
        return std::nullopt;
    const std::optional<uint64_t> first = TakeNumber(text);
    const size_t slash = text.find('/');
    if (!first || slash == std::string_view::npos)
        return std::nullopt;
    text.remove_prefix(slash + 1);
    const std::optional<uint64_t> size = TakeNumber(text);
    if (!size)
        return std::nullopt;
    return SentRange{*first, *size};
}

} // namespace

std::optional<ByteRange> ParseByteRange(std::string_view header) noexcept
{
    std::string_view text = header;
    if (!Take(text, "bytes="))
        return std::nullopt;
    text = base::Trimmed(text);
    ByteRange range;
    range.first = TakeNumber(text);
    if (!Take(text, "-"))
        return std::nullopt;
    range.last = TakeNumber(text);
    if (!text.empty() || (!range.first && !range.last))
        return std::nullopt;
    if (range.first && range.last && *range.first > *range.last)
        return std::nullopt;
    return range;
}

void RangeRequest::Read(std::string_view range, const std::string_view* ifRange)
{
    isUsed_ = true;
    wanted_ = ParseByteRange(range);
    if (ifRange)
        ifRange_ = *ifRange;
    Ask();
}

// Chooses what the module is asked for.
void RangeRequest::Ask()
{
    forModule_.clear();
    if (wantsWhole_) {
        forModule_.append("bytes=0-").append(kToTheEnd);
    } else if (wanted_ && wanted_->first) {
        forModule_.append("bytes=").append(
            std::to_string(std::min(*wanted_->first, kLargestPosition)));
        forModule_.push_back('-');
        if (wanted_->last && *wanted_->last <= kLargestPosition)
            forModule_.append(std::to_string(*wanted_->last));
        else
            forModule_.append(kToTheEnd);
    } // else everything; of the last bytes nothing can be said before the size is known
}

// RFC 9110 section 13.1.5: a date holds when it is the very date that a reply would tell. There are
// no entity tags that could hold.
bool RangeRequest::IsOutdated(const ModuleReply& told) const noexcept
{
    return ifRange_ && wanted_ && *ifRange_ != told.modified;
}

RangeRequest::Action RangeRequest::Evaluate(const ModuleReply& told)
{
    isUsed_ = true;
    if (told.status == 206)
        return EvaluatePart(told);
    if (told.status == 200)
        return EvaluateWhole(told);
    if (told.status == 416 && IsOutdated(told)) {
        wanted_.reset();
        Ask();
        return Action::Retry;
    }
    return Action::Send;
}

RangeRequest::Action RangeRequest::EvaluateWhole(const ModuleReply& told)
{
    std::string_view text = told.length;
    const std::optional<uint64_t> size = TakeNumber(text);
    if (!size || !forModule_.empty())
        return Action::Send; // a page, which has no parts
    if (IsOutdated(told))
        wanted_.reset();
    size_ = *size;
    if (wanted_ && *wanted_->last == 0) { // the last no bytes
        left_ = 0;
        return Action::Unsatisfiable;
    }
    if (wanted_ && size_ != 0) {
        wanted_ = ByteRange{size_ - std::min(size_, *wanted_->last), size_ - 1};
        Ask();
        return Action::Retry;
    }
    if (size_ <= kLongestWhole)
        return Action::Send;
    wantsWhole_ = true;
    Ask();
    return Action::Retry;
}

RangeRequest::Action RangeRequest::EvaluatePart(const ModuleReply& told)
{
    const std::optional<SentRange> sent = ParseSentRange(told.range);
    if (!sent)
        return Action::Send;
    size_ = sent->size;
    if (wantsWhole_) {
        length_ = left_ = size_;
        return Action::SendWhole;
    }
    if (IsOutdated(told)) {
        wanted_.reset();
        Ask();
        return Action::Retry;
    }
    if (!wanted_ || *wanted_->first >= size_) {
        left_ = 0;
        return Action::Unsatisfiable;
    }
    first_ = *wanted_->first;
    length_ = std::min(wanted_->last.value_or(UINT64_MAX), size_ - 1) - first_ + 1;
    skip_ = first_ - sent->first;
    left_ = length_;
    return Action::SendPart;
}

std::string RangeRequest::ContentLength() const
{
    return std::to_string(length_);
}

std::string RangeRequest::ContentRange() const
{
    const std::string size = std::to_string(size_);
    if (length_ == 0)
        return "bytes */" + size;
    return "bytes " + std::to_string(first_) + "-" + std::to_string(first_ + length_ - 1) + "/" +
           size;
}

std::string_view RangeRequest::Cut(std::string_view piece, bool& isOver) noexcept
{
    if (!isUsed_) // the whole, as most want
        return piece;
    const auto skipped = static_cast<size_t>(std::min<uint64_t>(skip_, piece.size()));
    skip_ -= skipped;
    piece.remove_prefix(skipped);
    isOver = left_ < piece.size();
    piece = piece.substr(0, static_cast<size_t>(std::min<uint64_t>(left_, piece.size())));
    left_ -= piece.size();
    return piece;
}

} // namespace kestd
