// SPDX-License-Identifier: Apache-2.0
//
// Requests that hold collections open while they work on what lies in them, and the look at a
// source that is about to be moved or deleted.
#include "tests/contract/providers/filestore/fixture.h"

using namespace filestore_test;
namespace fs = std::filesystem;

namespace {

class FileStoreWalks : public FileStoreTest {
  protected:
    void SetUp() override
    {
        FileStoreTest::SetUp();
        request_.method = KestMethodCopy;
        request_.path = "/Ferro/docs/dir";
        fs::create_directories(Docs() / "dir/sub");
        WriteFile(Docs() / "dir/file", "inside");
        WriteFile(Docs() / "outer", "of the volume");
    }
    TALSTATUS Delete(std::string_view path)
    {
        Wstr wide(path);
        return Namespace()->Delete(session_, &wide, nullptr, nullptr);
    }
    TALSTATUS Move(std::string_view from, std::string_view to, bool overwrite)
    {
        Wstr source(from), destination(to);
        return Namespace()->Move(session_, overwrite, -1, &source, &destination, nullptr, nullptr);
    }
    ScriptedRequest request_;
};

} // namespace

TEST_F(FileStoreWalks, WhatLiesInAnOpenCollectionIsReachedThroughIt)
{
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    fs::rename(Docs() / "dir", Docs() / "renamed");
    EXPECT_EQ("inside", Get("/docs/dir/file"));
    EXPECT_EQ(0u, Put("/docs/dir/new", "made"));
    EXPECT_EQ(0u, MkCol("/docs/dir/folder"));
    EXPECT_EQ("made", ReadFile(Docs() / "renamed/new"));
    EXPECT_TRUE(fs::is_directory(Docs() / "renamed/folder"));
}

TEST_F(FileStoreWalks, ACollectionIsLookedUpAnewOnceItIsReleased)
{
    const RunningRequest running(request_);
    OpenedCollection("/docs/dir");
    fs::rename(Docs() / "dir", Docs() / "renamed");
    EXPECT_EQ(std::nullopt, Get("/docs/dir/file"));
}

TEST_F(FileStoreWalks, ACollectionIsLookedUpAnewByTheNextRequest)
{
    Ref<IKestDAVCollection2> held;
    {
        const RunningRequest running(request_);
        held = OpenedCollection("/docs/dir");
    }
    fs::rename(Docs() / "dir", Docs() / "renamed");
    EXPECT_EQ(std::nullopt, Get("/docs/dir/file"));
}

TEST_F(FileStoreWalks, ACollectionIsLookedUpAnewAfterItHasMoved)
{
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    const Ref<IKestDAVCollection2> below = OpenedCollection("/docs/dir/sub");
    ASSERT_EQ(0u, Move("/docs/dir", "/docs/moved", false));
    fs::create_directories(Docs() / "dir/sub");
    WriteFile(Docs() / "dir/file", "another");
    WriteFile(Docs() / "dir/sub/file", "another");
    EXPECT_EQ("another", Get("/docs/dir/file"));
    EXPECT_EQ("another", Get("/docs/dir/sub/file"));
}

TEST_F(FileStoreWalks, ACollectionIsLookedUpAnewAfterItsDeletion)
{
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    ASSERT_EQ(0u, Delete("/docs/dir"));
    EXPECT_EQ(std::nullopt, Get("/docs/dir/file"));
    EXPECT_EQ(kCodeConflict, Code(MkCol("/docs/dir/folder")));
}

TEST_F(FileStoreWalks, LinksInAnOpenCollectionAreFollowedWithinTheVolume)
{
    fs::create_symlink("../outer", Docs() / "dir/link");
    fs::create_symlink("../../../etc/passwd", Docs() / "dir/leads-out");
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    EXPECT_EQ("of the volume", Get("/docs/dir/link"));
    EXPECT_EQ(std::nullopt, Get("/docs/dir/leads-out"));
}

TEST_F(FileStoreWalks, CollectionsOfTheSamePathInTwoVolumesAreKeptApart)
{
    fs::create_directory(Other() / "dir");
    WriteFile(Other() / "dir/file", "of the other");
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> one = OpenedCollection("/docs/dir");
    const Ref<IKestDAVCollection2> two = OpenedCollection("/Other/dir");
    EXPECT_EQ("inside", Get("/docs/dir/file"));
    EXPECT_EQ("of the other", Get("/Other/dir/file"));
}

TEST_F(FileStoreWalks, MoreCollectionsThanAreRememberedAreStillReached)
{
    const RunningRequest running(request_);
    std::vector<Ref<IKestDAVCollection2>> held;
    std::string path = "/docs";
    for (int level = 0; level < 100; ++level) {
        path += "/d";
        ASSERT_EQ(0u, MkCol(path));
        held.push_back(OpenedCollection(path));
        ASSERT_TRUE(held.back());
    }
    for (; held.size() > 1; held.pop_back(), path.resize(path.size() - 2))
        ASSERT_EQ(0u, Put(path + "/file", path)) << held.size();
    EXPECT_EQ("/docs/d/d", Get("/docs/d/d/file"));
}

