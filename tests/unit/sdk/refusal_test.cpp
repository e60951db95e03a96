// SPDX-License-Identifier: Apache-2.0
//
// What failures are in HTTP.
#include <gtest/gtest.h>

#include <kest/sdk/refusal.h>
#include <kest/status.h>

namespace {

HTTPSTATUS Of(UINT16 code)
{
    return kest::HttpStatusOfFailure(MakeStatus(kFacilityFileStore, code));
}

TEST(HttpStatusOfFailure, TellsTheSystemsFaultsFromTheRequests)
{
    EXPECT_EQ(Of(kCodeInsufficientResources), 503);
    EXPECT_EQ(Of(kCodeTimeout), 503);
    EXPECT_EQ(Of(kCodeStorageFull), 507);
    EXPECT_EQ(Of(kCodeUnsuccessful), 500);
    EXPECT_EQ(Of(kCodeInvalidParameter), 500);
    EXPECT_EQ(Of(kCodeNotFound), 404);
    EXPECT_EQ(Of(kCodeLocked), 423);
    EXPECT_EQ(Of(kCodePreconditionFailed), 412);
}

TEST(HttpStatusOfFailure, NeverTellsASuccessNorWhatNobodyDid)
{
    for (UINT32 code = 0; code <= 0xFFFF; ++code) {
        const HTTPSTATUS status = Of(static_cast<UINT16>(code));
        ASSERT_GE(status, 400) << code;
        ASSERT_NE(status, 417) << code;
        ASSERT_EQ(status == 507, code == kCodeStorageFull) << code;
    }
}

} // namespace
