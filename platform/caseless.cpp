// SPDX-License-Identifier: Apache-2.0
//
// Upper-casing and comparison without case.
#include "platform/caseless.h"

#include <unicode/utf16.h>

#include <algorithm>

#include "base/utf.h"

namespace tolm {
namespace {

// The code units of the upper-cased text, one after the other.
class UpperUnits {
  public:
    explicit UpperUnits(std::u16string_view text) noexcept
        : at_(text.data()), end_(text.data() + text.size())
    {
    }

    WCHAR Next() noexcept
    {
        const WCHAR unit = *at_++;
        if (second_) {
            second_ = false;
            return low_;
        }
        if (!U16_IS_SURROGATE(unit))
            return static_cast<WCHAR>(Upper(unit));
        if (!U16_IS_SURROGATE_LEAD(unit) || at_ == end_ || !U16_IS_TRAIL(*at_))
            return unit;
        const UChar32 pair = U16_GET_SUPPLEMENTARY(unit, *at_);
        const UChar32 upper = Upper(pair);
        const UChar32 kept = upper > 0xFFFF ? upper : pair;
        low_ = U16_TRAIL(kept);
        second_ = true;
        return U16_LEAD(kept);
    }

  private:
    const WCHAR* at_;
    const WCHAR* end_;
    WCHAR low_ = 0;
    bool second_ = false; // low_ stands for the unit at at_
};

// The next code point of 8-bit text, upper-cased.
UChar32 NextUpper(std::string_view text, std::size_t& at) noexcept
{
    const auto byte = static_cast<UINT8>(text[at]);
    if (byte < 0x80) {
        ++at;
        return Upper(byte);
    }
    char32_t c = 0;
    const std::size_t bytes = base::DecodeCodePoint(text.substr(at), c);
    if (bytes == 0) {
        ++at;
        return 0x110000 + byte;
    }
    at += bytes;
    return Upper(static_cast<UChar32>(c));
}

} // namespace

void UpperInPlace(WCHAR* text, std::size_t units) noexcept
{
    std::size_t i = 0;
    for (; i < units && text[i] < 0x80; ++i)
        text[i] = static_cast<WCHAR>(Upper(text[i]));
    UpperUnits upper({text + i, units - i});
    for (; i < units; ++i)
        text[i] = upper.Next();
}

std::u16string Folded(std::u16string_view text)
{
    std::u16string folded(text);
    UpperInPlace(folded.data(), folded.size());
    return folded;
}

int CompareIgnoringCase(std::u16string_view a, std::u16string_view b) noexcept
{
    if (a == b) // mostly: names are written as they were
        return 0;
    const std::size_t common = std::min(a.size(), b.size());
    std::size_t i = 0;
    for (; i < common; ++i) { // as long as each unit is a character of its own
        const WCHAR ca = a[i];
        const WCHAR cb = b[i];
        if (U16_IS_SURROGATE(ca) || U16_IS_SURROGATE(cb))
            break;
        if (ca == cb)
            continue;
        const UChar32 upperA = Upper(ca);
        const UChar32 upperB = Upper(cb);
        if (upperA != upperB)
            return upperA < upperB ? -1 : 1;
    }
    UpperUnits ua(a.substr(i));
    UpperUnits ub(b.substr(i));
    for (; i < common; ++i) {
        const WCHAR ca = ua.Next();
        const WCHAR cb = ub.Next();
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

int CompareIgnoringCase(std::string_view a, std::string_view b) noexcept
{
    std::size_t ia = 0;
    std::size_t ib = 0;
    while (ia < a.size() && ib < b.size()) {
        const UChar32 ca = NextUpper(a, ia);
        const UChar32 cb = NextUpper(b, ib);
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    const bool doneA = ia == a.size();
    const bool doneB = ib == b.size();
    return doneA == doneB ? 0 : doneA ? -1 : 1;
}

} // namespace tolm
