// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

INT32 Compare(std::u16string_view a, std::u16string_view b, BOOLEAN ignoreCase)
{
    const UNICODE_STRING ca = Counted(a);
    const UNICODE_STRING cb = Counted(b);
    const INT32 order = Platform().TalxCompareUnicodeString(&ca, &cb, ignoreCase);
    EXPECT_EQ(-order, Platform().TalxCompareUnicodeString(&cb, &ca, ignoreCase));
    EXPECT_EQ(order == 0 ? TRUE : FALSE, Platform().TalxEqualUnicodeString(&ca, &cb, ignoreCase));
    return order;
}

INT32 Compare(std::string_view a, std::string_view b, BOOLEAN ignoreCase)
{
    const STRING ca = Counted(a);
    const STRING cb = Counted(b);
    const INT32 order = Platform().TalxCompareString(&ca, &cb, ignoreCase);
    EXPECT_EQ(-order, Platform().TalxCompareString(&cb, &ca, ignoreCase));
    EXPECT_EQ(order == 0 ? TRUE : FALSE, Platform().TalxEqualString(&ca, &cb, ignoreCase));
    return order;
}

TEST(Compare, WideTextsByCodeUnit)
{
    EXPECT_EQ(0, Compare(u"", u"", FALSE));
    EXPECT_EQ(-1, Compare(u"", u"a", FALSE));
    EXPECT_EQ(-1, Compare(u"ab", u"abc", FALSE));
    EXPECT_EQ(-1, Compare(u"B", u"a", FALSE));
    EXPECT_EQ(1, Compare(u"\uFFFF", u"\U00010000", FALSE)) << "surrogates stand before U+FFFF";
    EXPECT_EQ(-1, Compare(u"\u00FF", u"\u0100", FALSE)) << "not byte by byte";
}

TEST(Compare, WideTextsWithoutCaseByUpperCase)
{
    const std::u16string lone{0xD801};
    EXPECT_EQ(0, Compare(u"/Ferro/DOCS", u"/fERRO/docs", TRUE));
    EXPECT_EQ(-1, Compare(u"B", u"a", FALSE));
    EXPECT_EQ(1, Compare(u"B", u"a", TRUE));
    EXPECT_EQ(1, Compare(u"_", u"a", TRUE)) << "'_' stands after 'A' and before 'a'";
    EXPECT_EQ(0,
              Compare(u"\u043E\u0442\u0447\u0451\u0442", u"\u041E\u0422\u0427\u0401\u0422", TRUE));
    EXPECT_EQ(0, Compare(u"\u03C3", u"\u03C2", TRUE)) << "both sigmas have one capital";
    EXPECT_NE(0, Compare(u"\u00DF", u"SS", TRUE));
    EXPECT_EQ(0, Compare(u"x\U00010428y", u"X\U00010400Y", TRUE));
    EXPECT_NE(0, Compare(u"x\U00010428", u"x\U00010429", TRUE));
    EXPECT_EQ(-1, Compare(lone, u"\U00010428", TRUE)) << "a prefix";
    EXPECT_EQ(0, Compare(u"a" + lone + u"B", u"A" + lone + u"b", TRUE));
    EXPECT_EQ(-1, Compare(u"ABC", u"abcd", TRUE));
}

TEST(Compare, NarrowTexts)
{
    EXPECT_EQ(0, Compare("", "", TRUE));
    EXPECT_EQ(-1, Compare("a", "\x80", FALSE)) << "bytes are unsigned";
    EXPECT_EQ(0, Compare("Content-TYPE", "content-type", TRUE));
    EXPECT_NE(0, Compare("Content-TYPE", "content-type", FALSE));
    EXPECT_EQ(0, Compare("\xC3\xA9", "\xC3\x89", TRUE));
    EXPECT_EQ(0, Compare("\xF0\x90\x90\xA8", "\xF0\x90\x90\x80", TRUE));
    EXPECT_EQ(1, Compare("\xFF", "\xF4\x8F\xBF\xBF", TRUE)) << "no UTF-8: after every code point";
    EXPECT_EQ(-1, Compare("\xC3", "\xC4", TRUE));
    EXPECT_EQ(1, Compare("\xC3", "\xC3\xA9z", TRUE)) << "a cut sequence is no UTF-8";
    EXPECT_EQ(-1, Compare("ab", "ABC", TRUE));
}

