// SPDX-License-Identifier: Apache-2.0
//
// Percent-encoding and back.
#include "base/percent.h"

#include "base/hex.h"

namespace base {

int EscapedByte(std::string_view text, size_t at) noexcept
{
    if (text[at] != '%' || text.size() - at < 3)
        return -1;
    const int high = HexValue(text[at + 1]);
    const int low = HexValue(text[at + 2]);
    return high < 0 || low < 0 ? -1 : high << 4 | low;
}

std::string PercentEncode(std::string_view text)
{
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (const char c : text) {
        if (IsUnreserved(c) || c == '/') {
            out.push_back(c);
        } else {
            out.push_back('%');
            AppendHex(out, static_cast<unsigned char>(c), kUpperHex);
        }
    }
    return out;
}

std::optional<std::string> PercentDecode(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        const int byte = EscapedByte(text, i);
        if (byte <= 0)
            return std::nullopt;
        out.push_back(static_cast<char>(byte));
        i += 2;
    }
    return out;
}

} // namespace base
