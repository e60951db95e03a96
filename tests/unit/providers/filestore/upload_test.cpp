// SPDX-License-Identifier: Apache-2.0
//
// New content for free names where nothing is synced: a file without a name, until it is whole.
#include <cerrno>
#include <optional>

#include <sys/stat.h>

#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

struct Arriving {
    explicit Arriving(Store& store, const std::string& path) : resource(new FileResource(store))
    {
        UINT32 written = 0;
        char text[] = "new";
        EXPECT_EQ(0u, resource->Associate({}, TRUE, kAccessReplaceContent, 1, 0, Path(path).Get(),
                                          nullptr));
        EXPECT_EQ(0u, resource->Write(0, 3, text, &written));
    }
    ~Arriving() { End(); }
    void End()
    {
        if (resource)
            std::exchange(resource, nullptr)->Release();
    }
    FileResource* resource;
};

struct Scratch {
    fs::path operator/(const char* name) const { return directory.Path() / name; }
    std::vector<std::string> Unfinished() const { return Leftovers(*this / ".kest/tmp"); }

    TempDirectory directory;
    std::unique_ptr<Store> store = MakeStore(directory.Path());
};

mode_t ModeOf(const fs::path& path)
{
    struct stat s;
    EXPECT_EQ(0, ::stat(path.c_str(), &s));
    return s.st_mode & 07777;
}

} // namespace

TEST(NewContent, IsNowhereToBeSeenUntilItIsWhole)
{
    Scratch scratch;
    Arriving upload(*scratch.store, "/v/file");
    EXPECT_FALSE(fs::exists(scratch / "file"));
    EXPECT_TRUE(scratch.Unfinished().empty());
    upload.End();
    EXPECT_EQ("new", Contents(scratch / "file"));
}

TEST(NewContent, ReplacesAFileThatTookTheNameMeanwhileAndKeepsItsMode)
{
    Scratch scratch;
    Arriving upload(*scratch.store, "/v/file");
    std::ofstream(scratch / "file") << "of somebody else";
    fs::permissions(scratch / "file", fs::perms(0640));
    upload.End();
    EXPECT_EQ("new", Contents(scratch / "file"));
    EXPECT_EQ(mode_t{0640}, ModeOf(scratch / "file"));
    EXPECT_TRUE(scratch.Unfinished().empty());
}

TEST(NewContent, GivesWayToWhatMayNotBeReplaced)
{
    const std::function<void(const fs::path&)> makers[] = {
        [](const fs::path& path) { fs::create_directory(path); },
        [](const fs::path& path) {
            std::ofstream(path) << "read only";
            fs::permissions(path, fs::perms(0444));
        },
        [](const fs::path& path) { ASSERT_EQ(0, ::mkfifo(path.c_str(), 0644)); },
    };
    for (const auto& make : makers) {
        Scratch scratch;
        Arriving upload(*scratch.store, "/v/file");
        make(scratch / "file");
        const mode_t mode = ModeOf(scratch / "file");
        const fs::file_type type = fs::status(scratch / "file").type();
        upload.End();
        EXPECT_EQ(mode, ModeOf(scratch / "file"));
        EXPECT_EQ(type, fs::status(scratch / "file").type());
        EXPECT_TRUE(scratch.Unfinished().empty());
    }
}

TEST(NewContent, IsDroppedWhenItsDirectoryGoes)
{
    Scratch scratch;
    fs::create_directory(scratch / "dir");
    Arriving upload(*scratch.store, "/v/dir/file");
    fs::remove(scratch / "dir");
    upload.End();
    EXPECT_FALSE(fs::exists(scratch / "dir"));
    EXPECT_TRUE(scratch.Unfinished().empty());
}

TEST(NewContent, IsNotWrittenAnyMoreOnceItIsInPlace)
{
    Scratch scratch;
    Upload content(*scratch.store, *scratch.store->Volumes()[0]);
    ASSERT_EQ(0u, content.Begin("file", false));
    ASSERT_EQ(0u, content.Write(0, "new", 3));
    ASSERT_EQ(0u, content.Finish());
    ASSERT_EQ(0u, content.Publish());
    EXPECT_EQ(kCodeAccessDenied, Code(content.Write(0, "bad", 3)));
    EXPECT_EQ(kCodeAccessDenied, Code(content.Publish()));
    EXPECT_EQ("new", Contents(scratch / "file"));
}

TEST(NewContent, IsCheckedAgainstWhatBearsANameThatSeemedFree)
{
    Scratch scratch;
    std::ofstream(scratch / "taken") << "read only";
    fs::permissions(scratch / "taken", fs::perms(0444));
    for (const SyncLevel sync : {SyncLevel::None, SyncLevel::Data}) {
        const std::unique_ptr<Store> store = MakeStore(scratch.directory.Path(), 30, sync);
        Upload content(*store, *store->Volumes()[0]);
        TALSTATUS status = content.Begin("taken", true);
        if (!Failed(status))
            status = content.Publish();
        EXPECT_EQ(kCodeAccessDenied, Code(status));
        content.Discard();
        EXPECT_EQ("read only", Contents(scratch / "taken"));
        EXPECT_TRUE(scratch.Unfinished().empty());
    }
}
