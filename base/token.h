// SPDX-License-Identifier: Apache-2.0
//
// Tokens: what methods and names of header fields are made of (RFC 9110 section 5.6.2).
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/ascii.h"

namespace base {

inline constexpr std::array<bool, 256> kTokenBytes = [] {
    std::array<bool, 256> table{};
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = IsTokenChar(static_cast<char>(i));
    return table;
}();

constexpr bool IsToken(std::string_view text) noexcept
{
    for (const char c : text)
        if (!kTokenBytes[static_cast<unsigned char>(c)])
            return false;
    return !text.empty();
}

// The same for names of header fields, which hardly ever hold anything but letters and "-": those
// are looked at eight, or four, at a time, the last ones once more.
inline bool IsFieldName(std::string_view name) noexcept
{
    constexpr uint64_t kEach = 0x0101010101010101;
    constexpr uint64_t kHigh = 0x80 * kEach;
    const auto areUsual = [](uint64_t word) { // each byte is a letter or "-"
        const uint64_t lower = word | 0x20 * kEach;
        const uint64_t notDash = ((word ^ '-' * kEach) & ~kHigh) + 0x7F * kEach;
        const uint64_t fromA = (lower & ~kHigh) + (0x80 - 'a') * kEach;
        const uint64_t pastZ = (lower & ~kHigh) + (0x80 - 'z' - 1) * kEach;
        return ((((fromA & ~pastZ) | ~notDash) & ~word) & kHigh) == kHigh;
    };
    const char* const at = name.data();
    if (name.size() >= sizeof(uint64_t)) {
        uint64_t word = 0;
        const size_t last = name.size() - sizeof word;
        bool isUsual = true;
        for (size_t i = 0; i < last && isUsual; i += sizeof word) {
            std::memcpy(&word, at + i, sizeof word);
            isUsual = areUsual(word);
        }
        std::memcpy(&word, at + last, sizeof word);
        if (isUsual && areUsual(word))
            return true;
    } else if (name.size() >= sizeof(uint32_t)) {
        uint32_t first = 0;
        uint32_t second = 0;
        std::memcpy(&first, at, sizeof first);
        std::memcpy(&second, at + name.size() - sizeof second, sizeof second);
        if (areUsual(uint64_t{first} << 32 | second))
            return true;
    }
    return IsToken(name);
}

} // namespace base
