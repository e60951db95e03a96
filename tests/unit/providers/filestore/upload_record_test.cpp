// SPDX-License-Identifier: Apache-2.0
//
// Records of uploads: what was written is read, and nothing else is taken for one.
#include <gtest/gtest.h>

#include "providers/filestore/upload_record.h"

using namespace filestore;

namespace {

UploadRecord Example()
{
    UploadRecord record;
    record.offset = 0x123456789;
    record.touched = 130'000'000'000'000'000;
    record.inode = ~UINT64{0};
    record.user = "somebody@here";
    record.path = "a folder/\xC3\xA9";
    record.terms = "If-None-Match: *\nX-OC-Mtime: 1\n";
    return record;
}

TEST(UploadRecord, IsReadAsItWasWritten)
{
    const UploadRecord record = Example();
    UploadRecord read;
    EXPECT_EQ(UploadHead(record).size(), kUploadHeadBytes);
    ASSERT_TRUE(ReadUploadText(UploadText(record), &read));
    EXPECT_EQ(read.offset, record.offset);
    EXPECT_EQ(read.touched, record.touched);
    EXPECT_EQ(read.length, kUploadLengthUnknown);
    EXPECT_EQ(read.inode, record.inode);
    EXPECT_EQ(read.user, record.user);
    EXPECT_EQ(read.path, record.path);
    EXPECT_EQ(read.terms, record.terms);
}

TEST(UploadRecord, IsNoneWhenAnythingIsCutOffOrAdded)
{
    const std::string text = UploadText(Example());
    UploadRecord read;
    for (size_t size = 0; size < text.size(); ++size)
        EXPECT_FALSE(ReadUploadText(std::string_view(text).substr(0, size), &read)) << size;
    EXPECT_FALSE(ReadUploadText(text + "x", &read));
}

TEST(UploadRecord, IsNoneWhenAByteOfItsHeadIsAnother)
{
    const std::string text = UploadText(Example());
    for (size_t at = 0; at < kUploadHeadBytes; ++at)
        for (const char other : {'0', 'f', ' ', '\n', '\0', '\xFF'}) {
            std::string damaged = text;
            damaged[at] = other;
            UploadRecord read;
            const bool isWhole = ReadUploadText(damaged, &read);
            // The separators before the check are a part of it; what follows it is none.
            EXPECT_TRUE(!isWhole || damaged == text || at == kUploadHeadBytes - 1) << at;
        }
}

} // namespace
