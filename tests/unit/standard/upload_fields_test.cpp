// SPDX-License-Identifier: Apache-2.0
//
// Header fields of resumable uploads, and the names of upload resources.
#include <gtest/gtest.h>

#include "standard/upload_fields.h"

using standard::ReadBooleanItem;
using standard::ReadIntegerItem;

namespace {

TEST(UploadFields, ABooleanIsOneOfTwo)
{
    bool value = false;
    EXPECT_TRUE(ReadBooleanItem(" ?1 ", value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(ReadBooleanItem("?0;a=b", value));
    EXPECT_FALSE(value);
    for (const char* text : {"", "?", "?2", "1", "true", "?1?0", "?10", "? 1", "\"?1\"", "?1, ?0"})
        EXPECT_FALSE(ReadBooleanItem(text, value)) << text;
}

TEST(UploadFields, AnIntegerHasUpToFifteenDigitsAndNoSign)
{
    UINT64 value = 7;
    EXPECT_TRUE(ReadIntegerItem("0", value));
    EXPECT_EQ(value, 0U);
    EXPECT_TRUE(ReadIntegerItem(" 999999999999999;x ", value));
    EXPECT_EQ(value, 999'999'999'999'999U);
    for (const char* text : {"", "-1", "+1", "1.0", "1 2", "1000000000000000", "0x1", "1,2",
                             "99999999999999999999999999"})
        EXPECT_FALSE(ReadIntegerItem(text, value)) << text;
    EXPECT_EQ(value, 999'999'999'999'999U) << "untouched";
}

} // namespace
