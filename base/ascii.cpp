// SPDX-License-Identifier: Apache-2.0
//
// The scans of ascii.h that look at eight bytes at a time.
#include "base/ascii.h"

#include <algorithm>
#include <cstring>

namespace base {

namespace {

constexpr uint64_t kEach = 0x0101010101010101;
constexpr uint64_t kHighBits = 0x80 * kEach;
constexpr size_t kWord = sizeof(uint64_t);

uint64_t LoadWord(const char* from) noexcept
{
    uint64_t word = 0;
    std::memcpy(&word, from, kWord);
    return word;
}

// Whether one of eight bytes may be a control character: it is one, a tab or DEL, or stands beside
// one of those.
bool MayHoldControl(const char* at) noexcept
{
    const uint64_t word = LoadWord(at);
    const uint64_t fromDelete = word ^ 0x7F * kEach;
    const uint64_t low = (word - 0x20 * kEach) & ~word;
    const uint64_t isDelete = (fromDelete - kEach) & ~fromDelete;
    return ((low | isDelete) & kHighBits) != 0;
}

// Where the first word stands that may hold a control character, or a short rest; the text's size
// when there is none. Runs for every header of a reply, where a call of its own costs as much
// again.
[[gnu::always_inline]] inline size_t FirstSuspect(std::string_view text) noexcept
{
    if (text.size() < kWord)
        return 0;
    const size_t last = text.size() - kWord;
    size_t i = 0;
    while (i < last && !MayHoldControl(text.data() + i))
        i += kWord;
    if (i >= last && !MayHoldControl(text.data() + last))
        return text.size();
    return std::min(i, last);
}

} // namespace

bool IsAscii(std::string_view text) noexcept
{
    size_t i = 0;
    uint64_t bits = 0;
    for (; i + kWord <= text.size(); i += kWord)
        bits |= LoadWord(text.data() + i);
    for (; i < text.size(); ++i)
        bits |= static_cast<unsigned char>(text[i]);
    return (bits & kHighBits) == 0;
}

bool HasControl(std::string_view text) noexcept
{
    for (size_t i = FirstSuspect(text); i < text.size(); ++i)
        if (IsControl(text[i]) && text[i] != '\t')
            return true;
    return false;
}

bool HasControlOrTab(std::string_view text) noexcept
{
    for (size_t i = FirstSuspect(text); i < text.size(); ++i)
        if (IsControl(text[i]))
            return true;
    return false;
}

} // namespace base
