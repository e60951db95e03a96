// SPDX-License-Identifier: Apache-2.0
//
// Metadata databases of earlier versions: they are brought up to date whole or left alone.
#include <sqlite3.h>

#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;

namespace {

constexpr char kVersion1[] = R"(
PRAGMA journal_mode = WAL;
CREATE TABLE props (seq INTEGER PRIMARY KEY, path TEXT NOT NULL, name TEXT NOT NULL,
                    value BLOB NOT NULL, UNIQUE (path, name));
CREATE INDEX props_order ON props (path, seq);
CREATE TABLE hidden (parent TEXT NOT NULL, leaf TEXT NOT NULL, PRIMARY KEY (parent, leaf))
                    WITHOUT ROWID;
CREATE TABLE deleted (id INTEGER PRIMARY KEY AUTOINCREMENT, parent TEXT NOT NULL,
                      name TEXT NOT NULL, time INTEGER NOT NULL);
CREATE INDEX deleted_parent ON deleted (parent, id);
CREATE TABLE locks (seq INTEGER PRIMARY KEY, token TEXT NOT NULL UNIQUE, path TEXT NOT NULL,
                    scope INTEGER NOT NULL, type INTEGER NOT NULL, depth INTEGER NOT NULL,
                    expires INTEGER NOT NULL, owner BLOB NOT NULL, creator TEXT NOT NULL);
CREATE INDEX locks_path ON locks (path);
CREATE TABLE intents (id INTEGER PRIMARY KEY, owner TEXT NOT NULL, source TEXT NOT NULL,
                      target TEXT NOT NULL);
PRAGMA user_version = 1;
INSERT INTO props (path, name, value) VALUES ('file', 'p', 'value');
INSERT INTO hidden VALUES ('', 'file');
INSERT INTO locks (token, path, scope, type, depth, expires, owner, creator)
       VALUES ('t', 'file', 0, 1, 0, 9223372036854775807, 'o', 'c');
INSERT INTO deleted (parent, name, time) VALUES ('a', 'one', 11), ('b', 'two', 12),
       ('a', 'three', 13), ('a', 'four', 14);
DELETE FROM deleted WHERE id IN (2, 4);
)";

constexpr char kVersion3[] = R"(
PRAGMA journal_mode = WAL;
CREATE TABLE deleted (id INTEGER PRIMARY KEY, parent TEXT NOT NULL, name TEXT NOT NULL,
                      time INTEGER NOT NULL);
CREATE TABLE deleted_last (id INTEGER NOT NULL);
CREATE INDEX deleted_parent ON deleted (parent, id);
CREATE TABLE intents (id INTEGER PRIMARY KEY, owner TEXT NOT NULL, source TEXT NOT NULL,
                      target TEXT NOT NULL, aside TEXT NOT NULL, inode INTEGER NOT NULL);
INSERT INTO deleted_last VALUES (0);
CREATE TABLE props (seq INTEGER PRIMARY KEY, path TEXT NOT NULL, name TEXT NOT NULL,
                    value BLOB NOT NULL, UNIQUE (path, name));
CREATE INDEX props_order ON props (path, seq);
CREATE TABLE hidden (parent TEXT NOT NULL, leaf TEXT NOT NULL, PRIMARY KEY (parent, leaf))
                    WITHOUT ROWID;
CREATE TABLE locks (seq INTEGER PRIMARY KEY, token TEXT NOT NULL UNIQUE, path TEXT NOT NULL,
                    scope INTEGER NOT NULL, type INTEGER NOT NULL, depth INTEGER NOT NULL,
                    expires INTEGER NOT NULL, owner BLOB NOT NULL, creator TEXT NOT NULL);
CREATE INDEX locks_path ON locks (path);
PRAGMA user_version = 3;
INSERT INTO props (seq, path, name, value) VALUES (2, 'file', 'Z:later', 'a<b'),
       (1, 'file', 'first', X'6F6E65');
INSERT INTO hidden VALUES ('', 'file');
INSERT INTO locks (token, path, scope, type, depth, expires, owner, creator)
       VALUES ('t', 'file', 0, 1, 0, 9223372036854775807, 'o', 'c');
)";

// The first column of all rows.
std::string QueryFirst(sqlite3* db, const std::string& query)
{
    std::string out;
    const auto take = [](void* text, int, char** values, char**) {
        static_cast<std::string*>(text)->append(values[0]).append(" ");
        return 0;
    };
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, query.c_str(), take, &out, nullptr))
        << sqlite3_errmsg(db);
    return out;
}

