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
    using Words = uint64_t __attribute__((vector_size(16)));
    using Bytes = uint8_t __attribute__((vector_size(16)));
    const auto areUsual = [](Words words) { // each byte is a letter or "-"
        const auto bytes = reinterpret_cast<Bytes>(words);
        const auto others = reinterpret_cast<Words>((bytes != '-') & ((bytes | 0x20) - 'a' > 25));
        return (others[0] | others[1]) == 0;
    };
    const auto load = [at = name.data()](size_t from, auto word) {
        std::memcpy(&word, at + from, sizeof word);
        return uint64_t{word};
    };
    constexpr size_t kWord = sizeof(uint64_t);
    const size_t size = name.size();
    if (size >= kWord) {
        const uint64_t last = load(size - kWord, uint64_t{});
        bool isUsual = true;
        size_t i = 0;
        for (; i + 2 * kWord < size && isUsual; i += kWord)
            isUsual = areUsual(Words{load(i, uint64_t{}), last});
        if (isUsual && areUsual(Words{load(i, uint64_t{}), last}))
            return true;
    } else if (size >= sizeof(uint32_t)) {
        const uint64_t both = load(0, uint32_t{}) << 32 | load(size - sizeof(uint32_t), uint32_t{});
        if (areUsual(Words{both, both}))
            return true;
    }
    return IsToken(name);
}

} // namespace base
