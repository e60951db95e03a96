// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/filestore/faults.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <ostream>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "providers/filestore/collection.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/purge.h"
#include "tests/contract/harness/world.h"
#include "tests/support/temporary_directory.h"
#include <kest/identifiers.h>

namespace faults {

using namespace filestore;
namespace fs = std::filesystem;

namespace {

// The request that runs, as the store sees it.
struct Running {
    IKestIO_5* io = nullptr;
    UINT32 method = KestMethodUnknown;
    std::vector<TALSTATUS> reported;
    std::function<bool()> isCancelled;
    std::map<std::string, Ref<IUnknown>> attached;
    bool mayReplace = false;
};
Running* g_running = nullptr;
filestore::Store* g_store = nullptr;

std::string KeyOf(const GUID& key)
{
    return {reinterpret_cast<const char*>(&key), sizeof key};
}

class Context final : public IKestCallContext {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS GetRequest(IKestIO_5** request) override
    {
        *request = g_running ? g_running->io : nullptr;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS GetMethod(UINT32* method) override
    {
        *method = g_running ? g_running->method : UINT32{KestMethodUnknown};
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS IsBodyComplete(BOOLEAN* complete) override
    {
        *complete = TRUE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS ReportFailure(TALSTATUS failure) override
    {
        if (g_running)
            g_running->reported.push_back(failure);
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS IsCancelled(BOOLEAN* cancelled) override
    {
        *cancelled = g_running && g_running->isCancelled && g_running->isCancelled() ? TRUE : FALSE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS GetConditions(KEST_CONDITIONS* conditions) override
    {
        *conditions = {};
        conditions->MayReplace = g_running && g_running->mayReplace ? TRUE : FALSE;
        return g_running ? TAL_STATUS_SUCCESS : TAL_STATUS_NOT_FOUND;
    }
    TALSTATUS SetAttachment(const GUID* key, IUnknown* object) override
    {
        if (!g_running)
            return TAL_STATUS_NOT_FOUND;
        object->AddRef();
        g_running->attached[KeyOf(*key)] = Ref<IUnknown>::Adopt(object);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetAttachment(const GUID* key, IUnknown** object) override
    {
        if (!g_running)
            return TAL_STATUS_NOT_FOUND;
        const auto found = g_running->attached.find(KeyOf(*key));
        *object = found == g_running->attached.end() ? nullptr : found->second.Get();
        return TAL_STATUS_SUCCESS;
    }
};

// The module keeps the namespace that it made at its start: this one is that of the store of the
// moment.
class CurrentNamespace final : public IKestDAV2 {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS Copy(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Copy(s, overwrite, depth, from, to, token, id);
    }
    TALSTATUS Delete(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                     DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Delete(s, path, token, id);
    }
    TALSTATUS BeginSession(SCHANDLE) override { return 0; }
    TALSTATUS EndSession(SCHANDLE) override { return 0; }
    TALSTATUS GetDAVSupport(UINT32* caps) override
    {
        *caps = kCapsDeletesTrees | kCapsNamedProperties;
        return 0;
    }
    TALSTATUS GetMultiStatus(SCHANDLE s, DAV_ERROR_ID* id, UINT32* size,
                             DAV_MULTI_STATUS* buffer) override
    {
        return FileNamespace(*g_store).GetMultiStatus(s, id, size, buffer);
    }
    TALSTATUS GetType(SCHANDLE s, UNICODE_STRING* path, DAV_TYPE* type) override
    {
        return FileNamespace(*g_store).GetType(s, path, type);
    }
    TALSTATUS Lock(SCHANDLE s, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   UNICODE_STRING* path, STRING* owner, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Lock(s, depth, timeout, scope, type, path, owner, token, id);
    }
    TALSTATUS LockRefresh(SCHANDLE s, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) override
    {
        return FileNamespace(*g_store).LockRefresh(s, timeout, path, token, lock);
    }
    TALSTATUS Unlock(SCHANDLE s, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        return FileNamespace(*g_store).Unlock(s, path, token);
    }
    TALSTATUS MkCol(SCHANDLE s, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) override
    {
        return FileNamespace(*g_store).MkCol(s, token, path);
    }
    TALSTATUS Move(SCHANDLE s, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* from,
                   UNICODE_STRING* to, DAV_LOCK_TOKEN* token, DAV_ERROR_ID* id) override
    {
        return FileNamespace(*g_store).Move(s, overwrite, depth, from, to, token, id);
    }
    TALSTATUS IoctlRequest(SCHANDLE s, UINT32 code, UINT32 inputLength, void* input,
                           UINT32* outputLength, void* output) override
    {
        return FileNamespace(*g_store).IoctlRequest(s, code, inputLength, input, outputLength,
                                                    output);
    }
};

template <class T> TALSTATUS MakeObject(const GUID& iid, void** out)
{
    T* const object = new T(*g_store);
    const TALSTATUS status = object->QueryInterface(&iid, out);
    object->Release();
    return status;
}

TALSTATUS CreateStoreObject(const GUID& iid, void** out)
{
    if (iid == IID_KestResource_2)
        return MakeObject<FileResource>(iid, out);
    if (iid == IID_KestCollection_2)
        return MakeObject<FileCollection>(iid, out);
    static CurrentNamespace current;
    return current.QueryInterface(&iid, out);
}

std::string KeyName(const GUID& id)
{
    char text[64];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1,
                  id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3],
                  id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return text;
}

// The module is started once: it has no end. Its provider is the store of the moment.
harness::World& Module()
{
    static harness::World* const world = [] {
        static Context context;
        auto* const made =
            new harness::World({}, {.configuredKeys = {KeyName(CLSID_FileStore)}, .start = false});
        made->Offer(CLSID_FileStore, CreateStoreObject);
        made->Offer(CLSID_KestCallContext,
                    [](const GUID& iid, void** out) { return context.QueryInterface(&iid, out); });
        made->Start();
        return made;
    }();
    return *world;
}

// Metadata over another one that fails as the plan says.
class FailingSession final : public MetadataSession {
  public:
    using Judge = std::function<int(const std::string&)>;
    FailingSession(std::unique_ptr<MetadataSession> real, Judge judge, int* transactions)
        : real_(std::move(real)), judge_(std::move(judge)), transactions_(transactions)
    {
    }
    ~FailingSession() override { End(); }
    TALSTATUS Begin() override
    {
        const TALSTATUS status = Do(__func__, &MetadataSession::Begin);
        if (!Failed(status) && !std::exchange(isOpen_, true))
            ++*transactions_;
        return status;
    }
    TALSTATUS Commit() override
    {
        const TALSTATUS status = Do(__func__, &MetadataSession::Commit);
        if (!Failed(status))
            End();
        return status;
    }
    void Rollback() override
    {
        real_->Rollback();
        End();
    }
    TALSTATUS GetProperty(std::string_view path, std::string_view name, Property* out) override
    {
        return Do(__func__, &MetadataSession::GetProperty, path, name, out);
    }
    TALSTATUS NextProperty(std::string_view path, INT64 order, Property* out) override
    {
        return Do(__func__, &MetadataSession::NextProperty, path, order, out);
    }
    TALSTATUS SetProperty(std::string_view path, PropertyName name, std::string_view value) override
    {
        return Do(__func__, &MetadataSession::SetProperty, path, name, value);
    }
    TALSTATUS RemoveProperty(std::string_view path, PropertyName name) override
    {
        return Do(__func__, &MetadataSession::RemoveProperty, path, name);
    }
    TALSTATUS HasProperties(std::string_view path, bool* out) override
    {
        return Do(__func__, &MetadataSession::HasProperties, path, out);
    }
    TALSTATUS ChildrenWithProperties(std::string_view parent,
                                     std::unordered_set<std::string>* names) override
    {
        return Do(__func__, &MetadataSession::ChildrenWithProperties, parent, names);
    }
    TALSTATUS IsHidden(std::string_view path, bool* out) override
    {
        return Do(__func__, &MetadataSession::IsHidden, path, out);
    }
    TALSTATUS SetHidden(std::string_view path, bool on) override
    {
        return Do(__func__, &MetadataSession::SetHidden, path, on);
    }
    TALSTATUS HiddenChildren(std::string_view parent,
                             std::unordered_set<std::string>* names) override
    {
        return Do(__func__, &MetadataSession::HiddenChildren, parent, names);
    }
    TALSTATUS HasAny(std::string_view tree, bool* out) override
    {
        return Do(__func__, &MetadataSession::HasAny, tree, out);
    }
    TALSTATUS RenameTree(std::string_view from, std::string_view to) override
    {
        return Do(__func__, &MetadataSession::RenameTree, from, to);
    }
    TALSTATUS ForgetTree(std::string_view tree) override
    {
        return Do(__func__, &MetadataSession::ForgetTree, tree);
    }
    TALSTATUS ExportTree(
        std::string_view from, bool deep,
        const std::function<TALSTATUS(std::string_view path, const Property*)>& each) override
    {
        return Do(__func__, &MetadataSession::ExportTree, from, deep, each);
    }
    TALSTATUS AddDeleted(DeletedEntry* entry) override
    {
        return Do(__func__, &MetadataSession::AddDeleted, entry);
    }
    TALSTATUS SkipDeletedIds(INT64 upTo) override
    {
        return Do(__func__, &MetadataSession::SkipDeletedIds, upTo);
    }
    TALSTATUS FindDeleted(INT64 id, DeletedEntry* out) override
    {
        return Do(__func__, &MetadataSession::FindDeleted, id, out);
    }
    TALSTATUS RemoveDeleted(INT64 id) override
    {
        return Do(__func__, &MetadataSession::RemoveDeleted, id);
    }
    TALSTATUS NextDeleted(std::string_view parent, INT64 afterId, DeletedEntry* out) override
    {
        return Do(__func__, &MetadataSession::NextDeleted, parent, afterId, out);
    }
    TALSTATUS NextExpired(UINT64 time, INT64 afterId, DeletedEntry* out) override
    {
        return Do(__func__, &MetadataSession::NextExpired, time, afterId, out);
    }
    TALSTATUS LocksAt(std::string_view path, UINT64 now, std::vector<LockRecord>* out) override
    {
        return Do(__func__, &MetadataSession::LocksAt, path, now, out);
    }
    TALSTATUS LocksWithin(std::string_view tree, UINT64 now, std::vector<LockRecord>* out) override
    {
        return Do(__func__, &MetadataSession::LocksWithin, tree, now, out);
    }
    TALSTATUS NextLock(UINT64 now, INT64* order, LockRecord* out) override
    {
        return Do(__func__, &MetadataSession::NextLock, now, order, out);
    }
    TALSTATUS FindLock(std::string_view token, UINT64 now, LockRecord* out) override
    {
        return Do(__func__, &MetadataSession::FindLock, token, now, out);
    }
    TALSTATUS AddLock(const LockRecord& lock) override
    {
        return Do(__func__, &MetadataSession::AddLock, lock);
    }
    TALSTATUS SetLockExpiry(std::string_view token, UINT64 expires) override
    {
        return Do(__func__, &MetadataSession::SetLockExpiry, token, expires);
    }
    TALSTATUS RemoveLock(std::string_view token) override
    {
        return Do(__func__, &MetadataSession::RemoveLock, token);
    }
    TALSTATUS RemoveLocksWithin(std::string_view tree) override
    {
        return Do(__func__, &MetadataSession::RemoveLocksWithin, tree);
    }
    TALSTATUS RemoveExpiredLocks(UINT64 now) override
    {
        return Do(__func__, &MetadataSession::RemoveExpiredLocks, now);
    }
    TALSTATUS AddIntent(RenameIntent* intent) override
    {
        return Do(__func__, &MetadataSession::AddIntent, intent);
    }
    TALSTATUS RemoveIntent(INT64 id) override
    {
        return Do(__func__, &MetadataSession::RemoveIntent, id);
    }
    TALSTATUS Intents(std::vector<RenameIntent>* out) override
    {
        return Do(__func__, &MetadataSession::Intents, out);
    }

  private:
    void End()
    {
        if (std::exchange(isOpen_, false))
            --*transactions_;
    }
    // A commit that fails has not happened.
    template <class... P, class... A>
    TALSTATUS Do(const char* name, TALSTATUS (MetadataSession::*operation)(P...), A&&... arguments)
    {
        if (const int error = judge_(std::string("meta ") + name))
            return StatusFromErrno(error);
        return ((*real_).*operation)(std::forward<A>(arguments)...);
    }

    const std::unique_ptr<MetadataSession> real_;
    const Judge judge_;
    int* const transactions_; // how many are open
    bool isOpen_ = false;
};

class FailingMetadata final : public Metadata {
  public:
    FailingMetadata(std::unique_ptr<Metadata> real, FailingSession::Judge judge, int* transactions)
        : real_(std::move(real)), judge_(std::move(judge)), transactions_(transactions)
    {
    }
    TALSTATUS Open(std::unique_ptr<MetadataSession>* out) override
    {
        if (const int error = judge_("meta Open"))
            return StatusFromErrno(error);
        std::unique_ptr<MetadataSession> real;
        const TALSTATUS status = real_->Open(&real);
        if (!Failed(status))
            *out = std::make_unique<FailingSession>(std::move(real), judge_, transactions_);
        return status;
    }
    bool MayHaveLocks() const override { return real_->MayHaveLocks(); }
    bool MayHaveProperties() const override { return real_->MayHaveProperties(); }
    bool MayHaveDeleted() const override { return real_->MayHaveDeleted(); }
    void Tidy() override { real_->Tidy(); }
    void Rest() override { real_->Rest(); }

  private:
    const std::unique_ptr<Metadata> real_;
    const FailingSession::Judge judge_;
    int* const transactions_;
};

// -- What is there.

void Rows(const fs::path& database, const char* sql,
          const std::function<void(const std::vector<std::string>&)>& each)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr));
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, sql, -1, &statement, nullptr)) << sql;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
            row.emplace_back(text ? text : "");
        }
        each(row);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
}

// The dates that tests set, and not those of the store's clock or the system's.
bool IsSet(time_t date)
{
    constexpr time_t kFilled = 1'600'000'123, kGiven = 1'255'526'400;
    return date == kFilled || date == kGiven;
}

class Describer {
  public:
    Describer(const fs::path& volume, std::set<std::string>* out) : volume_(volume), out_(out)
    {
        // Numbers of deleted entries depend on how often one was begun: their names do not.
        Rows(Database(), "SELECT id, parent, name FROM deleted",
             [&](const auto& row) { deleted_[row[0]] = "deleted(" + row[1] + "/" + row[2] + ")"; });
    }
    void Describe()
    {
        DescribeTree(volume_, "");
        for (const auto& [id, shown] : deleted_) {
            const fs::path kept = volume_ / ".kest/deleted" / id;
            if (fs::symlink_status(kept).type() == fs::file_type::not_found)
                Add(shown + " without its files");
            else
                DescribeObject(kept, shown);
        }
        for (const auto& entry : fs::directory_iterator(volume_ / ".kest/deleted"))
            if (!deleted_.contains(entry.path().filename()))
                Add("deleted files without an entry");
        Rows(Database(), "SELECT path, space, name, value FROM props", [&](const auto& row) {
            const std::string space = row[1] == kClassicSpace ? "" : "{" + row[1] + "}";
            Add(Shown(row[0]) + " property " + space + row[2] + "=" + row[3] + Orphan(row[0]));
        });
        Rows(Database(), "SELECT parent, leaf FROM hidden", [&](const auto& row) {
            const std::string path = row[0].empty() ? row[1] : row[0] + "/" + row[1];
            Add(Shown(path) + " hidden" + Orphan(path));
        });
        Rows(Database(), "SELECT path, token FROM locks",
             [&](const auto& row) { Add(Shown(row[0]) + " locked"); });
        Rows(Database(), "SELECT source, target FROM intents",
             [&](const auto& row) { Add("intent " + row[0] + " " + row[1]); });
    }

