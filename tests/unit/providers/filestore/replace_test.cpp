// SPDX-License-Identifier: Apache-2.0
//
// Moves onto a name that something bears: what fails, or ends with its process, between any two
// calls leaves both where they were, or the one in the other's place and that among the deleted.
#include <cerrno>
#include <csignal>
#include <set>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

constexpr int kMostCalls = 200;

// "new" is moved onto "old"; both are collections with a file and a property each.
struct Replaced {
    explicit Replaced(UINT32 days = 30) : keepDays(days)
    {
        for (const char* name : {"new", "old"}) {
            fs::create_directories(top / name);
            std::ofstream(top / name / "file") << "in " << name;
        }
        Open();
        for (const std::string name : {"new", "old"})
            EXPECT_EQ(0u, Client(*store).SetProperty("/v/" + name + "/file", "p", "of " + name));
    }
    void Open()
    {
        store.reset();
        store = MakeStore(top, keepDays, SyncLevel::Data, [&](std::unique_ptr<FileSystem> real) {
            auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
            failing = wrapped.get();
            return wrapped;
        });
    }
    TALSTATUS Move() { return Client(*store).Move("/v/new", "/v/old"); }

    bool IsAt(const std::string& path, const std::string& which)
    {
        return Contents(top / path / "file") == "in " + which &&
               Client(*store).Property("/v/" + path + "/file", "p") == "of " + which;
    }
    void ExpectBefore()
    {
        EXPECT_TRUE(IsAt("new", "new"));
        EXPECT_TRUE(IsAt("old", "old"));
    }
    void ExpectAfter()
    {
        EXPECT_TRUE(IsAt("old", "new"));
        EXPECT_FALSE(fs::exists(top / "new"));
        EXPECT_TRUE(keepDays == 0 || IsKept());
    }
    // The deleted entry is reached with the name that it had.
    bool IsKept()
    {
        return Contents(top / ".kest/deleted/1/file") == "in old" &&
               Client(*store).Property("/v/.kest/deleted/1/old/file", "p") == "of old";
    }

    const TempDirectory directory;
    const fs::path top = directory.Path();
    const UINT32 keepDays;
    FailingFileSystem* failing = nullptr;
    std::unique_ptr<Store> store;
};

// What the metadata that is committed says about an object's property, at each sync.
class AtEachSync {
  public:
    AtEachSync(Replaced& world, const std::string& path) : world_(world)
    {
        world.failing->onSync = [this, path](FileHandle handle) {
            std::unique_ptr<MetadataSession> session;
            Property value;
            FileInfo info;
            EXPECT_EQ(0u, Store::OpenMetadata(*world_.store->Volumes()[0], &session));
            EXPECT_EQ(0u, session->GetProperty(path, "p", &value)) << "sync " << synced.size();
            EXPECT_EQ(0, world_.failing->Inspect(handle, &info));
            synced.insert(info.inode);
        };
    }
    ~AtEachSync() { world_.failing->onSync = {}; }
    std::set<UINT64> synced; // directories, by their inodes

  private:
    Replaced& world_;
};

// As a request does that asks what is there.
TALSTATUS LookAt(Store& store, const std::string& path)
{
    auto* const names = new FileNamespace(store);
    DAV_TYPE type = Resource;
    const TALSTATUS status = names->GetType({}, Path(path).Get(), &type);
    names->Release();
    return status;
}

UINT64 InodeOf(const fs::path& path)
{
    struct stat s;
    EXPECT_EQ(0, ::stat(path.c_str(), &s)) << path;
    return s.st_ino;
}

} // namespace

TEST(MetadataThatFollowsAName, DoesSoWhenBothDirectoriesAreOnTheDisk)
{
    Replaced world;
    Client client(*world.store);
    const UINT64 deleted = InodeOf(world.top / ".kest/deleted");
    const auto expectSynced = [&](const std::string& row, auto&& change,
                                  const std::set<UINT64>& directories) {
        SCOPED_TRACE(row);
        AtEachSync watch(world, row);
        EXPECT_EQ(0u, change());
        EXPECT_EQ(directories, watch.synced);
    };
    const UINT64 top = InodeOf(world.top), old = InodeOf(world.top / "old");
    expectSynced("new/file", [&] { return client.Move("/v/new/file", "/v/old/moved"); },
                 {InodeOf(world.top / "new"), old});
    expectSynced("old/moved", [&] { return client.Move("/v/old/moved", "/v/old/again"); }, {old});
    expectSynced("old/again", [&] { return client.Delete("/v/old/again"); }, {old, deleted});
    expectSynced(".kest/deleted/1",
                 [&] { return client.Move("/v/.kest/deleted/1/again", "/v/old/restored"); },
                 {old, deleted});
    expectSynced("old/file", [&] { return client.Move("/v/new", "/v/old"); }, {top, deleted});
    expectSynced(".kest/deleted/2/file", [&] { return client.Delete("/v/.kest/deleted/2/old"); },
                 {deleted, InodeOf(world.top / ".kest/purge")});
}

