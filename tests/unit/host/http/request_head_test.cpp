// SPDX-License-Identifier: Apache-2.0
#include "host/http/request_head.h"

#include "base/token.h"

#include <string>

#include <gtest/gtest.h>

namespace kestd {

namespace {

TEST(ParseHead, FindsLineAndFields)
{
    const std::string text = "PROPFIND /a?b HTTP/1.1\r\nHost: h\r\nDepth:1\r\nX:  spaced \t\r\n"
                             "Empty:\r\nx: again\r\n\r\n";
    RequestHead head;
    ASSERT_EQ(ParseHead(text, head), 0);
    EXPECT_EQ(head.method, "PROPFIND");
    EXPECT_EQ(head.target, "/a?b");
    EXPECT_EQ(head.version, 11u);
    ASSERT_EQ(head.fields.size(), 5u);
    EXPECT_EQ(head.Find("DEPTH")->value, "1");
    EXPECT_EQ(head.Find("x")->value, "spaced");
    EXPECT_EQ(head.Find("empty")->value, "");
    EXPECT_EQ(head.Count("X"), 2u);
    EXPECT_EQ(head.Find("missing"), nullptr);
    EXPECT_EQ(head.lines, "Host: h\r\nDepth:1\r\nX:  spaced \t\r\nEmpty:\r\nx: again\r\n");
}

TEST(ParseHead, TakesHeadsWithoutFields)
{
    RequestHead head;
    EXPECT_EQ(ParseHead("GET / HTTP/1.0\r\n\r\n", head), 0);
    EXPECT_EQ(head.version, 10u);
    EXPECT_EQ(head.lines, "");
}

constexpr struct {
    const char* text;
    int status;
} kHostileHeads[] = {
    {"GET / HTTP/1.1\nHost: h\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHost: h\nX: y\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHost: h\rX: y\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHost: h\r\n folded\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\r\n\tb\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\r\n \r\n\r\n", 400},
    {"GET / HTTP/1.1\r\n X: a\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nTransfer-Encoding:\r\n chunked\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nTransfer-Encoding:\r\n\tchunked\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nContent-Length: \r\n 5\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nContent-Length: \r\n \r\n 5\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX:\r\n \r\n\r\n", 400},
    {"GET / HTTP/1.1\r\n \r\n\r\n", 400},
    {"\rGET / HTTP/1.1\r\n\r\n", 400},
    {"\nGET / HTTP/1.1\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\r\nX: a\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\r\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX\t: a\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nContent-Length: 5\v\r\n\r\n", 400},
    {"GET\t/ HTTP/1.1\r\n\r\n", 400},
    {"GET / HTTP/1.1\t\r\n\r\n", 400},
    {"GET / a HTTP/1.1\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHost : h\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHo st: h\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\n: h\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nHost\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\x01\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\x7F\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a\r\n\r\nY: b\r\n\r\n", 400},
    {"GET / HTTP/1.1\r\nX: a", 400},
    {"GET / HTTP/1.1\r\nX: a\r\n", 400},
    {"GET / HTTP/1.1\r\n", 400},
    {"GET / HTTP/1.1", 400},
    {"GET /\x7F HTTP/1.1\r\n\r\n", 400},
    {"GET /\x01 HTTP/1.1\r\n\r\n", 400},
    {"G@T / HTTP/1.1\r\n\r\n", 400},
    {"GET /\r\n\r\n", 400},
    {"GET\r\n\r\n", 400},
    {"\r\n\r\n", 400},
    {"GET  / HTTP/1.1\r\n\r\n", 400},
    {"GET / HTTP/1.1 \r\n\r\n", 400},
    {" GET / HTTP/1.1\r\n\r\n", 400},
    {"G\x01T / HTTP/1.1\r\n\r\n", 400},
    {"GET / HTTP/2.0\r\n\r\n", 505},
    {"GET / HTTP/1.2\r\n\r\n", 505},
    {"GET / HTTP/0.9\r\n\r\n", 505},
    {"GET / HTTP/1.\r\n\r\n", 400},
    {"GET / http/1.1\r\n\r\n", 400},
    {"GET / HTTPS/1.1\r\n\r\n", 400},
};

TEST(ParseHead, RefusesHostileHeads)
{
    for (const auto& row : kHostileHeads) {
        RequestHead head;
        EXPECT_EQ(ParseHead(row.text, head), row.status) << row.text;
    }
}

// Names are looked at sixteen bytes at a time where the line is long enough.
TEST(ParseHead, JudgesEveryByteOfANameAtEveryPlace)
{
    for (const size_t length : {1u, 7u, 8u, 14u, 15u, 16u, 17u, 20u})
        for (const std::string value : {"", "v", "a value: of some length"})
            for (size_t place = 0; place < length; ++place)
                for (int byte = 0; byte < 256; ++byte) {
                    std::string name(length, 'N');
                    name[place] = static_cast<char>(byte);
                    RequestHead head;
                    const std::string text = "GET / HTTP/1.1\r\n" + name + ":" + value + "\r\n\r\n";
                    const bool isEarlier = byte == ':' && place != 0; // the colon that ends it
                    const bool isName = isEarlier || base::IsToken(name);
                    ASSERT_EQ(ParseHead(text, head), isName ? 0 : 400)
                        << byte << " at " << place << " of " << length;
                    if (isName) {
                        ASSERT_EQ(head.fields.size(), 1U);
                        ASSERT_EQ(head.fields[0].name, isEarlier ? name.substr(0, place) : name);
                        ASSERT_TRUE(head.Find(head.fields[0].name));
                    }
                }
}

TEST(ParseHead, RefusesNulInValue)
{
    RequestHead head;
    const std::string text("GET / HTTP/1.1\r\nX: a\0b\r\n\r\n", 27);
    EXPECT_EQ(ParseHead(text, head), 400);
}

TEST(FindHeadEnd, FindsTheEndWhereverTheTextIsCut)
{
    const std::string text = "GET / HTTP/1.1\r\nHost: h\r\n\r\nBODY";
    const size_t end = text.size() - 4;
    for (size_t first = 0; first <= text.size(); ++first) {
        size_t scanned = 0;
        size_t found = 0;
        for (size_t size = first; !found && size <= text.size(); ++size)
            found = FindHeadEnd(std::string_view(text).substr(0, size), scanned);
        EXPECT_EQ(found, end) << first;
    }
    size_t scanned = 0;
    for (size_t size = 0; size < end; ++size)
        EXPECT_EQ(FindHeadEnd(std::string_view(text).substr(0, size), scanned), 0u) << size;
}

TEST(HasToken, LooksThroughListsAndLines)
{
    RequestHead head;
    const std::string text = "GET / HTTP/1.1\r\nConnection: a, ,Keep-Alive\r\nX: close\r\n"
                             "connection: CLOSE\r\n\r\n";
    ASSERT_EQ(ParseHead(text, head), 0);
    EXPECT_TRUE(head.HasToken("Connection", "keep-alive"));
    EXPECT_TRUE(head.HasToken("Connection", "close"));
    EXPECT_FALSE(head.HasToken("Connection", "alive"));
    EXPECT_FALSE(head.HasToken("Connection", ""));
}

} // namespace

} // namespace kestd
