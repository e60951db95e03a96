// SPDX-License-Identifier: Apache-2.0
#include "index/text.h"
#include "support/utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

std::string Cut(const std::u16string& text, size_t room)
{
    std::string out(room + 1, '#');
    const size_t bytes = WideToUtf8Cut(text.data(), text.size(), out.data(), room);
    EXPECT_LT(bytes, room);
    EXPECT_EQ(out[bytes], '\0');
    EXPECT_EQ(out[room], '#') << "written past the room";
    return out.substr(0, bytes);
}

} // namespace

TEST(IndexText, Conversion_CutsBehindAWholeCharacter)
{
    EXPECT_EQ(Cut(u"abc", 10), "abc");
    EXPECT_EQ(Cut(u"abc", 4), "abc");
    EXPECT_EQ(Cut(u"abc", 3), "ab");
    EXPECT_EQ(Cut(u"a\u00e4", 3), "a");
    EXPECT_EQ(Cut(u"a\u00e4", 4), "a\xc3\xa4");
    EXPECT_EQ(Cut(u"\u20ac\u20ac", 6), "\xe2\x82\xac");
    EXPECT_EQ(Cut(u"\U0001F600x", 4), "");
    EXPECT_EQ(Cut(u"\U0001F600x", 5), "\xf0\x9f\x98\x80");
    EXPECT_EQ(Cut(u"", 1), "");
    EXPECT_EQ(Cut(u"x", 1), "");
}

TEST(IndexText, MalformedText_BecomesEmpty)
{
    EXPECT_EQ(Cut(std::u16string(1, char16_t{0xD800}) + u"x", 16), "");
}

TEST(IndexText, Characters_AreBytes)
{
    EXPECT_EQ(utf8strlen(""), 0U);
    EXPECT_EQ(utf8strlen("abc"), 3U);
    EXPECT_EQ(utf8strlen("\xc3\xa4"), 2U);
    const char* text = "ab";
    EXPECT_EQ(utf8NextChar(text), text + 1);
    EXPECT_EQ(utf8NextChar(text + 2), text + 2) << "stays on the terminator";
}

TEST(IndexText, DecimalNumbers_AreBounded)
{
    EXPECT_EQ(ParseDecimal("11"), 11U);
    EXPECT_EQ(ParseDecimal(" 7x"), 7U);
    EXPECT_EQ(ParseDecimal(""), 0U);
    EXPECT_EQ(ParseDecimal("x"), 0U);
    EXPECT_EQ(ParseDecimal("4294967295"), 4294967295U);
    EXPECT_EQ(ParseDecimal("4294967296"), 4294967295U);
    EXPECT_EQ(ParseDecimal("99999999999999999999"), 4294967295U);
    EXPECT_EQ(ParseDecimal("-1"), 4294967295U);
}