  private:
    fs::path Database() const { return volume_ / ".kest/meta.db"; }
    void Add(const std::string& line) { out_->insert(volume_.filename().string() + ":" + line); }
    std::string Shown(const std::string& path) const
    {
        constexpr std::string_view kDeleted = ".kest/deleted/";
        if (!path.starts_with(kDeleted))
            return path;
        const std::string rest = path.substr(kDeleted.size());
        const std::string id = rest.substr(0, rest.find('/'));
        const auto found = deleted_.find(id);
        return (found == deleted_.end() ? "deleted(none)" : found->second) + rest.substr(id.size());
    }
    std::string Orphan(const std::string& path) const
    {
        return fs::symlink_status(volume_ / path).type() == fs::file_type::not_found ? " (orphan)"
                                                                                     : "";
    }
    void DescribeTree(const fs::path& directory, const std::string& shown)
    {
        for (const auto& entry : fs::directory_iterator(directory)) {
            const std::string name = entry.path().filename();
            if (shown.empty() && name == ".kest")
                continue;
            DescribeObject(entry.path(), shown.empty() ? name : shown + "/" + name);
        }
    }
    void DescribeObject(const fs::path& path, const std::string& shown)
    {
        struct stat info {};
        ASSERT_EQ(0, ::lstat(path.c_str(), &info));
        std::ostringstream line;
        line << shown << " mode " << std::oct << (info.st_mode & 07777) << std::dec;
        if (S_ISREG(info.st_mode))
            line << (!IsSet(info.st_mtim.tv_sec)
                         ? " from now"
                         : " from " + std::to_string(info.st_mtim.tv_sec % 1000))
                 << " file " << Contents(path);
        else if (S_ISLNK(info.st_mode))
            line << " link " << fs::read_symlink(path).string();
        else
            line << (S_ISDIR(info.st_mode) ? " folder" : " special");
        Add(line.str());
        if (S_ISDIR(info.st_mode))
            DescribeTree(path, shown);
    }

