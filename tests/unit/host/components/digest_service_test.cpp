// SPDX-License-Identifier: Apache-2.0
//
// The digests that components ask the host for.
#include <string>

#include <gtest/gtest.h>

#include "host/components/digest_service.h"
#include <kest/com.h>

namespace {

class DigestService : public testing::Test {
  protected:
    std::string Of(UINT32 algorithm, const std::string& text)
    {
        EXPECT_EQ(digest->Begin(algorithm), TAL_STATUS_SUCCESS);
        for (const char& c : text) // in pieces
            EXPECT_EQ(digest->Add(1, &c), TAL_STATUS_SUCCESS);
        UINT8 bytes[kMostDigestBytes];
        UINT32 size = sizeof bytes;
        EXPECT_EQ(digest->Finish(&size, bytes), TAL_STATUS_SUCCESS);
        std::string hex;
        for (UINT32 i = 0; i < size; ++i) {
            hex += "0123456789abcdef"[bytes[i] >> 4];
            hex += "0123456789abcdef"[bytes[i] & 15];
        }
        return hex;
    }
    Ref<IKestDigest> digest = Ref<IKestDigest>::Adopt(kestd::MakeDigest());
};

TEST_F(DigestService, KnownValues)
{
    EXPECT_EQ(Of(KestDigestMd5, "hello"), "5d41402abc4b2a76b9719d911017c592");
    EXPECT_EQ(Of(KestDigestSha1, "hello"), "aaf4c61ddcc5e8a2dabede0f3b482cd9aea9434d");
    EXPECT_EQ(Of(KestDigestSha256, "hello"),
              "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
    EXPECT_EQ(Of(KestDigestSha512, "").substr(0, 16), "cf83e1357eefb8bd");
}

TEST_F(DigestService, BeginStartsAnew)
{
    ASSERT_EQ(digest->Begin(KestDigestSha512), TAL_STATUS_SUCCESS);
    ASSERT_EQ(digest->Add(3, "abc"), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Of(KestDigestMd5, "hello"), "5d41402abc4b2a76b9719d911017c592");
}

TEST_F(DigestService, RefusesWhatMakesNoSense)
{
    UINT8 bytes[kMostDigestBytes];
    UINT32 size = sizeof bytes;
    EXPECT_EQ(Code(digest->Begin(99)), kCodeNotImplemented);
    EXPECT_EQ(Code(digest->Add(1, "x")), kCodeInvalidRequest);
    EXPECT_EQ(Code(digest->Finish(&size, bytes)), kCodeInvalidRequest);
    ASSERT_EQ(digest->Begin(KestDigestSha256), TAL_STATUS_SUCCESS);
    EXPECT_EQ(Code(digest->Add(1, nullptr)), kCodeInvalidParameter);
    EXPECT_EQ(Code(digest->Finish(nullptr, bytes)), kCodeInvalidParameter);
    size = 31;
    EXPECT_EQ(Code(digest->Finish(&size, bytes)), kCodeBufferTooSmall);
    size = 32;
    EXPECT_EQ(digest->Finish(&size, bytes), TAL_STATUS_SUCCESS) << "went on";
}

} // namespace
