// SPDX-License-Identifier: Apache-2.0
//
// Small ASCII helpers for header fields. Never locale-dependent.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kestd {

constexpr char Lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    if (a == b) // mostly: names are written as they are in the standards
        return true;
    for (size_t i = 0; i < a.size(); ++i)
        if (Lower(a[i]) != Lower(b[i]))
            return false;
    return true;
}

constexpr bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

constexpr bool IsBlank(char c) noexcept
{
    return c == ' ' || c == '\t';
}

// What tokens consist of (RFC 9110 section 5.6.2).
constexpr bool IsTokenChar(char c) noexcept
{
    return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z') ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

constexpr bool IsAscii(std::string_view text) noexcept
{
    unsigned char bits = 0;
    for (const char c : text)
        bits |= static_cast<unsigned char>(c);
    return bits < 0x80;
}

// Whether a text holds a control character other than a tab.
inline bool HasControl(std::string_view text) noexcept
{
    constexpr uint64_t kEach = 0x0101010101010101;
    constexpr size_t kWord = sizeof(uint64_t);
    const auto mayHold = [](const char* at) { // or a tab, or a byte beside one of those
        uint64_t eight = 0;
        std::memcpy(&eight, at, kWord);
        const uint64_t fromDelete = eight ^ 0x7F * kEach;
        const uint64_t low = (eight - 0x20 * kEach) & ~eight;
        const uint64_t isDelete = (fromDelete - kEach) & ~fromDelete;
        return ((low | isDelete) & 0x80 * kEach) != 0;
    };
    size_t i = 0;
    if (text.size() >= kWord) {
        const size_t last = text.size() - kWord;
        while (i < last && !mayHold(text.data() + i))
            i += kWord;
        if (i >= last && !mayHold(text.data() + last))
            return false;
        i = std::min(i, last);
    }
    for (; i < text.size(); ++i)
        if ((static_cast<unsigned char>(text[i]) < 0x20 && text[i] != '\t') || text[i] == 0x7F)
            return true;
    return false;
}

// The value of a hexadecimal digit, -1 for anything else.
constexpr int HexValue(char c) noexcept
{
    if (IsDigit(c))
        return c - '0';
    const char l = Lower(c);
    return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}

// Without blanks and tabs at both ends.
constexpr std::string_view Trimmed(std::string_view text) noexcept
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

// One or more digits and nothing else, within 63 bits (so that sums of two cannot wrap).
constexpr bool ParseDecimal(std::string_view text, uint64_t& out) noexcept
{
    if (text.empty() || text.size() > 19)
        return false;
    uint64_t value = 0;
    for (const char c : text) {
        if (!IsDigit(c))
            return false;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (value > INT64_MAX)
        return false;
    out = value;
    return true;
}

// Takes the next element off a comma-separated list (RFC 9110 section 5.6.1), trimmed. False at the
// end.
constexpr bool NextElement(std::string_view& list, std::string_view& element) noexcept
{
    while (!list.empty()) {
        const size_t comma = list.find(',');
        element = Trimmed(list.substr(0, comma));
        list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
        if (!element.empty())
            return true;
    }
    return false;
}

} // namespace kestd
