// SPDX-License-Identifier: Apache-2.0
#include "methods/multipart.h"

#include <gtest/gtest.h>

namespace {

constexpr size_t kNone = std::string_view::npos;

} // namespace

TEST(Boundary, WithTheLineBreak_EndsTheContentBeforeIt)
{
    const struct {
        const char* why;
        std::string_view bytes;
        size_t end;
    } rows[] = {
        {"CR LF", "data\r\n--BND", 4},
        {"bare LF", "data\n--BND", 4},
        {"bare CR", "data\r--BND", 4},
        {"empty content", "\r\n--BND", 0},
        {"one byte", "a\r\n--BND", 1},
        {"more dashes belong to the delimiter's line", "a\r\n-----BND", 1},
        {"an empty line before", "a\r\n\r\n--BND", 3},
        {"no line break", "data--BND", 4},
        {"nothing at all", "--BND", 0},
        {"without dashes", "BND", 0},
        {"the first of two", "a\r\n--BND\r\n--BND", 1},
        {"none", "data\r\n--BN", kNone},
        {"nothing there", "", kNone},
    };
    for (const auto& row : rows)
        EXPECT_EQ(scanForBoundary("BND", row.bytes, true), row.end) << row.why;
}

TEST(Boundary, WithoutTheLineBreak_IsThePlaceItself)
{
    EXPECT_EQ(scanForBoundary("BND", "xx--BND", false), 4U);
    EXPECT_EQ(scanForBoundary("BND", "BN", false), kNone);
}

TEST(PartHeaders, FileName_IsFoundWhereItIs)
{
    const struct {
        const char* why;
        std::string_view bytes;
        HeaderFind find;
        std::string_view name;
    } rows[] = {
        {"a file", "\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.txt\"\r\n",
         HeaderFind::kFileName, "a.txt"},
        {"none chosen", "; filename=\"\"\r\n", HeaderFind::kFileName, ""},
        {"plain field", "\r\nContent-Disposition: form-data; name=\"f\"\r\n\r\nfilename=\"x\"",
         HeaderFind::kPlainPart, ""},
        {"no headers", "\r\n\r\n", HeaderFind::kPlainPart, ""},
        {"a field of that name", "; name=\"filename\"\r\n\r\n", HeaderFind::kPlainPart, ""},
        {"not quoted", "; filename=a.txt\r\n\r\n", HeaderFind::kBadName, ""},
        {"the extended form", "; filename*=UTF-8''a\r\n\r\n", HeaderFind::kBadName, ""},
        {"never closed", "; filename=\"a.txt\r\n\r\n", HeaderFind::kBadName, ""},
        {"not yet closed", "; filename=\"a.t", HeaderFind::kNeedMore, ""},
        {"the marker cut", "; filename=", HeaderFind::kNeedMore, ""},
        {"headers not ended", "\r\nContent-Disposition: form-data\r\n", HeaderFind::kNeedMore, ""},
        {"nothing", "", HeaderFind::kNeedMore, ""},
    };
    for (const auto& row : rows) {
        const HeaderScan scan = scanForFilename(row.bytes);
        EXPECT_EQ(scan.find, row.find) << row.why;
        EXPECT_EQ(scan.name, row.name) << row.why;
        EXPECT_LE(scan.at, row.bytes.size()) << row.why;
    }
}

TEST(PartHeaders, HeadersEnd_IsFound)
{
    size_t looked = 0;
    EXPECT_EQ(scanForFileStart("a: b\r\n\r\ncontent", looked), 8U);
    EXPECT_EQ(scanForFileStart("a: b\r\n\r", looked), kNone);
    EXPECT_EQ(looked, 4U) << "what may be the beginning of the end is kept";
    EXPECT_EQ(scanForFileStart("\r\n", looked), kNone);
    EXPECT_EQ(looked, 0U);
}

TEST(PartHeaders, PathsOfAllKinds_LeaveTheirLastComponent)
{
    EXPECT_EQ(LastComponent("a.txt"), "a.txt");
    EXPECT_EQ(LastComponent("C:\\docs\\a.txt"), "a.txt");
    EXPECT_EQ(LastComponent("/home/u/a.txt"), "a.txt");
    EXPECT_EQ(LastComponent("C:\\docs/a\\b/c.txt"), "c.txt");
    EXPECT_EQ(LastComponent("docs/"), "");
}
