// SPDX-License-Identifier: Apache-2.0
//
// Which coding a client wants, and that it is what it says.
#include "host/http/content_coding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <zlib.h>
#include <zstd.h>

namespace kestd {

namespace {

TEST(ChooseCoding, TakesWhatIsWantedMost)
{
    const struct {
        const char* accepted;
        ContentCoding chosen;
    } kRows[] = {
        {"", ContentCoding::Identity},
        {"identity", ContentCoding::Identity},
        {"br", ContentCoding::Identity},
        {"gzip", ContentCoding::Gzip},
        {"GZip", ContentCoding::Gzip},
        {"x-gzip", ContentCoding::Gzip},
        {"gzip, deflate, br, zstd", ContentCoding::Zstd},
        {"gzip;q=1.0, zstd;q=0.9", ContentCoding::Gzip},
        {"gzip;q=0", ContentCoding::Identity},
        {"gzip;q=0.000, zstd;q=0.001", ContentCoding::Zstd},
        {"*", ContentCoding::Zstd},
        {"*;q=0", ContentCoding::Identity},
        {"zstd;q=0, *", ContentCoding::Gzip},
        {"gzip;q=0.5, identity;q=0.8", ContentCoding::Identity},
        {"gzip;q=0.5, identity;q=0.5", ContentCoding::Gzip},
        {"identity;q=0, gzip;q=0.1", ContentCoding::Gzip},
        {"identity;q=0", ContentCoding::Identity}, // nothing else is there
        {"gzip;q=nonsense", ContentCoding::Identity},
        {",, gzip ;q=1 ,", ContentCoding::Gzip},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(ChooseCoding(row.accepted), row.chosen) << row.accepted;
}

std::string Unzipped(std::string_view coded)
{
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(coded.data()));
    stream.avail_in = static_cast<uInt>(coded.size());
    std::string text;
    int result = Z_OK;
    while (result == Z_OK) {
        char piece[4096];
        stream.next_out = reinterpret_cast<Bytef*>(piece);
        stream.avail_out = sizeof piece;
        result = inflate(&stream, Z_NO_FLUSH);
        text.append(piece, sizeof piece - stream.avail_out);
    }
    EXPECT_EQ(result, Z_STREAM_END);
    EXPECT_EQ(stream.avail_in, 0U);
    inflateEnd(&stream);
    return text;
}

std::string Unpacked(std::string_view coded)
{
    ZSTD_DCtx* const context = ZSTD_createDCtx();
    std::string text;
    ZSTD_inBuffer in{coded.data(), coded.size(), 0};
    size_t left = 1;
    while (in.pos < in.size && !ZSTD_isError(left)) {
        char piece[4096];
        ZSTD_outBuffer out{piece, sizeof piece, 0};
        do {
            out.pos = 0;
            left = ZSTD_decompressStream(context, &out, &in);
            text.append(piece, ZSTD_isError(left) ? 0 : out.pos);
        } while (!ZSTD_isError(left) && out.pos == sizeof piece);
    }
    EXPECT_EQ(left, 0U) << "not at the end of a frame";
    ZSTD_freeDCtx(context);
    return text;
}

// Text that repeats itself, and bytes that hardly can be made shorter.
std::string Content(size_t size)
{
    std::string text;
    uint32_t state = 1;
    while (text.size() < size) {
        state = state * 1664525 + 1013904223;
        if (state >> 30)
            text += "<D:response><D:href>/Ferro/docs/" + std::to_string(state) + "</D:href>";
        else
            text.append(reinterpret_cast<const char*>(&state), sizeof state);
    }
    text.resize(size);
    return text;
}

TEST(ContentCoder, KeepsEveryByteHoweverItIsCut)
{
    const std::string text = Content(300'000);
    for (const ContentCoding coding : {ContentCoding::Gzip, ContentCoding::Zstd})
        for (const size_t piece : {size_t{1000}, size_t{15'000}, text.size()}) {
            const auto coder = ContentCoder::Make(coding);
            ASSERT_TRUE(coder);
            Buffer out;
            for (size_t at = 0; at < text.size(); at += piece)
                ASSERT_TRUE(coder->Code(std::string_view(text).substr(at, piece),
                                        at + piece >= text.size(), out));
            EXPECT_LT(out.Size(), text.size() / 2);
            EXPECT_EQ(coding == ContentCoding::Gzip ? Unzipped(out.View()) : Unpacked(out.View()),
                      text);
        }
}

TEST(ContentCoder, LetsEachPieceBeReadBeforeTheNextOneComes)
{
    const auto coder = ContentCoder::Make(ContentCoding::Gzip);
    Buffer out;
    ASSERT_TRUE(coder->Code("first piece", false, out));
    z_stream stream{};
    ASSERT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
    char text[64] = {};
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(out.Data()));
    stream.avail_in = static_cast<uInt>(out.Size());
    stream.next_out = reinterpret_cast<Bytef*>(text);
    stream.avail_out = sizeof text;
    EXPECT_EQ(inflate(&stream, Z_SYNC_FLUSH), Z_OK);
    EXPECT_STREQ(text, "first piece");
    inflateEnd(&stream);
}

TEST(ContentCoder, CodesAnEmptyEnd)
{
    for (const ContentCoding coding : {ContentCoding::Gzip, ContentCoding::Zstd}) {
        const auto coder = ContentCoder::Make(coding);
        Buffer out;
        ASSERT_TRUE(coder->Code("text", false, out));
        ASSERT_TRUE(coder->Code("", true, out));
        EXPECT_EQ(coding == ContentCoding::Gzip ? Unzipped(out.View()) : Unpacked(out.View()),
                  "text");
    }
    EXPECT_FALSE(ContentCoder::Make(ContentCoding::Identity));
}

} // namespace

} // namespace kestd
