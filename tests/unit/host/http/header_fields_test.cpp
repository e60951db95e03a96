// SPDX-License-Identifier: Apache-2.0
#include "base/ascii.h"
#include "host/http/header_fields.h"

#include <gtest/gtest.h>

#include <string>

namespace kestd {
namespace {

class HeaderLines : public testing::Test {
  protected:
    bool Set(std::string_view name, std::string_view value)
    {
        return list_.Set(arena_, name, value);
    }
    std::string Text() const
    {
        std::string text(list_.TextSize() + 1, '#');
        char* const end = list_.CopyTo(text.data());
        EXPECT_EQ(end, text.data() + text.size() - 1);
        EXPECT_EQ(text.back(), '#') << "written past the announced size";
        text.pop_back();
        return text;
    }
    std::string Value(std::string_view name) const
    {
        const std::string_view* value = list_.Find(name);
        return value ? std::string(*value) : "(none)";
    }

    Arena arena_;
    HeaderFields list_;
};

TEST_F(HeaderLines, FieldsStandInTheOrderOfTheirFirstSetting)
{
    EXPECT_TRUE(Set("DAV", "1, 2"));
    EXPECT_TRUE(Set("Allow", "GET"));
    EXPECT_TRUE(Set("ETag", ""));
    EXPECT_TRUE(Set("dav", "1"));
    EXPECT_EQ(Text(), "DAV: 1\r\nAllow: GET\r\nETag: \r\n");
    EXPECT_EQ(Value("dAv"), "1");
    EXPECT_EQ(Value("ETag"), "");
    EXPECT_EQ(Value("Range"), "(none)");
}

TEST_F(HeaderLines, FixedFieldsAreLikeOthers)
{
    static constexpr FixedField kField("X-Fixed: a b\r\n");
    list_.Set(arena_, kField);
    EXPECT_EQ(Text(), "X-Fixed: a b\r\n");
    ASSERT_TRUE(list_.Find("x-fixed"));
    EXPECT_EQ(*list_.Find("x-fixed"), "a b");
    EXPECT_TRUE(list_.Set(arena_, "X-FIXED", "other"));
    list_.Set(arena_, FixedField("Another: 1\r\n"));
    EXPECT_EQ(Text(), "X-Fixed: other\r\nAnother: 1\r\n");
    list_.Set(arena_, kField);
    EXPECT_EQ(Text(), "X-Fixed: a b\r\nAnother: 1\r\n");
    list_.Remove("x-fixed");
    EXPECT_EQ(Text(), "Another: 1\r\n");
}

TEST_F(HeaderLines, RemovedFieldsAreGone)
{
    EXPECT_TRUE(Set("A", "1"));
    EXPECT_TRUE(Set("B", "2"));
    list_.Remove("a");
    list_.Remove("C");
    EXPECT_EQ(Text(), "B: 2\r\n");
    list_.Clear();
    EXPECT_EQ(Text(), "");
}

TEST_F(HeaderLines, WhatWouldBreakTheHeadIsRefused)
{
    for (const std::string_view name : {"", "A B", "A:", "A\r\nB", "\xC3\xA4", "A\t", "(A)"})
        EXPECT_FALSE(Set(name, "1")) << name;
    for (const std::string_view value :
         {"a\r\nB: c", "a\nb", "abcdefgh\r", "\x7F", "1234567\x7F", "12345678\x01", "\x1F"})
        EXPECT_FALSE(Set("A", value)) << value;
    EXPECT_FALSE(Set("A", std::string_view("1\0", 2)));
    EXPECT_EQ(Text(), "");
}

TEST_F(HeaderLines, TabsAndBytesAboveAsciiAreTaken)
{
    for (const std::string_view value :
         {"a\tb", "1234567\t", "\t1234567\x80", "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", "~~~~~~~~~"}) {
        EXPECT_TRUE(Set("A", value)) << value;
        EXPECT_EQ(Value("A"), value);
    }
}

TEST(HasControl, FindsEveryControlAtEveryPlace)
{
    for (size_t size = 1; size < 20; ++size)
        for (size_t at = 0; at < size; ++at)
            for (int c = 0; c < 256; ++c) {
                std::string text(size, 'x');
                text[at] = static_cast<char>(c);
                EXPECT_EQ(base::HasControl(text), (c < 0x20 && c != '\t') || c == 0x7F)
                    << size << " " << at << " " << c;
            }
}

TEST(BufferHeadroom, IsFilledInFrontOfTheContent)
{
    for (const size_t before : {0u, 8u, 1024u})
        for (const size_t body : {0u, 5u, 16384u, 20000u}) {
            Buffer buffer;
            buffer.MakeHeadroom(before);
            const std::string text(body, 'b');
            buffer.Append(text.data(), text.size());
            buffer.MakeHeadroom(2000);
            ASSERT_GE(buffer.Headroom(), 2000u);
            std::fill_n(buffer.Prepend(2000), 2000, 'h');
            EXPECT_EQ(buffer.View(), std::string(2000, 'h') + text);
            buffer.Truncate(std::min<size_t>(2001, buffer.Size()));
            EXPECT_EQ(buffer.View(), (std::string(2000, 'h') + text).substr(0, 2001));
        }
}

TEST(ArenaPieces, AreAlignedAndApart)
{
    Arena arena;
    for (int round = 0; round < 3; ++round) {
        char* last = nullptr;
        for (const size_t size : {0u, 1u, 15u, 16u, 17u, 8000u, 9000u, 3u}) {
            auto* piece = static_cast<char*>(arena.Allocate(size));
            ASSERT_NE(piece, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(piece) % alignof(std::max_align_t), 0u);
            EXPECT_NE(piece, last);
            std::fill_n(piece, size, 'x'); // the sanitizer sees what is too short
            last = piece;
        }
        EXPECT_EQ(arena.Allocate(17 * 1024 * 1024), nullptr);
        arena.Reset();
    }
}

} // namespace
} // namespace kestd
