// SPDX-License-Identifier: Apache-2.0
#include "host/http/chunked_decoder.h"
#include "host/http/message_framing.h"

#include <string>

#include <gtest/gtest.h>

namespace kestd {

namespace {

int Read(const std::string& fields, MessageFraming& framing, const char* version = "1.1")
{
    const std::string text = std::string("PUT /a HTTP/") + version + "\r\n" + fields + "\r\n";
    RequestHead head;
    const int parsed = ParseHead(text, head);
    return parsed ? parsed : ReadFraming(head, framing);
}

TEST(ReadFraming, TakesTheThreeForms)
{
    MessageFraming framing;
    EXPECT_EQ(Read("Host: h\r\n", framing), 0);
    EXPECT_EQ(framing.kind, MessageFraming::Kind::None);
    EXPECT_EQ(Read("Content-Length: 0\r\n", framing), 0);
    EXPECT_EQ(framing.kind, MessageFraming::Kind::None);
    EXPECT_EQ(Read("Content-Length: 0042\r\n", framing), 0);
    EXPECT_EQ(framing.kind, MessageFraming::Kind::Length);
    EXPECT_EQ(framing.length, 42u);
    EXPECT_EQ(Read("Content-Length: 9223372036854775807\r\n", framing), 0);
    EXPECT_EQ(framing.length, 9223372036854775807u);
    EXPECT_EQ(Read("Transfer-Encoding: Chunked\r\n", framing), 0);
    EXPECT_EQ(framing.kind, MessageFraming::Kind::Chunked);
}

TEST(ReadFraming, RefusesWhatCanBeReadTwoWays)
{
    for (const char* fields : {
             "Content-Length: 1\r\nContent-Length: 2\r\n",
             "Content-Length: 1\r\ncontent-length: 1\r\n",
             "Content-Length: 1, 1\r\n",
             "Content-Length: -1\r\n",
             "Content-Length: +1\r\n",
             "Content-Length: 1x\r\n",
             "Content-Length: 0x10\r\n",
             "Content-Length:\r\n",
             "Content-Length: 1 1\r\n",
             "Content-Length: 9223372036854775808\r\n",
             "Content-Length: 18446744073709551616\r\n",
             "Content-Length: 99999999999999999999\r\n",
             "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n",
             "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n",
             "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n",
         }) {
        MessageFraming framing;
        EXPECT_EQ(Read(fields, framing), 400) << fields;
    }
    MessageFraming framing;
    EXPECT_EQ(Read("Transfer-Encoding: chunked\r\n", framing, "1.0"), 400);
}

TEST(ReadFraming, KnowsNoOtherCodings)
{
    for (const char* fields :
         {"Transfer-Encoding: gzip\r\n", "Transfer-Encoding: identity\r\n",
          "Transfer-Encoding: xchunked\r\n", "Transfer-Encoding: \"chunked\"\r\n",
          "Transfer-Encoding: gzip;q=1\r\n"}) {
        MessageFraming framing;
        EXPECT_EQ(Read(fields, framing), 501) << fields;
    }
    // A list may be refused sooner, by whoever parses the head.
    for (const char* fields :
         {"Transfer-Encoding: gzip, chunked\r\n", "Transfer-Encoding: chunked, chunked\r\n"}) {
        MessageFraming framing;
        const int status = Read(fields, framing);
        EXPECT_TRUE(status == 400 || status == 501) << fields << status;
    }
}

// Feeds `text` in pieces of `step` bytes into outputs of `room` bytes.
bool Decode(std::string_view text, size_t step, size_t room, std::string& body, size_t& used)
{
    ChunkedDecoder decoder;
    used = 0;
    std::string out(room, '\0');
    while (!decoder.IsDone() && used < text.size()) {
        const std::string_view piece = text.substr(used, step);
        size_t took = 0;
        size_t made = 0;
        if (!decoder.Decode(piece.data(), piece.size(), took, out.data(), room, made))
            return false;
        body.append(out, 0, made);
        used += took;
        if (took == 0 && made == 0)
            return false;
    }
    return decoder.IsDone();
}

TEST(ChunkedDecoder, DecodesWhateverThePieces)
{
    const std::string_view text =
        "5\r\nhello\r\n00A;name=\"v\"\r\n, everyone\r\n1 ; a = b ;c\r\n!\r\n"
        "000\r\nTrailer: x\r\nOther: y\r\n\r\nGET /next";
    for (size_t step = 1; step <= text.size(); ++step) {
        for (const size_t room : {1u, 2u, 7u, 100u}) {
            std::string body;
            size_t used = 0;
            EXPECT_TRUE(Decode(text, step, room, body, used)) << step << " " << room;
            EXPECT_EQ(body, "hello, everyone!") << step << " " << room;
            EXPECT_EQ(text.substr(used), "GET /next") << step << " " << room;
        }
    }
}

TEST(ChunkedDecoder, RefusesWhatIsNotChunked)
{
    for (const char* text :
         {"\r\n", "x\r\n", "-1\r\n", "+1\r\n", " 1\r\na\r\n", "1\na\r\n0\r\n\r\n", "1\r\nab\r\n",
          "1\r\na\n0\r\n\r\n", "1\r\na\r0", "0\r\n\rx", "1000000000000000\r\n",
          "0000000000000001\r\na\r\n0\r\n\r\n", "0x1\r\n", "1;a\nb\r\n", "0\r\nA: b\nC\r\n\r\n",
          ";\r\n", "1;\x01\r\n"}) {
        std::string body;
        size_t used = 0;
        EXPECT_FALSE(Decode(text, 1, 10, body, used)) << text;
    }
}

// What stands between a chunk's size and the end of its line is an extension (RFC 9112 section
// 7.1.1) or nothing: some readers skip anything there, others end the line at it.
TEST(ChunkedDecoder, TakesNothingButAnExtensionBehindTheSize)
{
    for (const char* line :
         {"1", "01", "1;a", "1;a=b", "1;a=\"b\"", "1;a=\"\"", "1;a;b", "1;a=b;c=\"d;e\\\"f\";g",
          "1 ;a", "1\t;\ta\t=\tb", "1;a ;b", "1;a=\"\xC3\xA9\t\"", "1;!#$%&'*+-.^_`|~0aZ"}) {
        const std::string text = std::string(line) + "\r\nx\r\n0\r\n\r\n";
        std::string body;
        size_t used = 0;
        EXPECT_TRUE(Decode(text, 1, 10, body, used)) << line;
        EXPECT_EQ(body, "x") << line;
    }
    for (const char* line : {"1 ",
                             "1\t",
                             "1 x",
                             "1 1",
                             "1,",
                             "1.0",
                             "1h",
                             "1_",
                             "1+",
                             "1;",
                             "1;;",
                             "1; ",
                             "1;=b",
                             "1;a=",
                             "1;a=;",
                             "1;a= ",
                             "1;a b",
                             "1;a ",
                             "1;a=b ",
                             "1;a=\"b",
                             "1;a=\"b\" ",
                             "1;a=\"b\"c",
                             "1;a=b\"",
                             "1;\"a\"",
                             "1;a=\"\r",
                             "1;a=\"\\\r",
                             "1;a=\"\n\"",
                             "1;a(",
                             "1;a=\xC3",
                             "1\r",
                             "1;a\r",
                             "1;a\x7F",
                             "1\v",
                             "1\f",
                             "0x1",
                             "-0",
                             "\xEF\xBB\xBF"
                             "1"}) {
        const std::string text = std::string(line) + "\r\nx\r\n0\r\n\r\n";
        std::string body;
        size_t used = 0;
        EXPECT_FALSE(Decode(text, 1, 10, body, used)) << line;
    }
}

TEST(ChunkedDecoder, TakesNothingButFieldsBehindTheLastChunk)
{
    for (const char* lines : {"", "A: b\r\n", "A:\r\n", "A:b\tc\r\nD: e\r\n"}) {
        const std::string text = std::string("0\r\n") + lines + "\r\n";
        std::string body;
        size_t used = 0;
        EXPECT_TRUE(Decode(text, 1, 10, body, used)) << lines;
        EXPECT_EQ(used, text.size()) << lines;
    }
    for (const char* lines :
         {" \r\n", "\t\r\n", "A\r\n", ": b\r\n", "A : b\r\n", " A: b\r\n", "A: b\r\n c\r\n",
          "A: b\n", "A: b\rC: d\r\n", "A: \x01\r\n", "\n", "GET / HTTP/1.1\r\n"}) {
        const std::string text = std::string("0\r\n") + lines + "\r\n";
        std::string body;
        size_t used = 0;
        EXPECT_FALSE(Decode(text, 1, 10, body, used)) << lines;
    }
}

TEST(ChunkedDecoder, BoundsWhatIsNotBody)
{
    std::string body;
    size_t used = 0;
    EXPECT_FALSE(Decode("1;" + std::string(20000, 'x') + "\r\na\r\n0\r\n\r\n", 64, 10, body, used));
    EXPECT_FALSE(Decode("0\r\nA: " + std::string(20000, 'x') + "\r\n\r\n", 64, 10, body, used));
}

TEST(ChunkedDecoder, SaysWhatDataComesNext)
{
    ChunkedDecoder decoder;
    size_t used = 0;
    size_t made = 0;
    char out[16];
    ASSERT_TRUE(decoder.Decode("10\r\nabc", 7, used, out, sizeof out, made));
    EXPECT_EQ(made, 3u);
    EXPECT_EQ(decoder.DataAhead(), 13u);
    decoder.SkipData(13);
    EXPECT_EQ(decoder.DataAhead(), 0u);
    ASSERT_TRUE(decoder.Decode("\r\n0\r\n\r\n", 7, used, out, sizeof out, made));
    EXPECT_TRUE(decoder.IsDone());
}

} // namespace

} // namespace kestd
