// SPDX-License-Identifier: Apache-2.0
//
// What needs a clock, a second process or a start over.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "providers/filestore/locks.h"
#include "providers/filestore/purge.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

constexpr UINT64 kSecond = 10'000'000;
constexpr UINT64 kDay = 24 * 3600 * kSecond;
const PurgePause kNoPause = [] { return true; };

void PurgeAll(Store& store)
{
    for (const auto& volume : store.Volumes()) {
        RetireDeleted(store, *volume);
        EmptyPurge(*volume, kNoPause);
        DropExpiredLocks(store, *volume);
    }
}

} // namespace

TEST(FileStoreClock, DeletedEntriesGoWhenTheirTimeIsOver)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path(), 2);
    Client client(*store);
    ASSERT_EQ(0u, client.MkCol("/v/tree"));
    ASSERT_EQ(0u, client.MkCol("/v/tree/sub"));
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(0u, client.Put("/v/tree/sub/" + std::to_string(i), "x"));
    ASSERT_EQ(0u, client.SetProperty("/v/tree/sub/1", "p", "v"));
    ASSERT_EQ(0u, client.Delete("/v/tree"));
    g_now += kDay;
    ASSERT_EQ(0u, client.Put("/v/late", "x"));
    ASSERT_EQ(0u, client.Delete("/v/late"));
    PurgeAll(*store);
    EXPECT_EQ(2u, Leftovers(directory.Path() / ".kest/deleted").size());
    g_now += kDay + kSecond;
    PurgeAll(*store);
    EXPECT_EQ(1u, Leftovers(directory.Path() / ".kest/deleted").size());
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty());
    g_now += 2 * kDay;
    PurgeAll(*store);
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/deleted").empty());
    store->Volumes()[0]->Meta()->RecountFlags();
    EXPECT_FALSE(store->Volumes()[0]->MayHaveProperties());
    EXPECT_FALSE(store->Volumes()[0]->Meta()->MayHaveDeleted());
}

TEST(FileStoreClock, NothingIsKeptWithoutTime)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path(), 0);
    Client client(*store);
    ASSERT_EQ(0u, client.MkCol("/v/dir"));
    ASSERT_EQ(0u, client.Put("/v/dir/a", "x"));
    ASSERT_EQ(0u, client.SetProperty("/v/dir/a", "p", "v"));
    ASSERT_EQ(0u, client.Delete("/v/dir"));
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/deleted").empty());
    EXPECT_EQ(1u, Leftovers(directory.Path() / ".kest/purge").size());
    PurgeAll(*store);
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty());
    ASSERT_EQ(0u, client.MkCol("/v/dir"));
    ASSERT_EQ(0u, client.Put("/v/dir/a", "x"));
    EXPECT_EQ("(none)", client.Property("/v/dir/a", "p"));
}

TEST(FileStoreClock, WhatIsOneStepToRemoveLeavesNoWorkBehind)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path(), 0);
    Client client(*store);
    ASSERT_EQ(0u, client.Put("/v/file", "x"));
    ASSERT_EQ(0u, client.MkCol("/v/empty"));
    ASSERT_EQ(0u, client.Put("/v/large", "x"));
    fs::resize_file(directory.Path() / "large", 100 << 20);
    for (const char* const name : {"/v/file", "/v/empty"}) {
        ASSERT_EQ(0u, client.Delete(name));
        EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty()) << name;
    }
    ASSERT_EQ(0u, client.Delete("/v/large")); // takes its time
    EXPECT_EQ(1u, Leftovers(directory.Path() / ".kest/purge").size());
    PurgeAll(*store);
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty());
}

TEST(FileStoreClock, PurgingCopesWithReadOnlyAndDeepTrees)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path(), 0);
    fs::path deep = directory.Path() / "deep";
    fs::create_directory(deep);
    for (int i = 0; i < 12; ++i) {
        deep /= std::string(200, 'd');
        fs::create_directory(deep);
        std::ofstream(deep / "file") << "x";
    }
    fs::permissions(deep, fs::perms::owner_read | fs::perms::owner_exec);
    ASSERT_EQ(0u, Client(*store).Delete("/v/deep"));
    PurgeAll(*store);
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty());
}