TEST(Compare, AnEmptyBufferIsAnEmptyText)
{
    const UNICODE_STRING none{0, 0, nullptr};
    const UNICODE_STRING empty = Counted(u"");
    EXPECT_EQ(0, Platform().TalxCompareUnicodeString(&none, &empty, TRUE));
    EXPECT_EQ(TRUE, Platform().TalxEqualUnicodeString(&none, &empty, FALSE));
    EXPECT_EQ(TRUE, Platform().TalxEqualUnicodeString(nullptr, &empty, FALSE));
}

TEST(Copy, TakesAtMostTheTargetsRoom)
{
    const UNICODE_STRING from = Counted(u"abcdef");
    for (UINT16 room = 0; room <= 14; ++room) {
        WCHAR buffer[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        UNICODE_STRING to{4, room, buffer};
        EXPECT_EQ(0u, Platform().TalxCopyUnicodeString(&to, &from));
        const auto expected = static_cast<UINT16>(std::min<unsigned>(room & ~1u, 12));
        EXPECT_EQ(expected, to.Length);
        EXPECT_EQ(room, to.MaximumLength);
        EXPECT_EQ(0, std::memcmp(buffer, u"abcdef", expected));
        EXPECT_EQ(9, buffer[expected / 2]) << "no terminator, nothing past the end";
    }
    const STRING text = Counted("abc");
    char buffer[4] = {9, 9, 9, 9};
    STRING to{0, 2, buffer};
    EXPECT_EQ(0u, Platform().TalxCopyString(&to, &text));
    EXPECT_EQ(2, to.Length);
    EXPECT_EQ(9, buffer[2]);
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxCopyString(nullptr, &text));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxCopyUnicodeString(nullptr, &from));
    UNICODE_STRING noBuffer{0, 8, nullptr};
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxCopyUnicodeString(&noBuffer, &from));
    EXPECT_EQ(0, noBuffer.Length);
}

TEST(Append, IsAllOrNothing)
{
    WCHAR buffer[6] = {u'a', u'b', 9, 9, 9, 9};
    UNICODE_STRING to{4, 10, buffer};
    const UNICODE_STRING more = Counted(u"cd");
    EXPECT_EQ(0u, Platform().TalxAppendUnicodeStringToString(&to, &more));
    EXPECT_EQ(8, to.Length);
    EXPECT_EQ(Failure(kCodeBufferTooSmall), Platform().TalxAppendUnicodeStringToString(&to, &more));
    EXPECT_EQ(Failure(kCodeBufferTooSmall), Platform().TalxAppendUnicodeToString(&to, u"ef"));
    EXPECT_EQ(8, to.Length);
    EXPECT_EQ(9, buffer[4]);
    EXPECT_EQ(0u, Platform().TalxAppendUnicodeToString(&to, u"e"));
    EXPECT_EQ(u"abcde", std::u16string(buffer, to.Length / 2));
    EXPECT_EQ(9, buffer[5]);
    EXPECT_EQ(0u, Platform().TalxAppendUnicodeToString(&to, u""));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxAppendUnicodeToString(&to, nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxAppendUnicodeToString(nullptr, u"a"));
    UNICODE_STRING broken{12, 10, buffer};
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxAppendUnicodeToString(&broken, u"a"));
}