// A volume's directory with a database of an earlier version, and a look at it from beside the
// store.
class Earlier {
  public:
    explicit Earlier(const char* script = kVersion1)
    {
        std::filesystem::create_directories(directory_.Path() / ".kest/deleted");
        for (const char* file : {"file", ".kest/deleted/1", ".kest/deleted/3"})
            std::ofstream(directory_.Path() / file) << file;
        EXPECT_EQ(SQLITE_OK, sqlite3_open((directory_.Path() / ".kest/meta.db").c_str(), &beside_));
        Run(script);
    }
    ~Earlier() { sqlite3_close(beside_); }

    void Run(const std::string& script)
    {
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(beside_, script.c_str(), nullptr, nullptr, nullptr))
            << sqlite3_errmsg(beside_);
    }
    std::string Ask(const std::string& query) { return QueryFirst(beside_, query); }
    void RemoveFile(const char* file) { std::filesystem::remove(directory_.Path() / file); }
    std::unique_ptr<Store> Open() { return MakeStore(directory_.Path()); }

  private:
    TempDirectory directory_;
    sqlite3* beside_ = nullptr;
};

std::unique_ptr<MetadataSession> SessionOf(const Store& store)
{
    std::unique_ptr<MetadataSession> out;
    EXPECT_EQ(0u, store.Volumes()[0]->Meta()->Open(&out));
    return out;
}

std::vector<INT64> DeletedOf(MetadataSession& session, const char* parent)
{
    std::vector<INT64> ids;
    DeletedEntry entry;
    while (!Failed(session.NextDeleted(parent, entry.id, &entry)))
        ids.push_back(entry.id);
    return ids;
}

} // namespace

TEST(MetadataOfVersion1, KeepsItsPropertiesMarksAndLocks)
{
    Earlier earlier;
    const auto store = earlier.Open();
    EXPECT_EQ("4 ", earlier.Ask("PRAGMA user_version"));
    const auto session = SessionOf(*store);
    Property value;
    bool hidden = false;
    LockRecord lock;
    EXPECT_EQ(0u, session->GetProperty("file", "p", &value));
    EXPECT_EQ("value", value.value);
    EXPECT_EQ(kClassicSpace, value.space);
    EXPECT_EQ(0u, session->IsHidden("file", &hidden));
    EXPECT_TRUE(hidden);
    EXPECT_EQ(0u, session->FindLock("t", g_now, &lock));
    EXPECT_EQ("file", lock.path);
    EXPECT_EQ("c", lock.creator);
    EXPECT_TRUE(store->Volumes()[0]->MayHaveLocks());
}

TEST(MetadataOfVersion1, KeepsItsDeletedEntries)
{
    Earlier earlier;
    const auto store = earlier.Open();
    const auto session = SessionOf(*store);
    EXPECT_EQ((std::vector<INT64>{1, 3}), DeletedOf(*session, "a"));
    EXPECT_TRUE(DeletedOf(*session, "b").empty());
    DeletedEntry entry;
    ASSERT_EQ(0u, session->FindDeleted(3, &entry));
    EXPECT_EQ("three", entry.name);
    EXPECT_EQ(13u, entry.time);
    // Restored, it is what it was.
    EXPECT_EQ(0u, Client(*store).Move("/v/.kest/deleted/3/three", "/v/back"));
    EXPECT_EQ((std::vector<INT64>{1}), DeletedOf(*session, "a"));
}

TEST(MetadataOfVersion1, GoesOnAfterTheLastNumberThatItGave)
{
    Earlier earlier;
    const auto store = earlier.Open();
    const auto session = SessionOf(*store);
    DeletedEntry entry{0, "b", "five", 15};
    ASSERT_EQ(0u, session->AddDeleted(&entry));
    EXPECT_EQ(5, entry.id); // 4 has been given, and removed
    EXPECT_EQ((std::vector<INT64>{5}), DeletedOf(*session, "b"));
}

TEST(MetadataOfVersion1, StartsWithTheFirstNumberWhereNothingWasDeleted)
{
    Earlier earlier;
    earlier.Run("DELETE FROM deleted; DELETE FROM sqlite_sequence;");
    for (const char* file : {".kest/deleted/1", ".kest/deleted/3"})
        earlier.RemoveFile(file);
    const auto store = earlier.Open();
    DeletedEntry entry{0, "b", "one", 15};
    ASSERT_EQ(0u, SessionOf(*store)->AddDeleted(&entry));
    EXPECT_EQ(1, entry.id);
}

