// SPDX-License-Identifier: Apache-2.0
//
// ASCII helpers, hexadecimal digits, percent-encoding and base64.
#include <string>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "base/base64.h"
#include "base/hex.h"
#include "base/percent.h"
#include "base/token.h"

namespace base {
namespace {

TEST(Ascii, OnlyLettersChangeCase)
{
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        const bool isUpper = i >= 'A' && i <= 'Z';
        const bool isLower = i >= 'a' && i <= 'z';
        EXPECT_EQ(Lower(c), isUpper ? static_cast<char>(i + 32) : c) << i;
        EXPECT_EQ(Upper(c), isLower ? static_cast<char>(i - 32) : c) << i;
        EXPECT_EQ(IsAlphanumeric(c), isUpper || isLower || (i >= '0' && i <= '9')) << i;
        EXPECT_EQ(IsControl(c), i < 32 || i == 127) << i;
    }
    EXPECT_TRUE(EqualsIgnoringCase("Content-Type", "content-tYPE"));
    EXPECT_FALSE(EqualsIgnoringCase("@", "`"));
    EXPECT_FALSE(EqualsIgnoringCase("a", "ab"));
}

// At every place of texts of every length around the steps of eight.
TEST(Ascii, ScansFindOneByteAnywhere)
{
    for (size_t size = 0; size < 40; ++size) {
        std::string text(size, 'x');
        EXPECT_TRUE(IsAscii(text));
        EXPECT_FALSE(HasControl(text));
        EXPECT_FALSE(HasControlOrTab(text));
        for (size_t i = 0; i < size; ++i) {
            for (int byte = 0; byte < 256; ++byte) {
                text[i] = static_cast<char>(byte);
                const bool isControl = byte < 32 || byte == 127;
                ASSERT_EQ(IsAscii(text), byte < 128) << size << ' ' << i << ' ' << byte;
                ASSERT_EQ(HasControl(text), isControl && byte != '\t') << size << ' ' << byte;
                ASSERT_EQ(HasControlOrTab(text), isControl) << size << ' ' << i << ' ' << byte;
            }
            text[i] = 'x';
        }
    }
}

TEST(Ascii, TabBesideAControlDoesNotHideIt)
{
    EXPECT_TRUE(HasControl("aaaa\t\x01zzzzzzzzzz"));
    EXPECT_TRUE(HasControl("aaaaaaaaaaaaaa\x7F\t"));
    EXPECT_FALSE(HasControl("a\tb\tc\td\te\tf\t"));
}

TEST(Ascii, FieldNamesAreTokensWhateverTheirLength)
{
    EXPECT_FALSE(base::IsFieldName(""));
    for (const size_t length : {1u, 3u, 4u, 7u, 8u, 9u, 15u, 16u, 17u, 23u, 24u, 25u})
        for (size_t place = 0; place < length; ++place)
            for (int byte = 0; byte < 256; ++byte) {
                for (const char other : {'a', 'Z', '-'}) {
                    std::string name(length, other);
                    name[place] = static_cast<char>(byte);
                    EXPECT_EQ(base::IsToken(name), base::IsFieldName(name))
                        << byte << " at " << place << " of " << length;
                }
            }
}

TEST(Ascii, NumbersAreDigitsOnly)
{
    uint64_t number = 7;
    EXPECT_TRUE(ParseDecimal("9223372036854775807", number));
    EXPECT_EQ(number, 9223372036854775807U);
    for (const char* text :
         {"", "+1", "-1", " 1", "1 ", "0x1", "9223372036854775808", "00000000000000000001"})
        EXPECT_FALSE(ParseDecimal(text, number)) << text;
    EXPECT_EQ(number, 9223372036854775807U);
}

TEST(Ascii, ListsAreTakenApart)
{
    std::string_view list = " a,, \t,b\t, c d ,";
    std::string_view element;
    std::string all;
    while (NextElement(list, element))
        all.append("<").append(element).append(">");
    EXPECT_EQ(all, "<a><b><c d>");
}

TEST(Hex, DigitsOfBothCases)
{
    for (int i = 0; i < 256; ++i) {
        const std::string_view digits = "0123456789abcdef";
        const size_t at = digits.find(Lower(static_cast<char>(i)));
        const int expected = at == digits.npos ? -1 : static_cast<int>(at);
        EXPECT_EQ(HexValue(static_cast<char>(i)), expected) << i;
    }
    for (char16_t c = 0; c < 128; ++c)
        EXPECT_EQ(HexValue(c), HexValue(static_cast<char>(c)));
    EXPECT_EQ(HexValue(u'\u0141'), -1); // its low byte is 'A'
    std::string text;
    AppendHex(text, 0xAF, kUpperHex);
    AppendHex(text, 0x0e, kLowerHex);
    EXPECT_EQ(text, "AF0e");
}

TEST(Percent, OnlyUnreservedAndSlashStay)
{
    EXPECT_EQ(PercentEncode("/a-b._~Z9/\u00e9 %?#&+:@"),
              "/a-b._~Z9/%C3%A9%20%25%3F%23%26%2B%3A%40");
    EXPECT_EQ(PercentEncode(std::string_view("\0", 1)), "%00");
    EXPECT_EQ(PercentDecode("/%C3%a9%20%25+"), "/\u00e9 %+");
}

TEST(Percent, IsDecodedOnce)
{
    EXPECT_EQ(PercentDecode("%2525"), "%25");
}

TEST(Percent, MalformedEscape_IsRefused)
{
    for (const char* text : {"%", "%2", "%G0", "%0G", "a%", "%00", "% 1", "%+1"})
        EXPECT_FALSE(PercentDecode(text)) << text;
}

TEST(Percent, OneEscapeIsItsByte)
{
    EXPECT_EQ(EscapedByte("a%2F", 1), '/');
    EXPECT_EQ(EscapedByte("%ff", 0), 0xFF);
    EXPECT_EQ(EscapedByte("%00", 0), 0);
    EXPECT_EQ(EscapedByte("a", 0), -1);
    EXPECT_EQ(EscapedByte("%2", 0), -1);
}

TEST(Percent, EveryByteGoesThereAndBack)
{
    std::string all;
    for (int i = 1; i < 256; ++i)
        all += static_cast<char>(i);
    EXPECT_EQ(PercentDecode(PercentEncode(all)), all);
}

TEST(Base64, OneSpellingPerText)
{
    EXPECT_EQ(DecodeBase64(""), "");
    EXPECT_EQ(DecodeBase64("YQ=="), "a");
    EXPECT_EQ(DecodeBase64("YWI="), "ab");
    EXPECT_EQ(DecodeBase64("YWJj"), "abc");
    EXPECT_EQ(DecodeBase64("+/+/"), "\xfb\xff\xbf");
    for (const char* text : {"Y",       "YQ",       "YQ=",  "YR==",         "YWJ=", "YW Jj",
                             "YWJj=",   "====",     "Y=Q=", "-_-_",         " YWJ", "YWJ ",
                             "YWJ\n",   "YQ==YQ==", "Y===", "YWJj\n\n\n\n", "    ", "\nYWJ",
                             "YWJj-BC", "YWJj====", "=YWJ", "YQ\xff="})
        EXPECT_FALSE(DecodeBase64(text)) << text;
    EXPECT_FALSE(DecodeBase64(std::string_view("YW\0j", 4)));
}

TEST(Base64, EveryLengthGoesThereAndBack)
{
    std::string bytes;
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes);
        bytes += static_cast<char>(i * 37);
    }
}

} // namespace
} // namespace base
