// SPDX-License-Identifier: Apache-2.0
//
// Sessions of the metadata: what they see of each other's changes, and many at once.
#include <thread>

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/providers/filestore/scratch.h"

#include "providers/filestore/sqlitedb.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

struct OpenStore {
    OpenStore() : store(MakeStore(directory.Path())) {}
    std::unique_ptr<MetadataSession> Session()
    {
        std::unique_ptr<MetadataSession> out;
        EXPECT_EQ(0u, store->Volumes()[0]->Meta()->Open(&out));
        return out;
    }
    static std::string Read(MetadataSession& session, const char* path)
    {
        Property value;
        return Failed(session.GetProperty(path, "p", &value)) ? "(none)" : value.value;
    }

    TempDirectory directory;
    std::unique_ptr<Store> store;
};

} // namespace

TEST(MetadataSessions, SeeTheirOwnChangesAtOnceAndOthersWhenTheyAreCommitted)
{
    OpenStore world;
    const auto writer = world.Session(), reader = world.Session();
    ASSERT_EQ(0u, writer->SetProperty("a", {kClassicSpace, "p"}, "old"));
    EXPECT_EQ("old", OpenStore::Read(*writer, "a"));
    ASSERT_EQ(0u, writer->Begin());
    ASSERT_EQ(0u, writer->SetProperty("a", {kClassicSpace, "p"}, "new"));
    EXPECT_EQ("new", OpenStore::Read(*writer, "a"));
    EXPECT_EQ("old", OpenStore::Read(*reader, "a"));
    ASSERT_EQ(0u, writer->Commit());
    EXPECT_EQ("new", OpenStore::Read(*reader, "a"));
    EXPECT_EQ("new", OpenStore::Read(*writer, "a"));
}

TEST(MetadataSessions, LeaveNothingOfWhatTheyTakeBack)
{
    OpenStore world;
    {
        const auto session = world.Session();
        ASSERT_EQ(0u, session->Begin());
        ASSERT_EQ(0u, session->SetProperty("a", {kClassicSpace, "p"}, "new"));
        session->Rollback();
        EXPECT_EQ("(none)", OpenStore::Read(*session, "a"));
        ASSERT_EQ(0u, session->Begin());
        ASSERT_EQ(0u, session->SetProperty("b", {kClassicSpace, "p"}, "new"));
    }
    const auto session = world.Session();
    EXPECT_EQ("(none)", OpenStore::Read(*session, "b"));
    EXPECT_EQ(0u, session->SetProperty("c", {kClassicSpace, "p"}, "others go on"));
}

TEST(MetadataSessions, FindWhatATreeHolds)
{
    OpenStore world;
    const auto session = world.Session();
    const auto has = [&](const char* tree) {
        bool any = true;
        EXPECT_EQ(0u, session->HasAny(tree, &any));
        return any;
    };
    EXPECT_FALSE(has("a"));
    DeletedEntry entry{0, "a/b", "gone", 1};
    ASSERT_EQ(0u, session->AddDeleted(&entry));
    EXPECT_TRUE(has("a"));
    EXPECT_TRUE(has("a/b"));
    EXPECT_FALSE(has("a/b/gone"));
    EXPECT_FALSE(has("a/c"));
    ASSERT_EQ(0u, session->SetProperty("c/d", {kClassicSpace, "p"}, "v"));
    ASSERT_EQ(0u, session->SetHidden("e/f", true));
    EXPECT_TRUE(has("c"));
    EXPECT_TRUE(has("e"));
    EXPECT_TRUE(has("e/f"));
    EXPECT_FALSE(has("c-"));
    EXPECT_FALSE(has("g"));
}

namespace {

// The rows of a tree as it exports them: "path name value", and "path hidden" for a mark.
std::vector<std::string> Exported(MetadataSession& session, const char* tree, bool deep)
{
    std::vector<std::string> rows;
    EXPECT_EQ(0u, session.ExportTree(tree, deep, [&](std::string_view path, const Property* one) {
        rows.push_back(std::string(path) +
                       (one ? " " + one->name + " " + one->value : std::string(" hidden")));
        return TAL_STATUS_SUCCESS;
    }));
    return rows;
}

} // namespace

