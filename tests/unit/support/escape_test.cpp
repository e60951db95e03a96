// SPDX-License-Identifier: Apache-2.0
#include "support/escape.h"

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/globals.h"
#include <kest/com.h>
#include <kest/status.h>

ITalpl* pITalpl = nullptr;

namespace {

struct Case {
    std::string in;
    std::string out;
};

std::string UriEscape(const std::string& in)
{
    std::vector<char> out(in.size() * 3 + 1, '!');
    uri_escape(out.data(), in.c_str());
    return out.data();
}

std::string XmlEscape(const std::string& in)
{
    std::vector<char> out(in.size() * kXmlEscapeBytes + 1, '!');
    xml_escape(out.data(), in.c_str());
    return out.data();
}

// Escapes into a buffer of exactly `room` bytes, so that a sanitizer sees a byte too many.
TALSTATUS PathEscape(std::string in, UINT16 room, std::string& out)
{
    std::vector<char> buffer(room);
    STRING path = {static_cast<UINT16>(in.size()), static_cast<UINT16>(in.size()), in.data()};
    STRING uri = {0, room, buffer.data()};
    const TALSTATUS status = ConvertUTF8PathToUTF8EscapedUri(&path, &uri);
    if (status == TAL_STATUS_SUCCESS) {
        out.assign(uri.Buffer, uri.Length);
        EXPECT_EQ(uri.Buffer[uri.Length], 0);
    }
    return status;
}

std::string PathEscape(const std::string& in)
{
    std::string out;
    EXPECT_EQ(PathEscape(in, static_cast<UINT16>(in.size() * 3 + 1), out), TAL_STATUS_SUCCESS);
    return out;
}

TEST(Strdup, CopiesIntoPlatformMemory)
{
    Ref<ITalpl> platform;
    ASSERT_EQ(Create(CLSID_HadranTalpl, platform), TAL_STATUS_SUCCESS);
    pITalpl = platform.Get();
    for (const char* text : {"", "a", "some longer text"}) {
        char* const copy = kestdav_strdup(text);
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy, text);
        EXPECT_STREQ(copy, text);
        EXPECT_EQ(pITalpl->TalxFreeMemory(copy), TAL_STATUS_SUCCESS);
    }
    pITalpl = nullptr;
}

