// SPDX-License-Identifier: Apache-2.0
//
// The connections of this process to one metadata database.
//
// What SQLite shares between connections in write-ahead mode stands in this process's own memory
// and not in a mapped file, which any program could shorten under it. So one process has the
// database at a time. It lets go when it has not used it for a while, and soon when another asks:
// who waits for the database holds a lock on the file "state" meanwhile.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "providers/filestore/metadata.h"
#include "providers/filestore/sqlitedb.h"

namespace filestore {

// What there is any of in the tables. A bit is set inside the transaction that makes the first row
// of its kind, before that commits, and cleared only inside one that found no row: whoever sees it
// clear knows that there was no committed row.
enum TableBits : UINT32 { kHasLocks = 1, kHasProperties = 2, kHasDeleted = 4 };

class SharedDatabase {
  public:
    // The one of this process for "meta.db" in `directory`, opened and with its tables. `durable`
    // counts for the first who asks. Null on failure, with one line in *reason.
    static std::shared_ptr<SharedDatabase> Of(const std::string& directory, bool durable,
                                              std::string* reason);
    SharedDatabase(const std::string& directory, bool durable);
    ~SharedDatabase();
    SharedDatabase(const SharedDatabase&) = delete;
    SharedDatabase& operator=(const SharedDatabase&) = delete;

    // While one of these lives the database is not let go. Waits while it is being let go.
    class Use {
      public:
        explicit Use(SharedDatabase& database) : database_(database) { database_.Enter(); }
        ~Use() { database_.Leave(); }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

      private:
        SharedDatabase& database_;
    };

    // Inside a Use:
    std::unique_ptr<Database> Take(); // null when a connection cannot be opened
    void GiveBack(std::unique_ptr<Database> db);
    std::mutex& Writers() { return writers_; }
    Database* Writer(); // null likewise; the caller holds Writers() for as long as it uses it
    void Expect(UINT32 bits) { bits_.fetch_or(bits, std::memory_order_acq_rel); }

    // True also when nobody knows: while this process does not have the database.
    bool MayHave(UINT32 bits) const
    {
        return (bits_.load(std::memory_order_acquire) & (bits | kUnknown)) != 0;
    }
    // Whether this process has the database now.
    bool IsOwned() const { return isOwned_; }
    DatabaseFailures& Failures() { return failures_; }
    // See Metadata::Count.
    bool Count(UINT64 now, UINT64 most, Metadata::Amounts* out);
    void RecountFlags();
    void Checkpoint();

  private:
    static constexpr UINT32 kUnknown = 0x80000000;
    using Clock = std::chrono::steady_clock;

    int Prepare(std::string* reason);
    void Enter();
    void Leave();
    std::unique_ptr<Database> Connect();
    int Acquire(Database& db);
    void Count(Database& db);
    bool LetGo(std::chrono::milliseconds patience);
    void Watch(const std::stop_token& stop);
    void Look();
    void MakeRoom();
    bool IsWished() const;
    bool Wish(bool on) const;

    const std::string directory_;
    const std::string path_;
    const bool durable_;
    int stateFile_ = -1;
    DatabaseFailures failures_;
    std::atomic<UINT32> bits_{kUnknown};

    std::mutex gate_;
    std::condition_variable gateMoved_;
    bool isClosing_ = false;
    int uses_ = 0;
    Clock::time_point lastUse_;

    std::mutex connecting_;
    std::atomic<bool> isOwned_{false}; // changes under connecting_, or while nobody uses it

    std::mutex amountsMutex_; // guards both
    Metadata::Amounts amounts_;
    bool knowsAmounts_ = false;

    std::mutex poolMutex_;
    std::vector<std::unique_ptr<Database>> pool_;
    // Changes of this process queue here: the database's own queue between connections sleeps
    // and tries again, which costs milliseconds where this costs nothing.
    std::mutex writers_;
    // The connection that they use, one and the same: what it has read stays good from change to
    // change, and connections of one process do not get in each other's way.
    std::unique_ptr<Database> writer_;

    std::mutex watchMutex_;
    std::condition_variable_any watchMoves_; // it has been taken, or the thread is to end
    std::jthread watch_;                     // ends before all the rest
};

} // namespace filestore