TEST(MetadataSessions, ExportAndForgetATreeAndNothingBesideIt)
{
    using Rows = std::vector<std::string>;
    OpenStore world;
    const auto session = world.Session();
    const auto set = [&](const char* path, const char* name) {
        ASSERT_EQ(0u, session->SetProperty(path, {"urn:x", name}, "v"));
    };
    set("a/z/y", "late"); // set before those above it
    set("a", "second");   // in the order in which they were set, not that of names
    set("a", "first");
    set("a-", "beside");
    set("a0", "beside");
    set("a/b", "member");
    for (const char* const path : {"a", "a/h", "a/z/h", "a-/h", "a0", "b"})
        ASSERT_EQ(0u, session->SetHidden(path, true));
    EXPECT_EQ((Rows{"a second v", "a first v", "a hidden"}), Exported(*session, "a", false));
    EXPECT_EQ((Rows{"a second v", "a first v", "a/b member v", "a/z/y late v", "a hidden",
                    "a/h hidden", "a/z/h hidden"}),
              Exported(*session, "a", true));
    EXPECT_EQ((Rows{"a/b member v"}), Exported(*session, "a/b", true));
    EXPECT_EQ((Rows{}), Exported(*session, "c", true));
    ASSERT_EQ(0u, session->ForgetTree("a"));
    EXPECT_EQ((Rows{}), Exported(*session, "a", true));
    EXPECT_EQ((Rows{"a- beside v", "a-/h hidden"}), Exported(*session, "a-", true));
    EXPECT_EQ((Rows{"a0 beside v", "a0 hidden"}), Exported(*session, "a0", true));
    EXPECT_EQ((Rows{"b hidden"}), Exported(*session, "b", true));
}

TEST(MetadataSessions, FindAllThatIsOverInAnyOrderOfTimes)
{
    OpenStore world;
    const auto session = world.Session();
    for (const UINT64 time : {UINT64{30}, UINT64{10}, UINT64{40}, UINT64{20}}) {
        DeletedEntry entry{0, "", std::to_string(time), time};
        ASSERT_EQ(0u, session->AddDeleted(&entry));
    }
    std::vector<std::string> over;
    DeletedEntry entry;
    while (!Failed(session->NextExpired(31, entry.id, &entry)))
        over.push_back(entry.name);
    EXPECT_EQ((std::vector<std::string>{"30", "10", "20"}), over);
}

TEST(MetadataSessions, GoOnWhenTheMetadataHasGoneToRest)
{
    OpenStore world;
    const std::filesystem::path log = world.directory.Path() / ".kest/meta.db-wal";
    Metadata& metadata = *world.store->Volumes()[0]->Meta();
    const auto changing = world.Session();
    ASSERT_EQ(0u, world.Session()->SetProperty("a", {kClassicSpace, "p"}, "v"));
    EXPECT_TRUE(std::filesystem::exists(log));
    metadata.Checkpoint();
    EXPECT_FALSE(std::filesystem::exists(log));
    ASSERT_EQ(0u, changing->Begin());
    ASSERT_EQ(0u, changing->SetProperty("b", {kClassicSpace, "p"}, "v"));
    metadata.Checkpoint(); // while a change is on its way
    ASSERT_EQ(0u, changing->Commit());
    for (const char* const path : {"a", "b"}) {
        bool any = false;
        EXPECT_EQ(0u, world.Session()->HasAny(path, &any));
        EXPECT_TRUE(any) << path;
    }
}