TEST(UriEscape, EscapesItsFourteenCharactersInLowerCase)
{
    const Case cases[] = {
        {"", ""},     {"a b", "a%20b"}, {"x:y", "x%3ay"}, {"?", "%3f"}, {"%", "%25"},
        {"#", "%23"}, {"+", "%2b"},     {"&", "%26"},     {"*", "%2a"}, {"\"", "%22"},
        {"'", "%27"}, {"<", "%3c"},     {">", "%3e"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(UriEscape(c.in), c.out) << c.in;
}

TEST(UriEscape, PadsLineEndsWithABlank)
{
    EXPECT_EQ(UriEscape("\r"), "% d");
    EXPECT_EQ(UriEscape("\n"), "% a");
}

TEST(UriEscape, DoublesABackslash)
{
    EXPECT_EQ(UriEscape("\\"), "\\\\");
    EXPECT_EQ(UriEscape("a\\\\b"), "a\\\\\\\\b");
}

TEST(UriEscape, PassesEverythingElse)
{
    EXPECT_EQ(UriEscape("\xC3\xA9/=;~!$()[]^`{|}\t\x7F"), "\xC3\xA9/=;~!$()[]^`{|}\t\x7F");
}

TEST(XmlEscape, WritesAReferenceAndTheCharacterItself)
{
    EXPECT_EQ(XmlEscape("<"), "&#x3C<");
    EXPECT_EQ(XmlEscape("a&b"), "a&#x26&b");
    EXPECT_EQ(XmlEscape("\"'>"), "&#x22\"&#x27'&#x3E>");
}

TEST(XmlEscape, WritesOnlyAReferenceOutsideThePrintableRange)
{
    EXPECT_EQ(XmlEscape("\t"), "&#x 9");
    EXPECT_EQ(XmlEscape("\x7F"), "&#x7F");
    EXPECT_EQ(XmlEscape("\xE9"), "&#xFFFFFFE9");
    EXPECT_EQ(XmlEscape("\xC3\xA9"), "&#xFFFFFFC3&#xFFFFFFA9");
}

TEST(XmlEscape, PassesOtherPrintablesAndTheEmptyText)
{
    EXPECT_EQ(XmlEscape(""), "");
    EXPECT_EQ(XmlEscape(" ~/%#a"), " ~/%#a");
}

TEST(UriUnescape, DecodesEitherCaseAndKeepsPlus)
{
    const Case cases[] = {{"%41%6a", "Aj"}, {"%6A%4a", "jJ"},       {"a+b", "a+b"},
                          {"", ""},         {"%C3%a9", "\xC3\xA9"}, {"%2541", "%41"}};
    for (const Case& c : cases) {
        std::string text = c.in;
        ASSERT_EQ(uri_unescape(text.data()), TAL_STATUS_SUCCESS) << c.in;
        EXPECT_STREQ(text.data(), c.out.c_str()) << c.in;
    }
}

TEST(UriUnescape, DecodedNulEndsTheTextForItsReader)
{
    std::string text = "a%00b";
    ASSERT_EQ(uri_unescape(text.data()), TAL_STATUS_SUCCESS);
    EXPECT_STREQ(text.data(), "a");
}

TEST(UriUnescape, StopsAtAMalformedEscapeAndLeavesTheRest)
{
    const Case cases[] = {{"%4", "%4"},          {"%G1", "%G1"}, {"%", "%"},
                          {"%1G", "%1G"},        {"%-1", "%-1"}, {"%41%4", "A41%4"},
                          {"x%41%zz", "xA41%zz"}};
    for (const Case& c : cases) {
        std::string text = c.in;
        EXPECT_EQ(uri_unescape(text.data()), 0xC7B50001u) << c.in;
        EXPECT_STREQ(text.data(), c.out.c_str()) << c.in;
    }
}

TEST(PathEscape, EscapesForHrefsInUpperCase)
{
    const Case cases[] = {
        {"", ""},
        {"/", "/"},
        {"/dir/a b#1.txt", "/dir/a%20b%231.txt"},
        {"/x@y", "/x%40y"},
        {"/{a}", "/{a}"},
        {"\n", "%0A"},
        {"\x7F", "%7F"},
        {"\xC3\xA9", "%C3%A9"},
        {":;<=>?@", "%3A%3B%3C%3D%3E%3F%40"},
        {"[\\]^", "%5B%5C%5D%5E"},
        {"\"#%&`", "%22%23%25%26%60"},
        {"/{|}~+,*!$'()-._", "/{|}~+,*!$'()-._"},
        {std::string("a\0b", 3), std::string("a\0b", 3)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(PathEscape(c.in), c.out) << c.in;
}

TEST(PathEscape, EveryByteIsEitherKeptOrEscapedAsTheTableSays)
{
    const std::string escaped =
        "\x01\x02\x03\x04\x05\x06\x07\x08\t\n\v\f\r\x0E\x0F\x10\x11\x12\x13"
        "\x14\x15\x16\x17\x18\x19\x1A\x1B\x1C\x1D\x1E\x1F :;<=>?@[\\]^\"#%&`"
        "\x7F";
    for (int byte = 0; byte < 256; ++byte) {
        const auto c = static_cast<char>(byte);
        const bool expected = byte >= 0x80 || (byte != 0 && escaped.find(c) != std::string::npos);
        EXPECT_EQ(PathEscape(std::string(1, c)).size(), expected ? 3u : 1u) << byte;
    }
}

TEST(PathEscape, AnEscapeNeedsAByteFreeBehindIt)
{
    std::string out;
    EXPECT_EQ(PathEscape(" ", 3, out), TAL_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(PathEscape(" ", 4, out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(PathEscape("a ", 4, out), TAL_STATUS_BUFFER_TOO_SMALL);
}

TEST(PathEscape, PlainTextNeverPassesTheBuffer)
{
    std::string out;
    EXPECT_EQ(PathEscape("abc", 2, out), TAL_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(PathEscape("abc", 3, out), TAL_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(PathEscape("abc", 4, out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(PathEscape("", 0, out), TAL_STATUS_BUFFER_TOO_SMALL);
}

TEST(U64ToAscii, PrintsAndCountsDigits)
{
    char text[65];
    EXPECT_EQ(U64ToAscii(0, 10, text), 1);
    EXPECT_STREQ(text, "0");
    EXPECT_EQ(U64ToAscii(9007199254740993, 10, text), 16);
    EXPECT_STREQ(text, "9007199254740993");
    EXPECT_EQ(U64ToAscii(std::numeric_limits<UINT64>::max(), 10, text), 20);
    EXPECT_STREQ(text, "18446744073709551615");
    EXPECT_EQ(U64ToAscii(std::numeric_limits<UINT64>::max(), 2, text), 64);
    EXPECT_EQ(std::string(text), std::string(64, '1'));
}

TEST(U64ToAscii, CountsOnFromNineAboveBaseTen)
{
    char text[8];
    EXPECT_EQ(U64ToAscii(0x1F, 16, text), 2);
    EXPECT_STREQ(text, "1?"); // '0' + 15
}

TEST(U64ToAscii, BasesBelowTwoGiveNothing)
{
    char text[8] = "x";
    EXPECT_EQ(U64ToAscii(7, 0, text), 0);
    EXPECT_EQ(U64ToAscii(7, 1, text), 0);
    EXPECT_STREQ(text, "");
}

} // namespace
