// SPDX-License-Identifier: Apache-2.0
//
// The scans of ascii.h that look at sixteen or eight bytes at a time.
#include "base/ascii.h"

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

// Sixteen bytes, or the first eight and the last eight of a text of at least eight.
using Bytes = uint8_t __attribute__((vector_size(16)));
using Words = uint64_t __attribute__((vector_size(16)));
constexpr size_t kBytes = sizeof(Bytes);

// Whether one of sixteen bytes is a control character or a tab.
bool HoldControl(Bytes bytes) noexcept
{
    const auto found = reinterpret_cast<Words>((bytes < 0x20) | (bytes == 0x7F));
    return (found[0] | found[1]) != 0;
}

bool HoldControl(const char* at) noexcept
{
    Bytes bytes;
    std::memcpy(&bytes, at, kBytes);
    return HoldControl(bytes);
}

// Where the first sixteen bytes stand of which one is a control character or a tab, or a text
// shorter than eight bytes; the text's size when there are none. Runs for every header of a reply,
// where a call of its own costs as much again.
[[gnu::always_inline]] inline size_t FirstSuspect(std::string_view text) noexcept
{
    if (text.size() < kBytes) {
        if (text.size() < kWord)
            return 0;
        const Words ends = {LoadWord(text.data()), LoadWord(text.data() + text.size() - kWord)};
        return HoldControl(reinterpret_cast<Bytes>(ends)) ? 0 : text.size();
    }
    const size_t last = text.size() - kBytes;
    for (size_t i = 0; i < last; i += kBytes)
        if (HoldControl(text.data() + i))
            return i;
    return HoldControl(text.data() + last) ? last : text.size();
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
