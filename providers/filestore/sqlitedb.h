// SPDX-License-Identifier: Apache-2.0
//
// A connection to a metadata database with its prepared statements.
#pragma once

#include <array>
#include <string_view>

#include <sqlite3.h>

#include <kest/status.h>

namespace filestore {

enum class Sql {
    Begin,
    Commit,
    Rollback,
    GetProperty,
    GetPropertyByLocalName,
    NextProperty,
    SetProperty,
    RemoveProperty,
    IsHidden,
    AddHidden,
    RemoveHidden,
    HiddenChildren,
    AnyProperty,
    AnyHidden,
    AnyDeleted,
    RenameProperties,
    RenameHiddenSelf,
    RenameHiddenBelow,
    RenameDeleted,
    ForgetProperties,
    ForgetHiddenSelf,
    ForgetHiddenBelow,
    ExportProperties,
    ExportHiddenBelow,
    AddDeleted,
    FindDeleted,
    NoteLastDeleted,
    RemoveDeleted,
    NextDeleted,
    NextExpired,
    LocksAt,
    LocksWithin,
    AllLocks,
    FindLock,
    AddLock,
    SetLockExpiry,
    RemoveLock,
    RemoveLocksWithin,
    RemoveExpiredLocks,
    AddIntent,
    RemoveIntent,
    Intents,
    CountLocks,
    CountProperties,
    CountHidden,
    CountDeleted,
    Last
};

[[nodiscard]] TALSTATUS StatusFromSqlite(int result);

// One connection, used by one thread at a time.
class Database {
  public:
    Database() = default;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    // An SQLite result code, as all that follow.
    int Open(const char* path, bool durable);
    int Execute(const char* script);
    int ReadVersion(int* version);      // of the schema; 0 for a new database
    sqlite3_stmt* Statement(Sql which); // null when it cannot be prepared
    INT64 LastId() const { return sqlite3_last_insert_rowid(db_); }
    int Changes() const { return sqlite3_changes(db_); }

  private:
    sqlite3* db_ = nullptr;
    std::array<sqlite3_stmt*, static_cast<size_t>(Sql::Last)> statements_{};
};

// Creates the tables, or brings those of an earlier version up to date. An SQLite result code;
// SQLITE_MISMATCH for a database of a later version.
int PrepareSchema(Database& db);

// One run of a prepared statement; resets it on scope end. Texts that are bound must outlive it.
class Query {
  public:
    // Without a connection every run fails for lack of resources.
    Query(Database* db, Sql which)
        : statement_(db ? db->Statement(which) : nullptr), result_(db ? SQLITE_ERROR : SQLITE_NOMEM)
    {
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query();

    Query& Bind(std::string_view text);
    Query& BindBlob(std::string_view bytes);
    Query& Bind(INT64 number);

    // True when there is a row. At the end, or on failure, false; see Status().
    bool Step();
    // Runs a statement that gives no rows.
    TALSTATUS Run();
    TALSTATUS Status() const { return StatusFromSqlite(result_); }

    std::string_view Text(int column) const;
    INT64 Number(int column) const { return sqlite3_column_int64(statement_, column); }

  private:
    sqlite3_stmt* statement_;
    int next_ = 1;
    int result_;
};

} // namespace filestore
