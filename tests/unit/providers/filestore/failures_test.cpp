// SPDX-License-Identifier: Apache-2.0
//
// The file system fails at every call in turn: nothing that was there is lost, and nothing is left
// open or behind.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/purge.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

struct FailingWorld {
    explicit FailingWorld(SyncLevel sync = SyncLevel::Full)
    {
        std::ofstream(directory.Path() / "a") << "old a";
        std::ofstream(directory.Path() / "b") << "old b";
        fs::create_directories(directory.Path() / "dir/sub");
        std::ofstream(directory.Path() / "dir/sub/c") << "old c";
        store = MakeStore(directory.Path(), 30, sync, [&](std::unique_ptr<FileSystem> real) {
            auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
            failing = wrapped.get();
            return wrapped;
        });
        Client client(*store);
        EXPECT_EQ(0u, client.SetProperty("/v/a", "p", "of a"));
        EXPECT_EQ(0u, client.SetProperty("/v/dir/sub/c", "p", "of c"));
    }
    std::string At(const char* path) { return Contents(directory.Path() / path); }
    bool Has(const char* path) { return fs::exists(directory.Path() / path); }

    TempDirectory directory;
    FailingFileSystem* failing = nullptr;
    std::unique_ptr<Store> store;
};

// Runs `operation` in fresh worlds, with the first, the second, … call failing, until none does.
template <class Operation, class Check>
void FailEveryCall(Operation&& operation, Check&& check, SyncLevel sync = SyncLevel::Full,
                   bool hasUnnamed = true)
{
    for (int call = 1;; ++call) {
        ASSERT_LT(call, 500);
        FailingWorld world(sync);
        world.failing->hasUnnamed = hasUnnamed;
        Client client(*world.store);
        const int openBefore = world.failing->open;
        world.failing->failAt = call;
        const TALSTATUS status = operation(client);
        const bool failed = world.failing->hasFailed;
        world.failing->failAt = 0;
        SCOPED_TRACE("failing call " + std::to_string(call));
        EXPECT_EQ(openBefore, world.failing->open);
        EXPECT_TRUE(Leftovers(world.directory.Path() / ".kest/tmp").empty());
        check(world, client, status);
        if (!failed) {
            EXPECT_EQ(0u, status);
            return;
        }
    }
}

} // namespace

TEST(FileSystemFailures, AnUploadLeavesOldOrNewContent)
{
    FailEveryCall([](Client& client) { return client.Put("/v/a", "new"); },
                  [](FailingWorld& world, Client& client, TALSTATUS) {
                      const std::string now = world.At("a");
                      EXPECT_TRUE(now == "old a" || now == "new") << now;
                      EXPECT_EQ("of a", client.Property("/v/a", "p"));
                  });
}

// At the top of the volume, which is open already, and below it.
TEST(FileSystemFailures, AnUploadOfANewNameIsWholeOrNotThere)
{
    for (const std::string name : {"new", "dir/sub/new"})
        for (const SyncLevel sync : {SyncLevel::None, SyncLevel::Full})
            for (const bool hasUnnamed : {true, false})
                FailEveryCall([&](Client& client) { return client.Put("/v/" + name, "new"); },
                              [&](FailingWorld& world, Client&, TALSTATUS status) {
                                  if (world.Has(name.c_str()))
                                      EXPECT_EQ("new", world.At(name.c_str()));
                                  else
                                      EXPECT_TRUE(Failed(status) || world.failing->hasFailed);
                              },
                              sync, hasUnnamed);
}

TEST(FileSystemFailures, ANewCollectionIsThereOrNot)
{
    for (const std::string name : {"new", "dir/sub/new"})
        FailEveryCall([&](Client& client) { return client.MkCol("/v/" + name); },
                      [&](FailingWorld& world, Client&, TALSTATUS status) {
                          EXPECT_TRUE(Failed(status) || world.Has(name.c_str()));
                      });
}

TEST(FileSystemFailures, AMoveThatReplacesNothingLeavesBothFiles)
{
    FailEveryCall(
        [](Client& client) {
            const TALSTATUS status = client.Move("/v/a", "/v/b", false);
            return Code(status) == kCodeObjectExists ? 0 : status;
        },
        [](FailingWorld& world, Client& client, TALSTATUS) {
            EXPECT_EQ("old a", world.At("a"));
            EXPECT_EQ("old b", world.At("b"));
            EXPECT_EQ("of a", client.Property("/v/a", "p"));
        });
}

