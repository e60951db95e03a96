// SPDX-License-Identifier: Apache-2.0
//
// A full disk: deleted entries give way, and what ends a lock or deletes something works.
#include <algorithm>
#include <chrono>
#include <deque>
#include <future>
#include <optional>
#include <string_view>
#include <thread>

#include <sqlite3.h>

#include "providers/filestore/names.h"
#include "providers/filestore/purge.h"
#include "providers/filestore/room.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

constexpr UINT64 kReserve = 256 * 1024;
constexpr bool kGoOn = true;

// Databases find the disk full as long as this says so.
std::function<bool()> g_isDatabaseFull;
// The system has one table of operations for databases and another one for their logs.
struct Watched {
    const sqlite3_io_methods* real;
    sqlite3_io_methods writing;
};
std::deque<Watched> g_watched;
sqlite3_vfs* g_system = nullptr;

int WriteWatched(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset)
{
    if (g_isDatabaseFull && g_isDatabaseFull())
        return SQLITE_FULL;
    const auto of = std::find_if(g_watched.begin(), g_watched.end(), [&](const Watched& each) {
        return file->pMethods == &each.writing;
    });
    return of->real->xWrite(file, bytes, size, offset);
}

int OpenWatched(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out)
{
    const int result = g_system->xOpen(g_system, name, file, flags, out);
    if (result != SQLITE_OK)
        return result;
    auto of = std::find_if(g_watched.begin(), g_watched.end(),
                           [&](const Watched& each) { return file->pMethods == each.real; });
    if (of == g_watched.end()) {
        of = g_watched.insert(g_watched.end(), {file->pMethods, *file->pMethods});
        of->writing.xWrite = WriteWatched;
    }
    file->pMethods = &of->writing;
    return result;
}

// Takes the place of what the store opens its databases with.
sqlite3_vfs* Watching()
{
    static sqlite3_vfs watching = [] {
        g_system = sqlite3_vfs_find("unix-excl");
        sqlite3_vfs made = *g_system;
        made.xOpen = OpenWatched;
        return made;
    }();
    return &watching;
}

class FullDisk : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(Watching(), 1)); }
    void TearDown() override
    {
        g_isDatabaseFull = nullptr;
        sqlite3_vfs_unregister(Watching());
    }
    void Start(UINT64 reserve = 0, UINT64 keepFree = 0)
    {
        store = MakeStore(
            top, 30, SyncLevel::None,
            [&](std::unique_ptr<FileSystem> real) {
                auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
                failing = wrapped.get();
                return wrapped;
            },
            reserve, keepFree);
        client.emplace(*store);
    }
    // Makes the kept entries 1 to `count`.
    void Delete(int count)
    {
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(0u, client->MkCol("/v/deleted"));
            ASSERT_EQ(0u, client->Put("/v/deleted/file", "x"));
            ASSERT_EQ(0u, client->Delete("/v/deleted"));
        }
    }
    bool IsKept(int number) { return fs::exists(top / ".kest/deleted" / std::to_string(number)); }
    size_t ReserveLeft() { return Leftovers(top / ".kest/reserve").size(); }
    Volume& TheVolume() { return *store->Volumes()[0]; }

    const TempDirectory directory;
    const fs::path top = directory.Path();
    FailingFileSystem* failing = nullptr;
    std::unique_ptr<Store> store;
    std::optional<Client> client;
};

} // namespace

TEST_F(FullDisk, TakesBackWhatTheOldestDeletedEntriesHold)
{
    Start();
    const std::function<TALSTATUS()> changes[] = {
        [&] { return client->Put("/v/new", "content"); },
        [&] { return client->Put("/v/new", "other"); },
        [&] { return client->MkCol("/v/collection"); },
    };
    int kept = 0;
    for (const auto& change : changes) {
        Delete(3);
        // The first of the three is enough.
        failing->isFull = [&, oldest = kept + 1] { return IsKept(oldest); };
        EXPECT_EQ(0u, change());
        failing->isFull = nullptr;
        EXPECT_FALSE(IsKept(kept + 1));
        EXPECT_TRUE(IsKept(kept + 2) && IsKept(kept + 3));
        ASSERT_EQ(0u, client->Delete("/v/.kest/deleted/" + std::to_string(kept + 2) + "/deleted"));
        ASSERT_EQ(0u, client->Delete("/v/.kest/deleted/" + std::to_string(kept + 3) + "/deleted"));
        EmptyPurge(TheVolume(), [] { return kGoOn; });
        kept += 3;
    }
    EXPECT_EQ("other", Contents(top / "new"));
    EXPECT_TRUE(fs::is_directory(top / "collection"));
}

