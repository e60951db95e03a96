// SPDX-License-Identifier: Apache-2.0
//
// Several processes with one database: its files, its state and who waits for it.
#include "providers/filestore/sqliteshare.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "providers/filestore/failures.h"

namespace filestore {

using base::Retry;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kIdle{3000};    // not used for so long, it is let go
constexpr milliseconds kLook{200};     // how often somebody else's wish is looked for
constexpr milliseconds kPatience{100}; // for those who use it to come to an end, each time
constexpr milliseconds kTurn{2000};    // for the other to take it once it is let go
constexpr milliseconds kShortPause{5};
constexpr size_t kKept = 16; // connections: as many as threads that are busy with metadata at once

struct flock WishLock(short type)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return lock;
}

} // namespace

std::shared_ptr<SharedDatabase> SharedDatabase::Of(const std::string& directory, bool durable,
                                                   std::string* reason)
{
    static std::mutex mutex;
    // By process: a child that was forked off cannot use its parent's connections.
    static auto* const all =
        new std::map<std::tuple<pid_t, dev_t, ino_t>, std::weak_ptr<SharedDatabase>>();
    struct stat found;
    if (Retry([&] { return ::stat(directory.c_str(), &found); }) != 0) {
        *reason = std::strerror(errno);
        return nullptr;
    }
    const std::lock_guard lock(mutex);
    std::erase_if(*all, [](const auto& each) { return each.second.expired(); });
    auto& known = (*all)[{::getpid(), found.st_dev, found.st_ino}];
    std::shared_ptr<SharedDatabase> database = known.lock();
    if (database)
        return database;
    database = std::make_shared<SharedDatabase>(directory, durable);
    if (database->Prepare(reason) != 0)
        return nullptr;
    known = database;
    return database;
}

SharedDatabase::SharedDatabase(const std::string& directory, bool durable)
    : directory_(directory), path_(directory + "/meta.db"), durable_(durable),
      lastUse_(Clock::now())
{
}

SharedDatabase::~SharedDatabase()
{
    watch_ = {};
    writer_.reset();
    pool_.clear();
    if (stateFile_ >= 0)
        ::close(stateFile_);
}

int SharedDatabase::Prepare(std::string* reason)
{
    const std::string state = directory_ + "/state";
    stateFile_ = Retry(
        [&] { return ::open(state.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600); });
    if (stateFile_ < 0) {
        const int error = errno;
        *reason = "state: " + std::string(std::strerror(error));
        return error;
    }
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(directory_.c_str(), nullptr),
                                                      std::free);
    failures_.SetName((real ? real.get() : directory_) + "/meta.db");

    const Use use(*this);
    auto db = std::make_unique<Database>(failures_);
    int result = Acquire(*db);
    if (result == SQLITE_OK && db->IsReadOnly()) { // changes of the disk would fail half-way
        *reason = "meta.db: it cannot be written";
        return SQLITE_READONLY;
    }
    if (result == SQLITE_OK)
        result = PrepareSchema(*db);
    if (result != SQLITE_OK) {
        *reason = "meta.db: " + std::string(result == SQLITE_MISMATCH
                                                ? "made by a later version of this program"
                                                : sqlite3_errstr(result));
        return result;
    }
    Count(*db);
    isOwned_ = true;
    GiveBack(std::move(db));
    watch_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
    return 0;
}

void SharedDatabase::Enter()
{
    std::unique_lock lock(gate_);
    gateMoved_.wait(lock, [this] { return !isClosing_; });
    ++uses_;
    lastUse_ = Clock::now();
}

void SharedDatabase::Leave()
{
    const std::lock_guard lock(gate_);
    if (--uses_ == 0 && isClosing_)
        gateMoved_.notify_all();
}

std::unique_ptr<Database> SharedDatabase::Take()
{
    {
        const std::lock_guard lock(poolMutex_);
        if (!pool_.empty()) {
            std::unique_ptr<Database> db = std::move(pool_.back());
            pool_.pop_back();
            return db;
        }
    }
    return Connect();
}

std::unique_ptr<Database> SharedDatabase::Connect()
{
    auto db = std::make_unique<Database>(failures_);
    const std::lock_guard lock(connecting_);
    if ((isOwned_ ? db->Open(path_.c_str(), durable_) : Acquire(*db)) != SQLITE_OK) {
        failures_.Log(db->Reason());
        return nullptr;
    }
    if (!isOwned_)
        Count(*db);
    if (!isOwned_) {
        const std::lock_guard watch(watchMutex_);
        isOwned_ = true;
        watchMoves_.notify_all();
    }
    return db;
}

// Opens the first connection, before which others have to let go.
int SharedDatabase::Acquire(Database& db)
{
    int waited = 0;
    bool wished = Wish(true);
    while (!wished && failures_.GoesOnWaiting(waited)) { // others wait, too
        std::this_thread::sleep_for(kShortPause);
        waited += static_cast<int>(kShortPause.count());
        wished = Wish(true);
    }
    const int result = db.Open(path_.c_str(), durable_);
    if (result == SQLITE_OK)
        (void)::unlink((path_ + "-shm").c_str()); // that of an earlier version, or of a tool
    if (wished)
        (void)Wish(false);
    return result;
}