TEST(MetadataSessions, NeverGiveTheNumberOfADeletedEntryAgain)
{
    OpenStore world;
    const auto add = [&] {
        DeletedEntry entry{0, "a", "gone", 1};
        EXPECT_EQ(0u, world.Session()->AddDeleted(&entry));
        return entry.id;
    };
    const auto remove = [&](INT64 id) { EXPECT_EQ(0u, world.Session()->RemoveDeleted(id)); };
    for (const INT64 id : {1, 2, 3})
        EXPECT_EQ(id, add());
    remove(2); // not the newest
    EXPECT_EQ(4, add());
    remove(4); // the newest
    EXPECT_EQ(5, add());
    for (const INT64 id : {5, 3, 1}) // all, the newest first
        remove(id);
    world.store = nullptr;
    world.store = MakeStore(world.directory.Path());
    EXPECT_EQ(6, add());
    remove(17); // not there
    EXPECT_EQ(7, add());
}

TEST(MetadataSessions, GiveNoNumberForWhatTheyTakeBack)
{
    OpenStore world;
    const auto session = world.Session();
    DeletedEntry first{0, "", "a", 1}, second{0, "", "b", 1}, none;
    ASSERT_EQ(0u, session->AddDeleted(&first));
    ASSERT_EQ(0u, session->Begin());
    ASSERT_EQ(0u, session->RemoveDeleted(first.id));
    session->Rollback();
    ASSERT_EQ(0u, session->AddDeleted(&second));
    EXPECT_EQ(first.id + 1, second.id);
    EXPECT_EQ(0u, session->FindDeleted(first.id, &none));
}

TEST(MetadataSessions, OfManyThreadsLoseNothing)
{
    constexpr int kThreads = 8, kRounds = 25;
    OpenStore world;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&world, t] {
            Client client(*world.store);
            for (int i = 0; i < kRounds; ++i) {
                const std::string name = "/v/" + std::to_string(t) + "-" + std::to_string(i);
                EXPECT_EQ(0u, client.Put(name, name));
                EXPECT_EQ(0u, client.SetProperty(name, "p", name));
                EXPECT_EQ(0u, client.Move(name, name + "-moved"));
                EXPECT_EQ(name, client.Property(name + "-moved", "p"));
                if (i % 2 == 0) {
                    EXPECT_EQ(0u, client.Delete(name + "-moved"));
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    const auto session = world.Session();
    DeletedEntry entry;
    int kept = 0;
    for (; !Failed(session->NextDeleted("", entry.id, &entry)); ++kept)
        EXPECT_EQ("/v/" + entry.name.substr(0, entry.name.find("-moved")),
                  OpenStore::Read(*session, (".kest/deleted/" + std::to_string(entry.id)).c_str()));
    EXPECT_EQ(kThreads * ((kRounds + 1) / 2), kept);
    std::vector<RenameIntent> intents;
    ASSERT_EQ(0u, session->Intents(&intents));
    EXPECT_TRUE(intents.empty());
}

namespace {

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Files that only root owns or may write are nobody's here: as root everything could be written.
class WithoutRights {
  public:
    WithoutRights() { EXPECT_TRUE(::geteuid() != 0 || ::seteuid(kNobody) == 0); }
    ~WithoutRights() { (void)::seteuid(::getuid()); }
    WithoutRights(const WithoutRights&) = delete;
    WithoutRights& operator=(const WithoutRights&) = delete;
    static constexpr uid_t kNobody = 65534;
};

} // namespace

TEST(MetadataFailures, IsToldOnceAMinuteWithTheDatabasesName)
{
    DatabaseFailures failures;
    failures.SetName("/srv/docs/.kest/meta.db");
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i)
        failures.Log("disk I/O error");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1u, Count(log, "error filestore: '/srv/docs/.kest/meta.db': disk I/O error\n"))
        << log;
    EXPECT_EQ(1u, Count(log, "\n")) << log;
}

