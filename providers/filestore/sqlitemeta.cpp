// SPDX-License-Identifier: Apache-2.0
//
// Metadata in a database of SQLite.
#include "providers/filestore/sqlitemeta.h"

#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "providers/filestore/failures.h"
#include "providers/filestore/names.h"
#include "providers/filestore/sqliteshare.h"

namespace filestore {

namespace {

class SqliteSession final : public MetadataSession {
  public:
    explicit SqliteSession(SharedDatabase& owner)
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
        Enter();
        writer_.lock();
        const TALSTATUS status = Query(Db(), Sql::Begin).Run();
        if (Failed(status))
            writer_.unlock();
        else
            owner_.Failures().WasFree();
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

    TALSTATUS GetProperty(std::string_view path, std::string_view name, Property* out) override
    {
        for (const Sql which : {Sql::GetProperty, Sql::GetPropertyByLocalName}) {
            // Only a name without a prefix is looked for behind other prefixes.
            if (which == Sql::GetPropertyByLocalName && name.find(':') != name.npos)
                break;
            Query query(Db(), which);
            if (query.Bind(path).Bind(name).Step()) {
                ReadProperty(query, out);
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
        ReadProperty(query, out);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SetProperty(std::string_view path, PropertyName name, std::string_view value) override
    {
        return Change([&] {
            owner_.Expect(kHasProperties);
            return Query(Db(), Sql::SetProperty)
                .Bind(path)
                .Bind(name.space)
                .Bind(name.local)
                .BindBlob(value)
                .Run();
        });
    }
    TALSTATUS RemoveProperty(std::string_view path, PropertyName name) override
    {
        return Change([&] {
            return Query(Db(), Sql::RemoveProperty)
                .Bind(path)
                .Bind(name.space)
                .Bind(name.local)
                .Run();
        });
    }
    TALSTATUS HasProperties(std::string_view path, bool* out) override
    {
        return Exists(Query(Db(), Sql::HasProperties).Bind(path), out);
    }
    TALSTATUS ChildrenWithProperties(std::string_view parent,
                                     std::unordered_set<std::string>* names) override
    {
        const std::string prefix = parent.empty() ? std::string() : std::string(parent) + "/";
        // What lies deeper is passed over: no path goes on with a byte that UTF-8 does not have.
        constexpr std::string_view kLast = "/\xFF";
        for (std::string at = prefix;;) {
            Query query(Db(), Sql::NextPathWithProperties);
            if (!query.Bind(at).Step())
                return query.Status();
            at = query.Text(0);
            if (!at.starts_with(prefix))
                return TAL_STATUS_SUCCESS;
            const size_t slash = at.find('/', prefix.size());
            if (slash == at.npos)
                names->insert(at.substr(prefix.size()));
            else
                at.replace(slash, at.npos, kLast);
        }
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
                owner_.Expect(kHasProperties);
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
        if (owner_.MayHave(kHasDeleted))
            status = Exists(Query(Db(), Sql::AnyDeleted).Bind(tree), out);
        if (Failed(status) || *out || !owner_.MayHave(kHasProperties))
            return status;
        return Exists(
            Query(Db(), Sql::AnyProperty).Bind(tree).Bind(ParentOf(tree)).Bind(LeafOf(tree)), out);
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
            const std::string_view parent = ParentOf(tree);
            TALSTATUS status =
                Query(Db(), Sql::ForgetHiddenSelf).Bind(parent).Bind(LeafOf(tree)).Run();
            for (const Sql which :
                 {Sql::ForgetProperties, Sql::ForgetHiddenMembers, Sql::ForgetHiddenBelow})
                if (!Failed(status))
                    status = Query(Db(), which).Bind(tree).Run();
            return status;
        });
    }
    TALSTATUS
    ExportTree(std::string_view from, bool deep,
               const std::function<TALSTATUS(std::string_view, const Property*)>& each) override
    {
        for (const Sql which : {Sql::ExportProperties, Sql::ExportPropertiesBelow})
            if (deep || which == Sql::ExportProperties)
                if (const TALSTATUS status = ExportProperties(which, from, each); Failed(status))
                    return status;
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
            owner_.Expect(kHasDeleted);
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
        *order = query.Number(9);
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
            owner_.Expect(kHasLocks);
            return Query(Db(), Sql::AddLock)
                .Bind(lock.token)
                .Bind(lock.path)
                .Bind(INT64{lock.scope})
                .Bind(INT64{lock.type})
                .Bind(INT64{lock.depth})
                .Bind(static_cast<INT64>(lock.expires))
                .BindBlob(lock.owner)
                .Bind(lock.creator)
                .BindBlob(lock.markup)
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
    TALSTATUS
    ExportProperties(Sql which, std::string_view from,
                     const std::function<TALSTATUS(std::string_view, const Property*)>& each)
    {
        Property property;
        Query found(Db(), which);
        found.Bind(from);
        while (found.Step()) {
            property.space = found.Text(1);
            property.name = found.Text(2);
            property.value = found.Text(3);
            if (const TALSTATUS status = each(found.Text(0), &property); Failed(status))
                return status;
        }
        return found.Status();
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
    static void ReadProperty(const Query& query, Property* out)
    {
        out->order = query.Number(0);
        out->space = query.Text(1);
        out->name = query.Text(2);
        out->value = query.Text(3);
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
        lock.markup = query.Text(8);
        return lock;
    }
    static TALSTATUS ReadLocks(Query& query, std::vector<LockRecord>* out)
    {
        while (query.Step())
            out->push_back(LockOf(query));
        return query.Status();
    }

    void Enter()
    {
        if (!use_)
            use_.emplace(owner_);
    }
    // The connection to use now; null when there is none to be had.
    Database* Db()
    {
        if (writer_.owns_lock())
            return owner_.Writer();
        Enter();
        if (!reader_)
            reader_ = owner_.Take();
        return reader_.get();
    }

    SharedDatabase& owner_;
    std::optional<SharedDatabase::Use> use_; // from the first use
    std::unique_ptr<Database> reader_;       // from the first use outside a change
    std::unique_lock<std::mutex> writer_;    // held from Begin to Commit
};

class SqliteMetadata final : public Metadata {
  public:
    explicit SqliteMetadata(std::shared_ptr<SharedDatabase> shared) : database_(std::move(shared))
    {
    }

    TALSTATUS Open(std::unique_ptr<MetadataSession>* out) override
    {
        *out = std::make_unique<SqliteSession>(*database_);
        return TAL_STATUS_SUCCESS;
    }
    bool MayHaveLocks() const override { return database_->MayHave(kHasLocks); }
    bool MayHaveProperties() const override { return database_->MayHave(kHasProperties); }
    bool MayHaveDeleted() const override { return database_->MayHave(kHasDeleted); }
    bool IsInUse() const override { return database_->IsOwned(); }
    bool Count(UINT64 t, UINT64 n, Amounts* a) override { return database_->Count(t, n, a); }
    void RecountFlags() override { database_->RecountFlags(); }
    void Checkpoint() override { database_->Checkpoint(); }

  private:
    const std::shared_ptr<SharedDatabase> database_;
};

} // namespace

std::unique_ptr<Metadata> OpenSqliteMetadata(const std::string& directory, bool durable,
                                             std::string* reason)
{
    std::shared_ptr<SharedDatabase> database = SharedDatabase::Of(directory, durable, reason);
    return database ? std::make_unique<SqliteMetadata>(std::move(database)) : nullptr;
}

} // namespace filestore
