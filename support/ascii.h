// SPDX-License-Identifier: Apache-2.0
//
// Letters and hexadecimal digits of ASCII, whatever the locale.
#pragma once

inline constexpr char kLowerHex[] = "0123456789abcdef";
inline constexpr char kUpperHex[] = "0123456789ABCDEF";

constexpr char AsciiLower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The value of a hexadecimal digit, a character or a UTF-16 unit; -1 for anything else.
template <class Char> constexpr int HexValue(Char c) noexcept
{
    if (c >= Char('0') && c <= Char('9'))
        return c - Char('0');
    if (c >= Char('A') && c <= Char('F'))
        return c - Char('A') + 10;
    return c >= Char('a') && c <= Char('f') ? c - Char('a') + 10 : -1;
}
