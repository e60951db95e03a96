// SPDX-License-Identifier: Apache-2.0
//
// Owned descriptors, and opening beneath a directory.
#include "base/descriptor.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "base/open_beneath.h"

namespace base {
namespace {

bool IsOpen(int number)
{
    return fcntl(number, F_GETFD) >= 0;
}

TEST(Descriptor, ClosesWhatItHolds)
{
    int number = -1;
    {
        const Descriptor one(open("/dev/null", O_RDONLY | O_CLOEXEC));
        number = one.Number();
        EXPECT_TRUE(one);
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
    EXPECT_FALSE(Descriptor());
}

TEST(Descriptor, MovesWithoutClosing)
{
    Descriptor one(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int number = one.Number();
    Descriptor two(std::move(one));
    EXPECT_EQ(two.Number(), number);
    Descriptor three(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int replaced = three.Number();
    three = std::move(two);
    EXPECT_FALSE(IsOpen(replaced));
    EXPECT_EQ(three.Number(), number);
    EXPECT_EQ(three.Release(), number);
    EXPECT_TRUE(IsOpen(number));
    close(number);
}

TEST(Descriptor, LeavesErrnoAsItIs)
{
    {
        const Descriptor one(12345); // closing it fails
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(Retry, MakesInterruptedCallsAgain)
{
    int calls = 0;
    EXPECT_EQ(Retry([&] {
                  errno = ++calls < 3 ? EINTR : EIO;
                  return -1;
              }),
              -1);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(errno, EIO);
}

class OpenBeneathTest : public testing::Test {
  protected:
    OpenBeneathTest()
    {
        std::string name = (std::filesystem::temp_directory_path() / "beneath.XXXXXX").string();
        root_ = mkdtemp(name.data());
        std::filesystem::create_directories(root_ / "top/sub");
        std::ofstream(root_ / "outside") << "no";
        std::ofstream(root_ / "top/sub/file") << "yes";
        std::filesystem::create_symlink("sub/file", root_ / "top/link");
        std::filesystem::create_symlink("../outside", root_ / "top/out");
        std::filesystem::create_symlink(root_ / "outside", root_ / "top/absolute");
        top_ = Descriptor(open((root_ / "top").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    ~OpenBeneathTest() override { std::filesystem::remove_all(root_); }

    // 0, or why it was not opened.
    int Open(const char* path, uint64_t resolve = 0)
    {
        const Descriptor file(OpenBeneath(top_.Number(), path, O_RDONLY | O_CLOEXEC, resolve));
        return file ? 0 : errno;
    }

    std::filesystem::path root_;
    Descriptor top_;
};

TEST_F(OpenBeneathTest, WhatLiesBeneathIsOpened)
{
    EXPECT_EQ(Open("sub/file"), 0);
    EXPECT_EQ(Open("sub/../sub/file"), 0);
    EXPECT_EQ(Open("link"), 0);
    EXPECT_EQ(Open("missing"), ENOENT);
}

TEST_F(OpenBeneathTest, NothingLeadsOut)
{
    EXPECT_EQ(Open("../outside"), EXDEV);
    EXPECT_EQ(Open("sub/../../outside"), EXDEV);
    EXPECT_EQ(Open("out"), EXDEV);
    EXPECT_EQ(Open("absolute"), EXDEV);
    EXPECT_EQ(Open((root_ / "outside").c_str()), EXDEV);
}

TEST_F(OpenBeneathTest, LinksAreRefusedOnRequest)
{
    EXPECT_EQ(Open("link", RESOLVE_NO_SYMLINKS), ELOOP);
    EXPECT_EQ(Open("sub/file", RESOLVE_NO_SYMLINKS), 0);
}

} // namespace
} // namespace base
