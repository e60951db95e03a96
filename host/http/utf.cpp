// SPDX-License-Identifier: Apache-2.0
#include "host/http/utf.h"

#include "host/http/ascii.h"

namespace kestd {

bool AppendWide(std::string_view text, std::u16string& out)
{
    if (IsAscii(text)) {
        out.append(text.begin(), text.end());
        return true;
    }
    out.reserve(out.size() + text.size());
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            out.push_back(static_cast<char16_t>(lead));
            ++i;
            continue;
        }
        const size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || text.size() - i <= more)
            return false;
        char32_t point = lead & (0x3F >> more);
        for (size_t k = 1; k <= more; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            point = point << 6 | (next & 0x3F);
        }
        constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
        if (point < kLeast[more] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000))
            return false;
        if (point < 0x10000) {
            out.push_back(static_cast<char16_t>(point));
        } else {
            out.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
        }
        i += more + 1;
    }
    return true;
}

bool AppendUtf8(std::u16string_view text, std::string& out)
{
    const auto put = [&out](char32_t bits) { out.push_back(static_cast<char>(bits)); };
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t point = text[i];
        if (point >= 0xD800 && point < 0xE000) {
            if (point >= 0xDC00 || i + 1 == text.size() || (text[i + 1] & 0xFC00) != 0xDC00)
                return false;
            point = 0x10000 + ((point & 0x3FF) << 10) + (text[++i] & 0x3FFu);
        }
        if (point < 0x80) {
            put(point);
        } else if (point < 0x800) {
            put(0xC0 | point >> 6);
            put(0x80 | (point & 0x3F));
        } else if (point < 0x10000) {
            put(0xE0 | point >> 12);
            put(0x80 | (point >> 6 & 0x3F));
            put(0x80 | (point & 0x3F));
        } else {
            put(0xF0 | point >> 18);
            put(0x80 | (point >> 12 & 0x3F));
            put(0x80 | (point >> 6 & 0x3F));
            put(0x80 | (point & 0x3F));
        }
    }
    return true;
}

} // namespace kestd
