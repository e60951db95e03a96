// SPDX-License-Identifier: Apache-2.0
#include "host/components/text.h"

#include <algorithm>
#include <array>

namespace kestd {
namespace {

constexpr bool IsUnreserved(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

// Takes one code point off the front; nothing when the text is malformed.
std::optional<char32_t> TakeCodePoint(std::string_view& text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        text.remove_prefix(1);
        return first;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length)
        return std::nullopt;
    char32_t point = first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return std::nullopt;
        point = point << 6 | (byte(i) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kLeast[length] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000))
        return std::nullopt;
    text.remove_prefix(length);
    return point;
}

void AppendUtf8(std::string& out, char32_t point)
{
    const auto tail = [&](unsigned shift) {
        out += static_cast<char>(0x80 | ((point >> shift) & 0x3F));
    };
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0 | point >> 6);
        tail(0);
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0 | point >> 12);
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | point >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

} // namespace

std::optional<std::string> ToUtf8(std::u16string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        if (point >= 0xD800 && point < 0xE000) {
            const bool isPair = point < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                                text[i + 1] < 0xE000;
            if (!isPair)
                return std::nullopt;
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++i] - 0xDC00U);
        }
        AppendUtf8(out, point);
    }
    return out;
}

std::optional<std::u16string> ToUtf16(std::string_view text)
{
    std::u16string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto point = TakeCodePoint(text);
        if (!point)
            return std::nullopt;
        if (*point < 0x10000) {
            out += static_cast<char16_t>(*point);
        } else {
            out += static_cast<char16_t>(0xD800 + ((*point - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((*point - 0x10000) & 0x3FF));
        }
    }
    return out;
}

bool IsValidUtf8(std::string_view text)
{
    while (!text.empty())
        if (!TakeCodePoint(text))
            return false;
    return true;
}

bool HasControlCharacter(std::string_view text)
{
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string EscapeUriPath(std::string_view text)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (IsUnreserved(byte) || c == '/') {
            out += c;
        } else {
            out += '%';
            out += kDigits[byte >> 4];
            out += kDigits[byte & 0xF];
        }
    }
    return out;
}

std::optional<std::string> UnescapeUriPath(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (text.size() - i < 3)
            return std::nullopt;
        const int high = HexValue(text[i + 1]);
        const int low = HexValue(text[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0))
            return std::nullopt;
        out += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return out;
}

std::optional<std::string> DecodeBase64(std::string_view text)
{
    const auto valueOf = [](char c) -> int {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        return c == '+' ? 62 : c == '/' ? 63 : -1;
    };
    if (text.size() % 4 != 0)
        return std::nullopt;
    size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    unsigned bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.size() - padding)) {
        const int value = valueOf(c);
        if (value < 0)
            return std::nullopt;
        bits = bits << 6 | static_cast<unsigned>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out += static_cast<char>(bits >> count & 0xFF);
            bits &= (1U << count) - 1;
        }
    }
    if (bits != 0) // bits behind the last byte must be clear, so that a text has one spelling
        return std::nullopt;
    return out;
}

} // namespace kestd
