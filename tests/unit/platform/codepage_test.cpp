// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <vector>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

// The result with its text; room behind the text must stay as it was.
struct Widened {
    TALSTATUS status;
    std::u16string text;
    UINT32 units;
};

Widened Widen(std::string_view in, UINT32 room, UINT32 page = kCodePageUtf8)
{
    constexpr WCHAR kGuard = 0xBEEF;
    std::vector<WCHAR> out(room + 4, kGuard);
    // The input exactly as long as said, so that a sanitizer sees a read past it.
    const std::vector<char> exact(in.begin(), in.end());
    UINT32 units = room;
    const TALSTATUS status = Platform().TalxMultiByteToWideChar(
        page, exact.data(), static_cast<UINT32>(exact.size()), out.data(), &units);
    EXPECT_TRUE(std::all_of(out.begin() + room, out.end(), [](WCHAR c) { return c == kGuard; }));
    return {status, Failed(status) ? u"" : std::u16string(out.data(), units), units};
}

struct Narrowed {
    TALSTATUS status;
    std::string text;
    UINT32 bytes;
};

Narrowed Narrow(std::u16string_view in, UINT32 room, UINT32 page = kCodePageUtf8)
{
    constexpr char kGuard = 0x5A;
    std::vector<char> out(room + 4, kGuard);
    const std::vector<WCHAR> exact(in.begin(), in.end());
    UINT32 bytes = room;
    const TALSTATUS status = Platform().TalxWideCharToMultiByte(
        page, exact.data(), static_cast<UINT32>(exact.size()), out.data(), &bytes);
    EXPECT_TRUE(std::all_of(out.begin() + room, out.end(), [](char c) { return c == kGuard; }));
    return {status, Failed(status) ? "" : std::string(out.data(), bytes), bytes};
}

struct Pair {
    const char* utf8;
    const char16_t* utf16;
};

