// SPDX-License-Identifier: Apache-2.0
//
// Connections, statements and transactions of SQLite, with errors as numbers.
#include "providers/filestore/sqlitedb.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

#include "base/descriptor.h"
#include "providers/filestore/failures.h"

namespace filestore {

using base::Retry;

namespace {

// How long a statement waits for another process's change. Within this process changes queue before
// they reach the database.
constexpr int kBusyMilliseconds = 10000;
constexpr int kBlockedMilliseconds = 100; // the same after one that waited in vain

// SQLite asks, with the number of times that it did before, whether to try again.
int WaitForOthers(void* failures, int count)
{
    static constexpr int kPauses[] = {1, 2, 5, 10, 15, 20, 25, 25, 25, 50, 50, 100}; // ms
    constexpr int kLast = static_cast<int>(std::size(kPauses)) - 1;
    int waited = std::max(count - kLast, 0) * kPauses[kLast];
    for (int i = 0; i < std::min(count, kLast); ++i)
        waited += kPauses[i];
    if (!static_cast<DatabaseFailures*>(failures)->GoesOnWaiting(waited))
        return 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(kPauses[std::min(count, kLast)]));
    return 1;
}

// A change writes whole pages, and rows are small: pages of this size take less time to write and
// to sum up than larger ones. A database that is there keeps the size that it has.
#define PAGE_SIZE "PRAGMA page_size = 1024;"

constexpr int kSchemaVersion = 4;
// Deleted entries are numbered one by one, and a number is never given again. The last one given is
// that of the newest entry, or in deleted_last if that has left the list: noting it with every
// entry, as AUTOINCREMENT does, would cost each deletion one more page.
#define DELETED_TABLES                                                                             \
    "CREATE TABLE deleted (id INTEGER PRIMARY KEY, parent TEXT NOT NULL, name TEXT NOT NULL,"      \
    "                      time INTEGER NOT NULL);"                                                \
    "CREATE TABLE deleted_last (id INTEGER NOT NULL);"
#define DELETED_INDEX "CREATE INDEX deleted_parent ON deleted (parent, id);"

#define INTENTS_TABLE                                                                              \
    "CREATE TABLE intents (id INTEGER PRIMARY KEY, owner TEXT NOT NULL, source TEXT NOT NULL,"     \
    "                      target TEXT NOT NULL, aside TEXT NOT NULL, inode INTEGER NOT NULL);"

#define OWNER_MARKUP "ALTER TABLE locks ADD COLUMN markup BLOB NOT NULL DEFAULT '';"
#define PROPERTIES_TABLE                                                                           \
    "CREATE TABLE props (seq INTEGER PRIMARY KEY, path TEXT NOT NULL, space TEXT NOT NULL,"        \
    "                    name TEXT NOT NULL, value BLOB NOT NULL, UNIQUE (path, space, name));"    \
    "CREATE INDEX props_order ON props (path, seq);"

constexpr char kSchema[] = DELETED_TABLES DELETED_INDEX INTENTS_TABLE PROPERTIES_TABLE
    "INSERT INTO deleted_last VALUES (0);"
    R"(
CREATE TABLE hidden (parent TEXT NOT NULL, leaf TEXT NOT NULL, PRIMARY KEY (parent, leaf))
                    WITHOUT ROWID;
CREATE TABLE locks (seq INTEGER PRIMARY KEY, token TEXT NOT NULL UNIQUE, path TEXT NOT NULL,
                    scope INTEGER NOT NULL, type INTEGER NOT NULL, depth INTEGER NOT NULL,
                    expires INTEGER NOT NULL, owner BLOB NOT NULL, creator TEXT NOT NULL);
CREATE INDEX locks_path ON locks (path);
PRAGMA user_version = 4;
)" OWNER_MARKUP;

// Version 1 had the numbers from AUTOINCREMENT, and at first an index by time.
constexpr char kFromVersion1[] =
    "DROP INDEX IF EXISTS deleted_time;"
    "DROP INDEX deleted_parent;"
    "ALTER TABLE deleted RENAME TO deleted_before;" DELETED_TABLES
    "INSERT INTO deleted SELECT id, parent, name, time FROM deleted_before ORDER BY id;"
    "INSERT INTO deleted_last SELECT ifnull(max(seq), 0) FROM sqlite_sequence;"
    "DROP TABLE deleted_before;" DELETED_INDEX "PRAGMA user_version = 2;";

