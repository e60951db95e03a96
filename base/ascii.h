// SPDX-License-Identifier: Apache-2.0
//
// ASCII text: letters without case, digits, tokens and lists of header fields. Never
// locale-dependent.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace base {

constexpr char Lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr char Upper(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
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

constexpr bool IsAlphanumeric(char c) noexcept
{
    return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z');
}

constexpr bool IsBlank(char c) noexcept
{
    return c == ' ' || c == '\t';
}

// C0 controls and DEL.
constexpr bool IsControl(char c) noexcept
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// What tokens consist of (RFC 9110 section 5.6.2).
constexpr bool IsTokenChar(char c) noexcept
{
    return IsAlphanumeric(c) ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

// Whether every byte is ASCII.
bool IsAscii(std::string_view text) noexcept;

// Whether a text holds a control character; HasControl lets tabs pass, which header values may
// have.
bool HasControl(std::string_view text) noexcept;
bool HasControlOrTab(std::string_view text) noexcept;

// Without blanks and tabs at both ends.
constexpr std::string_view Trimmed(std::string_view text) noexcept
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
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

} // namespace base