TEST(FileStoreClock, LocksExpireByThemselves)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path());
    Client client(*store);
    std::string token, other;
    ASSERT_EQ(0u, client.Lock("/v/a", 100 * kSecond, &token));
    g_now += 99 * kSecond;
    EXPECT_EQ(kCodeLocked, Code(client.Lock("/v/a", 100 * kSecond, &other)));
    EXPECT_EQ(kCodeLocked, Code(client.Put("/v/a", "x")));
    EXPECT_EQ(0u, client.Refresh("/v/a", 2 * kSecond, token));
    g_now += 2 * kSecond - 1;
    EXPECT_EQ(kCodeLocked, Code(client.Put("/v/a", "x")));
    g_now += 1;
    EXPECT_EQ(kCodePreconditionFailed, Code(client.Refresh("/v/a", kSecond, token)));
    EXPECT_EQ(kCodeNotFound, Code(client.Unlock("/v/a", token)));
    EXPECT_EQ(kCodeNotFound, Code(BreakLock(*store, token)));
    EXPECT_EQ(0u, client.Put("/v/a", "x"));
    EXPECT_EQ(0u, client.Lock("/v/a", -1, &other)); // no sweep came in between
    g_now += 365 * kDay;
    EXPECT_EQ(kCodeLocked, Code(client.Put("/v/a", "y")));
    store->Volumes()[0]->Meta()->RecountFlags();
    EXPECT_TRUE(store->Volumes()[0]->MayHaveLocks());
}

TEST(FileStoreClock, RemovingAPropertyThatNobodyKeepsAsksTheLocksToo)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path());
    Client client(*store);
    ASSERT_EQ(0u, client.Put("/v/a", "x"));
    EXPECT_EQ(0u, client.RemoveProperty("/v/a", "p"));
    std::string token;
    ASSERT_EQ(0u, client.Lock("/v/a", -1, &token));
    EXPECT_FALSE(store->Volumes()[0]->MayHaveProperties());
    EXPECT_EQ(kCodeLocked, Code(client.RemoveProperty("/v/a", "p")));
}

TEST(FileStoreClock, TheLookForLocksIsClearAgainAfterTheLastOne)
{
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path());
    std::string token;
    EXPECT_FALSE(store->Volumes()[0]->MayHaveLocks());
    ASSERT_EQ(0u, Client(*store).Lock("/v/a", kSecond, &token));
    EXPECT_TRUE(store->Volumes()[0]->MayHaveLocks());
    g_now += 2 * kSecond;
    PurgeAll(*store);
    EXPECT_FALSE(store->Volumes()[0]->MayHaveLocks());
}

TEST(FileStoreRestart, LocksAndPropertiesOutliveTheStore)
{
    const TempDirectory directory;
    std::string token;
    {
        const auto store = MakeStore(directory.Path());
        Client client(*store);
        ASSERT_EQ(0u, client.Put("/v/a", "x"));
        ASSERT_EQ(0u, client.SetProperty("/v/a", "p", "v"));
        ASSERT_EQ(0u, client.Lock("/v/a", -1, &token));
    }
    // What a power cut may leave of the shared word does not matter.
    fs::resize_file(directory.Path() / ".kest/state", 0);
    const auto store = MakeStore(directory.Path());
    EXPECT_EQ("v", Client(*store).Property("/v/a", "p"));
    EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/a", "y")));
}

TEST(FileStoreRestart, ASecondStoreSeesTheFirstOnesLocksAtOnce)
{
    const TempDirectory directory;
    const auto first = MakeStore(directory.Path());
    const auto second = MakeStore(directory.Path());
    std::string token;
    ASSERT_EQ(0u, Client(*second).Put("/v/a", "x"));
    ASSERT_EQ(0u, Client(*first).Lock("/v/a", -1, &token));
    EXPECT_EQ(kCodeLocked, Code(Client(*second).Put("/v/a", "y")));
    EXPECT_EQ(kCodeLocked, Code(Client(*second).Delete("/v/a")));
}