TEST_F(FullDisk, IsReportedWhenNothingGivesWay)
{
    Start();
    Delete(2);
    failing->isFull = [] { return true; };
    EXPECT_EQ(kCodeStorageFull, Code(client->Put("/v/new", "content")));
    EXPECT_EQ(kCodeStorageFull, Code(client->MkCol("/v/collection")));
    EXPECT_FALSE(IsKept(1) || IsKept(2));
    EXPECT_FALSE(fs::exists(top / "new"));
    EXPECT_TRUE(Leftovers(top / ".kest/tmp").empty());
}

TEST_F(FullDisk, KeepsWhatWouldNotHelp)
{
    Start();
    Delete(30);
    // There is room again after the first, as far as the system tells.
    failing->isFull = [&] { return IsKept(1); };
    failing->judge = [](const char* operation) {
        return std::string_view(operation) == "MakeDirectory" ? ENOSPC : 0;
    };
    EXPECT_EQ(kCodeStorageFull, Code(client->MkCol("/v/collection")));
    failing->judge = nullptr;
    EXPECT_FALSE(IsKept(1));
    EXPECT_TRUE(IsKept(30));
}

TEST_F(FullDisk, MakesNobodyWaitForAllThatGivesWay)
{
    constexpr int kEntries = 40;
    Start(0, 1);
    Delete(kEntries);
    std::promise<void> hasAsked, hasAnswer;
    std::future<void> asked = hasAsked.get_future(), answered = hasAnswer.get_future();
    // For the request it is full once, for whoever keeps room free for ever.
    const std::thread::id requests = std::this_thread::get_id();
    int questions = 0; // of the request
    failing->isFull = [&] {
        if (std::this_thread::get_id() != requests)
            return true;
        if (questions++ == 0)
            hasAsked.set_value();
        return questions == 1;
    };
    std::promise<void> hasBegun;
    std::thread keeping([&, steps = 0]() mutable {
        KeepRoom(*store, TheVolume(), [&] {
            if (++steps == 1) {
                hasBegun.set_value();
                asked.wait();
            }
            return answered.wait_for(std::chrono::milliseconds(200)) != std::future_status::ready;
        });
    });
    hasBegun.get_future().wait();
    EXPECT_EQ(0u, client->MkCol("/v/collection"));
    hasAnswer.set_value();
    keeping.join();
    EXPECT_GE(questions, 2);
    EXPECT_FALSE(IsKept(1));
    EXPECT_TRUE(IsKept(kEntries));
}

TEST_F(FullDisk, LetsPropertiesAndLocksBeWrittenWhenSomethingGivesWay)
{
    Start();
    ASSERT_EQ(0u, client->Put("/v/a", "x"));
    std::string token;
    const std::function<TALSTATUS()> changes[] = {
        [&] { return client->SetProperty("/v/a", "p", "v"); },
        [&] { return client->Move("/v/a", "/v/b"); },
        [&] { return client->Lock("/v/b", -1, &token); },
    };
    int number = 0;
    for (const auto& change : changes) {
        Delete(1);
        ++number;
        g_isDatabaseFull = [&] { return IsKept(number); };
        EXPECT_EQ(0u, change());
        g_isDatabaseFull = nullptr;
    }
    EXPECT_EQ("v", client->Property("/v/b", "p"));
}