TEST(MoveOntoACollection, ThatFailsLeavesBothWhereTheyWere)
{
    for (const bool hasExchange : {true, false})
        for (int call = 1;; ++call) {
            ASSERT_LT(call, kMostCalls);
            SCOPED_TRACE("failing call " + std::to_string(call));
            Replaced world;
            world.failing->hasExchange = hasExchange;
            world.failing->failAt = call;
            const TALSTATUS status = world.Move();
            const bool failed = world.failing->hasFailed;
            world.failing->failAt = 0;
            if (Failed(status) && fs::exists(world.top / "new"))
                world.ExpectBefore();
            else
                world.ExpectAfter(); // reported, if it was the sync that failed
            if (!failed) {
                EXPECT_EQ(0u, status);
                break;
            }
        }
}

// The disk fails between the two steps, at the way back, and for a while after: until that is over
// nobody is shown what is neither before nor after, and then no start is needed to set it right.
TEST(MoveOntoACollection, ThatCanNeitherEndNorBeUndoneIsSettledBeforeItsNamesAreUsed)
{
    for (const UINT32 keepDays : {30u, 0u})
        for (const bool hasExchange : {true, false}) {
            SCOPED_TRACE(std::to_string(keepDays) + (hasExchange ? " traded" : " one by one"));
            Replaced world(keepDays);
            world.failing->hasExchange = hasExchange;
            bool hasBegun = false;
            world.failing->judge = [&](const char* operation) {
                const std::string_view first = hasExchange ? "Exchange" : "Rename";
                if (operation == first && !std::exchange(hasBegun, true))
                    return 0;
                return hasBegun && (operation == first || operation == std::string_view("Rename"))
                           ? EIO
                           : 0;
            };
            EXPECT_TRUE(Failed(world.Move()));
            Client client(*world.store);
            for (const char* path : {"/v/new/file", "/v/old/file", "/v/old", "/v"})
                EXPECT_TRUE(Failed(LookAt(*world.store, path))) << path;
            EXPECT_TRUE(Failed(client.MkCol("/v/old")));
            EXPECT_EQ(0u, client.MkCol("/v/another")) << "what has nothing to do with it goes on";
            world.failing->judge = nullptr;
            EXPECT_EQ(0u, LookAt(*world.store, "/v/old/file"));
            if (hasExchange)
                world.ExpectAfter();
            else
                world.ExpectBefore();
            EXPECT_EQ(0u, client.Delete("/v/old"));
            world.Open();
            EXPECT_FALSE(fs::exists(world.top / "old")) << "the next start finds nothing to do";
            EXPECT_EQ(!hasExchange, fs::exists(world.top / "new"));
        }
}

TEST(MoveOntoACollection, WhoseProcessIsKilledIsDoneOrUndoneByTheNextStart)
{
    for (const UINT32 keepDays : {30u, 0u})
        for (const bool hasExchange : {true, false}) {
            int call = 0;
            for (bool wasKilled = true; wasKilled;) {
                ASSERT_LT(++call, kMostCalls);
                SCOPED_TRACE("killed at call " + std::to_string(call));
                Replaced world(keepDays);
                world.store.reset();
                const pid_t child = fork();
                ASSERT_GE(child, 0);
                if (child == 0) {
                    world.Open();
                    world.failing->hasExchange = hasExchange;
                    world.failing->failAt = call;
                    world.failing->onFailure = [] { raise(SIGKILL); };
                    _exit(Failed(world.Move()) ? 1 : 0);
                }
                int status = 0;
                ASSERT_EQ(child, waitpid(child, &status, 0));
                wasKilled = WIFSIGNALED(status);
                world.Open();
                if (fs::exists(world.top / "new"))
                    world.ExpectBefore();
                else
                    world.ExpectAfter();
                EXPECT_TRUE(wasKilled || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
            }
        }
}

TEST(MoveOntoACollection, LeavesTheNameTakenAllTheTime)
{
    bool isTaken = true;
    for (int call = 1, seen = 1; seen; ++call) {
        ASSERT_LT(call, kMostCalls);
        Replaced world;
        seen = 0;
        world.failing->failAt = call;
        world.failing->onlyWatches = true;
        world.failing->onFailure = [&] {
            ++seen;
            isTaken = isTaken && fs::exists(world.top / "old/file");
        };
        EXPECT_EQ(0u, world.Move());
    }
    EXPECT_TRUE(isTaken);
}
