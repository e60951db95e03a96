// SPDX-License-Identifier: Apache-2.0
//
// Text of the index page, converted and escaped.
#include "index/text.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "support/escape.h"
#include "support/globals.h"
#include "support/reply.h"
#include "support/utf8.h"

namespace {

constexpr size_t kPieceUnits = 256;
constexpr size_t kMostBytesPerUnit = 3; // a surrogate pair takes four bytes for two units

} // namespace

void PutWide(IKestIO_5* io, const WCHAR* text, size_t units)
{
    char piece[kPieceUnits * kMostBytesPerUnit + 1];
    while (units > 0) {
        size_t take = units < kPieceUnits ? units : kPieceUnits;
        if (take < units && StartsPair(text + take - 1, 2))
            --take;
        if (WideToUtf8Cut(text, take, piece, sizeof(piece)) > 0)
            Put(io, piece);
        text += take;
        units -= take;
    }
}

void PutUriEscaped(IKestIO_5* io, const char* text, size_t length)
{
    constexpr size_t kPiece = 256;
    char source[kPiece + 1];
    char escaped[kPiece * 3 + 1];
    while (length > 0) {
        const size_t take = length < kPiece ? length : kPiece;
        std::memcpy(source, text, take);
        source[take] = '\0';
        uri_escape(escaped, source);
        Put(io, escaped);
        text += take;
        length -= take;
    }
}

const char* utf8NextChar(const char* str)
{
    return *str == '\0' ? str : str + 1;
}

size_t utf8strlen(const char* str)
{
    size_t count = 0;
    for (const char* next = utf8NextChar(str); next != str; next = utf8NextChar(str)) {
        str = next;
        ++count;
    }
    return count;
}

UINT32 ParseDecimal(const char* text)
{
    constexpr UINT32 kLargest = std::numeric_limits<UINT32>::max();
    const long value = std::strtol(text, nullptr, 10);
    return value < 0 || value > static_cast<long>(kLargest) ? kLargest : static_cast<UINT32>(value);
}
