// SPDX-License-Identifier: Apache-2.0
//
// Collections, trees, members and quotas through the third generation.
#include "tests/contract/providers/filestore/third.h"

using namespace filestore_test;

using FileStoreNamespace3 = ThirdTest;

TEST_F(FileStoreNamespace3, MakesACollectionOnce)
{
    Change change;
    ASSERT_EQ(0u, MakeFolder("/docs/d", Given(), &change));
    EXPECT_EQ(kOutcomeCreated, change.Outcome);
    EXPECT_EQ(Collection, change.Info.Type);
    EXPECT_EQ(kCodeObjectExists, Code(MakeFolder("/docs/d")));
    EXPECT_EQ(kCodePreconditionFailed, Code(MakeFolder("/docs/d", Given().NoneMatch("*"))));
    EXPECT_EQ(kCodeConflict, Code(MakeFolder("/docs/none/d")));
    EXPECT_EQ(kCodeObjectExists, Code(MakeFolder("/docs")));
    EXPECT_EQ(kCodeAccessDenied, Code(MakeFolder("/nowhere")));
    EXPECT_EQ(kCodeInvalidRequest, Code(MakeFolder("/docs/.kest")));
}

TEST_F(FileStoreNamespace3, MakesACollectionWithItsPropertiesOrNotAtAll)
{
    Wstr path("/docs/d");
    std::vector changes = {Set("urn:x", "color", "<x:color xmlns:x=\"urn:x\">red</x:color>"),
                           Live(kPropertyCreated, 12'800'000'000ull * 10'000'000)};
    ASSERT_EQ(
        0u, third_->MakeCollection(session_, &path, nullptr, 2, changes.data(), nullptr, nullptr));
    EXPECT_EQ(0u, changes[0].Status);
    DAV_OBJECT_INFO info;
    ASSERT_EQ(0u, Info("/docs/d", &info));
    EXPECT_EQ(12'800'000'000u, info.CreationDate / 10'000'000);
    EXPECT_EQ(1u, Properties("/docs/d").size());
    Wstr other("/docs/e");
    std::vector bad = {Set("urn:x", "color", "x"), Set("urn:x", "no name", "x")};
    EXPECT_TRUE(
        Failed(third_->MakeCollection(session_, &other, nullptr, 2, bad.data(), nullptr, nullptr)));
    EXPECT_EQ(0u, bad[0].Status);
    EXPECT_EQ(kCodeInvalidParameter, Code(bad[1].Status));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "e"));
    EXPECT_TRUE(Properties("/docs/e").empty());
    EXPECT_EQ(kCodeInvalidParameter, Code(third_->MakeCollection(session_, &other, nullptr, 1,
                                                                 nullptr, nullptr, nullptr)));
}

TEST_F(FileStoreNamespace3, DeletesWholeTreesUnderTheirPreconditions)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    EXPECT_EQ(kCodePreconditionFailed, Code(Delete("/docs/d/a", Given().Match("\"other\""))));
    EXPECT_EQ("one", ReadFile(Docs() / "d/a"));
    EXPECT_EQ(0u, Delete("/docs/d"));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "d"));
    EXPECT_EQ(kCodeNotFound, Code(Delete("/docs/d")));
    EXPECT_EQ(kCodeAccessDenied, Code(Delete("/docs")));
    EXPECT_EQ(kCodeAccessDenied, Code(Delete("/")));
}

TEST_F(FileStoreNamespace3, CopiesAndMovesTreesWithTheirPropertiesBetweenVolumesToo)
{
    for (const char* to : {"/docs/to", "/Other/to"}) {
        ASSERT_EQ(0u, MakeFolder("/docs/d"));
        ASSERT_EQ(0u, Store("/docs/d/a", "one"));
        ASSERT_EQ(0u, SetOne("/docs/d", "urn:x", "p", "<p xmlns=\"urn:x\">d</p>"));
        ASSERT_EQ(0u, SetOne("/docs/d/a", "urn:y", "p", "<p xmlns=\"urn:y\">a</p>"));
        Change change;
        ASSERT_EQ(0u, Copy("/docs/d", to, 0, Given(), &change)) << to;
        EXPECT_EQ(kOutcomeCreated, change.Outcome);
        EXPECT_EQ("{urn:x}p=<p xmlns=\"urn:x\">d</p>", Properties(to).at(0));
        EXPECT_EQ("{urn:y}p=<p xmlns=\"urn:y\">a</p>", Properties(std::string(to) + "/a").at(0));
        EXPECT_EQ(kCodeObjectExists, Code(Copy("/docs/d", to, 0)));
        ASSERT_EQ(0u, Store(std::string(to) + "/extra", "x"));
        ASSERT_EQ(0u, Move("/docs/d", to, kRelocateOverwrite, Given(), &change));
        EXPECT_EQ(kOutcomeReplaced, change.Outcome);
        EXPECT_EQ((std::vector<std::string>{"a"}), Names(to)) << "nothing is merged";
        EXPECT_EQ(1u, Properties(std::string(to) + "/a").size());
        EXPECT_FALSE(std::filesystem::exists(Docs() / "d"));
    }
}

