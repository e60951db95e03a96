// SPDX-License-Identifier: Apache-2.0
//
// The body of an XML reply.
#include "standard/reply_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "support/escape.h"
#include "support/globals.h"
#include "support/reply.h"
#include "support/time_units.h"

namespace standard {

namespace {

constexpr bool IsUnreserved(UINT8 c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~' || c == '/';
}

// What stops a run of bytes that are written as they are: a bit for each place.
enum Place : UINT8 { kInText = 1, kInAttribute = 2, kInPath = 4 };

constexpr std::array<UINT8, 256> MakeStops()
{
    std::array<UINT8, 256> stops{};
    for (unsigned c = 0; c < stops.size(); ++c) {
        const bool isControl = c < 0x20 && c != '\n' && c != '\t';
        const bool isMarkup = c == '&' || c == '<' || c == '>';
        const bool mayBeNone = c == 0xEF; // the first byte of what is no character
        if (isControl || isMarkup || mayBeNone)
            stops[c] = kInText | kInAttribute;
        if (c == '"')
            stops[c] |= kInAttribute;
        if (!IsUnreserved(static_cast<UINT8>(c)))
            stops[c] |= kInPath;
    }
    return stops;
}
constexpr std::array<UINT8, 256> kStops = MakeStops();

// How many bytes at the front need no escape.
size_t PlainLength(std::string_view text, Place place) noexcept
{
    size_t at = 0;
    while (at < text.size() && (kStops[static_cast<UINT8>(text[at])] & place) == 0)
        ++at;
    return at;
}

// U+FFFE and U+FFFF, which are no characters.
bool IsNoncharacter(std::string_view text) noexcept
{
    return text.size() >= 3 && text.starts_with("\xEF\xBF") &&
           (text[2] == '\xBE' || text[2] == '\xBF');
}

} // namespace

size_t PlainPathLength(std::string_view path) noexcept
{
    return PlainLength(path, kInPath);
}

// What does not fit behind what was gathered.
void ReplyWriter::PutLong(std::string_view markup)
{
    Flush();
    if (markup.size() <= kRoom)
        return Put(markup);
    failed_ =
        failed_ || Failed(io_->Write(static_cast<UINT32>(markup.size()),
                                     reinterpret_cast<UINT8*>(const_cast<char*>(markup.data()))));
}

void ReplyWriter::PutText(std::string_view text)
{
    PutEscaped(text, kInText);
}

void ReplyWriter::PutAttribute(std::string_view text)
{
    PutEscaped(text, kInAttribute);
}

void ReplyWriter::PutEscaped(std::string_view text, int place)
{
    while (!text.empty()) {
        const size_t plain = PlainLength(text, static_cast<Place>(place));
        Put(text.substr(0, plain));
        if (plain == text.size())
            return;
        text.remove_prefix(plain);
        size_t taken = 1;
        switch (text.front()) {
        case '&':
            Put("&amp;");
            break;
        case '<':
            Put("&lt;");
            break;
        case '>':
            Put("&gt;");
            break;
        case '"':
            Put("&quot;");
            break;
        case '\r':
            Put("&#13;");
            break;
        case '\xEF':
            taken = IsNoncharacter(text) ? 3 : 1;
            Put(taken == 3 ? "?" : text.substr(0, 1));
            break;
        default:
            Put("?");
            break;
        }
        text.remove_prefix(taken);
    }
}

void ReplyWriter::PutPath(std::string_view path)
{
    (void)EscapePath(path, [this](std::string_view piece) { return Put(piece), true; });
}

void ReplyWriter::PutNumber(UINT64 number)
{
    char digits[kU64Digits];
    const INT32 length = U64ToAscii(number, 10, digits);
    Put({digits, static_cast<size_t>(length)});
}

template <class Format>
void ReplyWriter::PutDate(Written& written, DAV_DATETIME date, Format format)
{
    const UINT64 second = date / kUnitsPerSecond;
    if (second != written.second) {
        STRING text = {0, kDateRoom, written.text};
        written.length =
            Failed(format(&date, &text)) ? 0 : std::min<UINT32>(text.Length, kDateRoom);
        written.second = second;
    }
    Put({written.text, written.length});
}

void ReplyWriter::PutHttpDate(DAV_DATETIME date)
{
    PutDate(http_, date, [](DAV_DATETIME* from, STRING* to) {
        return g_pIKestUtil->SystemTimeToHttpTime(from, to);
    });
}

void ReplyWriter::PutIsoDate(DAV_DATETIME date)
{
    PutDate(iso_, date, [](DAV_DATETIME* from, STRING* to) {
        return g_pIKestUtil->SystemTimeTo8601Time(from, to);
    });
}

void ReplyWriter::Flush()
{
    if (used_ != 0 && Failed(io_->Write(used_, reinterpret_cast<UINT8*>(text_))))
        failed_ = true;
    used_ = 0;
}

TALSTATUS SendXmlHead(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Transfer-Encoding", "chunked");
    SetHeader(io, "Content-Type", "application/xml; charset=\"utf-8\"");
    const TALSTATUS status = io->SendHeader(http);
    char declaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    const TALSTATUS put = io->PutString(declaration);
    return Failed(status) ? status : put;
}

} // namespace standard
