// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/sqlitemeta.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/sqlitedb.h"

namespace filestore {

namespace {

// One word that all processes of the machine share by mapping the file "state". A bit is set inside
// the transaction that makes the first row of its kind, before that commits, and cleared only
// inside one that found no row: whoever sees it clear knows that there was no committed row. It is
// made exact whenever a process opens the database, so what a power cut leaves in the file is of no
// consequence.
enum StateBits : UINT32 { kHasLocks = 1, kHasProperties = 2, kHasDeleted = 4 };

class SharedState {
  public:
    SharedState() = default;
    SharedState(const SharedState&) = delete;
    SharedState& operator=(const SharedState&) = delete;
    ~SharedState()
    {
        if (word_)
            ::munmap(word_, kSize);
    }
    int Open(const char* path)
    {
        const int fd = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0)
            return errno;
        void* map = MAP_FAILED;
        // posix_fallocate: a page without a block behind it would be a bus error on a full disk.
        int error = ::posix_fallocate(fd, 0, kSize);
        if (error == 0) {
            map = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            error = map == MAP_FAILED ? errno : 0;
        }
        ::close(fd);
        if (error == 0)
            word_ = static_cast<UINT32*>(map);
        return error;
    }
    bool Has(UINT32 bits) const
    {
        return (std::atomic_ref(*word_).load(std::memory_order_acquire) & bits) != 0;
    }
    void Set(UINT32 bits)
    {
        if (!Has(bits))
            std::atomic_ref(*word_).fetch_or(bits, std::memory_order_acq_rel);
    }
    void Clear(UINT32 bits) { std::atomic_ref(*word_).fetch_and(~bits, std::memory_order_acq_rel); }

  private:
    static constexpr size_t kSize = 4096;
    UINT32* word_ = nullptr;
};

class SqliteMetadata final : public Metadata {
  public:
    int Prepare(const std::string& directory, bool durable, std::string* reason);

    TALSTATUS Open(std::unique_ptr<MetadataSession>* out) override;
    bool MayHaveLocks() const override { return state_.Has(kHasLocks); }
    bool MayHaveProperties() const override { return state_.Has(kHasProperties); }
    bool MayHaveDeleted() const override { return state_.Has(kHasDeleted); }
    void Tidy() override;
    void Rest() override;

    std::unique_ptr<Database> Take(); // null when a connection cannot be opened
    void GiveBack(std::unique_ptr<Database> db);
    std::mutex& Writers() { return writers_; }
    Database* Writer(); // the same; the caller holds Writers() for as long as it uses it
    SharedState& State() { return state_; }
    Trouble& Troubles() { return trouble_; }
    void Recount(Database& db);

  private:
    std::string path_;
    bool durable_ = true;
    SharedState state_;
    Trouble trouble_;
    std::mutex poolMutex_;
    std::vector<std::unique_ptr<Database>> pool_;
    // Changes of this process queue here: the database's own queue between connections sleeps
    // and tries again, which costs milliseconds where this costs nothing.
    std::mutex writers_;
    // The connection that they use, one and the same: what it has read stays good from change to
    // change, and connections of one process do not get in each other's way.
    std::unique_ptr<Database> writer_;
};

class SqliteSession final : public MetadataSession {
  public:
    explicit SqliteSession(SqliteMetadata& owner)
        : owner_(owner), writer_(owner.Writers(), std::defer_lock)
    {
    }
    ~SqliteSession() override
    {
        Rollback();
        if (reader_)
            owner_.GiveBack(std::move(reader_));
    }

    TALSTATUS Begin() override
    {
        writer_.lock();
        const TALSTATUS status = Query(Db(), Sql::Begin).Run();
        if (Failed(status))
            writer_.unlock();
        else
            owner_.Troubles().WasFree();
        return status;
    }
    TALSTATUS Commit() override
    {
        const TALSTATUS status = Query(Db(), Sql::Commit).Run();
        if (Failed(status))
            Rollback();
        else
            writer_.unlock();
        return status;
    }
    void Rollback() override
    {
        if (!writer_.owns_lock())
            return;
        if (Database* const db = Db(); db && db->IsInTransaction()) // else a failure ended it
            (void)Query(db, Sql::Rollback).Run();
        writer_.unlock();
    }