TEST(FileSystemFailures, AMoveLeavesTheFileAtOneOfItsNames)
{
    FailEveryCall([](Client& client) { return client.Move("/v/a", "/v/b"); },
                  [](FailingWorld& world, Client& client, TALSTATUS status) {
                      if (world.Has("a")) {
                          EXPECT_TRUE(Failed(status));
                          EXPECT_EQ("old a", world.At("a"));
                          EXPECT_EQ("old b", world.At("b"));
                          EXPECT_EQ("of a", client.Property("/v/a", "p"));
                      } else {
                          EXPECT_EQ("old a", world.At("b"));
                          EXPECT_EQ("of a", client.Property("/v/b", "p"));
                      }
                  });
}

TEST(FileSystemFailures, ATreeThatGivesWayIsNeverLost)
{
    FailEveryCall([](Client& client) { return client.Move("/v/a", "/v/dir"); },
                  [](FailingWorld& world, Client&, TALSTATUS status) {
                      const bool moved = !world.Has("a");
                      EXPECT_EQ("old a", world.At(moved ? "dir" : "a"));
                      const bool inPlace = world.Has("dir/sub/c");
                      EXPECT_TRUE(inPlace || world.Has(".kest/deleted/1/sub/c"));
                      EXPECT_TRUE(moved || Failed(status));
                  });
}

TEST(FileSystemFailures, ADeletedTreeIsThereOrKept)
{
    for (const std::string tree : {"dir", "dir/sub"}) {
        const std::string member = tree == "dir" ? "sub/c" : "c";
        const std::string kept = ".kest/deleted/1/";
        FailEveryCall([&](Client& client) { return client.Delete("/v/" + tree); },
                      [&](FailingWorld& world, Client& client, TALSTATUS status) {
                          if (world.Has(tree.c_str())) {
                              EXPECT_TRUE(Failed(status));
                              EXPECT_EQ("of c", client.Property("/v/dir/sub/c", "p"));
                              return;
                          }
                          EXPECT_EQ("old c", world.At((kept + member).c_str()));
                          const std::string leaf(LeafOf(tree));
                          EXPECT_EQ("of c",
                                    client.Property("/v/" + kept + leaf + "/" + member, "p"));
                      });
    }
}

TEST(FileSystemFailures, ACopyIsWholeOrNotThere)
{
    FailEveryCall([](Client& client) { return client.Copy("/v/dir", "/v/copy"); },
                  [](FailingWorld& world, Client& client, TALSTATUS status) {
                      EXPECT_EQ("old c", world.At("dir/sub/c"));
                      if (!world.Has("copy")) {
                          EXPECT_TRUE(Failed(status));
                          return;
                      }
                      // A member that was gone for a moment may be missing, nothing else.
                      if (world.Has("copy/sub/c")) {
                          EXPECT_EQ("old c", world.At("copy/sub/c"));
                          EXPECT_EQ("of c", client.Property("/v/copy/sub/c", "p"));
                      }
                  });
}

TEST(FileSystemFailures, ALockThatFailsMakesNoFile)
{
    std::string token;
    FailEveryCall([&](Client& client) { return client.Lock("/v/new", -1, &token); },
                  [&](FailingWorld& world, Client& client, TALSTATUS status) {
                      EXPECT_EQ(Failed(status), !world.Has("new"));
                      EXPECT_EQ(Failed(status), Code(client.Put("/v/new", "x")) != kCodeLocked);
                  });
}

TEST(FileSystemFailures, ALockThatFailsLeavesWhatTookItsNameMeanwhile)
{
    const struct {
        bool inPlace;
        const char* text;
    } cases[] = {{false, "theirs"}, {false, ""}, {true, "theirs"}};
    for (const auto& c : cases) {
        int taken = 0;
        for (int call = 1;; ++call) {
            ASSERT_LT(call, 100);
            FailingWorld world;
            const int before = taken;
            const fs::path made = world.directory.Path() / "new";
            world.failing->onFailure = [&] {
                if (!fs::exists(made))
                    return;
                ++taken;
                const fs::path other = c.inPlace ? made : world.directory.Path() / "other";
                std::ofstream(other) << c.text;
                fs::rename(other, made);
            };
            world.failing->failAt = call;
            std::string token;
            const TALSTATUS status = Client(*world.store).Lock("/v/new", -1, &token);
            if (!world.failing->hasFailed)
                break;
            EXPECT_TRUE(Failed(status)) << call;
            EXPECT_EQ(taken > before, fs::exists(made)) << call;
            EXPECT_EQ(taken > before ? c.text : "", Contents(made)) << call;
        }
        EXPECT_GT(taken, 0);
    }
}