// Version 2 put nothing aside in the step that takes the name.
constexpr char kFromVersion2[] =
    "ALTER TABLE intents RENAME TO intents_before;" INTENTS_TABLE
    "INSERT INTO intents SELECT id, owner, source, target, '', 0 FROM intents_before ORDER BY id;"
    "DROP TABLE intents_before;"
    "PRAGMA user_version = 3;";

// Version 3 knew no namespaces of properties, and one form of a lock's owner.
constexpr char kFromVersion3[] =
    "ALTER TABLE props RENAME TO props_before;"
    "DROP INDEX props_order;" PROPERTIES_TABLE
    "INSERT INTO props SELECT seq, path, char(1), name, value FROM props_before ORDER BY seq;"
    "DROP TABLE props_before;" OWNER_MARKUP "PRAGMA user_version = 4;";

#define LOCK_COLUMNS "token, path, scope, type, depth, expires, owner, creator, markup"
#define PROPERTY_COLUMNS "seq, space, name, value"
#define DELETED_COLUMNS "id, parent, name, time"
// A tree is its top and the range of paths below it: "0" is the character after "/".
#define WITHIN(column) "(" column " = ?1 OR (" column " > ?1 || '/' AND " column " < ?1 || '0'))"
#define BELOW(column) "(" column " > ?1 || '/' AND " column " < ?1 || '0')"
// The same in two looks at an index. "OR" takes a table of its own to join them where rows have no
// number, which costs ten times as much as both.
#define ANY_WITHIN(table, column)                                                                  \
    "SELECT 1 FROM " table " WHERE " column " = ?1 "                                               \
    "UNION ALL SELECT 1 FROM " table " WHERE " BELOW(column)

constexpr const char* kStatements[] = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT " PROPERTY_COLUMNS " FROM props WHERE path = ?1 AND name = ?2 "
    "ORDER BY space <> char(1), seq LIMIT 1",
    "SELECT " PROPERTY_COLUMNS " FROM props WHERE path = ?1 AND instr(name, ':') > 0 "
    "AND substr(name, instr(name, ':') + 1) = ?2 ORDER BY seq LIMIT 1",
    "SELECT " PROPERTY_COLUMNS " FROM props WHERE path = ?1 AND seq > ?2 ORDER BY seq LIMIT 1",
    "INSERT INTO props (path, space, name, value) VALUES (?1, ?2, ?3, ?4) "
    "ON CONFLICT (path, space, name) DO UPDATE SET value = excluded.value",
    "DELETE FROM props WHERE path = ?1 AND space = ?2 AND name = ?3",
    "SELECT 1 FROM props WHERE path = ?1 LIMIT 1",
    "SELECT path FROM props WHERE path > ?1 ORDER BY path LIMIT 1",
    "SELECT 1 FROM hidden WHERE parent = ?1 AND leaf = ?2",
    "INSERT OR IGNORE INTO hidden (parent, leaf) VALUES (?1, ?2)",
    "DELETE FROM hidden WHERE parent = ?1 AND leaf = ?2",
    "SELECT leaf FROM hidden WHERE parent = ?1",
    ANY_WITHIN("props", "path") // in one step: each has a transaction of its own
    " UNION ALL SELECT 1 FROM hidden WHERE parent = ?2 AND leaf = ?3 "
    "UNION ALL " ANY_WITHIN("hidden", "parent") " LIMIT 1",
    ANY_WITHIN("deleted", "parent") " LIMIT 1",
    "UPDATE OR REPLACE props SET path = ?2 || substr(path, length(?1) + 1) WHERE " WITHIN("path"),
    "UPDATE OR REPLACE hidden SET parent = ?3, leaf = ?4 WHERE parent = ?1 AND leaf = ?2",
    "UPDATE OR REPLACE hidden SET parent = ?2 || substr(parent, length(?1) + 1) "
    "WHERE " WITHIN("parent"),
    "UPDATE deleted SET parent = ?2 || substr(parent, length(?1) + 1) WHERE " WITHIN("parent"),
    "DELETE FROM props WHERE " WITHIN("path"),
    "DELETE FROM hidden WHERE parent = ?1 AND leaf = ?2",
    "DELETE FROM hidden WHERE parent = ?1",
    "DELETE FROM hidden WHERE " BELOW("parent"),
    "SELECT path, space, name, value FROM props WHERE path = ?1 ORDER BY seq",
    "SELECT path, space, name, value FROM props WHERE " BELOW("path") " ORDER BY path, seq",
    "SELECT parent, leaf FROM hidden WHERE parent = ?1 "
    "UNION ALL SELECT parent, leaf FROM hidden WHERE " BELOW("parent"),
    "INSERT INTO deleted (" DELETED_COLUMNS ") VALUES (1 + max("
    "ifnull((SELECT max(id) FROM deleted), 0), (SELECT id FROM deleted_last)), ?1, ?2, ?3)",
    "UPDATE deleted_last SET id = ?1 WHERE id < ?1",
    "SELECT " DELETED_COLUMNS " FROM deleted WHERE id = ?1",
    "UPDATE deleted_last SET id = ?1 WHERE id < ?1 AND ?1 = (SELECT max(id) FROM deleted)",
    "DELETE FROM deleted WHERE id = ?1",
    "SELECT " DELETED_COLUMNS " FROM deleted WHERE parent = ?1 AND id > ?2 ORDER BY id LIMIT 1",
    "SELECT " DELETED_COLUMNS " FROM deleted WHERE time < ?1 AND id > ?2 ORDER BY id LIMIT 1",
    "SELECT " LOCK_COLUMNS " FROM locks WHERE path = ?1 AND expires > ?2 ORDER BY seq",
    "SELECT " LOCK_COLUMNS " FROM locks WHERE " WITHIN("path") " AND expires > ?2 ORDER BY seq",
    "SELECT " LOCK_COLUMNS " FROM locks WHERE ?1 = '' AND expires > ?2 ORDER BY seq",
    "SELECT " LOCK_COLUMNS ", seq FROM locks WHERE seq > ?1 AND expires > ?2 ORDER BY seq LIMIT 1",
    "SELECT " LOCK_COLUMNS " FROM locks WHERE token = ?1 AND expires > ?2",
    "INSERT INTO locks (" LOCK_COLUMNS ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)",
    "UPDATE locks SET expires = ?2 WHERE token = ?1",
    "DELETE FROM locks WHERE token = ?1",
    "DELETE FROM locks WHERE " WITHIN("path"),
    "DELETE FROM locks WHERE expires <= ?1",
    "INSERT INTO intents (owner, source, target, aside, inode) VALUES (?1, ?2, ?3, ?4, ?5)",
    "DELETE FROM intents WHERE id = ?1",
    "SELECT id, owner, source, target, aside, inode FROM intents ORDER BY id",
    "SELECT 1 FROM locks LIMIT 1",
    "SELECT 1 FROM props LIMIT 1",
    "SELECT 1 FROM hidden LIMIT 1",
    "SELECT 1 FROM deleted LIMIT 1",
    "SELECT count(*) FROM (SELECT 1 FROM locks WHERE expires > ?1 LIMIT ?2)",
    "SELECT count(*) FROM (SELECT 1 FROM deleted LIMIT ?1)",
};
static_assert(std::size(kStatements) == static_cast<size_t>(Sql::Last));

