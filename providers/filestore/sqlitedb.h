// SPDX-License-Identifier: Apache-2.0
//
// A connection to a metadata database with its prepared statements.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include <kest/status.h>

#include "providers/filestore/platform.h"

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
    HasProperties,
    NextPathWithProperties,
    IsHidden,
    AddHidden,
    RemoveHidden,
    HiddenChildren,
    AnyProperty, // or hidden mark
    AnyDeleted,
    RenameProperties,
    RenameHiddenSelf,
    RenameHiddenBelow,
    RenameDeleted,
    ForgetProperties,
    ForgetHiddenSelf,
    ForgetHiddenMembers,
    ForgetHiddenBelow,
    ExportProperties,
    ExportPropertiesBelow,
    ExportHiddenBelow,
    AddDeleted,
    SkipDeletedIds,
    FindDeleted,
    NoteLastDeleted,
    RemoveDeleted,
    NextDeleted,
    NextExpired,
    LocksAt,
    LocksWithin,
    AllLocks,
    NextLock,
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
    RowsOfLocks,
    RowsOfDeleted,
    Last
};

[[nodiscard]] TALSTATUS StatusFromSqlite(int result);

// What all connections of this process to one database know about its failures. Any thread.
class DatabaseFailures {
  public:
    void SetName(const std::string& name) { name_ = "'" + name + "': "; } // before any other use
    // Writes to the log why something failed, at most once a minute.
    void Log(const char* reason) noexcept { log_.Write(kLogError, name_, reason); }
    // Whether a statement that has waited so long for a change of another process goes on waiting.
    // One that has waited in vain is enough: from then on the others give up soon, so that requests
    // do not queue behind a process that stands still, until the database has been free again.
    bool GoesOnWaiting(int milliseconds) noexcept;
    void WasFree() noexcept { isBlocked_.store(false, std::memory_order_relaxed); }

  private:
    std::string name_; // as lines of the log begin
    RateLimitedLog log_;
    std::atomic<bool> isBlocked_{false};
};

// One connection, used by one thread at a time.
class Database {
  public:
    explicit Database(DatabaseFailures& failures) : failures_(failures) {}
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    // An SQLite result code, as all that follow.
    int Open(const char* path, bool durable);
    int Execute(const char* script);
    int ReadVersion(int* version); // of the schema; 0 for a new database
    bool IsInTransaction() const { return sqlite3_get_autocommit(db_) == 0; }
    bool IsReadOnly() const { return sqlite3_db_readonly(db_, "main") != 0; }
    sqlite3_stmt* Statement(Sql which); // null when it cannot be prepared
    int LastResult() const { return sqlite3_extended_errcode(db_); }
    const char* Reason() const { return sqlite3_errmsg(db_); } // for LastResult
    DatabaseFailures& Failures() { return failures_; }
    INT64 LastId() const { return sqlite3_last_insert_rowid(db_); }
    int Changes() const { return sqlite3_changes(db_); }

  private:
    DatabaseFailures& failures_;
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
    Query(Database* db, Sql which);
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
    Database* const db_;
    sqlite3_stmt* const statement_;
    void Bound(int result)
    {
        if (result != SQLITE_OK)
            unbound_ = result;
    }

    int next_ = 1;
    int unbound_ = SQLITE_OK; // why a value could not be bound: a run would look for another one
    int result_;
};

} // namespace filestore
