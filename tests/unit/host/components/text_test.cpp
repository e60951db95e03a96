// SPDX-License-Identifier: Apache-2.0
#include "host/components/text.h"

#include <gtest/gtest.h>

#include "host/components/mime.h"

namespace kestd {
namespace {

TEST(Utf8, MalformedText_IsRefused)
{
    for (const std::string text :
         {"\x80", "\xC0\xAF", "\xC3", "\xE2\x82", "\xE0\x80\xAF", "\xED\xA0\x80",
          "\xF0\x80\x80\xAF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "a\xFF", "\xC3("}) {
        EXPECT_FALSE(IsValidUtf8(text));
        EXPECT_FALSE(ToUtf16(text));
    }
}

TEST(Utf8, EveryPlane_GoesThereAndBack)
{
    const std::string text = "a\u00e9\u20ac\U0001F600\U0010FFFF";
    const auto wide = ToUtf16(text);
    ASSERT_TRUE(wide);
    EXPECT_EQ(wide->size(), 7U);
    EXPECT_EQ(ToUtf8(*wide), text);
}

TEST(Utf16, UnpairedSurrogate_IsRefused)
{
    EXPECT_FALSE(ToUtf8(std::u16string{0xD800}));
    EXPECT_FALSE(ToUtf8(std::u16string{0xDC00, 0xD800}));
    EXPECT_FALSE(ToUtf8(std::u16string{0xD800, u'a'}));
}

TEST(UriPath, OnlyUnreservedAndSlashStay)
{
    EXPECT_EQ(EscapeUriPath("/a-b._~Z9/\u00e9 %?#&+:@"),
              "/a-b._~Z9/%C3%A9%20%25%3F%23%26%2B%3A%40");
    EXPECT_EQ(UnescapeUriPath("/%C3%a9%20%25+"), "/\u00e9 %+");
}

TEST(UriPath, MalformedEscape_IsRefused)
{
    for (const char* text : {"%", "%2", "%G0", "%0G", "a%", "%00"})
        EXPECT_FALSE(UnescapeUriPath(text)) << text;
}

TEST(Base64, OneSpellingPerText)
{
    EXPECT_EQ(DecodeBase64(""), "");
    EXPECT_EQ(DecodeBase64("YQ=="), "a");
    EXPECT_EQ(DecodeBase64("YWI="), "ab");
    EXPECT_EQ(DecodeBase64("YWJj"), "abc");
    EXPECT_EQ(DecodeBase64("+/+/"), "\xfb\xff\xbf");
    for (const char* text :
         {"Y", "YQ", "YQ=", "YR==", "YWJ=", "YW Jj", "YWJj=", "====", "Y=Q=", "-_-_"})
        EXPECT_FALSE(DecodeBase64(text)) << text;
}

TEST(MimeType, TableCountsBeforeBuiltInList)
{
    const MimeTypes types("# comment\n"
                          "text/x-odd\ttxt odd  Loud # tail\r\n"
                          "broken-line ext\n"
                          "application/later txt\n"
                          "application/only\n"
                          "image/last LAST");
    EXPECT_STREQ(types.Find(std::string_view("a.txt")), "text/x-odd");
    EXPECT_STREQ(types.Find(std::string_view("a.LOUD")), "text/x-odd");
    EXPECT_STREQ(types.Find(std::string_view("a.last")), "image/last");
    EXPECT_STREQ(types.Find(std::string_view("a.png")), "image/png");
    EXPECT_EQ(types.Find(std::string_view("a.ext")), nullptr);
    EXPECT_EQ(types.Find(std::string_view("a.tail")), nullptr);
}

TEST(MimeType, IsThatOfTheLastExtension)
{
    const MimeTypes types("");
    struct Row {
        const char16_t* name;
        const char* type;
    };
    const Row rows[] = {
        {u"/vol/a.b/file", nullptr},
        {u"file.tar.gz", "application/gzip"},
        {u".png", nullptr},
        {u"/dir/.png", nullptr},
        {u"a.png", "image/png"},
        {u"/x/A.PnG", "image/png"},
        {u"a.", nullptr},
        {u"", nullptr},
        {u"a.p\u0144g", nullptr},
        {u"a.\U0001F600", nullptr},
        {u"a.pn g", nullptr},
        {u"png", nullptr},
        {u"..png", "image/png"},
        {u"a.averyveryverylongextensionthatnobodyhas", nullptr},
    };
    for (const Row& row : rows)
        EXPECT_STREQ(types.Find(std::u16string_view(row.name)), row.type)
            << ToUtf8(row.name).value();
}

TEST(MimeType, LargeTable_IsFoundWhole)
{
    std::string table;
    for (int i = 0; i < 5000; ++i)
        table += "x/t" + std::to_string(i) + " e" + std::to_string(i) + "\n";
    const MimeTypes types(table);
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(types.Find("f.e" + std::to_string(i)), "x/t" + std::to_string(i));
}

TEST(MimeType, SystemTable_KnowsTheCommonOnes)
{
    EXPECT_STREQ(MimeTypes::System().Find(std::string_view("a.html")), "text/html");
    EXPECT_STREQ(MimeTypes::System().Find(std::string_view("a.jpg")), "image/jpeg");
    EXPECT_STREQ(MimeTypes::System().Find(std::string_view("a.txt")), "text/plain");
}

} // namespace
} // namespace kestd
