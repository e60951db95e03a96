// SPDX-License-Identifier: Apache-2.0
//
// Escaping for URLs and XML, and numbers as text.
#include "support/escape.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "support/ascii.h"
#include "support/memory.h"
#include <kest/status.h>

namespace {

// The bytes that an href shows as escapes. A NUL is not among them.
struct PathEscapes {
    bool escaped[256] = {};

    constexpr PathEscapes()
    {
        Range(0x01, 0x20);
        Range(0x3A, 0x40); // : ; < = > ? @
        Range(0x5B, 0x5E); // [ \ ] ^
        Range(0x7F, 0xFF);
        for (const char c : {'"', '#', '%', '&', '`'})
            escaped[static_cast<UINT8>(c)] = true;
    }
    constexpr void Range(int first, int last)
    {
        for (int c = first; c <= last; ++c)
            escaped[c] = true;
    }
};
constexpr PathEscapes kPathEscapes;

} // namespace

char* kestdav_strdup(const char* source)
{
    const size_t size = std::strlen(source) + 1;
    Paged<char> copy = AllocPaged<char>(size);
    if (copy)
        std::memcpy(copy.get(), source, size);
    return copy.release();
}

void uri_escape(char* destination, const char* source)
{
    for (; *source; ++source) {
        if (std::strchr(" %?#:+&*\"'<>\r\n", *source)) {
            // Kept: the high digit is blank when it is 0, so the line ends are "% d" and "% a".
            *destination++ = '%';
            *destination++ = *source < 0x10 ? ' ' : kLowerHex[*source >> 4];
            *destination++ = kLowerHex[*source & 0x0F];
        } else if (*source == '\\') {
            *destination++ = '\\';
            *destination++ = '\\';
        } else {
            *destination++ = *source;
        }
    }
    *destination = 0;
}

void xml_escape(char* destination, const char* source)
{
    for (; *source; ++source) {
        const bool printable = *source >= 0x20 && *source <= 0x7E;
        if (!printable || std::strchr("\"&'<>", *source)) {
            // Kept: the value is that of a signed character, whatever the platform's `char` is.
            const auto value = static_cast<signed char>(*source);
            destination += std::snprintf(destination, kXmlEscapeBytes + 1, "&#x%2X",
                                         static_cast<unsigned>(value));
        }
        if (printable) // kept: also behind its own reference
            *destination++ = *source;
    }
    *destination = 0;
}

TALSTATUS uri_unescape(char* text)
{
    char* write = text;
    for (const char* read = text; *read; ++read) {
        if (*read != '%') {
            *write++ = *read;
            continue;
        }
        const int high = HexValue(read[1]); // -1 for the terminator, so read[2] is never past it
        const int low = high < 0 ? -1 : HexValue(read[2]);
        if (low < 0)
            return kMalformedEscape;
        *write++ = static_cast<char>(high << 4 | low);
        read += 2;
    }
    *write = 0;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ConvertUTF8PathToUTF8EscapedUri(STRING* pPath, STRING* pUri)
{
    const UINT32 room = pUri->MaximumLength;
    char* const out = pUri->Buffer;
    UINT32 used = 0;
    const char* const end = pPath->Buffer + pPath->Length;
    for (const char* at = pPath->Buffer;;) {
        const char* const plain = at;
        while (at != end && !kPathEscapes.escaped[static_cast<UINT8>(*at)])
            ++at;
        const auto length = static_cast<UINT32>(at - plain);
        if (length >= room - used) // the last byte is for what follows, be it the terminator
            return TAL_STATUS_BUFFER_TOO_SMALL;
        if (length != 0)
            std::memcpy(out + used, plain, length);
        used += length;
        if (at == end)
            break;
        if (used + 3 >= room)
            return TAL_STATUS_BUFFER_TOO_SMALL;
        const auto byte = static_cast<UINT8>(*at++);
        out[used++] = '%';
        out[used++] = kUpperHex[byte >> 4];
        out[used++] = kUpperHex[byte & 0x0F];
    }
    out[used] = 0;
    pUri->Length = static_cast<UINT16>(used);
    return TAL_STATUS_SUCCESS;
}

INT32 U64ToAscii(UINT64 Value, UINT32 Base, char* pBuffer)
{
    char* end = pBuffer;
    if (Base < 2) { // no such numbers
        *end = 0;
        return 0;
    }
    if (Base == 10) { // the usual one, without a division by a variable for each digit
        end = std::to_chars(pBuffer, pBuffer + kU64Digits - 1, Value).ptr;
        *end = 0;
        return static_cast<INT32>(end - pBuffer);
    }
    do {
        *end++ = static_cast<char>('0' + Value % Base);
        Value /= Base;
    } while (Value != 0);
    std::reverse(pBuffer, end);
    *end = 0;
    return static_cast<INT32>(end - pBuffer);
}