TEST(MetadataOfVersion1, LosesTheIndexByTimeThatTheFirstOnesHave)
{
    Earlier earlier;
    earlier.Run("CREATE INDEX deleted_time ON deleted (time)");
    const auto store = earlier.Open();
    EXPECT_EQ("deleted_parent ", earlier.Ask("SELECT name FROM sqlite_master WHERE "
                                             "type = 'index' AND tbl_name = 'deleted'"));
    EXPECT_EQ((std::vector<INT64>{1, 3}), DeletedOf(*SessionOf(*store), "a"));
}

TEST(MetadataOfVersion1, HasAllThatANewOneHas)
{
    Earlier earlier;
    TempDirectory other;
    const auto store = earlier.Open(), fresh = MakeStore(other.Path());
    const std::string schema =
        "SELECT sql || ';' FROM sqlite_master WHERE name NOT LIKE 'sqlite_%' ORDER BY name";
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open((other.Path() / ".kest/meta.db").c_str(), &db));
    const std::string made = QueryFirst(db, schema);
    sqlite3_close(db);
    EXPECT_FALSE(made.empty());
    EXPECT_EQ(made, earlier.Ask(schema));
}

TEST(MetadataOfVersion1, IsLeftAsItIsWhereItCannotBeBroughtUpToDate)
{
    Earlier earlier;
    earlier.Run("CREATE TABLE deleted_last (x)"); // in the way
    const auto store = earlier.Open();
    EXPECT_FALSE(store->Volumes()[0]->IsWritable());
    EXPECT_EQ("1 ", earlier.Ask("PRAGMA user_version"));
    EXPECT_EQ("1 3 ", earlier.Ask("SELECT id FROM deleted WHERE parent = 'a' ORDER BY id"));
    EXPECT_EQ("4 ", earlier.Ask("SELECT seq FROM sqlite_sequence WHERE name = 'deleted'"));
    EXPECT_EQ("deleted_parent ", earlier.Ask("SELECT name FROM sqlite_master WHERE "
                                             "type = 'index' AND tbl_name = 'deleted'"));
}

TEST(MetadataOfALaterVersion, IsNotTouched)
{
    Earlier earlier;
    earlier.Run("PRAGMA user_version = 99");
    EXPECT_FALSE(earlier.Open()->Volumes()[0]->IsWritable());
    EXPECT_EQ("99 ", earlier.Ask("PRAGMA user_version"));
    EXPECT_EQ("1 3 ", earlier.Ask("SELECT id FROM deleted ORDER BY id"));
}

TEST(MetadataOfVersion3, KeepsItsPropertiesInTheirOrderAndItsLocks)
{
    Earlier earlier(kVersion3);
    const auto store = earlier.Open();
    EXPECT_EQ("4 ", earlier.Ask("PRAGMA user_version"));
    const auto session = SessionOf(*store);
    Property property;
    LockRecord lock;
    ASSERT_EQ(0u, session->NextProperty("file", 0, &property));
    EXPECT_EQ("first", property.name);
    EXPECT_EQ("one", property.value);
    ASSERT_EQ(0u, session->NextProperty("file", property.order, &property));
    EXPECT_EQ(kClassicSpace, property.space);
    EXPECT_EQ("Z:later", property.name);
    EXPECT_EQ("a<b", property.value);
    ASSERT_EQ(0u, session->FindLock("t", g_now, &lock));
    EXPECT_EQ("o", lock.owner);
    EXPECT_EQ("", lock.markup);
    ASSERT_EQ(0u, session->SetProperty("file", {kClassicSpace, "new"}, "v"));
    EXPECT_EQ("3 ", earlier.Ask("SELECT max(seq) FROM props"));
}

TEST(MetadataOfVersion3, IsLeftAsItWasWhereItCannotBeBroughtUpToDate)
{
    Earlier earlier(kVersion3);
    earlier.Run("CREATE TABLE props_before (x)"); // takes the name that the step needs
    testing::internal::CaptureStderr();
    const auto store = earlier.Open();
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("reading only"));
    EXPECT_EQ("3 ", earlier.Ask("PRAGMA user_version"));
    EXPECT_EQ("2 ", earlier.Ask("SELECT count(*) FROM props"));
}
