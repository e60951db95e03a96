// SPDX-License-Identifier: Apache-2.0
//
// Paths with links in them.
#include "providers/filestore/linkwalk.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/unit/providers/filestore/scratch.h"

namespace filestore {
namespace {

namespace fs = std::filesystem;

class Links : public testing::Test {
  protected:
    void SetUp() override
    {
        fs::create_directories(top_ / "a/b");
        fs::create_directories(top_ / ".kest/deleted/1/sub");
        std::ofstream(top_ / "a/b/file") << "content";
        std::ofstream(top_ / ".kest/meta.db") << "private";
        std::ofstream(directory_.Path() / "outside") << "outside";
        descriptor_ = ::open(top_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
    void TearDown() override { ::close(descriptor_); }
    void Link(const char* target, const char* name) const
    {
        fs::create_symlink(target, top_ / name);
    }
    // What the path leads to: the text of a file, "directory", or an errno value.
    std::string Leads(const char* path) const
    {
        const int fd = OpenThroughLinks(descriptor_, path, O_RDONLY);
        if (fd < 0)
            return std::to_string(errno);
        char text[64];
        const ssize_t size = ::read(fd, text, sizeof text);
        ::close(fd);
        return size < 0 ? "directory" : std::string(text, static_cast<size_t>(size));
    }

    TempDirectory directory_;
    const fs::path top_ = directory_.Path() / "top";
    int descriptor_ = -1;
};

TEST_F(Links, LeadAnywhereBelowTheTop)
{
    Link("a/b/file", "file");
    Link("../b/../b/./file", "a/b/up");
    Link("b", "a/through");
    Link("through//file", "a/chain");
    Link("../..", "a/b/top");
    for (const char* path : {"a/b/file", "file", "a/b/up", "a/through/file", "a/chain",
                             "a/b/top/file", "a/b/top/a/through/up", "a//b/./file"})
        EXPECT_EQ("content", Leads(path)) << path;
    for (const char* path : {"a/through", "a/b/top", "a/b", "", "."})
        EXPECT_EQ("directory", Leads(path)) << path;
}

TEST_F(Links, TellWhereTheyReallyLead)
{
    Link("a/b/file", "file");
    Link("../b/../b/./file", "a/b/up");
    Link("b", "a/through");
    Link("../..", "a/b/top");
    struct Row {
        const char* path;
        const char* real;
    };
    for (const Row& row :
         {Row{"file", "/a/b/file"}, Row{"a/b/up", "/a/b/file"}, Row{"a/through", "/a/b"},
          Row{"a/through/file", "/a/b/file"}, Row{"a/b/top", "/"}, Row{"a/b/top/file", "/a/b/file"},
          Row{"a//b/./file", "/a/b/file"}, Row{"", "/"}}) {
        std::string real = "as it was";
        const int fd = OpenThroughLinks(descriptor_, row.path, O_RDONLY, &real);
        ASSERT_GE(fd, 0) << row.path;
        ::close(fd);
        EXPECT_EQ(row.real, real) << row.path;
    }
}

TEST_F(Links, DoNotLeadOut)
{
    Link("../outside", "out");
    Link("/etc/passwd", "absolute");
    Link("a/../../outside", "round");
    for (const char* path : {"out", "absolute", "round", "a/../../outside"})
        EXPECT_EQ(std::to_string(EXDEV), Leads(path)) << path;
}

TEST_F(Links, ThatLeadNowhereSayHow)
{
    Link("loop", "loop");
    Link("missing", "dangling");
    Link("a/b/file", "file");
    EXPECT_EQ(std::to_string(ELOOP), Leads("loop"));
    EXPECT_EQ(std::to_string(ENOENT), Leads("dangling"));
    EXPECT_EQ(std::to_string(ENOTDIR), Leads("file/below"));
    EXPECT_EQ(std::to_string(ENOENT), Leads("a/none/file"));
}

TEST_F(Links, DoNotLeadToWhatIsPrivateByName)
{
    Link(".kest", "kest");
    Link(".KEST", "upper");
    Link(".kest/meta.db", "database");
    Link("../.kest/deleted", "a/deleted");
    Link(".", "self");
    Link("self/.kest", "far");
    for (const char* path : {"kest", "kest/meta.db", "database", "a/deleted", "a/deleted/1",
                             "far/meta.db", "self/far"})
        EXPECT_EQ(std::to_string(ENOENT), Leads(path)) << path;
    EXPECT_EQ(std::to_string(ENOENT), Leads("upper"));
    EXPECT_EQ("private", Leads(".kest/meta.db")) << "the path's own names have been judged before";
}

TEST_F(Links, DoNotLeadToWhatIsPrivateByWhereItIs)
{
    fs::create_directories(top_ / "hidden/below");
    std::ofstream(top_ / "hidden/below/file") << "private";
    Link("hidden", "link");
    Link("hidden/below", "deep");
    Link(".", "self");
    EXPECT_EQ("private", Leads("deep/file"));
    const int hidden = ::open((top_ / "hidden").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(0, KeepPrivate(hidden));
    for (const char* path : {"link", "link/below/file", "deep/file", "self/hidden/below/file"})
        EXPECT_EQ(std::to_string(ENOENT), Leads(path)) << path;
    fs::rename(top_ / "hidden", top_ / "a/renamed");
    Link("a/renamed", "again");
    EXPECT_EQ(std::to_string(ENOENT), Leads("again"));
    EndPrivate(hidden);
    ::close(hidden);
    EXPECT_EQ("private", Leads("again/below/file")) << "its number may be another's from now on";
}

} // namespace
} // namespace filestore