TEST_F(FullDisk, IsUnlockedRefreshedAndDeletedFromByTheReserve)
{
    Start(kReserve);
    const size_t whole = ReserveLeft();
    ASSERT_GT(whole, 1u);
    std::string token;
    ASSERT_EQ(0u, client->Put("/v/a", "x"));
    ASSERT_EQ(0u, client->SetProperty("/v/a", "p", "v"));
    ASSERT_EQ(0u, client->Lock("/v/a", 1000 * kTicksPerSecond, &token));
    const std::function<TALSTATUS()> changes[] = {
        [&] { return client->Refresh("/v/a", 2000 * kTicksPerSecond, token); },
        [&] { return client->Unlock("/v/a", token); },
        [&] { return client->Delete("/v/a"); },
    };
    for (const auto& change : changes) {
        g_isDatabaseFull = [&] { return ReserveLeft() == whole; };
        EXPECT_EQ(0u, change());
        g_isDatabaseFull = nullptr;
        EXPECT_EQ(whole - 1, ReserveLeft());
        TheVolume().FillReserve();
        EXPECT_EQ(whole, ReserveLeft());
    }
    EXPECT_EQ("x", Contents(top / ".kest/deleted/1"));
    EXPECT_EQ("v", client->Property("/v/.kest/deleted/1/a", "p"));
}

TEST_F(FullDisk, MakesADeletionFinalWhenItCannotBeWrittenDown)
{
    Start();
    for (const std::string name : {"file", "tree"}) {
        if (name == "tree") {
            ASSERT_EQ(0u, client->MkCol("/v/tree"));
        }
        const std::string leaf = name == "tree" ? "tree/leaf" : name;
        ASSERT_EQ(0u, client->Put("/v/" + leaf, "x"));
        ASSERT_EQ(0u, client->SetProperty("/v/" + leaf, "p", "v"));
        g_isDatabaseFull = [&] { return fs::exists(top / name); };
        EXPECT_EQ(0u, client->Delete("/v/" + name));
        g_isDatabaseFull = nullptr;
        EXPECT_FALSE(fs::exists(top / name));
        EXPECT_TRUE(Leftovers(top / ".kest/deleted").empty());
        EXPECT_TRUE(Leftovers(top / ".kest/purge").empty());
        if (name == "tree") {
            ASSERT_EQ(0u, client->MkCol("/v/tree"));
        }
        ASSERT_EQ(0u, client->Put("/v/" + leaf, "new"));
        EXPECT_EQ("(none)", client->Property("/v/" + leaf, "p"));
    }
}

TEST_F(FullDisk, ForgetsWhatItHasRemovedAsSoonAsThereIsRoom)
{
    Start();
    ASSERT_EQ(0u, client->Put("/v/a", "x"));
    ASSERT_EQ(0u, client->SetProperty("/v/a", "p", "v"));
    std::string token;
    ASSERT_EQ(0u, client->Lock("/v/a", -1, &token));
    g_isDatabaseFull = [] { return true; };
    EXPECT_EQ(0u, client->Delete("/v/a", token));
    EXPECT_FALSE(fs::exists(top / "a"));
    EXPECT_NE(0u, WritePending(TheVolume()));
    g_isDatabaseFull = nullptr;
    EXPECT_EQ(0u, WritePending(TheVolume()));
    EXPECT_EQ(0u, client->Put("/v/a", "another")) << "it bears the lock of what has gone";
    EXPECT_EQ("(none)", client->Property("/v/a", "p"));
}

// Somebody else's file of that name keeps what belongs to it.
TEST_F(FullDisk, ForgetsNothingOfWhatIsThereAgain)
{
    Start();
    ASSERT_EQ(0u, client->Put("/v/a", "x"));
    ASSERT_EQ(0u, client->SetProperty("/v/a", "p", "v"));
    TheVolume().Pending().AddRemoved("a");
    EXPECT_EQ(0u, WritePending(TheVolume()));
    EXPECT_EQ("v", client->Property("/v/a", "p"));
}

TEST_F(FullDisk, TakesEntriesWithoutFilesOutOfTheListAsSoonAsThereIsRoom)
{
    Start();
    Delete(1);
    g_isDatabaseFull = [] { return true; };
    ASSERT_EQ(0u, client->Delete("/v/.kest/deleted/1/deleted"));
    g_isDatabaseFull = nullptr;
    EXPECT_EQ(0u, WritePending(TheVolume()));
    std::unique_ptr<MetadataSession> session;
    DeletedEntry entry;
    ASSERT_EQ(0u, Store::OpenMetadata(TheVolume(), &session));
    EXPECT_EQ(kCodeNotFound, Code(session->FindDeleted(1, &entry)));
}

