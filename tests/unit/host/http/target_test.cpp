// SPDX-License-Identifier: Apache-2.0
#include "base/host_name.h"
#include "base/percent.h"
#include "base/uri.h"
#include "host/http/target.h"

#include <gtest/gtest.h>

namespace kestd {

namespace {

struct Good {
    const char* text;
    const char* path;
    const char* rawPath;
    const char* query;
    const char* host;
};

TEST(ParseTarget, TakesTargetsApart)
{
    static constexpr Good kRows[] = {
        {"/", "/", "/", "", ""},
        {"/a/b", "/a/b", "/a/b", "", ""},
        {"/a/b/", "/a/b/", "/a/b/", "", ""},
        {"/a?x=1&y=%2F", "/a", "/a", "x=1&y=%2F", ""},
        {"/a?", "/a", "/a", "", ""},
        {"/a?b?c", "/a", "/a", "b?c", ""},
        {"/a%20b", "/a b", "/a%20b", "", ""},
        {"/%41%2b", "/A+", "/%41%2b", "", ""},
        {"/%25%32%30", "/%20", "/%25%32%30", "", ""}, // decoded once
        {"/%C3%A9", "/\xC3\xA9", "/%C3%A9", "", ""},
        {"/\xC3\xA9", "/\xC3\xA9", "/\xC3\xA9", "", ""},
        {"/%5C..", "/\\..", "/%5C..", "", ""}, // a backslash separates nothing
        {"/a/./b", "/a/b", "/a/b", "", ""},
        {"/a/../b", "/b", "/b", "", ""},
        {"/a/%2e%2E/b", "/b", "/b", "", ""},
        {"/a/.%2e/b", "/b", "/b", "", ""},
        {"/..", "/", "/", "", ""},
        {"/../../x", "/x", "/x", "", ""},
        {"/a/..", "/", "/", "", ""},
        {"/a/b/..", "/a/", "/a/", "", ""},
        {"/a/.", "/a/", "/a/", "", ""},
        {"/a/...", "/a/...", "/a/...", "", ""},
        {"/a/..b", "/a/..b", "/a/..b", "", ""},
        {"//a", "//a", "//a", "", ""},
        {"/a//b", "/a//b", "/a//b", "", ""},
        {"/a//../b", "/a/b", "/a/b", "", ""},
        {"http://h", "/", "/", "", "h"},
        {"http://h?q", "/", "/", "q", "h"},
        {"HTTP://h:80/a?q", "/a", "/a", "q", "h:80"},
        {"https://[::1]:8443/x", "/x", "/x", "", "[::1]:8443"},
        {"webdavs://h/x", "/x", "/x", "", "h"},
    };
    for (const Good& row : kRows) {
        Target target;
        EXPECT_EQ(ParseTarget(row.text, target), 0) << row.text;
        EXPECT_EQ(target.path, row.path) << row.text;
        EXPECT_EQ(target.rawPath, row.rawPath) << row.text;
        EXPECT_EQ(target.query, row.query) << row.text;
        EXPECT_EQ(target.host, row.host) << row.text;
        EXPECT_FALSE(target.isAsterisk);
    }
}

TEST(ParseTarget, RefusesWhatIsMalformed)
{
    for (const char* text : {
             "",
             "a",
             "a/b",
             "/%",
             "/%2",
             "/%zz",
             "/%2g",
             "/% 1",
             "/a%2Fb",
             "/a%2fb",
             "/%00",
             "/a\x01",
             "/a b",
             "/a\x7F",
             "/a#b",
             "/a?b#c",
             "/a?b c",
             "/%C3",
             "/%C0%AF",
             "/%ED%A0%80",
             "/%F4%90%80%80",
             "/%FF",
             "/\xFF",
             "/a?\xFF",
             "**",
             "*x",
             "ftp://h/",
             "http://",
             "http:///x",
             "http:/x",
             "http://u@h/",
             "http://h:99999/",
             "http://h:x/",
             "://h/",
         }) {
        Target target;
        EXPECT_EQ(ParseTarget(text, target), 400) << text;
    }
}

TEST(ParseTarget, RefusesNulInTheMiddle)
{
    Target target;
    EXPECT_EQ(ParseTarget(std::string_view("/a\0b", 4), target), 400);
}

// A path that stands for itself is found many bytes at a time: at each place of paths of all
// lengths each byte has to count.
TEST(ParseTarget, JudgesEveryByteAtEveryPlace)
{
    for (const size_t length :
         {2u, 8u, 9u, 10u, 15u, 16u, 17u, 18u, 31u, 32u, 33u, 34u, 48u, 49u, 50u})
        for (size_t place = 1; place < length; ++place)
            for (int byte = 1; byte < 0x80; ++byte) {
                std::string path(length, 'p');
                path[0] = '/';
                path[place] = static_cast<char>(byte);
                Target target;
                const bool isRefused = byte <= 0x20 || byte == 0x7F || byte == '#' || byte == '%';
                const int status = ParseTarget(path, target);
                if (byte == '?')
                    path.resize(place);
                ASSERT_EQ(status, isRefused ? 400 : 0)
                    << byte << " at " << place << " of " << length;
                if (!isRefused && !(byte == '.' && length == 2)) {
                    ASSERT_EQ(target.path, path) << place;
                }
            }
}

TEST(ParseTarget, FindsDotSegmentsAtEveryPlace)
{
    for (size_t before = 0; before < 40; ++before)
        for (size_t behind = 0; behind < 20; ++behind) {
            const std::string first = "/" + std::string(before, 'a');
            const std::string last = "/" + std::string(behind, 'b');
            Target target;
            ASSERT_EQ(ParseTarget(first + "/." + last, target), 0);
            ASSERT_EQ(target.path, first + last);
            ASSERT_EQ(target.rawPath, first + last);
        }
}

TEST(ParseTarget, AsteriskHasNoPath)
{
    Target target;
    EXPECT_EQ(ParseTarget("*", target), 0);
    EXPECT_TRUE(target.isAsterisk);
    EXPECT_EQ(target.path, "");
}

TEST(ParseTarget, ForgetsTheTargetBefore)
{
    Target target;
    EXPECT_EQ(ParseTarget("http://h/a?q", target), 0);
    EXPECT_EQ(ParseTarget("/b", target), 0);
    EXPECT_EQ(target.path, "/b");
    EXPECT_EQ(target.query, "");
    EXPECT_EQ(target.host, "");
}

TEST(IsValidHost, TakesNamesAndAddresses)
{
    for (const char* text :
         {"h", "h:80", "h:", "example.org", "EXAMPLE.org:65535", "127.0.0.1", "127.0.0.1:0",
          "[::1]", "[::1]:8080", "[2001:db8::1]:", "my_host", "a-b.c~d", "localhost."})
        EXPECT_TRUE(base::IsValidHost(text)) << text;
}

TEST(IsValidHost, RefusesEverythingElse)
{
    for (const char* text : {"",
                             ":80",
                             "h:65536",
                             "h:123456",
                             "h:x",
                             "h:-1",
                             "u@h",
                             "h h",
                             " h",
                             "h ",
                             "h/",
                             "h?",
                             "h#",
                             "[::1",
                             "::1]",
                             "[::1]x",
                             "[]",
                             "[g::1]",
                             "::1",
                             "h:80:80",
                             "<h>",
                             "h\"",
                             "h\\",
                             "%41",
                             "[::1]:99999",
                             "[fe80::1%25eth0]",
                             "\xC3\xA9",
                             "[1.2.3.4]"})
        EXPECT_FALSE(base::IsValidHost(text)) << text;
    EXPECT_FALSE(base::IsValidHost(std::string(256, 'a')));
    EXPECT_TRUE(base::IsValidHost(std::string(255, 'a')));
}

TEST(SplitHost, FindsThePort)
{
    std::string_view name;
    std::string_view port;
    base::SplitHost("h:80", name, port);
    EXPECT_EQ(name, "h");
    EXPECT_EQ(port, "80");
    base::SplitHost("[::1]:81", name, port);
    EXPECT_EQ(name, "[::1]");
    EXPECT_EQ(port, "81");
    base::SplitHost("[::1]", name, port);
    EXPECT_EQ(name, "[::1]");
    EXPECT_EQ(port, "");
}

TEST(IsUnder, ComparesWholeSegments)
{
    EXPECT_TRUE(base::IsUnder("/Ferro", "/Ferro"));
    EXPECT_TRUE(base::IsUnder("/Ferro/", "/Ferro"));
    EXPECT_TRUE(base::IsUnder("/Ferro/a", "/Ferro"));
    EXPECT_FALSE(base::IsUnder("/Ferrox", "/Ferro"));
    EXPECT_FALSE(base::IsUnder("/ferro", "/Ferro"));
    EXPECT_FALSE(base::IsUnder("/", "/Ferro"));
    EXPECT_FALSE(base::IsUnder("/Fer", "/Ferro"));
}

TEST(EscapePath, EscapesEverythingThatCouldBeMistaken)
{
    EXPECT_EQ(base::PercentEncode("/a-b._~/C9"), "/a-b._~/C9");
    EXPECT_EQ(base::PercentEncode("/a b%\"<\xC3\xA9"), "/a%20b%25%22%3C%C3%A9");
}

} // namespace

} // namespace kestd
