// SPDX-License-Identifier: Apache-2.0
//
// Stamped dates, and which tags are strong.
#include "providers/filestore/etag.h"

#include <set>

#include <gtest/gtest.h>

using namespace filestore;

namespace {

constexpr UINT64 kNow = 13'400'000'000 * kTicksPerSecond + 1'234'567;

FileInfo File(UINT64 modified)
{
    FileInfo info;
    info.isRegular = true;
    info.inode = 7;
    info.size = 5;
    info.modified = modified;
    return info;
}

} // namespace

TEST(StampedDate, IsNeverTheSameWithinOneTick)
{
    std::set<UINT64> seen;
    for (int i = 0; i < 5000; ++i)
        EXPECT_TRUE(seen.insert(StampedDate(kNow, false)).second);
    for (int i = 0; i < 5000; ++i)
        EXPECT_TRUE(seen.insert(StampedDate(kNow - 77 * kTicksPerSecond, true)).second);
    for (const UINT64 date : seen)
        EXPECT_TRUE(IsStamped(date));
}

TEST(StampedDate, KeepsTheSecondThatAClientGives)
{
    for (UINT64 given :
         {kNow, kNow - kNow % kTicksPerSecond, kNow - kNow % kTicksPerSecond + kTicksPerSecond - 1})
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(given / kTicksPerSecond, StampedDate(given, true) / kTicksPerSecond);
}

TEST(StampedDate, GoesUpWithTheClock)
{
    const UINT64 late = kNow + 100 * kTicksPerSecond;
    const UINT64 first = StampedDate(late, false);
    EXPECT_LE(first / 1000, late / 1000 + 1);
    EXPECT_LT(first, StampedDate(late, false));
    EXPECT_LT(first, StampedDate(late + kTicksPerSecond, false));
}

TEST(StampedDate, IsRareAmongTheDatesThatOthersSet)
{
    int stamped = 0;
    for (UINT64 i = 0; i < 100'000; ++i)
        stamped += IsStamped(kNow + i * 40'000); // ticks of 4 ms
    EXPECT_LT(stamped, 300);
}

TEST(Tag, IsStrongForStampedAndForOldDates)
{
    EXPECT_TRUE(HasStrongTag(File(StampedDate(kNow, false)), kNow));
    EXPECT_TRUE(HasStrongTag(File(StampedDate(kNow + 900 * kTicksPerSecond, true)), kNow))
        << "of later";
    UINT64 fine = kNow - kNow % kTicksPerSecond + 1234567;
    while (IsStamped(fine))
        ++fine;
    EXPECT_FALSE(HasStrongTag(File(fine), fine + kTicksPerSecond / 100))
        << "just written by another program";
    EXPECT_TRUE(HasStrongTag(File(fine), fine + kTicksPerSecond / 5)) << "more than a tick ago";
    // Every other second or 10 ms may be the only date that a file system can tell.
    UINT64 coarse = kNow - kNow % kTicksPerSecond + 3 * kTicksPerSecond / 100;
    while (IsStamped(coarse))
        coarse += kTicksPerSecond / 100;
    EXPECT_FALSE(HasStrongTag(File(coarse), coarse + kTicksPerSecond));
    EXPECT_TRUE(HasStrongTag(File(coarse), coarse + 3 * kTicksPerSecond));
    FileInfo folder = File(StampedDate(kNow, false));
    folder.isDirectory = true;
    EXPECT_FALSE(HasStrongTag(folder, kNow));
}

TEST(Tag, IsQuotedAndSaysThatItIsWeak)
{
    FileInfo file = File(StampedDate(kNow, false));
    const std::string strong = TagText(file, kNow);
    EXPECT_EQ(34u, strong.size());
    EXPECT_EQ('"', strong.front());
    EXPECT_EQ('"', strong.back());
    ++file.inode;
    EXPECT_NE(strong, TagText(file, kNow));
    file.isDirectory = true;
    EXPECT_EQ("W/\"", TagText(file, kNow).substr(0, 3));
}