TEST(FileSystemUse, NamesAtTheTopOfAVolumeAreMadeAndRemovedWithoutOpeningIt)
{
    FailingWorld world(SyncLevel::None);
    Client client(*world.store);
    const int before = world.failing->opened;
    EXPECT_EQ(0u, client.MkCol("/v/new"));
    EXPECT_EQ(0u, client.Move("/v/new", "/v/other"));
    EXPECT_EQ(0u, client.Delete("/v/other"));
    EXPECT_EQ(before, world.failing->opened);
}

TEST(FileSystemUse, NamesThatAreSyncedTakeADescriptorOfTheirOwn)
{
    FailingWorld world(SyncLevel::Data);
    Client client(*world.store);
    const int before = world.failing->opened;
    EXPECT_EQ(0u, client.MkCol("/v/new"));
    EXPECT_LT(before, world.failing->opened);
}

TEST(FileSystemUse, AFileWithoutANameIsMadeInTheDirectoryThatItIsFor)
{
    FailingWorld world(SyncLevel::None);
    Client client(*world.store);
    struct stat directory;
    for (const std::string name : {"", "dir", "dir/sub"}) {
        EXPECT_EQ(0u, client.Put("/v/" + name + "/new", "new"));
        ASSERT_EQ(0, ::stat((world.directory.Path() / name).c_str(), &directory));
        EXPECT_EQ(directory.st_ino, world.failing->unnamedIn) << name;
    }
}

TEST(FileSystemFailures, AFullDiskIsReportedAsSuch)
{
    FailingWorld world;
    Client client(*world.store);
    for (const int error : {ENOSPC, EDQUOT}) {
        auto* const resource = new FileResource(*world.store);
        ASSERT_EQ(0u, resource->Associate({}, TRUE, 7, 1, 0, Path("/v/a").Get(), nullptr));
        world.failing->error = error;
        world.failing->failAt = 1;
        char text[] = "new";
        UINT32 written = 0;
        EXPECT_EQ(kCodeStorageFull, Code(resource->Write(0, 3, text, &written)));
        EXPECT_EQ(0u, written);
        EXPECT_EQ(0u, resource->Write(0, 3, text, &written)); // later ones do not make it whole
        resource->Release();
        EXPECT_EQ("old a", world.At("a"));
    }
    EXPECT_TRUE(Leftovers(world.directory.Path() / ".kest/tmp").empty());
}

TEST(FileSystemFailures, ACopyThatFailsOnADiskThatRefusesAllGoesWhenTheDiskDoesNot)
{
    FailingWorld world;
    Client client(*world.store);
    world.failing->judge = [](const char* operation) {
        const std::string_view name = operation;
        return name == "CopyContent" || name == "Rename" ? ENOSPC : 0;
    };
    EXPECT_EQ(kCodeStorageFull, Code(client.Copy("/v/dir", "/v/copy")));
    EXPECT_FALSE(Leftovers(world.directory.Path() / ".kest/tmp").empty());
    world.failing->judge = nullptr;
    EmptyPurge(*world.store->Volumes()[0], [] { return true; });
    EXPECT_TRUE(Leftovers(world.directory.Path() / ".kest/tmp").empty());
    EXPECT_FALSE(world.Has("copy"));
}

TEST(FileSystemFailures, AreTheSystemsFaultInTheLogOnceAMinute)
{
    EXPECT_FALSE(call::IsCancelled()); // that there is no host to tell is logged once, too
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i)
        for (const int error : {ESTALE, ENOENT, EACCES, EEXIST})
            EXPECT_TRUE(Failed(StatusFromErrno(error)));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(log.ends_with(" error filestore: an operation on files failed: " +
                              std::string(std::strerror(ESTALE)) + "\n"))
        << log;
    EXPECT_EQ(1, std::count(log.begin(), log.end(), '\n')) << log;
}

TEST(VolumeDirectory, ThatGoesFromItsPlaceIsTold)
{
    TempDirectory parent;
    const fs::path top = parent.Path() / "top", moved = parent.Path() / "moved";
    fs::create_directory(top);
    const std::unique_ptr<Store> store = MakeStore(top);
    Volume& volume = *store->Volumes()[0];
    const auto check = [&] {
        testing::internal::CaptureStderr();
        volume.CheckPlace();
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ("", check());
    fs::rename(top, moved);
    EXPECT_NE(std::string::npos, check().find("error filestore: volume 'v': its directory"));
    EXPECT_EQ("", check()); // once
    EXPECT_EQ(0u, Client(*store).Put("/v/a", "content"));
    EXPECT_EQ("content", Contents(moved / "a"));
    fs::create_directory(top);
    EXPECT_EQ("", check()); // another one
    fs::remove(top);
    fs::rename(moved, top);
    EXPECT_NE(std::string::npos, check().find("in its place again"));
}