TEST_F(FullDisk, MakesNoDeletionFinalThatALockForbids)
{
    Start();
    std::string token;
    ASSERT_EQ(0u, client->Lock("/v/a", -1, &token));
    g_isDatabaseFull = [] { return true; };
    EXPECT_EQ(kCodeLocked, Code(client->Delete("/v/a")));
    EXPECT_TRUE(fs::exists(top / "a"));
}

TEST_F(FullDisk, DropsADeletedEntryThatStaysInTheListWithoutFiles)
{
    Start();
    Delete(1);
    g_isDatabaseFull = [] { return true; };
    EXPECT_EQ(0u, client->Delete("/v/.kest/deleted/1/deleted"));
    EXPECT_FALSE(IsKept(1));
}

// The next start would take it for one that has happened, once somebody else has moved the file.
TEST_F(FullDisk, ForgetsARenameThatDidNotHappenAsSoonAsThereIsRoom)
{
    Start();
    ASSERT_EQ(0u, client->Put("/v/a", "x"));
    ASSERT_EQ(0u, client->SetProperty("/v/a", "p", "v"));
    failing->judge = [](const std::string_view operation) {
        if (operation != "Rename")
            return 0;
        g_isDatabaseFull = [] { return true; };
        return EIO;
    };
    EXPECT_NE(0u, client->Move("/v/a", "/v/b"));
    failing->judge = nullptr;
    g_isDatabaseFull = nullptr;
    std::unique_ptr<MetadataSession> session;
    std::vector<RenameIntent> left;
    ASSERT_EQ(0u, Store::OpenMetadata(TheVolume(), &session));
    ASSERT_EQ(0u, session->Intents(&left));
    EXPECT_EQ(1u, left.size());
    EXPECT_EQ(0u, WritePending(TheVolume()));
    left.clear();
    ASSERT_EQ(0u, session->Intents(&left));
    EXPECT_TRUE(left.empty());
}

TEST_F(FullDisk, KeepsThePropertiesOfARestoredEntryThatCouldNotFollowIt)
{
    Start();
    ASSERT_EQ(0u, client->MkCol("/v/folder"));
    ASSERT_EQ(0u, client->SetProperty("/v/folder", "p", "v"));
    ASSERT_EQ(0u, client->Delete("/v/folder"));
    std::unique_ptr<MetadataSession> session;
    ASSERT_EQ(0u, Store::OpenMetadata(TheVolume(), &session));
    RenameIntent intent{0, TheVolume().Token(), PathOfDeleted(1), "folder"};
    ASSERT_EQ(0u, session->AddIntent(&intent));
    fs::rename(top / ".kest/deleted/1", top / "folder");
    TheVolume().Unfinished().Add(std::move(intent), false);
    g_isDatabaseFull = [] { return true; };
    EXPECT_NE(0u, RetireEntries(TheVolume(), *session, {1}));
    g_isDatabaseFull = nullptr;
    EXPECT_EQ(0u, RetireEntries(TheVolume(), *session, {1}));
    EXPECT_EQ("v", client->Property("/v/folder", "p"));
}

TEST_F(FullDisk, IsAvoidedWhileDeletedEntriesAreThere)
{
    Start(0, 1 << 20);
    Delete(4);
    failing->isFull = [&] { return IsKept(2); };
    KeepRoom(*store, TheVolume(), [] { return kGoOn; });
    EXPECT_FALSE(IsKept(1) || IsKept(2));
    EXPECT_TRUE(IsKept(3) && IsKept(4));
}

TEST_F(FullDisk, FindsTheReserveOfAnEarlierStart)
{
    Start(kReserve);
    const size_t whole = ReserveLeft();
    EXPECT_EQ(kReserve / whole,
              fs::file_size(fs::directory_iterator(top / ".kest/reserve")->path()));
    Start(kReserve);
    EXPECT_EQ(whole, ReserveLeft());
    for (size_t left = whole; left > 0; --left)
        EXPECT_TRUE(TheVolume().GiveUpReserve());
    EXPECT_FALSE(TheVolume().GiveUpReserve());
    failing->isFull = [] { return true; };
    TheVolume().FillReserve();
    EXPECT_EQ(0u, ReserveLeft());
    failing->isFull = nullptr;
    TheVolume().FillReserve();
    EXPECT_EQ(whole, ReserveLeft());
}
