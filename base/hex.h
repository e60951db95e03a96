// SPDX-License-Identifier: Apache-2.0
//
// Hexadecimal digits.
#pragma once

#include <string>

#include "base/ascii.h"

namespace base {

inline constexpr char kLowerHex[] = "0123456789abcdef";
inline constexpr char kUpperHex[] = "0123456789ABCDEF";

// The value of a hexadecimal digit of either case, -1 for anything else.
constexpr int HexValue(char c) noexcept
{
    if (IsDigit(c))
        return c - '0';
    const char l = Lower(c);
    return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}

constexpr int HexValue(char16_t c) noexcept
{
    return c < 0x80 ? HexValue(static_cast<char>(c)) : -1;
}

// Appends the two digits of a byte, from kLowerHex or kUpperHex.
inline void AppendHex(std::string& out, unsigned char byte, const char* digits)
{
    const char two[] = {digits[byte >> 4], digits[byte & 0xF]};
    out.append(two, sizeof two);
}

} // namespace base