// One process has the metadata at a time, and gives it to another that asks even while it is busy.
TEST(FileStoreProcesses, TakeTurnsAtTheMetadata)
{
    const TempDirectory directory;
    std::ofstream(directory.Path() / "a") << "x";
    std::ofstream(directory.Path() / "b") << "x";
    int go[2];
    ASSERT_EQ(0, pipe(go));
    const pid_t child = fork(); // before this process opens anything
    ASSERT_GE(child, 0);
    if (child == 0) {
        char byte = 0;
        std::string token;
        bool locked = read(go[0], &byte, 1) == 1;
        {
            const auto other = MakeStore(directory.Path());
            locked = locked && Client(*other).Lock("/v/a", -1, &token) == 0;
        }
        _exit(locked ? 0 : 1);
    }
    const auto store = MakeStore(directory.Path());
    std::string token;
    ASSERT_EQ(0u, Client(*store).Lock("/v/b", -1, &token));
    ASSERT_EQ(1, write(go[1], "!", 1));
    int status = -1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (waitpid(child, &status, WNOHANG) == 0 && std::chrono::steady_clock::now() < end)
        EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/b", "y")));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/a", "y"))) << "the other one's lock counts";
    EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/b", "y")));
    close(go[0]);
    close(go[1]);
}

TEST(FileStoreProcesses, LetTheMetadataGoWhenItIsNotUsed)
{
    const TempDirectory directory;
    std::ofstream(directory.Path() / "a") << "x";
    const auto store = MakeStore(directory.Path());
    const Volume& volume = *store->Volumes()[0];
    EXPECT_FALSE(volume.MayHaveLocks()) << "there are none, and this process would know";
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (volume.Meta()->IsInUse() && std::chrono::steady_clock::now() < end)
        usleep(50000);
    ASSERT_FALSE(volume.Meta()->IsInUse());
    EXPECT_TRUE(volume.MayHaveLocks()) << "another process may have made one";
    EXPECT_FALSE(fs::exists(directory.Path() / ".kest/meta.db-wal"));
    DropExpiredLocks(*store, *store->Volumes()[0]);
    EXPECT_FALSE(volume.Meta()->IsInUse()) << "what can wait does not take it back";
    std::string token;
    ASSERT_EQ(0u, Client(*store).Lock("/v/a", -1, &token));
    EXPECT_TRUE(volume.Meta()->IsInUse());
    EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/a", "y")));
}

// What another program does to the files beside the database does not reach the process.
TEST(FileStoreProcesses, SurviveFilesThatAreCutShortOrWrittenOver)
{
    const TempDirectory directory;
    std::ofstream(directory.Path() / "a") << "x";
    const auto store = MakeStore(directory.Path());
    std::string token;
    ASSERT_EQ(0u, Client(*store).Lock("/v/a", -1, &token));
    for (const char* name : {"state", "meta.db-shm"}) {
        const fs::path file = directory.Path() / ".kest" / name;
        for (int round = 0; round < 3; ++round) {
            if (round == 0 && fs::exists(file))
                fs::resize_file(file, 0);
            else if (round == 1)
                std::ofstream(file) << std::string(40000, '\xFF');
            else
                fs::remove(file);
            EXPECT_EQ(kCodeLocked, Code(Client(*store).Put("/v/a", "y"))) << name << round;
            ASSERT_EQ(0u, Client(*store).Unlock("/v/a", token)) << name << round;
            EXPECT_EQ(0u, Client(*store).Put("/v/a", "y")) << name << round;
            ASSERT_EQ(0u, Client(*store).Lock("/v/a", -1, &token)) << name << round;
        }
    }
}

// Dies in the middle of what it is told to do, as with kill -9.
template <class F> static void DieDuring(const fs::path& directory, F&& work)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        work();
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status)) << directory;
}

