// SPDX-License-Identifier: Apache-2.0
//
// The strict converter between UTF-8 and UTF-16.
#include "base/utf.h"

#include <string>

#include <gtest/gtest.h>

namespace base {
namespace {

const std::string kMalformed[] = {
    "\x80",         "\xC0\xAF",         "\xC1\xBF",         "\xC3",     "\xE2\x82",
    "\xE0\x80\xAF", "\xE0\x9F\xBF",     "\xED\xA0\x80",     "\xED\xBF", "\xF0\x80\x80\xAF",
    "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80", "a\xFF",    "\xC3(",
};

TEST(Utf8, MalformedText_IsRefused)
{
    for (const std::string& bad : kMalformed)
        for (const std::string& before : {std::string(), std::string(40, 'x'), std::string("é")})
            for (const std::string& behind : {std::string(), std::string("z"), std::string("é")}) {
                const std::string text = before + bad + behind;
                EXPECT_FALSE(IsUtf8(text)) << text;
                EXPECT_FALSE(ToUtf16(text)) << text;
                std::u16string out = u"kept";
                EXPECT_FALSE(AppendUtf16(text, out));
                EXPECT_EQ(out, u"kept");
                char16_t room[100];
                size_t used = 0;
                EXPECT_EQ(Utf8ToUtf16(text, room, std::size(room), used), Converted::Malformed);
                // Whether it is malformed or too long does not depend on the room.
                EXPECT_EQ(Utf8ToUtf16(text, room, 0, used), Converted::Malformed) << text;
            }
}

TEST(Utf8, EveryPlane_GoesThereAndBack)
{
    for (const std::string& before : {std::string(), std::string(15, 'x'), std::string(33, 'x')}) {
        const std::string text = before + "a\u00e9\u20ac\U0001F600\U0010FFFF\uFFFF";
        const auto wide = ToUtf16(text);
        ASSERT_TRUE(wide);
        EXPECT_EQ(wide->size(), before.size() + 8);
        EXPECT_EQ(ToUtf8(*wide), text);
        EXPECT_TRUE(IsUtf8(text));
        EXPECT_TRUE(IsUtf16(*wide));
    }
}

// Every length around the steps of the ASCII run, with the first other character anywhere in it.
TEST(Utf8, AsciiRunOfAnyLength)
{
    for (size_t size = 0; size < 70; ++size)
        for (size_t other = 0; other <= size; ++other) {
            std::string text;
            for (size_t i = 0; i < size; ++i)
                text += static_cast<char>('!' + i);
            std::u16string expected(text.begin(), text.end());
            if (other < size) {
                text.replace(other, 1, "\xC3\xA4");
                expected[other] = u'ä';
            }
            ASSERT_EQ(ToUtf16(text), expected);
            ASSERT_EQ(ToUtf8(expected), text);
        }
}

TEST(Utf16, UnpairedSurrogate_IsRefused)
{
    for (const std::u16string& text :
         {std::u16string{0xD800}, std::u16string{0xDC00, 0xD800}, std::u16string{0xD800, u'a'},
          std::u16string{u'a', 0xDFFF}, std::u16string{0xD800, 0xD800, 0xDC00}}) {
        EXPECT_FALSE(ToUtf8(text));
        EXPECT_FALSE(IsUtf16(text));
        std::string out = "kept";
        EXPECT_FALSE(AppendUtf8(text, out));
        EXPECT_EQ(out, "kept");
    }
}

TEST(Conversion, SaysHowMuchRoomItNeeds)
{
    struct Row {
        const char* text;
        size_t units;
    };
    for (const Row& row : {Row{"abcd", 4}, Row{"ab\u00e9", 3}, Row{"\U0001F600x", 3}}) {
        for (size_t room = 0; room < row.units; ++room) {
            std::u16string out(room + 1, u'#');
            size_t used = 0;
            EXPECT_EQ(Utf8ToUtf16(row.text, out.data(), room, used), Converted::TooLong);
            EXPECT_EQ(used, row.units) << row.text;
            EXPECT_EQ(out.back(), u'#'); // nothing past the room
        }
        std::u16string out(row.units + 1, u'#');
        size_t used = 0;
        EXPECT_EQ(Utf8ToUtf16(row.text, out.data(), row.units, used), Converted::Whole);
        EXPECT_EQ(used, row.units);
        EXPECT_EQ(out.back(), u'#');
        const std::u16string wide = out.substr(0, used);
        std::string back(std::string_view(row.text).size() + 1, '#');
        EXPECT_EQ(Utf16ToUtf8(wide, back.data(), back.size() - 1, used), Converted::Whole);
        EXPECT_EQ(back, std::string(row.text) + "#");
        EXPECT_EQ(Utf16ToUtf8(wide, back.data(), 0, used), Converted::TooLong);
        EXPECT_EQ(used, back.size() - 1);
    }
}

TEST(Conversion, ReplacesForMessages)
{
    EXPECT_EQ(ToUtf16Replacing("a\xFF\xC3\xA4"), u"a\uFFFDä");
    EXPECT_EQ(ToUtf8Replacing(std::u16string{u'a', 0xD800, u'b'}), "a\uFFFDb");
}

TEST(CodePoint, IsReadOneByOne)
{
    const std::string text = "a\u00e9\u20ac\U0001F600";
    std::string_view rest = text;
    std::u32string points;
    for (char32_t point = 0; size_t bytes = DecodeCodePoint(rest, point);) {
        points += point;
        rest.remove_prefix(bytes);
    }
    EXPECT_EQ(points, U"a\u00e9\u20ac\U0001F600");
    char32_t point = 0;
    for (const std::string& bad : kMalformed)
        EXPECT_EQ(DecodeCodePoint(bad, point), bad == "a\xFF" ? 1U : 0U) << bad;
}

} // namespace
} // namespace base
