// SPDX-License-Identifier: Apache-2.0
//
// Reading header values from the front: blanks, words and numbers of RFC 9110 section 5.6.
#pragma once

#include <cstddef>
#include <limits>
#include <string_view>

#include "support/ascii.h"
#include <kest/types.h>

namespace standard {

constexpr bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (AsciiLower(a[i]) != AsciiLower(b[i]))
            return false;
    return true;
}

constexpr bool IsBlank(char c) noexcept
{
    return c == ' ' || c == '\t';
}

constexpr bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

constexpr void SkipBlanks(std::string_view& text) noexcept
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
}

constexpr std::string_view Trimmed(std::string_view text) noexcept
{
    SkipBlanks(text);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Takes `what` off the front, compared without case. False, and nothing is taken, when the text
// begins otherwise.
constexpr bool Take(std::string_view& text, std::string_view what) noexcept
{
    if (!EqualsIgnoringCase(text.substr(0, what.size()), what))
        return false;
    text.remove_prefix(what.size());
    return true;
}

// Takes a decimal number off the front; what does not fit into 64 bits becomes the largest. False
// when there is no digit.
constexpr bool TakeNumber(std::string_view& text, UINT64& number) noexcept
{
    constexpr UINT64 kMost = std::numeric_limits<UINT64>::max();
    if (text.empty() || !IsDigit(text.front()))
        return false;
    number = 0;
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
        const auto digit = static_cast<UINT64>(text.front() - '0');
        number = number > (kMost - digit) / 10 ? kMost : number * 10 + digit;
    }
    return true;
}

// Takes the next element of a comma-separated list off the front, without the blanks around it. No
// comma inside an element is known of: not for lists of quoted texts.
constexpr std::string_view TakeElement(std::string_view& list) noexcept
{
    const size_t end = list.find(',');
    const std::string_view element = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    return Trimmed(element);
}

} // namespace standard