const Pair kWellFormed[] = {
    {"", u""},
    {"a", u"a"},
    {"/Ferro/docs/Reports/2024/summary.html", u"/Ferro/docs/Reports/2024/summary.html"},
    {"0123456789abcde", u"0123456789abcde"},
    {"0123456789abcdef", u"0123456789abcdef"},
    {"0123456789abcdef0123456789abcdefX", u"0123456789abcdef0123456789abcdefX"},
    {"\x7F", u"\x7F"},
    {"\xC2\x80", u"\u0080"},
    {"\xDF\xBF", u"\u07FF"},
    {"\xE0\xA0\x80", u"\u0800"},
    {"\xED\x9F\xBF", u"\uD7FF"},
    {"\xEE\x80\x80", u"\uE000"},
    {"\xEF\xBF\xBD", u"\uFFFD"},
    {"\xEF\xBF\xBF", u"\uFFFF"},
    {"\xF0\x90\x80\x80", u"\U00010000"},
    {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
    {"na\xC3\xAFve \xF0\x9F\x98\x80 \xE2\x82\xAC", u"na\u00EFve \U0001F600 \u20AC"},
    {"0123456789abcdef\xC3\xA9", u"0123456789abcdef\u00E9"},
};

TEST(Utf8, WellFormedTextConvertsBothWaysAtEveryRoom)
{
    for (const Pair& pair : kWellFormed) {
        for (const UINT32 page : {kCodePageUtf8, kCodePageUtf8Alt}) {
            const std::u16string_view wide = pair.utf16;
            const auto units = static_cast<UINT32>(wide.size());
            for (UINT32 room = 0; room < units + 3; ++room) {
                const Widened got = Widen(pair.utf8, room, page);
                EXPECT_EQ(room < units ? Failure(kCodeBufferTooSmall) : 0u, got.status)
                    << pair.utf8 << " in " << room;
                EXPECT_EQ(units, got.units) << pair.utf8 << " in " << room;
                if (room >= units) {
                    EXPECT_EQ(wide, got.text);
                }
            }
            const std::string_view narrow = pair.utf8;
            const auto bytes = static_cast<UINT32>(narrow.size());
            for (UINT32 room = 0; room < bytes + 3; ++room) {
                const Narrowed got = Narrow(pair.utf16, room, page);
                EXPECT_EQ(room < bytes ? Failure(kCodeBufferTooSmall) : 0u, got.status)
                    << pair.utf8 << " in " << room;
                EXPECT_EQ(bytes, got.bytes) << pair.utf8 << " in " << room;
                if (room >= bytes) {
                    EXPECT_EQ(narrow, got.text);
                }
            }
        }
    }
}

const char* const kMalformedUtf8[] = {
    "\x80", // continuation without a start
    "\xBF",
    "\xC0\x80", // overlong
    "\xC1\xBF",
    "\xE0\x9F\xBF",
    "\xF0\x8F\xBF\xBF",
    "\xED\xA0\x80", // surrogates
    "\xED\xBF\xBF",
    "\xED\xA0\x81\xED\xB0\x80",
    "\xF4\x90\x80\x80", // past U+10FFFF
    "\xF5\x80\x80\x80",
    "\xFE",
    "\xFF",
    "\xC3", // cut short
    "\xE2\x82",
    "\xE2",
    "\xF0\x9F\x98",
    "\xF0\x9F",
    "\xF0",
    "\xC3\x28", // something else where a continuation belongs
    "\xE2\x28\xA1",
    "\xE2\x82\x28",
    "\xF0\x28\x8C\xBC",
    "\xF0\x90\x28\xBC",
    "\xF0\x90\x8C\x28",
};

TEST(Utf8, MalformedTextIsRefusedAtEveryPosition)
{
    for (const char* bad : kMalformedUtf8)
        for (std::size_t before = 0; before <= 40; ++before)
            for (const std::size_t after : {std::size_t{0}, std::size_t{1}, std::size_t{33}}) {
                const std::string text = std::string(before, 'a') + bad + std::string(after, 'z');
                const auto room = static_cast<UINT32>(text.size());
                const Widened got = Widen(text, room);
                EXPECT_EQ(Failure(kCodeInvalidRequest), got.status) << testing::PrintToString(text);
                EXPECT_EQ(room, got.units) << "the count stays on failure";
            }
}

TEST(Utf8, MalformedTextIsRefusedEvenWhereTheRoomEndsBefore)
{
    for (const char* bad : kMalformedUtf8)
        for (const UINT32 room : {0u, 3u, 16u, 20u})
            EXPECT_EQ(Failure(kCodeInvalidRequest),
                      Widen(std::string(20, 'a') + "\xC3\xA9" + bad, room).status);
}

TEST(Utf16, UnpairedSurrogatesAreRefusedAtEveryPosition)
{
    for (const std::u16string& bad :
         {std::u16string(1, 0xD800), std::u16string(1, 0xDBFF), std::u16string(1, 0xDC00),
          std::u16string(1, 0xDFFF), std::u16string{0xDC00, 0xD800}, std::u16string{0xD800, u'x'},
          std::u16string{0xD800, 0xD800, 0xDC00}})
        for (std::size_t before = 0; before <= 40; ++before)
            for (const std::size_t after : {std::size_t{0}, std::size_t{1}, std::size_t{33}}) {
                const std::u16string text =
                    std::u16string(before, u'a') + bad + std::u16string(after, u'z');
                const auto room = static_cast<UINT32>(3 * text.size());
                const Narrowed got = Narrow(text, room);
                EXPECT_EQ(Failure(kCodeInvalidRequest), got.status);
                EXPECT_EQ(room, got.bytes);
            }
}

TEST(Utf8, EveryCodePointComesBack)
{
    std::string all;
    std::u16string wide;
    for (UINT32 c = 1; c <= 0x10FFFF; c = c == 0xD7FF ? 0xE000 : c + 1) {
        if (c > 0xFFFF) {
            wide += static_cast<WCHAR>(0xD7C0 + (c >> 10));
            wide += static_cast<WCHAR>(0xDC00 | (c & 0x3FF));
        } else {
            wide += static_cast<WCHAR>(c);
        }
    }
    all = Narrow(wide, static_cast<UINT32>(3 * wide.size())).text;
    EXPECT_EQ(0x7Fu + 0x780 * 2 + (0xF800 - 0x800) * 3 + 0x100000 * 4, all.size());
    EXPECT_EQ(wide, Widen(all, static_cast<UINT32>(wide.size())).text);
}

TEST(Latin1, EveryByteIsTheCodePointOfItsValue)
{
    std::string bytes;
    std::u16string wide;
    for (unsigned c = 0; c < 256; ++c) {
        bytes += static_cast<char>(c);
        wide += static_cast<WCHAR>(c);
    }
    EXPECT_EQ(wide, Widen(bytes, 256, kCodePageLatin1).text);
    EXPECT_EQ(bytes, Narrow(wide, 256, kCodePageLatin1).text);
    const Widened shortWide = Widen(bytes, 255, kCodePageLatin1);
    EXPECT_EQ(Failure(kCodeBufferTooSmall), shortWide.status);
    EXPECT_EQ(256u, shortWide.units);
    const Narrowed shortNarrow = Narrow(wide, 255, kCodePageLatin1);
    EXPECT_EQ(Failure(kCodeBufferTooSmall), shortNarrow.status);
    EXPECT_EQ(256u, shortNarrow.bytes);
}

TEST(Latin1, RefusesWhatItCannotHold)
{
    EXPECT_EQ(Failure(kCodeInvalidRequest), Narrow(u"\u0100", 8, kCodePageLatin1).status);
    EXPECT_EQ(Failure(kCodeInvalidRequest), Narrow(u"abc\u20AC", 0, kCodePageLatin1).status);
}

TEST(CodePage, UnknownSelectorsAreNotSupported)
{
    for (const UINT32 page : {0u, 2u, 5u, 65001u}) {
        EXPECT_EQ(Failure(kCodeNotSupported), Widen("a", 4, page).status);
        EXPECT_EQ(Failure(kCodeNotSupported), Narrow(u"a", 4, page).status);
    }
}

TEST(CodePage, TextsWhoseLengthCouldNotBeCountedAreRefusedUnread)
{
    constexpr UINT32 kTooLong = 715827883;
    UINT32 room = 0;
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxMultiByteToWideChar(kCodePageUtf8, "\x80", kTooLong, nullptr, &room));
    EXPECT_EQ(
        Failure(kCodeInvalidParameter),
        Platform().TalxWideCharToMultiByte(kCodePageUtf8, u"\xD800", kTooLong, nullptr, &room));
}