TEST(FileStoreRestart, WhatDeadProcessesLeftIsRemovedAndWhatLivesStays)
{
    const TempDirectory directory;
    fs::create_directory(directory.Path() / "dir");
    std::ofstream(directory.Path() / "a") << "old";
    DieDuring(directory.Path(), [&] {
        const auto store = MakeStore(directory.Path());
        auto* const resource = new FileResource(*store);
        char text[] = "half";
        UINT32 written = 0;
        (void)resource->Associate({}, TRUE, 7, 1, 0, Path("/v/a").Get(), nullptr);
        (void)resource->Write(0, 4, text, &written);
        // A tree that was being copied when the end came.
        const std::string name = store->Volumes()[0]->UniqueName();
        fs::create_directories(directory.Path() / ".kest/tmp" / name / "sub");
        raise(SIGKILL);
    });
    EXPECT_EQ(2u, Leftovers(directory.Path() / ".kest/tmp").size());
    const auto living = MakeStore(directory.Path());
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/tmp").empty());
    EXPECT_EQ("old", Contents(directory.Path() / "a"));
    EmptyPurge(*living->Volumes()[0], kNoPause);
    EXPECT_TRUE(Leftovers(directory.Path() / ".kest/purge").empty());

    // An upload of a store that lives is not taken for a left-over by the next one.
    auto* const resource = new FileResource(*living);
    ASSERT_EQ(0u, resource->Associate({}, TRUE, 7, 1, 0, Path("/v/a").Get(), nullptr));
    char text[] = "new";
    UINT32 written = 0;
    ASSERT_EQ(0u, resource->Write(0, 3, text, &written));
    const auto another = MakeStore(directory.Path());
    resource->Release();
    EXPECT_EQ("new", Contents(directory.Path() / "a"));
}

// A power cut can take the lock files and leave what lay beside them.
TEST(FileStoreRestart, WhatIsLeftWithoutALockFileIsRemoved)
{
    const TempDirectory directory;
    const fs::path tmp = directory.Path() / ".kest/tmp";
    fs::create_directories(tmp / "0123456789abcdef-2/sub");
    std::ofstream(tmp / "0123456789abcdef-1") << "half";
    std::ofstream(tmp / "of somebody else") << "x";
    const auto store = MakeStore(directory.Path());
    EXPECT_EQ(std::vector<std::string>{"of somebody else"}, Leftovers(tmp));
}

// Out of descriptors, it cannot be told whether another store lives.
TEST(FileStoreRestart, WhatMayBeSomebodysIsLeftAlone)
{
    const TempDirectory directory;
    const auto living = MakeStore(directory.Path(), 30, SyncLevel::Data);
    auto* const resource = new FileResource(*living);
    ASSERT_EQ(0u, resource->Associate({}, TRUE, 7, 1, 0, Path("/v/a").Get(), nullptr));
    ASSERT_EQ(1u, Leftovers(directory.Path() / ".kest/tmp").size());
    for (int call = 1; call < 40; ++call) {
        const auto another = MakeStore(directory.Path(), 30, SyncLevel::Data, [&](auto real) {
            auto failing = std::make_unique<FailingFileSystem>(std::move(real));
            failing->failAt = call;
            return failing;
        });
        EXPECT_EQ(1u, Leftovers(directory.Path() / ".kest/tmp").size()) << call;
    }
    resource->Release();
    EXPECT_TRUE(fs::exists(directory.Path() / "a"));
}

TEST(FileStoreRestart, ARenameWhoseProcessDiedIsSettledByTheDisk)
{
    for (const bool happened : {true, false}) {
        const TempDirectory directory;
        DieDuring(directory.Path(), [&] {
            const auto store = MakeStore(directory.Path());
            Client client(*store);
            (void)client.Put("/v/a", "x");
            (void)client.SetProperty("/v/a", "p", "v");
            const Volume& volume = *store->Volumes()[0];
            std::unique_ptr<MetadataSession> session;
            (void)Store::OpenMetadata(volume, &session);
            RenameIntent intent{0, volume.Token(), "a", "b"};
            (void)session->AddIntent(&intent);
            if (happened)
                fs::rename(directory.Path() / "a", directory.Path() / "b");
            raise(SIGKILL);
        });
        const auto store = MakeStore(directory.Path());
        EXPECT_EQ("v", Client(*store).Property(happened ? "/v/b" : "/v/a", "p"));
        std::unique_ptr<MetadataSession> session;
        std::vector<RenameIntent> left;
        ASSERT_EQ(0u, Store::OpenMetadata(*store->Volumes()[0], &session));
        ASSERT_EQ(0u, session->Intents(&left));
        EXPECT_TRUE(left.empty());
    }
}