TEST(MetadataFailures, OneWaitInVainMakesTheNextOnesShortUntilTheDatabaseWasFree)
{
    DatabaseFailures failures;
    EXPECT_TRUE(failures.GoesOnWaiting(0));
    EXPECT_TRUE(failures.GoesOnWaiting(9999));
    EXPECT_FALSE(failures.GoesOnWaiting(10000));
    EXPECT_TRUE(failures.GoesOnWaiting(99));
    EXPECT_FALSE(failures.GoesOnWaiting(100));
    failures.WasFree();
    EXPECT_TRUE(failures.GoesOnWaiting(9999));
}

TEST(MetadataFailures, ABrokenDatabaseFailsRequestsAndSaysWhy)
{
    OpenStore world;
    ASSERT_EQ(0u,
              world.Session()->SetProperty("a", {kClassicSpace, "p"}, std::string(100'000, 'x')));
    const std::string path = world.directory.Path() / ".kest/meta.db";
    world.store.reset();
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    ASSERT_EQ(SQLITE_OK,
              sqlite3_exec(db, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr));
    sqlite3_close(db);
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(-50'000, std::ios::end); // the middle of the value
        file << std::string(50'000, 'x');
    }
    testing::internal::CaptureStderr();
    world.store = MakeStore(world.directory.Path());
    Property value;
    EXPECT_EQ(kCodeUnsuccessful, Code(world.Session()->GetProperty("a", "p", &value)));
    EXPECT_EQ(kCodeUnsuccessful,
              Code(world.Session()->SetProperty("a", {kClassicSpace, "p"}, "new")));
    EXPECT_EQ(0u, Client(*world.store).Put("/v/a", "content does not need it"));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1u, Count(log, "/.kest/meta.db': database disk image is malformed")) << log;
}

TEST(MetadataFailures, ADatabaseThatCannotBeWrittenMakesTheVolumeReadOnly)
{
    OpenStore world;
    world.store.reset();
    for (const auto& entry : fs::recursive_directory_iterator(world.directory.Path()))
        ASSERT_TRUE(::geteuid() != 0 ||
                    ::chown(entry.path().c_str(), WithoutRights::kNobody, ::getgid()) == 0);
    ASSERT_TRUE(::geteuid() != 0 ||
                ::chown(world.directory.Path().c_str(), WithoutRights::kNobody, ::getgid()) == 0);
    ASSERT_EQ(0, ::chmod((world.directory.Path() / ".kest/meta.db").c_str(), 0400));
    const WithoutRights without;
    testing::internal::CaptureStderr();
    world.store = MakeStore(world.directory.Path());
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1u, Count(log, "is served for reading only")) << log;
    EXPECT_EQ(1u, Count(log, "meta.db: it cannot be written")) << log;
    EXPECT_EQ(kCodeAccessDenied, Code(Client(*world.store).Put("/v/a", "x")));
    world.store.reset();
}

TEST(MetadataFailures, DeletionsGoOnWhereTheDatabaseWasLost)
{
    OpenStore world;
    const fs::path top = world.directory.Path();
    const auto remove = [&](const char* name) {
        std::ofstream(top / name) << name;
        return Client(*world.store).Delete(std::string("/v/") + name);
    };
    ASSERT_EQ(0u, remove("first"));
    ASSERT_EQ(0u, remove("second"));
    world.store.reset();
    for (const char* file : {"meta.db", "meta.db-wal", "meta.db-shm"})
        fs::remove(top / ".kest" / file);
    for (int i = 0; i < 2; ++i) { // the second time it is known
        world.store = MakeStore(top);
        EXPECT_EQ(0u, remove("third"));
    }
    EXPECT_EQ("first", Contents(top / ".kest/deleted/1"));
    EXPECT_EQ("second", Contents(top / ".kest/deleted/2"));
    EXPECT_EQ("third", Contents(top / ".kest/deleted/3"));
    EXPECT_EQ("third", Contents(top / ".kest/deleted/4"));
    DeletedEntry entry;
    EXPECT_EQ(kCodeNotFound, Code(world.Session()->FindDeleted(2, &entry)));
    EXPECT_EQ(0u, world.Session()->FindDeleted(4, &entry));
}