TEST(CodePage, NullArgumentsAreRefusedUnlessNothingIsThere)
{
    UINT32 room = 4;
    WCHAR wide[4];
    char narrow[4];
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxMultiByteToWideChar(kCodePageUtf8, nullptr, 1, wide, &room));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxMultiByteToWideChar(kCodePageUtf8, "a", 1, nullptr, &room));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxMultiByteToWideChar(kCodePageUtf8, "a", 1, wide, nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxWideCharToMultiByte(kCodePageUtf8, nullptr, 1, narrow, &room));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxWideCharToMultiByte(kCodePageUtf8, u"a", 1, nullptr, &room));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxWideCharToMultiByte(kCodePageUtf8, u"a", 1, narrow, nullptr));
    EXPECT_EQ(0u, Platform().TalxMultiByteToWideChar(kCodePageUtf8, nullptr, 0, wide, &room));
    EXPECT_EQ(0u, room);
    EXPECT_EQ(Failure(kCodeBufferTooSmall),
              Platform().TalxMultiByteToWideChar(kCodePageUtf8, "\xC3\xA9z", 3, nullptr, &room));
    EXPECT_EQ(2u, room) << "asking for the length needs no buffer";
    room = 0;
    EXPECT_EQ(Failure(kCodeBufferTooSmall),
              Platform().TalxWideCharToMultiByte(kCodePageUtf8, u"\u00E9z", 2, nullptr, &room));
    EXPECT_EQ(3u, room);
}

TEST(CharUpperBuff, MapsSimplyAndInPlace)
{
    const struct {
        std::u16string from;
        std::u16string to;
    } cases[] = {
        {u"", u""},
        {u"abc xyz {}@[`", u"ABC XYZ {}@[`"},
        {u"stra\u00DFe", u"STRA\u00DFE"}, // a full mapping would be longer
        {u"\u00E9\u00FF\u0131\u017F", u"\u00C9\u0178IS"},
        {u"\u03B1\u03C2\u03C3", u"\u0391\u03A3\u03A3"},
        {u"\u0444\u044F", u"\u0424\u042F"},
        {u"\u01C6", u"\u01C4"},             // not the title form
        {u"\uFB01", u"\uFB01"},             // a ligature has no simple mapping
        {u"a\U00010428b", u"A\U00010400B"}, // beyond the first plane
        {std::u16string{0xD801}, std::u16string{0xD801}},
        {std::u16string{0xDC28, 0xD801, u'q'}, std::u16string{0xDC28, 0xD801, u'Q'}},
    };
    for (const auto& c : cases) {
        std::vector<WCHAR> text(c.from.begin(), c.from.end());
        EXPECT_EQ(0u, Platform().TalxCharUpperBuff(text.data(), static_cast<UINT32>(text.size())));
        EXPECT_EQ(c.to, std::u16string(text.begin(), text.end()));
    }
    EXPECT_EQ(0u, Platform().TalxCharUpperBuff(nullptr, 0));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxCharUpperBuff(nullptr, 1));
}

} // namespace
} // namespace talpl_test