TEST_F(FileStoreNamespace3, CopiesACollectionAloneWithoutItsMembers)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    ASSERT_EQ(0u, SetOne("/docs/d", "urn:x", "p", "<p xmlns=\"urn:x\"/>"));
    ASSERT_EQ(0u, Copy("/docs/d", "/docs/e", kRelocateShallow));
    EXPECT_TRUE(Names("/docs/e").empty());
    EXPECT_EQ(1u, Properties("/docs/e").size());
}

TEST_F(FileStoreNamespace3, RelocatesOntoAnythingOfEitherKind)
{
    for (const bool isMove : {false, true})
        for (const bool fromFolder : {false, true})
            for (const bool toFolder : {false, true}) {
                const auto make = [&](const char* path, bool folder) {
                    ASSERT_EQ(0u, folder ? MakeFolder(path) : Store(path, path));
                };
                make("/docs/from", fromFolder);
                make("/docs/to", toFolder);
                Change change;
                ASSERT_EQ(
                    0u, isMove
                            ? Move("/docs/from", "/docs/to", kRelocateOverwrite, Given(), &change)
                            : Copy("/docs/from", "/docs/to", kRelocateOverwrite, Given(), &change));
                EXPECT_EQ(kOutcomeReplaced, change.Outcome);
                EXPECT_EQ(fromFolder, std::filesystem::is_directory(Docs() / "to"));
                EXPECT_EQ(isMove, !std::filesystem::exists(Docs() / "from"));
                ASSERT_EQ(0u, Delete("/docs/to"));
                if (!isMove) {
                    ASSERT_EQ(0u, Delete("/docs/from"));
                }
            }
}

TEST_F(FileStoreNamespace3, RefusesToRelocateOntoItselfAndIntoItself)
{
    ASSERT_EQ(0u, MakeFolder("/docs/a"));
    ASSERT_EQ(0u, Store("/docs/a/f", "one"));
    for (const char* to : {"/docs/a", "/docs/a/b", "/docs/a/f"}) {
        EXPECT_EQ(kCodeAccessDenied, Code(Copy("/docs/a", to))) << to;
        EXPECT_EQ(kCodeAccessDenied, Code(Move("/docs/a", to))) << to;
    }
    EXPECT_EQ(kCodeAccessDenied, Code(Move("/docs/a/f", "/docs/a")));
    EXPECT_EQ("one", ReadFile(Docs() / "a/f"));
    EXPECT_EQ(0u, Copy("/docs/a", "/docs/a2")) << "only looks like it";
    EXPECT_EQ(kCodeNotFound, Code(Copy("/docs/none", "/docs/x")));
    EXPECT_EQ(kCodeConflict, Code(Copy("/docs/a", "/docs/none/x")));
    EXPECT_EQ(kCodeConflict, Code(Move("/docs/a", "/docs/none/x")));
}

TEST_F(FileStoreNamespace3, RelocatesUnderPreconditionsOnTheSource)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    ASSERT_EQ(0u, Store("/docs/b", "two"));
    const std::string a = Tag("/docs/a"), b = Tag("/docs/b");
    EXPECT_EQ(kCodePreconditionFailed, Code(Copy("/docs/a", "/docs/c", 0, Given().Match(b))));
    EXPECT_EQ(kCodePreconditionFailed, Code(Move("/docs/a", "/docs/c", 0, Given().Match(b))));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "c"));
    EXPECT_EQ(0u, Copy("/docs/a", "/docs/c", 0, Given().Match(a)));
    EXPECT_EQ(0u, Move("/docs/a", "/docs/b", kRelocateOverwrite, Given().Match(a)));
    EXPECT_EQ("one", ReadFile(Docs() / "b"));
    EXPECT_NE(b, Tag("/docs/b")) << "other content has another tag, wherever it comes from";
    EXPECT_NE(Tag("/docs/b"), Tag("/docs/c"));
}

