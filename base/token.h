// SPDX-License-Identifier: Apache-2.0
//
// Tokens: what methods and names of header fields are made of (RFC 9110 section 5.6.2).
#pragma once

#include <array>
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

} // namespace base
