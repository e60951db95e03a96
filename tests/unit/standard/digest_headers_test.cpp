// SPDX-License-Identifier: Apache-2.0
//
// Announced digests: which are known, and how they are written.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "standard/digests.h"

using standard::kMostDigests;
using standard::ReadChecksumHeader;
using standard::ReadDigestHeader;
using standard::WantedDigests;

namespace {

// Of "hello".
constexpr char kMd5Hex[] = "5d41402abc4b2a76b9719d911017c592";
constexpr char kMd5[] = "md5=:XUFAKrxLKna5cZ2REBfFkg==:";
constexpr char kSha256[] = "sha-256=:LPJNul+wow4m6DsqxbninhsWHlwfp0JecwQzYpOLmCQ=:";

std::string Hex(const WantedDigests& wanted, size_t index)
{
    std::string text;
    for (UINT32 i = 0; i < wanted.digests[index].size; ++i) {
        text += "0123456789abcdef"[wanted.digests[index].bytes[i] >> 4];
        text += "0123456789abcdef"[wanted.digests[index].bytes[i] & 15];
    }
    return text;
}

TEST(DigestHeader, ReadsWhatItKnows)
{
    WantedDigests wanted;
    ASSERT_TRUE(ReadDigestHeader(std::string("unixsum=:AA==:, ") + kSha256 + " , " + kMd5, wanted));
    ASSERT_EQ(wanted.count, 2U);
    EXPECT_EQ(wanted.digests[0].algorithm, UINT32{KestDigestSha256});
    EXPECT_EQ(Hex(wanted, 0), "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
    EXPECT_EQ(wanted.digests[1].algorithm, UINT32{KestDigestMd5});
    EXPECT_EQ(Hex(wanted, 1), kMd5Hex);
}

TEST(DigestHeader, RefusesAMalformedOneItKnows)
{
    for (const char* header : {"md5", "md5=", "md5=:", "md5=::", "md5=:XUFAKrxLKna5cZ2REBfF:",
                               "md5=XUFAKrxLKna5cZ2REBfFkg==", "md5=:XUFAKrxLKna5cZ2REBfF!g==:",
                               "sha-256=:XUFAKrxLKna5cZ2REBfFkg==:"}) {
        WantedDigests wanted;
        EXPECT_FALSE(ReadDigestHeader(header, wanted)) << header;
    }
    WantedDigests wanted;
    EXPECT_TRUE(ReadDigestHeader("", wanted));
    EXPECT_TRUE(ReadDigestHeader("sha-3=nonsense, , x", wanted));
    EXPECT_EQ(wanted.count, 0U);
}

TEST(DigestHeader, PaddingMayBeMissing)
{
    WantedDigests wanted;
    EXPECT_TRUE(ReadDigestHeader("md5=:XUFAKrxLKna5cZ2REBfFkg:", wanted));
    EXPECT_EQ(Hex(wanted, 0), kMd5Hex);
}

TEST(DigestHeader, NoMoreThanARequestNeeds)
{
    std::string header;
    for (size_t i = 0; i < kMostDigests + 3; ++i)
        header += std::string(kMd5) + ",";
    WantedDigests wanted;
    EXPECT_TRUE(ReadDigestHeader(header, wanted));
    EXPECT_EQ(wanted.count, kMostDigests);
}

TEST(ChecksumHeader, ReadsHexadecimalDigits)
{
    WantedDigests wanted;
    ASSERT_TRUE(ReadChecksumHeader(std::string(" ADLER32:062c0215 md5:") + kMd5Hex +
                                       "  SHA1:AAF4C61DDCC5E8A2DABEDE0F3B482CD9AEA9434D ",
                                   wanted));
    ASSERT_EQ(wanted.count, 2U);
    EXPECT_EQ(Hex(wanted, 0), kMd5Hex);
    EXPECT_EQ(wanted.digests[1].algorithm, UINT32{KestDigestSha1});
    EXPECT_EQ(Hex(wanted, 1), "aaf4c61ddcc5e8a2dabede0f3b482cd9aea9434d");
}

TEST(ChecksumHeader, RefusesAMalformedOneItKnows)
{
    for (const char* header :
         {"MD5", "MD5:", "MD5:5d41", "SHA1:zz", "MD5:5d41402abc4b2a76b9719d911017c59g"}) {
        WantedDigests wanted;
        EXPECT_FALSE(ReadChecksumHeader(header, wanted)) << header;
    }
}

} // namespace