void SharedDatabase::GiveBack(std::unique_ptr<Database> db)
{
    const std::lock_guard lock(poolMutex_);
    if (pool_.size() < kKept)
        pool_.push_back(std::move(db));
}

Database* SharedDatabase::Writer()
{
    if (!writer_)
        writer_ = Take();
    return writer_.get();
}

// Sets the bits to what the tables hold. Inside a transaction that excludes other writers, so that
// no row can be on its way while a bit is cleared.
bool SharedDatabase::Count(UINT64 now, UINT64 most, Metadata::Amounts* out)
{
    const std::lock_guard lock(amountsMutex_); // one at a time is enough
    if (knowsAmounts_ && !IsOwned()) {
        *out = amounts_;
        return true;
    }
    const Use use(*this);
    std::unique_ptr<Database> db = Take();
    if (!db)
        return false;
    {
        Query locks(db.get(), Sql::RowsOfLocks);
        Query deleted(db.get(), Sql::RowsOfDeleted);
        knowsAmounts_ = locks.Bind(static_cast<INT64>(now)).Bind(static_cast<INT64>(most)).Step() &&
                        deleted.Bind(static_cast<INT64>(most)).Step();
        if (knowsAmounts_)
            amounts_ = {static_cast<UINT64>(locks.Number(0)),
                        static_cast<UINT64>(deleted.Number(0))};
    }
    GiveBack(std::move(db));
    *out = amounts_;
    return knowsAmounts_;
}

void SharedDatabase::Count(Database& db)
{
    if (Failed(Query(&db, Sql::Begin).Run()))
        return; // bits that stay set cost time only
    const std::pair<UINT32, Sql> tables[] = {{kHasLocks, Sql::CountLocks},
                                             {kHasDeleted, Sql::CountDeleted},
                                             {kHasProperties, Sql::CountProperties},
                                             {kHasProperties, Sql::CountHidden}};
    UINT32 present = 0;
    bool known = true;
    for (const auto& [bit, which] : tables) {
        Query query(&db, which);
        if (query.Step())
            present |= bit;
        known = known && !Failed(query.Status());
    }
    if (known)
        bits_.store(present, std::memory_order_release);
    (void)Query(&db, Sql::Rollback).Run(); // nothing was changed
}

void SharedDatabase::RecountFlags()
{
    const Use use(*this);
    const std::lock_guard writer(writers_);
    if (Database* const db = Writer())
        Count(*db);
}

// The last connection that closes brings the log into the database and removes it.
void SharedDatabase::Checkpoint()
{
    watch_ = {};
    (void)LetGo(milliseconds(0));
}

// Closes every connection if nobody uses one now, or soon. New uses wait meanwhile.
bool SharedDatabase::LetGo(milliseconds patience)
{
    std::unique_lock lock(gate_);
    isClosing_ = true;
    const bool isFree = gateMoved_.wait_for(lock, patience, [this] { return uses_ == 0; });
    if (isFree) {
        bits_.store(kUnknown, std::memory_order_release);
        writer_.reset();
        pool_.clear();
        isOwned_ = false;
    }
    isClosing_ = false;
    lock.unlock();
    gateMoved_.notify_all();
    return isFree;
}

void SharedDatabase::Watch(const std::stop_token& stop)
{
    std::unique_lock lock(watchMutex_);
    while (!stop.stop_requested()) {
        // Nothing wakes a server that nobody asks for anything: there is nothing to let go.
        if (!watchMoves_.wait(lock, stop, [&] { return isOwned_.load(); }))
            return;
        (void)watchMoves_.wait_for(lock, stop, kLook, [&] { return stop.stop_requested(); });
        lock.unlock();
        Look();
        lock.lock();
    }
}

void SharedDatabase::Look()
{
    bool isIdle = false;
    {
        const std::lock_guard gate(gate_);
        isIdle = uses_ == 0 && Clock::now() - lastUse_ > kIdle;
    }
    if (IsWished())
        MakeRoom();
    else if (isIdle)
        (void)LetGo(milliseconds(0));
}

// Lets go, and gives the one who waits the time to take it.
void SharedDatabase::MakeRoom()
{
    const std::lock_guard nobodyConnects(connecting_);
    if (!LetGo(kPatience))
        return; // the next look tries again
    const auto end = Clock::now() + kTurn;
    while (IsWished() && Clock::now() < end)
        std::this_thread::sleep_for(kShortPause);
}

bool SharedDatabase::IsWished() const
{
    struct flock lock = WishLock(F_WRLCK);
    return Retry([&] { return ::fcntl(stateFile_, F_OFD_GETLK, &lock); }) == 0 &&
           lock.l_type != F_UNLCK;
}

bool SharedDatabase::Wish(bool on) const
{
    struct flock lock = WishLock(on ? F_WRLCK : F_UNLCK);
    return Retry([&] { return ::fcntl(stateFile_, F_OFD_SETLK, &lock); }) == 0;
}

} // namespace filestore
