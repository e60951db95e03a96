// SPDX-License-Identifier: Apache-2.0
#include "host/pipeline/conditional_requests.h"

#include <gtest/gtest.h>

using kestd::DateOrder;

TEST(DateOrder, GrowsWithTime)
{
    const char* const dates[] = {
        "Fri, 31 Dec 1993 23:59:59 GMT", "Sat, 01 Jan 1994 00:00:00 GMT",
        "Sat, 01 Jan 1994 00:00:01 GMT", "Mon, 31 Jan 1994 23:59:59 GMT",
        "Tue, 01 Feb 1994 00:00:00 GMT", "Sun, 06 Nov 1994 08:49:37 GMT",
        "Thu, 01 Dec 1994 00:00:00 GMT", "Fri, 31 Dec 9999 23:59:59 GMT",
    };
    uint64_t before = 0;
    for (const char* date : dates) {
        EXPECT_GT(DateOrder(date), before) << date;
        before = DateOrder(date);
    }
}

TEST(DateOrder, OtherTexts_HaveNone)
{
    for (const char* text :
         {"", "yesterday", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
          "Sun, 06 Nov 1994 08:49:37 UTC", "Sun, 06 anF 1994 08:49:37 GMT",
          "Sun, 6  Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 GMT "})
        EXPECT_EQ(DateOrder(text), 0u) << text;
}
