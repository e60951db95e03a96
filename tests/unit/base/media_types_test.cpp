// SPDX-License-Identifier: Apache-2.0
//
// Media types by extension.
#include "base/media_types.h"

#include <string>

#include <gtest/gtest.h>

#include "base/utf.h"

namespace base {
namespace {

TEST(MediaType, TableCountsBeforeBuiltInList)
{
    const MediaTypes types("# comment\n"
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

TEST(MediaType, IsThatOfTheLastExtension)
{
    const MediaTypes types("");
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

TEST(MediaType, LargeTable_IsFoundWhole)
{
    std::string table;
    for (int i = 0; i < 5000; ++i)
        table += "x/t" + std::to_string(i) + " e" + std::to_string(i) + "\n";
    const MediaTypes types(table);
    for (int i = 0; i < 5000; ++i)
        ASSERT_EQ(types.Find("f.e" + std::to_string(i)), "x/t" + std::to_string(i));
}

TEST(MediaType, OfContentNamesItsCharset)
{
    const MediaTypes types("");
    EXPECT_EQ(types.ForContent("index.js"), "text/javascript; charset=utf-8");
    EXPECT_EQ(types.ForContent("icon.SVG"), "image/svg+xml");
    EXPECT_EQ(types.ForContent("font.woff2"), "font/woff2");
    EXPECT_EQ(types.ForContent("unknown"), "application/octet-stream");
}

TEST(MediaType, SystemTable_KnowsTheCommonOnes)
{
    EXPECT_STREQ(MediaTypes::System().Find(std::string_view("a.html")), "text/html");
    EXPECT_STREQ(MediaTypes::System().Find(std::string_view("a.jpg")), "image/jpeg");
    EXPECT_STREQ(MediaTypes::System().Find(std::string_view("a.txt")), "text/plain");
}
} // namespace
} // namespace base