    const fs::path volume_;
    std::set<std::string>* const out_;
    std::map<std::string, std::string> deleted_;
};

} // namespace

int Plan::Judge(const std::string& operation)
{
    if (!isArmed)
        return 0;
    ++calls;
    if (failAt == 0 || calls < failAt || (calls > failAt && !andAfter))
        return 0;
    if (failed.empty())
        failed = operation;
    return error;
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
{
    out << "said " << outcome.said;
    for (const TALSTATUS status : outcome.reported)
        out << ", reported " << Code(status);
    return out;
}

Installation::Installation(const Setup& setup)
    : setup_(setup), directory_(test_support::FastestPlace())
{
    (void)Module(); // the call context is there before the store looks for it
    fs::create_directory(One());
    fs::create_directory(Two());
    Start();
    if (!setup_.fill)
        return;
    Client client(*store_);
    setup_.fill(client);
    // Old enough to tell a copied date from a new one.
    for (const fs::path& volume : {One(), Two()})
        for (const auto& entry : fs::recursive_directory_iterator(volume))
            if (entry.is_regular_file() &&
                entry.path().native().find("/.kest/") == std::string::npos) {
                const timespec times[2] = {{0, UTIME_OMIT}, {1'600'000'123, 0}};
                EXPECT_EQ(0, ::utimensat(AT_FDCWD, entry.path().c_str(), times, 0));
            }
}

Installation::~Installation()
{
    g_store = nullptr;
}

void Installation::Start()
{
    systems_.clear();
    std::vector<std::unique_ptr<Volume>> volumes;
    for (const fs::path& path : {One(), Two()}) {
        int error = 0;
        if (setup_.isPlain) {
            volumes.push_back(std::make_unique<Volume>(path.filename(),
                                                       OpenPosixFileSystem(path.c_str(), &error),
                                                       setup_.sync, OpenSqliteMetadata));
            continue;
        }
        auto failing =
            std::make_unique<FailingFileSystem>(OpenPosixFileSystem(path.c_str(), &error));
        const auto judge = [this](const std::string& operation) {
            if (plan.isArmed && onCall)
                onCall(operation);
            return plan.Judge(operation);
        };
        failing->judge = judge;
        systems_.push_back(failing.get());
        volumes.push_back(std::make_unique<Volume>(
            path.filename(), std::move(failing), setup_.sync,
            [this, judge](const std::string& directory, bool durable, std::string* reason) {
                std::unique_ptr<Metadata> real = OpenSqliteMetadata(directory, durable, reason);
                return real ? std::make_unique<FailingMetadata>(std::move(real), judge,
                                                                &transactions_)
                            : nullptr;
            }));
    }
    filestore::Store::Options options;
    options.sync = setup_.sync;
    options.keepDeletedDays = setup_.keepDays;
    options.now = [] { return g_now; };
    store_ = std::make_unique<filestore::Store>(std::move(volumes), options);
}

Outcome Installation::Run(const harness::Request& request)
{
    harness::World& world = Module();
    g_store = store_.get();
    harness::ScriptedIo io(world.recorder, world.platform, request);
    Running running{&io, request.method, {}, isCancelled, {}, request.overwrite != FALSE};
    g_running = &running;
    plan.calls = 0;
    plan.isArmed = true;
    (void)world.module->RequestHandler(&io, harness::SessionHandle(1), request.method);
    running.attached.clear();
    plan.isArmed = false;
    g_running = nullptr;
    world.recorder.Clear();
    Outcome outcome;
    outcome.said = std::atoi(io.TakeReply().text.c_str());
    outcome.reported = running.reported;
    return outcome;
}

Outcome Installation::Run(const std::function<TALSTATUS(filestore::Store&)>& work)
{
    plan.calls = 0;
    plan.isArmed = true;
    const TALSTATUS status = work(*store_);
    plan.isArmed = false;
    Outcome outcome;
    outcome.said = Failed(status) ? Code(status) : 200;
    return outcome;
}

void Installation::AsAnother(const std::function<void(Client&)>& work)
{
    Running* const running = std::exchange(g_running, nullptr);
    plan.isArmed = false;
    Client client(*store_);
    work(client);
    plan.isArmed = true;
    g_running = running;
}

int Installation::OpenHandles() const
{
    int open = 0;
    for (const FailingFileSystem* system : systems_)
        open += system->open;
    return open;
}

std::vector<std::string> Installation::Leftovers() const
{
    std::vector<std::string> out;
    for (const fs::path& volume : {One(), Two()})
        for (const std::string& name : filestore::Leftovers(volume / ".kest/tmp"))
            out.push_back(volume.filename().string() + "/" + name);
    return out;
}

void Installation::Restart()
{
    store_.reset();
    Start();
    g_now += 10'000'000; // what is kept for no time at all is over
    for (const auto& volume : store_->Volumes()) {
        if (setup_.keepDays == 0)
            RetireDeleted(*store_, *volume);
        EmptyPurge(*volume, [] { return true; });
        EXPECT_TRUE(filestore::Leftovers((volume->Name() == "one" ? One() : Two()) / ".kest/purge")
                        .empty());
    }
}

std::string Installation::Snapshot() const
{
    std::set<std::string> lines;
    for (const fs::path& volume : {One(), Two()})
        Describer(volume, &lines).Describe();
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

namespace {

// What is there before, and what a run without failures makes of it.
struct Expected {
    std::string before;
    std::string after;
};

Expected Find(const Setup& setup, const Task& task, const Sweep& sweep)
{
    Expected expected;
    Installation place(setup);
    place.Restart();
    expected.before = place.Snapshot();
    const Outcome outcome = task(place);
    EXPECT_EQ(!sweep.isRefused, outcome.IsSuccess()) << outcome;
    EXPECT_TRUE(place.Leftovers().empty());
    place.Restart();
    expected.after = place.Snapshot();
    EXPECT_EQ(sweep.isRefused, expected.before == expected.after) << expected.after;
    return expected;
}

bool IsCleanUp(const std::string& operation)
{
    return operation == "RemoveFile" || operation == "RemoveDirectory" || operation == "Rename" ||
           operation.starts_with("meta ");
}

// Whether that is what is to be, and what could not be dropped is still among the deleted entries,
// with or without its files: it goes in time.
bool IsWithMoreKept(const std::string& found, const std::string& wanted)
{
    std::istringstream foundLines(found), wantedLines(wanted);
    std::string next, line;
    bool hasNext = static_cast<bool>(std::getline(wantedLines, next));
    while (std::getline(foundLines, line)) {
        if (hasNext && line == next)
            hasNext = static_cast<bool>(std::getline(wantedLines, next));
        else if (line.find(":deleted(/") == line.npos)
            return false;
    }
    return !hasNext;
}

// False when the run met no failure.
bool RunOnce(const Setup& setup, const Task& task, const Sweep& sweep, int error, int failAt,
             const Expected& expected)
{
    Installation place(setup);
    const int open = place.OpenHandles();
    place.plan.failAt = failAt;
    place.plan.andAfter = sweep.andAfter;
    place.plan.error = error;
    const Outcome outcome = task(place);
    SCOPED_TRACE("call " + std::to_string(failAt) + ", " + place.plan.failed + ", " +
                 std::strerror(error));
    EXPECT_EQ(open, place.OpenHandles());
    if (!sweep.andAfter && !IsCleanUp(place.plan.failed)) {
        EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
    }
    place.Restart();
    EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
    const std::string found = place.Snapshot();
    const bool mayKeepMore = !outcome.IsSuccess() || IsCleanUp(place.plan.failed);
    if (outcome.IsSuccess() && !(mayKeepMore && IsWithMoreKept(found, expected.after))) {
        EXPECT_EQ(expected.after, found) << outcome;
    } else if (!IsWithMoreKept(found, expected.after)) {
        EXPECT_EQ(expected.before, found) << outcome;
    }
    return place.plan.HasFailed();
}

} // namespace

void FailEveryCall(const Setup& setup, const harness::Request& request, const Sweep& sweep)
{
    FailEveryCall(
        setup, [&](Installation& place) { return place.Run(request); }, sweep);
}

void FailEveryCall(const Setup& setup, const Task& task, const Sweep& sweep)
{
    const Expected expected = Find(setup, task, sweep);
    for (const int error : sweep.errors)
        for (int failAt = 1; !testing::Test::HasFailure(); ++failAt) {
            ASSERT_LT(failAt, 2000);
            if (!RunOnce(setup, task, sweep, error, failAt, expected))
                break;
        }
}

void FailEach(const Setup& setup, const Task& task, const std::function<void(int)>& fail,
              const std::function<bool()>& hasFailed)
{
    const Expected expected = Find(setup, task, {});
    // Neighbours mostly fail alike.
    const int sparing = std::getenv("KEST_FULL_TESTS") ? 1 << 30 : 32;
    for (int failAt = 1; !testing::Test::HasFailure(); failAt += 1 + failAt / sparing) {
        ASSERT_LT(failAt, 100000);
        SCOPED_TRACE("failure " + std::to_string(failAt));
        Installation place(setup);
        fail(failAt);
        const Outcome outcome = task(place);
        const bool isOver = !hasFailed();
        fail(0);
        place.Restart();
        EXPECT_EQ(std::vector<std::string>(), place.Leftovers());
        const std::string found = place.Snapshot();
        if (outcome.IsSuccess()) {
            EXPECT_EQ(expected.after, found);
        } else if (!IsWithMoreKept(found, expected.after)) {
            EXPECT_EQ(expected.before, found);
        }
        if (isOver)
            break;
    }
}

} // namespace faults