TEST(Append, AStringToItselfDoubles)
{
    WCHAR buffer[4] = {u'a', u'b', 0, 0};
    UNICODE_STRING to{4, 8, buffer};
    EXPECT_EQ(0u, Platform().TalxAppendUnicodeStringToString(&to, &to));
    EXPECT_EQ(u"abab", std::u16string(buffer, to.Length / 2));
}

TEST(Init, CountsTheTextAndItsTerminator)
{
    UNICODE_STRING wide{};
    EXPECT_EQ(0u, Platform().TalxInitUnicodeString(&wide, u"abc"));
    EXPECT_EQ(6, wide.Length);
    EXPECT_EQ(8, wide.MaximumLength);
    STRING narrow{};
    EXPECT_EQ(0u, Platform().TalxInitString(&narrow, "abc"));
    EXPECT_EQ(3, narrow.Length);
    EXPECT_EQ(4, narrow.MaximumLength);
    EXPECT_EQ(0u, Platform().TalxInitString(&narrow, nullptr));
    EXPECT_EQ(0, narrow.Length);
    EXPECT_EQ(0, narrow.MaximumLength);
    EXPECT_EQ(nullptr, narrow.Buffer);
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxInitString(nullptr, "a"));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxInitUnicodeString(nullptr, u"a"));
}

TEST(Init, RefusesTextsThatCannotBeCounted)
{
    UNICODE_STRING wide{1, 2, nullptr};
    EXPECT_EQ(0u, Platform().TalxInitUnicodeString(&wide, std::u16string(0x7FFE, u'a').c_str()));
    EXPECT_EQ(0xFFFC, wide.Length);
    EXPECT_EQ(0xFFFE, wide.MaximumLength);
    EXPECT_EQ(Failure(kCodeNameTooLong),
              Platform().TalxInitUnicodeString(&wide, std::u16string(0x7FFF, u'a').c_str()));
    EXPECT_EQ(0xFFFC, wide.Length) << "left alone on failure";
    STRING narrow{};
    EXPECT_EQ(0u, Platform().TalxInitString(&narrow, std::string(0xFFFE, 'a').c_str()));
    EXPECT_EQ(Failure(kCodeNameTooLong),
              Platform().TalxInitString(&narrow, std::string(0xFFFF, 'a').c_str()));
}

TEST(Numbers, PrintInTheirBase)
{
    const struct {
        UINT32 value;
        UINT32 base;
        const char16_t* text;
    } cases[] = {
        {0, 10, u"0"},
        {0, 0, u"0"},
        {4294967295u, 10, u"4294967295"},
        {4294967295u, 0, u"4294967295"},
        {255, 16, u"FF"},
        {8, 8, u"10"},
        {5, 2, u"101"},
        {4294967295u, 2, u"11111111111111111111111111111111"},
    };
    for (const auto& c : cases) {
        WCHAR buffer[33];
        UNICODE_STRING to{0, 64, buffer};
        EXPECT_EQ(0u, Platform().TalxIntegerToUnicodeString(c.value, c.base, &to));
        EXPECT_EQ(c.text, std::u16string(buffer, to.Length / 2));
        const auto exact = to.Length;
        to = {2, static_cast<UINT16>(exact - 1), buffer};
        EXPECT_EQ(Failure(kCodeBufferTooSmall),
                  Platform().TalxIntegerToUnicodeString(c.value, c.base, &to));
        EXPECT_EQ(2, to.Length);
    }
    UNICODE_STRING to{0, 0, nullptr};
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxIntegerToUnicodeString(1, 7, &to));
    EXPECT_EQ(Failure(kCodeBufferTooSmall), Platform().TalxIntegerToUnicodeString(1, 10, &to));
}