TEST_F(FileStoreWalks, CreationDatesOfManyChildrenAreKept)
{
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    for (const char* const name : {"/docs/dir/one", "/docs/dir/two"}) {
        Wstr path(name);
        Ref<IKestDAVResource2> made = NewResource();
        ASSERT_EQ(0u, made->Associate(session_, TRUE, 7, 1, 0, &path, nullptr));
        ASSERT_EQ(0u, made->SetCreationDate(120'000'000'000'000'000));
    }
    for (const Child& child : Children("/docs/dir")) {
        const bool isMade = child.name == "one" || child.name == "two";
        EXPECT_EQ(isMade, child.created == 120'000'000'000'000'000u) << child.name;
    }
}

TEST_F(FileStoreWalks, AnOpenedChildTellsTheDateThatTheListingTold)
{
    constexpr UINT64 kDate = 120'000'000'000'000'000;
    const auto list = [&](IKestDAVCollection2& collection) {
        alignas(DAV_COMMON_ENUM) char record[2176];
        UINT32 size = sizeof record;
        auto* const child = reinterpret_cast<DAV_COMMON_ENUM*>(record);
        EXPECT_EQ(0u, collection.GetFirstChild(&size, child)); // "file" comes before "sub"
        return child->CreationDate;
    };
    const auto opened = [&] {
        UINT64 date = 0;
        EXPECT_EQ(0u, Opened("/docs/dir/file")->GetCreationDate(&date));
        return date;
    };
    const RunningRequest running(request_);
    const Ref<IKestDAVCollection2> held = OpenedCollection("/docs/dir");
    EXPECT_EQ(list(*held.Get()), opened());
    ASSERT_EQ(0u, Opened("/docs/dir/file", kAccessWrite)->SetCreationDate(kDate));
    EXPECT_EQ(kDate, opened());
    EXPECT_EQ(kDate, list(*held.Get()));
}

// -- The source of a MOVE or DELETE, whose type is asked right before.

TEST_F(FileStoreWalks, WhatGetTypeSawIsWhatIsMoved)
{
    request_.method = KestMethodMove;
    const RunningRequest running(request_);
    DAV_TYPE type = Resource;
    ASSERT_EQ(0u, Type("/docs/dir", &type));
    EXPECT_EQ(Collection, type);
    EXPECT_EQ(0u, Move("/docs/dir", "/docs/moved", false));
    EXPECT_EQ("inside", ReadFile(Docs() / "moved/file"));
}

TEST_F(FileStoreWalks, ASourceThatGoesAfterGetTypeIsNotFound)
{
    for (const UINT32 method : {UINT32{KestMethodMove}, UINT32{KestMethodDelete}}) {
        WriteFile(Docs() / "source", "text");
        request_.method = method;
        const RunningRequest running(request_);
        DAV_TYPE type = Collection;
        ASSERT_EQ(0u, Type("/docs/source", &type));
        fs::remove(Docs() / "source");
        EXPECT_EQ(kCodeNotFound,
                  Code(method == KestMethodMove ? Move("/docs/source", "/docs/moved", false)
                                                : Delete("/docs/source")));
    }
}

TEST_F(FileStoreWalks, WhatGetTypeSawCountsForItsOwnPathOnly)
{
    WriteFile(Docs() / "dir/other", "text");
    request_.method = KestMethodDelete;
    const RunningRequest running(request_);
    DAV_TYPE type = Resource;
    ASSERT_EQ(0u, Type("/docs/dir", &type));
    ASSERT_EQ(0u, Delete("/docs/dir/other"));
    EXPECT_TRUE(fs::exists(Docs() / "dir/file"));
    EXPECT_FALSE(fs::exists(Docs() / "dir/other"));
}

TEST_F(FileStoreWalks, ALinkIsDeletedAndMovedAsSuch)
{
    fs::create_symlink("dir", Docs() / "link");
    request_.method = KestMethodMove;
    {
        const RunningRequest running(request_);
        DAV_TYPE type = Resource;
        ASSERT_EQ(0u, Type("/docs/link", &type));
        EXPECT_EQ(Collection, type);
        ASSERT_EQ(0u, Move("/docs/link", "/docs/link2", false));
    }
    EXPECT_TRUE(fs::is_symlink(Docs() / "link2"));
    request_.method = KestMethodDelete;
    const RunningRequest running(request_);
    DAV_TYPE type = Resource;
    ASSERT_EQ(0u, Type("/docs/link2", &type));
    ASSERT_EQ(0u, Delete("/docs/link2"));
    EXPECT_EQ("inside", ReadFile(Docs() / "dir/file"));
}

TEST_F(FileStoreWalks, AMoveThatMayNotReplaceLeavesBoth)
{
    ASSERT_EQ(kCodeObjectExists, Code(Move("/docs/outer", "/docs/dir", false)));
    ASSERT_EQ(kCodeObjectExists, Code(Move("/docs/dir", "/docs/outer", false)));
    ASSERT_EQ(kCodeObjectExists, Code(Move("/docs/dir/file", "/docs/outer", false)));
    EXPECT_EQ("of the volume", ReadFile(Docs() / "outer"));
    EXPECT_EQ("inside", ReadFile(Docs() / "dir/file"));
}
