// SPDX-License-Identifier: Apache-2.0
//
// Reading ranges, and joining those that are better sent as one.
#include "standard/ranges.h"

#include <algorithm>
#include <limits>

#include "standard/scan.h"

namespace standard {

namespace {

constexpr UINT64 kLargest = std::numeric_limits<UINT64>::max();

// One range as it is written. Without `hasFirst` the last `last` bytes are meant.
struct Spec {
    UINT64 first = 0;
    UINT64 last = kLargest;
    bool hasFirst = false;
    bool hasLast = false;
};

bool ReadSpec(std::string_view text, Spec& spec) noexcept
{
    spec = {};
    spec.hasFirst = TakeNumber(text, spec.first);
    if (!Take(text, "-"))
        return false;
    spec.hasLast = TakeNumber(text, spec.last);
    if (!text.empty() || (!spec.hasFirst && !spec.hasLast))
        return false;
    return !spec.hasFirst || !spec.hasLast || spec.first <= spec.last;
}

// What a range comes to for a content of `size` bytes, which is not 0. False: nothing of it is
// there.
bool Select(const Spec& spec, UINT64 size, ByteRange& range) noexcept
{
    if (!spec.hasFirst) {
        range.length = std::min(spec.last, size);
        range.first = size - range.length;
        return range.length != 0;
    }
    if (spec.first >= size)
        return false;
    range = {spec.first, std::min(spec.last, size - 1) - spec.first + 1};
    return true;
}

bool AreOne(const ByteRange& a, const ByteRange& b) noexcept
{
    const ByteRange& low = a.first <= b.first ? a : b;
    const ByteRange& high = a.first <= b.first ? b : a;
    const UINT64 end = low.first + low.length;
    return high.first <= end || high.first - end < kLeastGap;
}

ByteRange Joined(const ByteRange& a, const ByteRange& b) noexcept
{
    const UINT64 first = std::min(a.first, b.first);
    return {first, std::max(a.first + a.length, b.first + b.length) - first};
}

// Adds a range. What it joins becomes one, which stands where the earliest of them stood.
void Add(RangeSet& set, ByteRange range) noexcept
{
    size_t place = set.count;
    for (size_t i = 0; i < set.count;) {
        if (!AreOne(set.parts[i], range)) {
            ++i;
            continue;
        }
        range = Joined(set.parts[i], range);
        std::copy(set.parts + i + 1, set.parts + set.count, set.parts + i);
        --set.count;
        place = std::min(place, i);
        i = 0; // it may reach others now
    }
    std::copy_backward(set.parts + place, set.parts + set.count, set.parts + set.count + 1);
    set.parts[place] = range;
    ++set.count;
}

} // namespace

RangeVerdict ReadRanges(std::string_view header, UINT64 size, RangeSet& set) noexcept
{
    set.count = 0;
    std::string_view list = Trimmed(header);
    if (!Take(list, "bytes="))
        return RangeVerdict::Whole;
    size_t specs = 0;
    while (!list.empty()) {
        const std::string_view element = TakeElement(list);
        if (element.empty())
            continue; // RFC 9110 section 5.6.1.2
        Spec spec;
        if (++specs > kMostRanges || !ReadSpec(element, spec))
            return RangeVerdict::Whole;
        if (ByteRange range{}; size != 0 && Select(spec, size, range))
            Add(set, range);
        else if (size == 0 && !spec.hasFirst && spec.last != 0)
            return RangeVerdict::Whole; // the end of nothing, which no "Content-Range" can say
    }
    if (specs == 0)
        return RangeVerdict::Whole;
    return set.count == 0 ? RangeVerdict::None : RangeVerdict::Parts;
}

bool ReadContentRange(std::string_view header, UpdateRange& update) noexcept
{
    update = {};
    std::string_view text = Trimmed(header);
    UINT64 last = 0;
    if (!Take(text, "bytes ") || !TakeNumber(text, update.first) || !Take(text, "-") ||
        !TakeNumber(text, last) || !Take(text, "/"))
        return false;
    if (last < update.first || last == kLargest)
        return false;
    update.length = last - update.first + 1;
    update.hasLength = true;
    if (text == "*")
        return true;
    update.hasSize = TakeNumber(text, update.size);
    return update.hasSize && text.empty() && last < update.size;
}

bool ReadUpdateRange(std::string_view header, UpdateRange& update) noexcept
{
    update = {};
    std::string_view text = Trimmed(header);
    if (EqualsIgnoringCase(text, "append")) {
        update.kind = UpdateRange::Kind::Append;
        return true;
    }
    Spec spec;
    if (!Take(text, "bytes=") || !ReadSpec(text, spec))
        return false;
    if (!spec.hasFirst) {
        update.kind = UpdateRange::Kind::FromEnd;
        update.length = spec.last;
        return true;
    }
    if (spec.first == kLargest || (spec.hasLast && spec.last == kLargest))
        return false;
    update.first = spec.first;
    update.hasLength = spec.hasLast;
    update.length = spec.hasLast ? spec.last - spec.first + 1 : 0;
    return true;
}

} // namespace standard
