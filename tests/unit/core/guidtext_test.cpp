// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "core/config.h"

namespace {

constexpr GUID kExpected = {
    0x0F1E2D3C, 0x4B5A, 0x6978, {0x87, 0x96, 0xA5, 0xB4, 0xC3, 0xD2, 0xE1, 0xF0}};

TEST(RegistryKeyToGUID, ReadsBothCases)
{
    GUID guid{};
    EXPECT_EQ(RegistryKeyToGUID(u"{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}", &guid),
              TAL_STATUS_SUCCESS);
    EXPECT_EQ(guid, kExpected);
    guid = {};
    EXPECT_EQ(RegistryKeyToGUID(u"{0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0}", &guid),
              TAL_STATUS_SUCCESS);
    EXPECT_EQ(guid, kExpected);
}

TEST(RegistryKeyToGUID, LooksAtPositionsOnly)
{
    GUID guid{};
    RegistryKeyToGUID(u"?0F1E2D3C+4B5A+6978+8796+A5B4C3D2E1F0?", &guid);
    EXPECT_EQ(guid, kExpected);
}

TEST(WideCharToValue, TakesTheLowByteOfTheDigit)
{
    for (int digit = 0; digit < 10; ++digit)
        EXPECT_EQ(WideCharToValue(static_cast<WCHAR>(u'0' + digit)), digit);
    for (int digit = 10; digit < 16; ++digit) {
        EXPECT_EQ(WideCharToValue(static_cast<WCHAR>(u'A' + digit - 10)), digit);
        EXPECT_EQ(WideCharToValue(static_cast<WCHAR>(u'a' + digit - 10)), digit);
    }
    EXPECT_EQ(WideCharToValue(0x3139), 9) << "the high byte does not count";
    EXPECT_EQ(WideCharToValue(u'/'), 0xFF) << "one below 0";
}

} // namespace
