// SPDX-License-Identifier: Apache-2.0
//
// Conditional requests: each header, their order, and what is ignored.
#include <gtest/gtest.h>

#include "standard/conditions.h"

using standard::Conditions;
using standard::Current;
using standard::HoldsIfRange;
using standard::Judge;
using standard::ReadEntityTag;
using standard::Verdict;

namespace {

constexpr UINT64 kSecond = 10'000'000;
constexpr UINT64 kDate = 13'000'000'000 * kSecond;

Current File(const char* tag = R"("t")", UINT64 modified = kDate + 5)
{
    return {true, ReadEntityTag(tag), modified};
}

struct JudgedRow {
    const char* why;
    Conditions conditions;
    Current current;
    Verdict reading;
    Verdict changing;
};

constexpr Verdict kGo = Verdict::Proceed;
constexpr Verdict kFailed = Verdict::Failed;
constexpr Verdict kSame = Verdict::NotModified;

TEST(Conditions, EachAndInTheirOrder)
{
    const Current none;
    const JudgedRow rows[] = {
        {"none at all", {}, File(), kGo, kGo},
        {"none at all, nothing there", {}, none, kGo, kGo},
        {"If-Match: *", {.match = "*"}, File(), kGo, kGo},
        {"If-Match: *, nothing there", {.match = "*"}, none, kFailed, kFailed},
        {"If-Match holds", {.match = R"("x", "t")"}, File(), kGo, kGo},
        {"If-Match fails", {.match = R"("x")"}, File(), kFailed, kFailed},
        {"If-Match with an empty value names nothing", {.match = ""}, File(), kFailed, kFailed},
        {"If-Match is strong", {.match = R"(W/"t")"}, File(R"(W/"t")"), kFailed, kFailed},
        {"If-Match without a tag there", {.match = R"("t")"}, File(""), kFailed, kFailed},
        {"If-None-Match: *", {.noneMatch = "*"}, File(), kSame, kFailed},
        {"If-None-Match: * for a new one", {.noneMatch = " * "}, none, kGo, kGo},
        {"If-None-Match names it", {.noneMatch = R"("a","t")"}, File(), kSame, kFailed},
        {"If-None-Match is weak", {.noneMatch = R"(W/"t")"}, File(), kSame, kFailed},
        {"If-None-Match names others", {.noneMatch = R"("a")"}, File(), kGo, kGo},
        {"If-Modified-Since its second", {.modifiedSince = kDate}, File(), kSame, kGo},
        {"If-Modified-Since before", {.modifiedSince = kDate - kSecond}, File(), kGo, kGo},
        {"If-Modified-Since after", {.modifiedSince = kDate + kSecond}, File(), kSame, kGo},
        {"If-Modified-Since, date unknown", {.modifiedSince = kDate}, File("", 0), kGo, kGo},
        {"If-Unmodified-Since its second", {.unmodifiedSince = kDate}, File(), kGo, kGo},
        {"If-Unmodified-Since before",
         {.unmodifiedSince = kDate - kSecond},
         File(),
         kFailed,
         kFailed},
        {"If-Unmodified-Since, nothing there", {.unmodifiedSince = kDate}, none, kGo, kGo},
        {"If-Match goes before If-Unmodified-Since",
         {.match = R"("t")", .unmodifiedSince = kDate - kSecond},
         File(),
         kGo,
         kGo},
        {"If-None-Match goes before If-Modified-Since",
         {.noneMatch = R"("a")", .modifiedSince = kDate},
         File(),
         kGo,
         kGo},
        {"If-Match fails before If-None-Match says 304",
         {.match = R"("x")", .noneMatch = R"("t")"},
         File(),
         kFailed,
         kFailed},
        {"If-Unmodified-Since fails before If-Modified-Since says 304",
         {.modifiedSince = kDate, .unmodifiedSince = kDate - kSecond},
         File(),
         kFailed,
         kFailed},
    };
    for (const JudgedRow& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(Judge(row.conditions, row.current, true), row.reading);
        EXPECT_EQ(Judge(row.conditions, row.current, false), row.changing);
    }
}

TEST(Conditions, KnowWhenThereAreNone)
{
    EXPECT_TRUE(Conditions{}.AreNone());
    EXPECT_FALSE(Conditions{.match = ""}.AreNone());
    EXPECT_FALSE(Conditions{.noneMatch = "*"}.AreNone());
    EXPECT_FALSE(Conditions{.modifiedSince = 1}.AreNone());
    EXPECT_FALSE(Conditions{.unmodifiedSince = 1}.AreNone());
}

TEST(IfRange, NeedsAStrongTagOrTheVeryDate)
{
    EXPECT_TRUE(HoldsIfRange(R"("t")", 0, File()));
    EXPECT_FALSE(HoldsIfRange(R"("x")", 0, File()));
    EXPECT_FALSE(HoldsIfRange(R"(W/"t")", 0, File()));
    EXPECT_FALSE(HoldsIfRange(R"(W/"t")", 0, File(R"(W/"t")")));
    EXPECT_FALSE(HoldsIfRange("", 0, File("")));
    EXPECT_TRUE(HoldsIfRange("a date", kDate, File()));
    EXPECT_FALSE(HoldsIfRange("a date", kDate + kSecond, File())) << "later is not the same";
    EXPECT_FALSE(HoldsIfRange("a date", kDate, File("", 0)));
}

} // namespace
