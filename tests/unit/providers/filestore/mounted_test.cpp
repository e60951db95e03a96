// SPDX-License-Identifier: Apache-2.0
//
// Content for a directory of another file system that is mounted inside the volume: no rename leads
// there from the volume's private directory.
#include <cerrno>

#include <sys/stat.h>

#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

struct Mounted {
    explicit Mounted(SyncLevel sync)
    {
        fs::create_directories(mount);
        std::ofstream(mount / "old") << "old content";
        fs::permissions(mount / "old", fs::perms(0640));
        store = MakeStore(directory.Path(), 0, sync, [&](std::unique_ptr<FileSystem> real) {
            auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
            wrapped->mountedAt = mount;
            failing = wrapped.get();
            return wrapped;
        });
    }
    // As a PUT; `meanwhile` happens before the last step.
    void Put(const char* name, const std::function<void()>& meanwhile = {})
    {
        auto* const resource = new FileResource(*store);
        char text[] = "new content";
        UINT32 written = 0;
        if (resource->Associate({}, TRUE, kAccessReplaceContent, 1, 0,
                                Path(std::string("/v/mnt/") + name).Get(), nullptr) == 0)
            (void)resource->Write(0, sizeof text - 1, text, &written);
        if (meanwhile)
            meanwhile();
        resource->Release();
    }
    void ExpectNothingLeft() const
    {
        EXPECT_FALSE(fs::exists(mount / ".kest"));
        EXPECT_TRUE(Leftovers(directory.Path() / ".kest/tmp").empty());
    }

    const TempDirectory directory;
    const fs::path mount = directory.Path() / "mnt";
    FailingFileSystem* failing = nullptr;
    std::unique_ptr<Store> store;
};

class MountedInside : public testing::TestWithParam<SyncLevel> {};

TEST_P(MountedInside, AFileIsMade)
{
    for (const bool hasUnnamed : {true, false}) {
        Mounted world(GetParam());
        world.failing->hasUnnamed = hasUnnamed;
        world.Put("file");
        EXPECT_EQ("new content", Contents(world.mount / "file"));
        world.ExpectNothingLeft();
    }
}

TEST_P(MountedInside, AFileIsReplacedAndKeepsItsMode)
{
    Mounted world(GetParam());
    world.Put("old");
    EXPECT_EQ("new content", Contents(world.mount / "old"));
    EXPECT_EQ(fs::perms(0640), fs::status(world.mount / "old").permissions());
    world.ExpectNothingLeft();
}

TEST_P(MountedInside, AFileThatCameMeanwhileIsReplaced)
{
    Mounted world(GetParam());
    world.Put("file", [&] { std::ofstream(world.mount / "file") << "of somebody else"; });
    EXPECT_EQ("new content", Contents(world.mount / "file"));
    world.ExpectNothingLeft();
}

TEST_P(MountedInside, APrivateDirectoryOfAnotherVolumeStays)
{
    Mounted world(GetParam());
    fs::create_directories(world.mount / ".kest/tmp");
    world.Put("old");
    EXPECT_EQ("new content", Contents(world.mount / "old"));
    EXPECT_TRUE(fs::exists(world.mount / ".kest/tmp"));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(world.mount / ".kest"), {}));
}

// A link in the place of the private directory leads nothing out of the volume.
TEST_P(MountedInside, ALinkIsNoPrivateDirectory)
{
    Mounted world(GetParam());
    const TempDirectory outside;
    fs::create_directory_symlink(outside.Path(), world.mount / ".kest");
    world.Put("old");
    EXPECT_EQ("old content", Contents(world.mount / "old"));
    EXPECT_TRUE(fs::is_empty(outside.Path()));
    EXPECT_TRUE(Leftovers(world.directory.Path() / ".kest/tmp").empty());
}

// Nothing is carried across the edge, and nobody is told that it is not there.
TEST_P(MountedInside, WhatWouldCrossTheEdgeIsRefused)
{
    Mounted world(GetParam());
    std::ofstream(world.directory.Path() / "top") << "top content";
    const auto code = [](TALSTATUS status) { return Code(status); };
    Client client(*world.store);
    EXPECT_EQ(kCodeAccessDenied, code(client.Delete("/v/mnt/old")));
    EXPECT_EQ(kCodeAccessDenied, code(client.Move("/v/top", "/v/mnt/top")));
    EXPECT_EQ(kCodeAccessDenied, code(client.Move("/v/mnt/old", "/v/up")));
    EXPECT_EQ(kCodeAccessDenied, code(client.Copy("/v/top", "/v/mnt/top")));
    EXPECT_EQ(kCodeSuccess, code(client.Move("/v/mnt/old", "/v/mnt/new")));
    EXPECT_EQ("old content", Contents(world.mount / "new"));
    EXPECT_EQ("top content", Contents(world.directory.Path() / "top"));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(world.mount), {}));
    world.ExpectNothingLeft();
}

// Whatever call fails, the old content stands or the new.
TEST_P(MountedInside, EveryCallMayFail)
{
    constexpr int kMostCallsOfAPut = 200;
    int failed = 0;
    for (int nth = 1; nth < kMostCallsOfAPut; ++nth) {
        Mounted world(GetParam());
        world.failing->failAt = nth;
        world.Put("old");
        if (!world.failing->hasFailed)
            break;
        ++failed;
        const std::string is = Contents(world.mount / "old");
        EXPECT_TRUE(is == "old content" || is == "new content") << nth << ": " << is;
        EXPECT_EQ(0, world.failing->open - Mounted(GetParam()).failing->open) << nth;
        world.ExpectNothingLeft();
    }
    EXPECT_GE(failed, 10);
}

INSTANTIATE_TEST_SUITE_P(Every, MountedInside,
                         testing::Values(SyncLevel::None, SyncLevel::Data, SyncLevel::Full));

} // namespace
