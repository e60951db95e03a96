// SPDX-License-Identifier: Apache-2.0
//
// Dates, timeouts and bodies as the standard dialect reads them.
#include <string>

#include <gtest/gtest.h>

#include "frame.h"
#include "standard/lock_request.h"
#include "standard/property_changes.h"
#include "standard/property_value.h"

namespace {

constexpr UINT64 kNoon = 134143344000000000; // 2026-01-31T12:00:00Z

class Readers : public Frame {};

TEST(IsoDate, Forms)
{
    EXPECT_EQ(standard::ReadIsoDate("2026-01-31T12:00:00Z"), kNoon);
    EXPECT_EQ(standard::ReadIsoDate("2026-01-31t12:00:00.999z"), kNoon);
    EXPECT_EQ(standard::ReadIsoDate("2026-01-31T13:30:00+01:30"), kNoon);
    EXPECT_EQ(standard::ReadIsoDate("2026-01-31T07:00:00-05:00"), kNoon);
    EXPECT_EQ(standard::ReadIsoDate("1970-01-01T00:00:00Z"), 116444736000000000U);
    for (const char* text :
         {"", "2026-01-31", "2026-02-30T12:00:00Z", "2026-13-01T12:00:00Z", "2026-01-31T24:00:00Z",
          "2026-01-31T12:60:00Z", "2026-01-31T12:00:00", "2026-01-31T12:00:00Zz",
          "2026-01-31T12:00:00+1:00", "-026-01-31T12:00:00Z", "1500-01-01T00:00:00Z",
          "2026-01-31T12:00:-1Z"})
        EXPECT_EQ(standard::ReadIsoDate(text), 0U) << text;
}

TEST(Timeout, FirstUnderstoodFormCounts)
{
    EXPECT_EQ(standard::ReadTimeout(""), standard::kDefaultLockSeconds);
    EXPECT_EQ(standard::ReadTimeout("Second-60"), 60);
    EXPECT_EQ(standard::ReadTimeout("Extend, second-60, Infinite"), 60);
    EXPECT_EQ(standard::ReadTimeout("Infinite, Second-60"), standard::kLongestLockSeconds);
    EXPECT_EQ(standard::ReadTimeout("Second-4100000000"), standard::kLongestLockSeconds);
    for (const char* text : {"Second-", "Second-0", "Second-x", "Second-6x", "60", ",,"})
        EXPECT_EQ(standard::ReadTimeout(text), standard::kDefaultLockSeconds) << text;
}

std::string Body(const std::string& declarations, const std::string& properties)
{
    return "<D:propertyupdate xmlns:D=\"DAV:\"" + declarations + "><D:set><D:prop>" + properties +
           "</D:prop></D:set></D:propertyupdate>";
}

TEST_F(Readers, ManyProperties_AreRefusedBeyondTheBound)
{
    std::string properties;
    for (UINT32 i = 0; i < kMostPropertyChanges; ++i)
        properties += "<p/>";
    standard::PropertyChanges most;
    EXPECT_EQ(most.Read(Body("", properties), "propertyupdate"), TAL_STATUS_SUCCESS);
    EXPECT_EQ(most.Count(), kMostPropertyChanges);
    standard::PropertyChanges more;
    EXPECT_EQ(Code(more.Read(Body("", properties + "<p/>"), "propertyupdate")), kCodeStorageFull);
}

TEST_F(Readers, DeclarationsInEveryProperty_AreBounded)
{
    std::string declarations;
    for (int i = 0; i < 200; ++i)
        declarations += " xmlns:p" + std::to_string(i) + "=\"urn:" + std::string(50, 'u') + "\"";
    std::string properties;
    for (int i = 0; i < 5000; ++i)
        properties += "<p/>";
    standard::PropertyChanges changes;
    EXPECT_EQ(Code(changes.Read(Body(declarations, properties), "propertyupdate")),
              kCodeInsufficientResources);
    for (int i = 200; i < 260; ++i)
        declarations += " xmlns:p" + std::to_string(i) + "=\"urn:x\"";
    standard::PropertyChanges crowded;
    EXPECT_EQ(Code(crowded.Read(Body(declarations, "<p/>"), "propertyupdate")),
              kCodeInvalidRequest);
}

TEST_F(Readers, BodyCutAnywhere_IsMalformed)
{
    const std::string body =
        Body(" xmlns:x=\"urn:x\" xml:lang=\"en\"", "<x:a q=\"1\"><b xmlns=\"urn:b\">t</b></x:a>");
    for (size_t length = 0; length < body.size(); ++length) {
        standard::PropertyChanges changes;
        EXPECT_EQ(Code(changes.Read(body.substr(0, length), "propertyupdate")), kCodeInvalidRequest)
            << length;
    }
}

} // namespace