// The library makes reads and writes again that a signal interrupts, and takes these for failures.
int RetriedFcntl(int fd, int command, void* argument)
{
    return Retry([&] { return ::fcntl(fd, command, argument); });
}

int RetriedFstat(int fd, struct stat* out)
{
    return Retry([&] { return ::fstat(fd, out); });
}

int RetriedStat(const char* path, struct stat* out)
{
    return Retry([&] { return ::stat(path, out); });
}

int RetriedLstat(const char* path, struct stat* out)
{
    return Retry([&] { return ::lstat(path, out); });
}

ssize_t RetriedReadlink(const char* path, char* out, size_t room)
{
    return Retry([&] { return ::readlink(path, out, room); });
}

template <class F> void Replace(sqlite3_vfs& vfs, const char* name, F* call)
{
    // A library that does not know the name goes on with its own.
    (void)vfs.xSetSystemCall(&vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(call));
}

void RetryItsSystemCalls()
{
    static const bool isDone = [] {
        sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
        if (!vfs || vfs->iVersion < 3)
            return false;
        Replace(*vfs, "fcntl", RetriedFcntl);
        Replace(*vfs, "fstat", RetriedFstat);
        Replace(*vfs, "stat", RetriedStat);
        Replace(*vfs, "lstat", RetriedLstat);
        Replace(*vfs, "readlink", RetriedReadlink);
        return true;
    }();
    (void)isDone;
}

} // namespace

TALSTATUS StatusFromSqlite(int result)
{
    switch (result & 0xFF) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
        return TAL_STATUS_SUCCESS;
    case SQLITE_NOMEM:
        return Fault(kCodeInsufficientResources);
    case SQLITE_FULL:
        return Fault(kCodeStorageFull);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return Fault(kCodeTimeout);
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return Fault(kCodeAccessDenied);
    default:
        return Fault(kCodeUnsuccessful);
    }
}