TEST(Numbers, AreReadInTheirBase)
{
    const struct {
        const char16_t* text;
        UINT32 base;
        INT64 value; // -1: refused
    } cases[] = {
        {u"0", 10, 0},           {u"4294967295", 10, 4294967295},
        {u"4294967296", 10, -1}, {u"00000000000001", 10, 1},
        {u"", 10, -1},           {u" 1", 10, -1},
        {u"1 ", 10, -1},         {u"+1", 10, -1},
        {u"-1", 10, -1},         {u"fF", 16, 255},
        {u"g", 16, -1},          {u"8", 8, -1},
        {u"101", 2, 5},          {u"2", 2, -1},
        {u"0x1F", 0, 31},        {u"0X1f", 0, 31},
        {u"0b11", 0, 3},         {u"0o17", 0, 15},
        {u"017", 0, 17},         {u"0x", 0, -1},
        {u"0x10", 16, -1},       {u"99999999999999999999999999", 10, -1},
        {u"\uFF11", 10, -1},
    };
    for (const auto& c : cases) {
        const UNICODE_STRING text = Counted(c.text);
        UINT32 value = 77;
        const TALSTATUS status = Platform().TalxUnicodeStringToInteger(&text, c.base, &value);
        EXPECT_EQ(c.value < 0 ? Failure(kCodeInvalidRequest) : 0u, status)
            << testing::PrintToString(std::u16string(c.text));
        EXPECT_EQ(c.value < 0 ? 77u : static_cast<UINT32>(c.value), value);
    }
    const UNICODE_STRING one = Counted(u"1");
    UINT32 value = 0;
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxUnicodeStringToInteger(&one, 36, &value));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxUnicodeStringToInteger(nullptr, 10, &value));
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxUnicodeStringToInteger(&one, 10, nullptr));
}

TEST(RawMemory, ComparesCopiesFillsAndMoves)
{
    char a[] = "abcdef";
    EXPECT_LT(Platform().TalxCompareMemory("a\x80", "a\xFF", 2), 0);
    EXPECT_GT(Platform().TalxCompareMemory("b", "a", 1), 0);
    EXPECT_EQ(0, Platform().TalxCompareMemory("ax", "ay", 1));
    EXPECT_EQ(0, Platform().TalxCompareMemory(nullptr, nullptr, 0));
    EXPECT_EQ(0u, Platform().TalxMoveMemory(a + 1, a, 4));
    EXPECT_STREQ("aabcdf", a);
    EXPECT_EQ(0u, Platform().TalxCopyMemory(a, "xyz", 3));
    EXPECT_STREQ("xyzcdf", a);
    EXPECT_EQ(0u, Platform().TalxFillMemory(a, 2, 'q'));
    EXPECT_STREQ("qqzcdf", a);
    EXPECT_EQ(0u, Platform().TalxZeroMemory(a, 6));
    EXPECT_STREQ("", a);
    EXPECT_EQ(0u, Platform().TalxCopyMemory(nullptr, nullptr, 0));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxCopyMemory(nullptr, a, 1));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxMoveMemory(a, nullptr, 1));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxFillMemory(nullptr, 1, 0));
}

TEST(Terminated, LengthsAndHashes)
{
    EXPECT_EQ(0u, Platform().TalxStrlen(""));
    EXPECT_EQ(3u, Platform().TalxStrlen("a\xC3\xA9"));
    EXPECT_EQ(0u, Platform().TalxStrlen(nullptr));
    EXPECT_EQ(2u, Platform().TalxStrlenW(u"a\u00E9"));
    EXPECT_EQ(0u, Platform().TalxStrlenW(nullptr));
    EXPECT_EQ(0x811C9DC5u, Platform().TalxStrHash(""));
    EXPECT_EQ(0xBF9CF968u, Platform().TalxStrHash("foobar")) << "FNV-1a, 32 bits";
    EXPECT_EQ(Platform().TalxStrHashW(u"ab"), Platform().TalxStrHashW(u"ab"));
    EXPECT_NE(Platform().TalxStrHashW(u"ab"), Platform().TalxStrHashW(u"ba"));
    EXPECT_NE(Platform().TalxStrHashW(u"\u0101"), Platform().TalxStrHashW(u"\u0001"));
}

} // namespace
} // namespace talpl_test