TEST_F(FileStoreNamespace3, ListsMembersInBatchesWithAllThatIsAskedOfThem)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    std::set<std::string> names;
    for (int i = 0; i < 100; ++i) {
        const std::string name = "m" + std::to_string(i) + std::string(size_t(i), 'x');
        ASSERT_EQ(0u, Store("/docs/d/" + name, name));
        names.insert(name);
    }
    ASSERT_EQ(0u, MakeFolder("/docs/d/folder"));
    ASSERT_EQ(0u, Store("/docs/d/folder/deep", "x"));
    ASSERT_EQ(0u, SetOne("/docs/d/folder/deep", "urn:x", "p", "<p xmlns=\"urn:x\"/>"));
    ASSERT_EQ(0u, SetOne("/docs/d/m0", "urn:x", "p", "<p xmlns=\"urn:x\"/>"));
    ASSERT_EQ(0u, Store("/docs/d/ä", "x"));
    Lock lock;
    ASSERT_EQ(0u, TakeLock("/docs/d/m1x", 0, &lock));
    names.insert({"folder", "ä"});
    for (const UINT32 room : {1024u, 4096u, 1u << 20}) {
        const auto members = Members("/docs/d", room);
        std::set<std::string> told;
        for (const auto& [name, info] : members) {
            told.insert(name);
            EXPECT_EQ(name == "m0", (info.Flags & kObjectHasProperties) != 0) << name;
            EXPECT_EQ(name == "m1x", (info.Flags & kObjectHasLocks) != 0) << name;
            EXPECT_EQ(name == "folder" ? Collection : Resource, info.Type);
            if (name[0] == 'm') {
                DAV_OBJECT_INFO own;
                EXPECT_EQ(name.size(), info.ResourceSize);
                ASSERT_EQ(0u, Info("/docs/d/" + name, &own));
                EXPECT_EQ(TagOf(own), TagOf(info));
                EXPECT_EQ(own.CreationDate, info.CreationDate);
                EXPECT_EQ(own.ModificationDate, info.ModificationDate);
            }
        }
        EXPECT_EQ(names, told) << room;
    }
    EXPECT_EQ(0u, Unlock("/docs/d/m1x", lock.token));
    Ref<IKestDAVCollection3> collection = TearOff<IKestDAVCollection3>(NewCollection());
    Wstr path("/docs/d"), file("/docs/d/m0"), missing("/docs/none");
    alignas(8) char buffer[1024];
    UINT32 size = 1000;
    ASSERT_EQ(0u, collection->Open(session_, &path, nullptr));
    EXPECT_EQ(kCodeBufferTooSmall,
              Code(collection->GetMembers(&size, reinterpret_cast<DAV_MEMBER*>(buffer))));
    EXPECT_EQ(1024u, size);
    EXPECT_EQ(kCodeMethodNotAllowed, Code(collection->Open(session_, &file, nullptr)));
    EXPECT_EQ(kCodeNotFound, Code(collection->Open(session_, &missing, nullptr)));
}

TEST_F(FileStoreNamespace3, ListsTheVolumesInTheRoot)
{
    const auto members = Members("/");
    EXPECT_EQ(2u, members.size());
    EXPECT_TRUE(members.contains("docs"));
    EXPECT_EQ(Collection, members.at("docs").Type);
    EXPECT_TRUE(Members("/docs").empty());
}

TEST_F(FileStoreNamespace3, EndsAListThatNobodyWaitsFor)
{
    ASSERT_EQ(0u, Store("/docs/a", "x"));
    ScriptedRequest request;
    request.isCancelled = [] { return true; };
    const RunningRequest running(request);
    Ref<IKestDAVCollection3> collection = TearOff<IKestDAVCollection3>(NewCollection());
    Wstr path("/docs");
    alignas(8) char buffer[1024];
    UINT32 size = sizeof buffer;
    ASSERT_EQ(0u, collection->Open(session_, &path, nullptr));
    EXPECT_EQ(kCodeTimeout,
              Code(collection->GetMembers(&size, reinterpret_cast<DAV_MEMBER*>(buffer))));
}

TEST_F(FileStoreNamespace3, TellsHowMuchRoomThereIs)
{
    const auto ask = [&](const char* name, DAV_QUOTA* quota) {
        Wstr path(name);
        *quota = {sizeof *quota, 0, 0, 0};
        return third_->GetQuota(session_, &path, quota);
    };
    DAV_QUOTA quota;
    const std::filesystem::space_info space = std::filesystem::space(Docs());
    ASSERT_EQ(0u, ask("/docs", &quota));
    EXPECT_LT(0u, quota.Available);
    EXPECT_LE(quota.Available + quota.Used, space.capacity);
    // Other programs write on the disk meanwhile.
    const double slack = static_cast<double>(space.capacity) / 50 + (64 << 20);
    EXPECT_NEAR(static_cast<double>(space.available), static_cast<double>(quota.Available), slack);
    EXPECT_NEAR(static_cast<double>(space.capacity - space.free), static_cast<double>(quota.Used),
                slack)
        << "what the system keeps for itself is not used";
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, ask("/docs/d", &quota));
    EXPECT_NEAR(static_cast<double>(space.available), static_cast<double>(quota.Available), slack);
    EXPECT_EQ(kCodeNotImplemented, Code(ask("/", &quota)));
    EXPECT_EQ(kCodeNotFound, Code(ask("/nowhere", &quota)));
}
