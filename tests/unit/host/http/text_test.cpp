// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/http/method.h"
#include "host/net/buffer.h"
#include "host/pipeline/copy_move_headers.h"

namespace kestd {

namespace {

TEST(Utf, ConvertsBothWays)
{
    static constexpr struct {
        std::string_view narrow;
        std::u16string_view wide;
    } kRows[] = {
        {"", u""},
        {"abc", u"abc"},
        {"\xC2\x80\xDF\xBF", u"\u0080\u07FF"},
        {"\xE0\xA0\x80\xEF\xBF\xBF", u"\u0800\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
    };
    for (const auto& row : kRows) {
        std::u16string wide;
        EXPECT_TRUE(base::AppendUtf16(row.narrow, wide));
        EXPECT_EQ(wide, row.wide);
        std::string narrow;
        EXPECT_TRUE(base::AppendUtf8(row.wide, narrow));
        EXPECT_EQ(narrow, row.narrow);
    }
}

TEST(Utf, RefusesMalformedText)
{
    for (const char* text : {"\x80", "\xC1\xBF", "\xC2", "\xC2x", "\xE0\x9F\xBF", "\xE2\x82",
                             "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                             "\xF5\x80\x80\x80", "\xF0\x90\x80", "\xFE", "\xFF"}) {
        std::u16string wide;
        EXPECT_FALSE(base::AppendUtf16(text, wide)) << text;
    }
    static constexpr char16_t kUnpaired[][3] = {{0xD800, 'a', 0}, {0xDC00, 0}, {0xD800, 0}};
    for (const auto* text : kUnpaired) {
        std::string narrow;
        EXPECT_FALSE(base::AppendUtf8(text, narrow));
    }
}

TEST(MethodNumber, KnowsTheContractsNumbersOnly)
{
    EXPECT_EQ(MethodNumber("GET"), 0u);
    EXPECT_EQ(MethodNumber("PUT"), 1u);
    EXPECT_EQ(MethodNumber("POST"), 2u);
    EXPECT_EQ(MethodNumber("DELETE"), 3u);
    EXPECT_EQ(MethodNumber("TRACE"), 4u);
    EXPECT_EQ(MethodNumber("OPTIONS"), 5u);
    EXPECT_EQ(MethodNumber("CONNECT"), 6u);
    EXPECT_EQ(MethodNumber("PROPFIND"), 8u);
    EXPECT_EQ(MethodNumber("PROPPATCH"), 9u);
    EXPECT_EQ(MethodNumber("MKCOL"), 10u);
    EXPECT_EQ(MethodNumber("COPY"), 11u);
    EXPECT_EQ(MethodNumber("MOVE"), 12u);
    EXPECT_EQ(MethodNumber("LOCK"), 13u);
    EXPECT_EQ(MethodNumber("UNLOCK"), 14u);
    EXPECT_EQ(MethodNumber("HEAD"), 27u);
    for (const char* token : {"", "get", "GETS", "SEARCH", "PATCH", "REPORT"})
        EXPECT_EQ(MethodNumber(token), 28u) << token;
}

TEST(Buffer, KeepsItsContentWhileItGrows)
{
    Buffer buffer;
    std::string expected;
    for (int i = 10; i < 20000; ++i) {
        const std::string piece = std::to_string(i);
        buffer.Append(piece.data(), piece.size());
        expected += piece;
        if (i % 3 == 0) {
            buffer.Consume(2);
            expected.erase(0, 2);
        }
    }
    EXPECT_TRUE(buffer.View() == expected);
    buffer.Release();
    EXPECT_EQ(buffer.Size(), 0u);
}

TEST(Arena, GivesAlignedMemoryWithinItsBound)
{
    Arena arena;
    for (size_t size = 1; size < 5000; size += 37) {
        void* piece = arena.Allocate(size);
        ASSERT_NE(piece, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(piece) % alignof(std::max_align_t), 0u);
        memset(piece, 0xAA, size);
    }
    EXPECT_EQ(arena.Allocate(17 * 1024 * 1024), nullptr);
    int pieces = 0;
    while (pieces < 100 && arena.Allocate(1024 * 1024))
        ++pieces;
    EXPECT_LT(pieces, 17);
    arena.Reset();
    EXPECT_NE(arena.Allocate(1024 * 1024), nullptr);
}

TEST(CopyUrlPath, EscapesNothingButPercent)
{
    EXPECT_EQ(CopyUrlPath(u"/Ferro/a b+c"), u"/Ferro/a b+c");
    EXPECT_EQ(CopyUrlPath(u"/Ferro/100%"), u"/Ferro/100%25");
    EXPECT_EQ(CopyUrlPath(u"/Ferro/%20"), u"/Ferro/%2520");
}

TEST(NextElement, SkipsEmptyElements)
{
    std::string_view list = " , a,,b c ,\t";
    std::string_view element;
    ASSERT_TRUE(base::NextElement(list, element));
    EXPECT_EQ(element, "a");
    ASSERT_TRUE(base::NextElement(list, element));
    EXPECT_EQ(element, "b c");
    EXPECT_FALSE(base::NextElement(list, element));
}

} // namespace

} // namespace kestd