bool DatabaseFailures::GoesOnWaiting(int milliseconds) noexcept
{
    if (milliseconds <
        (isBlocked_.load(std::memory_order_relaxed) ? kBlockedMilliseconds : kBusyMilliseconds))
        return true;
    isBlocked_.store(true, std::memory_order_relaxed);
    return false;
}

Database::~Database()
{
    for (sqlite3_stmt* statement : statements_)
        sqlite3_finalize(statement);
    sqlite3_close(db_);
}

int Database::Open(const char* path, bool durable)
{
    RetryItsSystemCalls();
    int result = sqlite3_open_v2(path, &db_,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX |
                                     SQLITE_OPEN_EXRESCODE,
                                 "unix-excl"); // no file is mapped: sqliteshare.h
    if (result == SQLITE_OK)
        result = sqlite3_busy_handler(db_, WaitForOthers, &failures_);
    if (result == SQLITE_OK)
        result = Execute(PAGE_SIZE "PRAGMA journal_mode = WAL; PRAGMA cache_size = -1024;");
    if (result == SQLITE_OK)
        result = Execute(durable ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    return result;
}

int Database::Execute(const char* script)
{
    return sqlite3_exec(db_, script, nullptr, nullptr, nullptr);
}

sqlite3_stmt* Database::Statement(Sql which)
{
    sqlite3_stmt*& statement = statements_[static_cast<size_t>(which)];
    if (!statement)
        sqlite3_prepare_v3(db_, kStatements[static_cast<size_t>(which)], -1,
                           SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    return statement;
}

int PrepareSchema(Database& db)
{
    int result = db.Execute("BEGIN IMMEDIATE");
    if (result != SQLITE_OK)
        return result;
    int version = 0;
    result = db.ReadVersion(&version);
    if (result == SQLITE_OK && version == 0)
        result = db.Execute(kSchema);
    else if (result == SQLITE_OK && (version < 1 || version > kSchemaVersion))
        result = SQLITE_MISMATCH;
    if (result == SQLITE_OK && version == 1)
        result = db.Execute(kFromVersion1);
    if (result == SQLITE_OK && (version == 1 || version == 2))
        result = db.Execute(kFromVersion2);
    if (result == SQLITE_OK && version >= 1 && version <= 3)
        result = db.Execute(kFromVersion3);
    if (result == SQLITE_OK)
        return db.Execute("COMMIT");
    (void)db.Execute("ROLLBACK"); // the first failure is the one that counts
    return result;
}

int Database::ReadVersion(int* version)
{
    const auto take = [](void* out, int, char** values, char**) {
        *static_cast<int*>(out) = values[0] ? std::atoi(values[0]) : 0;
        return 0;
    };
    return sqlite3_exec(db_, "PRAGMA user_version", take, version, nullptr);
}

Query::Query(Database* db, Sql which)
    : db_(db), statement_(db ? db->Statement(which) : nullptr), result_(SQLITE_NOMEM)
{
    if (!db_ || statement_)
        return;
    result_ = db_->LastResult();
    db_->Failures().Log(db_->Reason());
}

Query::~Query()
{
    if (statement_) {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
}

Query& Query::Bind(std::string_view text)
{
    if (statement_)
        Bound(sqlite3_bind_text64(statement_, next_++, text.data() ? text.data() : "", text.size(),
                                  SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

Query& Query::BindBlob(std::string_view bytes)
{
    if (statement_)
        Bound(sqlite3_bind_blob64(statement_, next_++, bytes.data() ? bytes.data() : "",
                                  bytes.size(), SQLITE_STATIC));
    return *this;
}

Query& Query::Bind(INT64 number)
{
    if (statement_)
        Bound(sqlite3_bind_int64(statement_, next_++, number));
    return *this;
}

bool Query::Step()
{
    if (!statement_)
        return false;
    result_ = unbound_ == SQLITE_OK ? sqlite3_step(statement_) : unbound_;
    if (result_ != SQLITE_ROW && result_ != SQLITE_DONE)
        db_->Failures().Log(db_->Reason());
    return result_ == SQLITE_ROW;
}

TALSTATUS Query::Run()
{
    (void)Step();
    return Status();
}

std::string_view Query::Text(int column) const
{
    const void* const bytes = sqlite3_column_blob(statement_, column);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
    return bytes ? std::string_view(static_cast<const char*>(bytes), size) : std::string_view();
}

} // namespace filestore