    TALSTATUS GetProperty(std::string_view path, std::string_view name, std::string* value) override
    {
        for (const Sql which : {Sql::GetProperty, Sql::GetPropertyByLocalName}) {
            // Only a name without a prefix is looked for behind other prefixes.
            if (which == Sql::GetPropertyByLocalName && name.find(':') != name.npos)
                break;
            Query query(Db(), which);
            if (query.Bind(path).Bind(name).Step()) {
                *value = query.Text(0);
                return TAL_STATUS_SUCCESS;
            }
            if (Failed(query.Status()))
                return query.Status();
        }
        return Failure(kCodeNotFound);
    }
    TALSTATUS NextProperty(std::string_view path, INT64 order, Property* out) override
    {
        Query query(Db(), Sql::NextProperty);
        if (!query.Bind(path).Bind(order).Step())
            return End(query, kCodeNoMoreEntries);
        out->order = query.Number(0);
        out->name = query.Text(1);
        out->value = query.Text(2);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SetProperty(std::string_view path, std::string_view name,
                          std::string_view value) override
    {
        return Change([&] {
            owner_.State().Set(kHasProperties);
            return Query(Db(), Sql::SetProperty).Bind(path).Bind(name).BindBlob(value).Run();
        });
    }
    TALSTATUS RemoveProperty(std::string_view path, std::string_view name) override
    {
        return Change([&] { return Query(Db(), Sql::RemoveProperty).Bind(path).Bind(name).Run(); });
    }
    TALSTATUS IsHidden(std::string_view path, bool* out) override
    {
        Query query(Db(), Sql::IsHidden);
        *out = query.Bind(ParentOf(path)).Bind(LeafOf(path)).Step();
        return query.Status();
    }
    TALSTATUS SetHidden(std::string_view path, bool on) override
    {
        return Change([&] {
            if (on)
                owner_.State().Set(kHasProperties);
            return Query(Db(), on ? Sql::AddHidden : Sql::RemoveHidden)
                .Bind(ParentOf(path))
                .Bind(LeafOf(path))
                .Run();
        });
    }
    TALSTATUS HiddenChildren(std::string_view parent,
                             std::unordered_set<std::string>* names) override
    {
        Query query(Db(), Sql::HiddenChildren);
        query.Bind(parent);
        while (query.Step())
            names->emplace(query.Text(0));
        return query.Status();
    }

    TALSTATUS HasAny(std::string_view tree, bool* out) override
    {
        *out = false;
        TALSTATUS status = TAL_STATUS_SUCCESS;
        if (owner_.MayHaveDeleted())
            status = Exists(Query(Db(), Sql::AnyDeleted).Bind(tree), out);
        if (Failed(status) || *out || !owner_.MayHaveProperties())
            return status;
        status = Exists(Query(Db(), Sql::AnyProperty).Bind(tree), out);
        if (Failed(status) || *out)
            return status;
        return Exists(
            Query(Db(), Sql::AnyHidden).Bind(tree).Bind(ParentOf(tree)).Bind(LeafOf(tree)), out);
    }
    TALSTATUS RenameTree(std::string_view from, std::string_view to) override
    {
        return Change([&] {
            TALSTATUS status = Query(Db(), Sql::RenameProperties).Bind(from).Bind(to).Run();
            if (!Failed(status))
                status = Query(Db(), Sql::RenameHiddenSelf)
                             .Bind(ParentOf(from))
                             .Bind(LeafOf(from))
                             .Bind(ParentOf(to))
                             .Bind(LeafOf(to))
                             .Run();
            for (const Sql which : {Sql::RenameHiddenBelow, Sql::RenameDeleted})
                if (!Failed(status))
                    status = Query(Db(), which).Bind(from).Bind(to).Run();
            return status;
        });
    }
    TALSTATUS ForgetTree(std::string_view tree) override
    {
        return Change([&] {
            TALSTATUS status = Query(Db(), Sql::ForgetProperties).Bind(tree).Run();
            if (!Failed(status))
                status = Query(Db(), Sql::ForgetHiddenSelf)
                             .Bind(ParentOf(tree))
                             .Bind(LeafOf(tree))
                             .Run();
            if (!Failed(status))
                status = Query(Db(), Sql::ForgetHiddenBelow).Bind(tree).Run();
            return status;
        });
    }
    TALSTATUS
    ExportTree(std::string_view from, bool deep,
               const std::function<TALSTATUS(std::string_view, const Property*)>& each) override
    {
        Property property;
        Query props(Db(), Sql::ExportProperties);
        props.Bind(from).Bind(INT64{deep});
        while (props.Step()) {
            property.name = props.Text(1);
            property.value = props.Text(2);
            if (const TALSTATUS status = each(props.Text(0), &property); Failed(status))
                return status;
        }
        if (Failed(props.Status()))
            return props.Status();
        bool hidden = false;
        if (const TALSTATUS status = IsHidden(from, &hidden); Failed(status))
            return status;
        if (hidden)
            if (const TALSTATUS status = each(from, nullptr); Failed(status))
                return status;
        if (!deep)
            return TAL_STATUS_SUCCESS;
        Query below(Db(), Sql::ExportHiddenBelow);
        below.Bind(from);
        while (below.Step()) {
            const std::string path = std::string(below.Text(0)) + "/" + std::string(below.Text(1));
            if (const TALSTATUS status = each(path, nullptr); Failed(status))
                return status;
        }
        return below.Status();
    }

    TALSTATUS AddDeleted(DeletedEntry* entry) override
    {
        return Change([&] {
            owner_.State().Set(kHasDeleted);
            const TALSTATUS status = Query(Db(), Sql::AddDeleted)
                                         .Bind(entry->parent)
                                         .Bind(entry->name)
                                         .Bind(static_cast<INT64>(entry->time))
                                         .Run();
            entry->id = Db()->LastId();
            return status;
        });
    }
    TALSTATUS SkipDeletedIds(INT64 upTo) override
    {
        return Change([&] { return Query(Db(), Sql::SkipDeletedIds).Bind(upTo).Run(); });
    }
    TALSTATUS FindDeleted(INT64 id, DeletedEntry* out) override
    {
        Query query(Db(), Sql::FindDeleted);
        return ReadDeleted(query.Bind(id), kCodeNotFound, out);
    }
    TALSTATUS RemoveDeleted(INT64 id) override
    {
        return Change([&] {
            const TALSTATUS status = Query(Db(), Sql::NoteLastDeleted).Bind(id).Run();
            return Failed(status) ? status : Query(Db(), Sql::RemoveDeleted).Bind(id).Run();
        });
    }
    TALSTATUS NextDeleted(std::string_view parent, INT64 afterId, DeletedEntry* out) override
    {
        Query query(Db(), Sql::NextDeleted);
        return ReadDeleted(query.Bind(parent).Bind(afterId), kCodeNoMoreEntries, out);
    }
    TALSTATUS NextExpired(UINT64 time, INT64 afterId, DeletedEntry* out) override
    {
        Query query(Db(), Sql::NextExpired);
        return ReadDeleted(query.Bind(static_cast<INT64>(time)).Bind(afterId), kCodeNoMoreEntries,
                           out);
    }

    TALSTATUS LocksAt(std::string_view path, UINT64 now, std::vector<LockRecord>* out) override
    {
        Query query(Db(), Sql::LocksAt);
        return ReadLocks(query.Bind(path).Bind(static_cast<INT64>(now)), out);
    }
    TALSTATUS LocksWithin(std::string_view tree, UINT64 now, std::vector<LockRecord>* out) override
    {
        Query query(Db(), tree.empty() ? Sql::AllLocks : Sql::LocksWithin);
        return ReadLocks(query.Bind(tree).Bind(static_cast<INT64>(now)), out);
    }
    TALSTATUS NextLock(UINT64 now, INT64* order, LockRecord* out) override
    {
        Query query(Db(), Sql::NextLock);
        if (!query.Bind(*order).Bind(static_cast<INT64>(now)).Step())
            return End(query, kCodeNoMoreEntries);
        *out = LockOf(query);
        *order = query.Number(8);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS FindLock(std::string_view token, UINT64 now, LockRecord* out) override
    {
        std::vector<LockRecord> found;
        Query query(Db(), Sql::FindLock);
        const TALSTATUS status = ReadLocks(query.Bind(token).Bind(static_cast<INT64>(now)), &found);
        if (Failed(status) || found.empty())
            return Failed(status) ? status : Failure(kCodeNotFound);
        *out = std::move(found.front());
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS AddLock(const LockRecord& lock) override
    {
        return Change([&] {
            owner_.State().Set(kHasLocks);
            return Query(Db(), Sql::AddLock)
                .Bind(lock.token)
                .Bind(lock.path)
                .Bind(INT64{lock.scope})
                .Bind(INT64{lock.type})
                .Bind(INT64{lock.depth})
                .Bind(static_cast<INT64>(lock.expires))
                .BindBlob(lock.owner)
                .Bind(lock.creator)
                .Run();
        });
    }
    TALSTATUS SetLockExpiry(std::string_view token, UINT64 expires) override
    {
        return Change([&] {
            return Query(Db(), Sql::SetLockExpiry)
                .Bind(token)
                .Bind(static_cast<INT64>(expires))
                .Run();
        });
    }
    TALSTATUS RemoveLock(std::string_view token) override
    {
        return Change([&] { return Query(Db(), Sql::RemoveLock).Bind(token).Run(); });
    }
    TALSTATUS RemoveLocksWithin(std::string_view tree) override
    {
        return Change([&] { return Query(Db(), Sql::RemoveLocksWithin).Bind(tree).Run(); });
    }
    TALSTATUS RemoveExpiredLocks(UINT64 now) override
    {
        return Change([&] {
            return Query(Db(), Sql::RemoveExpiredLocks).Bind(static_cast<INT64>(now)).Run();
        });
    }

    TALSTATUS AddIntent(RenameIntent* intent) override
    {
        return Change([&] {
            const TALSTATUS status = Query(Db(), Sql::AddIntent)
                                         .Bind(intent->owner)
                                         .Bind(intent->from)
                                         .Bind(intent->to)
                                         .Bind(intent->aside)
                                         .Bind(static_cast<INT64>(intent->inode))
                                         .Run();
            intent->id = Db()->LastId();
            return status;
        });
    }
    TALSTATUS RemoveIntent(INT64 id) override
    {
        return Change([&] { return Query(Db(), Sql::RemoveIntent).Bind(id).Run(); });
    }
    TALSTATUS Intents(std::vector<RenameIntent>* out) override
    {
        Query query(Db(), Sql::Intents);
        while (query.Step())
            out->push_back({query.Number(0), std::string(query.Text(1)), std::string(query.Text(2)),
                            std::string(query.Text(3)), std::string(query.Text(4)),
                            static_cast<UINT64>(query.Number(5))});
        return query.Status();
    }

  private:
    // Runs a change inside the transaction that is open, or in one of its own.
    template <class F> TALSTATUS Change(F&& change)
    {
        if (writer_.owns_lock())
            return change();
        TALSTATUS status = Begin();
        if (Failed(status))
            return status;
        status = change();
        if (!Failed(status))
            return Commit();
        Rollback();
        return status;
    }
    static TALSTATUS Exists(Query& query, bool* out)
    {
        *out = query.Step();
        return query.Status();
    }
    static TALSTATUS End(const Query& query, UINT16 code)
    {
        return Failed(query.Status()) ? query.Status() : Failure(code);
    }
    static TALSTATUS ReadDeleted(Query& query, UINT16 none, DeletedEntry* out)
    {
        if (!query.Step())
            return End(query, none);
        out->id = query.Number(0);
        out->parent = query.Text(1);
        out->name = query.Text(2);
        out->time = static_cast<UINT64>(query.Number(3));
        return TAL_STATUS_SUCCESS;
    }
    // The row that a query of the columns of locks stands on.
    static LockRecord LockOf(const Query& query)
    {
        LockRecord lock;
        lock.token = query.Text(0);
        lock.path = query.Text(1);
        lock.scope = static_cast<DAV_LOCK_SCOPE>(query.Number(2));
        lock.type = static_cast<DAV_LOCK_TYPE>(query.Number(3));
        lock.depth = static_cast<INT32>(query.Number(4));
        lock.expires = static_cast<UINT64>(query.Number(5));
        lock.owner = query.Text(6);
        lock.creator = query.Text(7);
        return lock;
    }
    static TALSTATUS ReadLocks(Query& query, std::vector<LockRecord>* out)
    {
        while (query.Step())
            out->push_back(LockOf(query));
        return query.Status();
    }

    // The connection to use now; null when there is none to be had.
    Database* Db()
    {
        if (writer_.owns_lock())
            return owner_.Writer();
        if (!reader_)
            reader_ = owner_.Take();
        return reader_.get();
    }

    SqliteMetadata& owner_;
    std::unique_ptr<Database> reader_;    // from the first use outside a change
    std::unique_lock<std::mutex> writer_; // held from Begin to Commit
};

int SqliteMetadata::Prepare(const std::string& directory, bool durable, std::string* reason)
{
    path_ = directory + "/meta.db";
    durable_ = durable;
    if (const int error = state_.Open((directory + "/state").c_str())) {
        *reason = "state: " + std::string(std::strerror(error));
        return error;
    }
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(directory.c_str(), nullptr),
                                                      std::free);
    trouble_.SetName((real ? real.get() : directory) + "/meta.db");
    auto db = std::make_unique<Database>(trouble_);
    int result = db->Open(path_.c_str(), durable);
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
    Recount(*db);
    GiveBack(std::move(db));
    return 0;
}

// Sets the bits to what the tables hold. Inside a transaction that excludes other writers, so that
// no row can be on its way while a bit is cleared.
void SqliteMetadata::Recount(Database& db)
{
    const std::lock_guard writer(writers_);
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
    state_.Set(kHasLocks & present);
    state_.Set(kHasDeleted & present);
    state_.Set(kHasProperties & present);
    if (known)
        state_.Clear(~present);
    (void)Query(&db, Sql::Rollback).Run(); // nothing was changed
}

void SqliteMetadata::Tidy()
{
    if (std::unique_ptr<Database> db = Take()) {
        Recount(*db);
        GiveBack(std::move(db));
    }
}

// The last connection that closes brings the log into the database and removes it.
void SqliteMetadata::Rest()
{
    if (const std::unique_lock writer(writers_, std::try_to_lock); writer)
        writer_.reset();
    const std::lock_guard lock(poolMutex_);
    pool_.clear();
}

std::unique_ptr<Database> SqliteMetadata::Take()
{
    {
        const std::lock_guard lock(poolMutex_);
        if (!pool_.empty()) {
            std::unique_ptr<Database> db = std::move(pool_.back());
            pool_.pop_back();
            return db;
        }
    }
    auto db = std::make_unique<Database>(trouble_);
    if (db->Open(path_.c_str(), durable_) == SQLITE_OK)
        return db;
    trouble_.Tell(db->Reason());
    return nullptr;
}

Database* SqliteMetadata::Writer()
{
    if (!writer_)
        writer_ = Take();
    return writer_.get();
}

void SqliteMetadata::GiveBack(std::unique_ptr<Database> db)
{
    constexpr size_t kKept = 16; // as many as threads that are busy with metadata at once
    const std::lock_guard lock(poolMutex_);
    if (pool_.size() < kKept)
        pool_.push_back(std::move(db));
}

TALSTATUS SqliteMetadata::Open(std::unique_ptr<MetadataSession>* out)
{
    *out = std::make_unique<SqliteSession>(*this);
    return TAL_STATUS_SUCCESS;
}

} // namespace

std::unique_ptr<Metadata> OpenSqliteMetadata(const std::string& directory, bool durable,
                                             std::string* reason)
{
    auto metadata = std::make_unique<SqliteMetadata>();
    if (metadata->Prepare(directory, durable, reason) != 0)
        return nullptr;
    return metadata;
}

} // namespace filestore