TEST(FileStoreRestart, AnUnwritableVolumeIsServedForReading)
{
    const TempDirectory directory;
    std::ofstream(directory.Path() / "a") << "x";
    std::ofstream(directory.Path() / ".kest") << "in the way";
    const auto store = MakeStore(directory.Path());
    Client client(*store);
    EXPECT_FALSE(store->Volumes()[0]->IsWritable());
    EXPECT_EQ(kCodeAccessDenied, Code(client.Put("/v/b", "x")));
    EXPECT_EQ(kCodeAccessDenied, Code(client.Delete("/v/a")));
    EXPECT_EQ(kCodeAccessDenied, Code(client.MkCol("/v/dir")));
    EXPECT_EQ(kCodeAccessDenied, Code(client.SetProperty("/v/a", "p", "v")));
    EXPECT_EQ("(none)", client.Property("/v/a", "p"));
    std::string token;
    EXPECT_EQ(kCodeAccessDenied, Code(client.Lock("/v/a", -1, &token)));
}

// A lock that is asked for while a folder is being made in the parent comes after it, or before: it
// never stands in the way of what is then made all the same.
TEST(FileStoreLocks, NobodyLocksAParentWhileAFolderIsMadeInIt)
{
    const TempDirectory directory;
    FailingFileSystem* failing = nullptr;
    const auto store =
        MakeStore(directory.Path(), 2, SyncLevel::None, [&](std::unique_ptr<FileSystem> real) {
            auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
            failing = wrapped.get();
            return wrapped;
        });
    Client client(*store);
    std::string unrelated;
    ASSERT_EQ(0u, client.MkCol("/v/parent"));
    ASSERT_EQ(0u, client.Lock("/v/unrelated", -1, &unrelated));
    std::atomic<bool> isLocked = false;
    bool wasLocked = false;
    std::jthread other;
    failing->judge = [&](const char* operation) {
        if (std::string_view(operation) == "MakeDirectory") {
            other = std::jthread([&] {
                std::string token;
                isLocked = Client(*store).Lock("/v/parent", -1, &token) == 0;
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            wasLocked = isLocked;
        }
        return 0;
    };
    EXPECT_EQ(0u, client.MkCol("/v/parent/new"));
    EXPECT_FALSE(wasLocked);
    other.join();
    EXPECT_TRUE(isLocked);
    failing->judge = nullptr;
    EXPECT_EQ(kCodeLocked, Code(client.MkCol("/v/parent/later")));
}

namespace {

std::set<std::string> Threads()
{
    std::set<std::string> found;
    for (const auto& thread : fs::directory_iterator("/proc/self/task"))
        found.insert(thread.path().filename());
    return found;
}

// How often the threads of this process that are not among `older` have gone to sleep.
UINT64 SleepsOfThreadsSince(const std::set<std::string>& older)
{
    UINT64 sum = 0;
    for (const std::string& thread : Threads()) {
        std::ifstream status("/proc/self/task/" + thread + "/status");
        std::string word;
        while (!older.contains(thread) && status >> word)
            if (UINT64 count = 0; word == "voluntary_ctxt_switches:" && status >> count)
                sum += count;
    }
    return sum;
}

} // namespace

TEST(FileStoreMetadata, WakesNoThreadWhileNobodyUsesIt)
{
    std::thread([] {}).join(); // with the first thread a sanitizer starts one of its own
    const std::set<std::string> older = Threads();
    const TempDirectory directory;
    const auto store = MakeStore(directory.Path(), 2);
    ASSERT_EQ(0u, Client(*store).Put("/v/file", "x"));
    ASSERT_EQ(0u, Client(*store).SetProperty("/v/file", "p", "v"));
    const auto isIdle = [&] { return !store->Volumes()[0]->Meta()->IsInUse(); };
    for (int i = 0; i < 300 && !isIdle(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(isIdle());
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // it goes to sleep
    const UINT64 before = SleepsOfThreadsSince(older);
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    EXPECT_LE(SleepsOfThreadsSince(older) - before, 1u);
}
