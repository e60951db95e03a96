// SPDX-License-Identifier: Apache-2.0
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace harness {

std::u16string Wide(std::string_view text)
{
    std::u16string out;
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        UINT32 point = length == 1   ? lead
                       : length == 2 ? lead & 0x1FU
                       : length == 3 ? lead & 0xFU
                                     : lead & 0x7U;
        if (i + length > text.size()) {
            out += u'?';
            break;
        }
        for (size_t k = 1; k < length; ++k)
            point = point << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3FU);
        i += length;
        if (point < 0x10000) {
            out += static_cast<char16_t>(point);
        } else {
            out += static_cast<char16_t>(0xD7C0 + (point >> 10));
            out += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
        }
    }
    return out;
}

std::string Narrow(std::u16string_view text)
{
    std::string out;
    const auto put = [&out](UINT32 byte) { out += static_cast<char>(byte); };
    for (size_t i = 0; i < text.size(); ++i) {
        UINT32 point = text[i];
        if (point >= 0xD800 && point < 0xDC00 && i + 1 < text.size())
            point = 0x10000 + ((point - 0xD800) << 10) + (text[++i] - 0xDC00U);
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
    return out;
}

std::string Narrow(const UNICODE_STRING* text)
{
    return text ? Narrow(std::u16string_view(text->Buffer, text->Length / sizeof(WCHAR))) : "null";
}

std::string Narrow(const STRING* text)
{
    return text ? std::string(text->Buffer, text->Length) : "null";
}

UNICODE_STRING Counted(std::u16string& text)
{
    const auto bytes = static_cast<UINT16>(text.size() * sizeof(WCHAR));
    return {bytes, bytes, text.data()};
}

STRING Counted(std::string& text)
{
    const auto bytes = static_cast<UINT16>(text.size());
    return {bytes, bytes, text.data()};
}

std::string PathOfUnits(size_t units, const std::string& top)
{
    std::string path = top;
    while (path.size() + 401 < units)
        path += "/" + std::string(400, 'p');
    return path + "/" + std::string(units - path.size() - 1, 'q');
}

bool CopyOut(std::string_view text, UINT32* length, char* buffer)
{
    const UINT32 room = *length;
    if (text.size() + 1 > room) {
        std::memcpy(buffer, text.data(), std::min<size_t>(room, text.size()));
        *length = static_cast<UINT32>(text.size() + 1);
        return false;
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = 0;
    *length = static_cast<UINT32>(text.size());
    return true;
}

std::string Hex(UINT32 value)
{
    char text[9];
    std::snprintf(text, sizeof text, "%08x", value);
    return text;
}

} // namespace harness
