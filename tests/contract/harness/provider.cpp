// SPDX-License-Identifier: Apache-2.0
#include "provider.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "opened.h"
#include "provider3.h"
#include "text.h"

namespace harness {

namespace {

constexpr DAV_DATETIME kStartDate = Ticks(1769860800); // 2026-01-31T12:00:00Z

std::u16string Path(const UNICODE_STRING* path)
{
    return {path->Buffer, path->Length / sizeof(WCHAR)};
}

std::u16string Parent(const std::u16string& path)
{
    const size_t slash = path.rfind(u'/');
    return slash == std::u16string::npos || slash == 0 ? std::u16string() : path.substr(0, slash);
}

std::string Flag(BOOLEAN flag)
{
    return flag ? "overwrite" : "keep";
}

} // namespace

// The namespace operations that both generations declare alike.
template <class I> struct NamespaceCommon : I {
    explicit NamespaceCommon(Provider& provider) : owner(provider) {}

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<I>::value && *iid != IID_IUnknown)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<I*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override
    {
        const std::lock_guard lock(owner.Mutex());
        return static_cast<UINT32>(++owner.references_);
    }
    UINT32 Release() override
    {
        const std::lock_guard lock(owner.Mutex());
        return static_cast<UINT32>(--owner.references_);
    }
    TALSTATUS BeginSession(SCHANDLE session) override
    {
        return Note("BeginSession", SessionText(session)).value_or(TAL_STATUS_SUCCESS);
    }
    TALSTATUS EndSession(SCHANDLE session) override
    {
        return Note("EndSession", SessionText(session)).value_or(TAL_STATUS_SUCCESS);
    }
    TALSTATUS GetDAVSupport(UINT32* caps) override
    {
        if (const auto status = Note("GetDAVSupport"))
            return *status;
        *caps = owner.Spec().caps;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetMultiStatus(SCHANDLE, DAV_ERROR_ID*, UINT32*, DAV_MULTI_STATUS*) override
    {
        return Note("GetMultiStatus").value_or(ProviderFailure(kCodeNoMoreEntries));
    }
    TALSTATUS GetType(SCHANDLE, UNICODE_STRING* path, DAV_TYPE* type) override
    {
        if (const auto status = Note("GetType", Narrow(path)))
            return *status;
        return owner.GetType(Path(path), type);
    }
    TALSTATUS Unlock(SCHANDLE, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        const std::string text = token && !token->Buffer ? "(null text)" : Narrow(token);
        if (const auto status = Note("Unlock", Narrow(path) + ", token=" + text))
            return *status;
        return owner.RemoveLock(Path(path), token);
    }
    TALSTATUS IoctlRequest(SCHANDLE, UINT32 code, UINT32, void*, UINT32* size,
                           void* output) override
    {
        if (const auto status = Note("IoctlRequest", Hex(code)))
            return *status;
        return owner.onIoctl ? owner.onIoctl("/", code, size, output)
                             : ProviderFailure(kCodeNotImplemented);
    }

    std::optional<TALSTATUS> Note(const char* operation, std::string_view arguments = {})
    {
        return owner.Log().Enter(owner.Name(operation), arguments);
    }
    static std::string SessionText(SCHANDLE session)
    {
        return "session=" + std::to_string(reinterpret_cast<std::uintptr_t>(session.hId));
    }

    Provider& owner;

  protected:
    ~NamespaceCommon() = default;
};

namespace {

LockRecord NewLock(INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   std::string owner)
{
    return {type, scope, depth, timeout, std::move(owner), {}};
}

std::string LockText(UNICODE_STRING* path, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                     DAV_LOCK_TYPE type)
{
    return Narrow(path) + ", depth=" + std::to_string(depth) +
           ", timeout=" + std::to_string(timeout) + ", scope=" + std::to_string(scope) +
           ", type=" + std::to_string(type);
}

std::string PairText(BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                     UNICODE_STRING* destination)
{
    return Narrow(source) + ", " + Narrow(destination) + ", " + Flag(overwrite) +
           ", depth=" + std::to_string(depth);
}

} // namespace

struct Provider::First final : NamespaceCommon<IKestDAV> {
    using NamespaceCommon::NamespaceCommon;
    virtual ~First() = default;

    TALSTATUS Copy(SCHANDLE, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Copy", PairText(overwrite, depth, source, destination)))
            return *status;
        return owner.CopyTree(overwrite, Path(source), Path(destination));
    }
    TALSTATUS Delete(SCHANDLE, UNICODE_STRING* path, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Delete", Narrow(path)))
            return *status;
        return owner.Remove(Path(path));
    }
    void Janitor(INT64) override { (void)Note("Janitor"); }
    TALSTATUS Lock(SCHANDLE, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   UNICODE_STRING* path, DAV_LOCK_TOKEN* token, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Lock", LockText(path, depth, timeout, scope, type)))
            return *status;
        return owner.AddLock(Path(path), NewLock(depth, timeout, scope, type, {}), token);
    }
    TALSTATUS LockRefresh(SCHANDLE, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token) override
    {
        if (const auto status =
                Note("LockRefresh", Narrow(path) + ", timeout=" + std::to_string(timeout) +
                                        ", token=" + Narrow(token)))
            return *status;
        LockRecord* lock = owner.FindLock(Path(path), token);
        if (!lock)
            return ProviderFailure(kCodeNotFound);
        lock->timeout = static_cast<INT64>(timeout);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS MkCol(SCHANDLE, UNICODE_STRING* path) override
    {
        if (const auto status = Note("MkCol", Narrow(path)))
            return *status;
        return owner.MakeCollection(Path(path));
    }
    TALSTATUS Move(SCHANDLE, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Move", PairText(overwrite, depth, source, destination)))
            return *status;
        return owner.MoveTree(overwrite, Path(source), Path(destination));
    }
};

struct Provider::Second final : NamespaceCommon<IKestDAV2> {
    using NamespaceCommon::NamespaceCommon;
    virtual ~Second() = default;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (*iid == IidOf<IKestDAV3>::value && owner.HasThird())
            return owner.third_->QueryInterface(iid, out);
        return NamespaceCommon::QueryInterface(iid, out);
    }

    TALSTATUS Copy(SCHANDLE, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_LOCK_TOKEN* token, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Copy", PairText(overwrite, depth, source, destination) +
                                                 ", token=" + Narrow(token)))
            return *status;
        return owner.CopyTree(overwrite, Path(source), Path(destination));
    }
    TALSTATUS Delete(SCHANDLE, UNICODE_STRING* path, DAV_LOCK_TOKEN* token, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Delete", Narrow(path) + ", token=" + Narrow(token)))
            return *status;
        return owner.Remove(Path(path));
    }
    TALSTATUS Lock(SCHANDLE, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope, DAV_LOCK_TYPE type,
                   UNICODE_STRING* path, STRING* lockOwner, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Lock", LockText(path, depth, timeout, scope, type) +
                                                 ", owner=" + Narrow(lockOwner)))
            return *status;
        return owner.AddLock(
            Path(path),
            NewLock(depth, timeout, scope, type, lockOwner ? Narrow(lockOwner) : std::string()),
            token);
    }
    TALSTATUS LockRefresh(SCHANDLE, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token, DAV_LOCK_2* record) override
    {
        if (const auto status =
                Note("LockRefresh", Narrow(path) + ", timeout=" + std::to_string(timeout) +
                                        ", token=" + Narrow(token)))
            return *status;
        LockRecord* lock = owner.FindLock(Path(path), token);
        if (!lock)
            return ProviderFailure(kCodeNotFound);
        lock->timeout = static_cast<INT64>(timeout);
        UINT32 size = kLockRecordBytes;
        return PackLock(*lock, &size, record);
    }
    TALSTATUS MkCol(SCHANDLE, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) override
    {
        if (const auto status = Note("MkCol", Narrow(path) + ", token=" + Narrow(token)))
            return *status;
        return owner.MakeCollection(Path(path));
    }
    TALSTATUS Move(SCHANDLE, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_LOCK_TOKEN* token, DAV_ERROR_ID*) override
    {
        if (const auto status = Note("Move", PairText(overwrite, depth, source, destination) +
                                                 ", token=" + Narrow(token)))
            return *status;
        return owner.MoveTree(overwrite, Path(source), Path(destination));
    }
};

Provider::Provider(Recorder& recorder, ProviderSpec spec)
    : recorder_(recorder), spec_(std::move(spec)), first_(std::make_unique<First>(*this)),
      second_(std::make_unique<Second>(*this)), third_(MakeNamespace3(*this)),
      uploadsFace_(MakeUploads3(*this))
{
    AddCollection("/" + spec_.name);
}

Provider::~Provider() = default;

Node& Provider::AddFile(const std::string& path, std::string content)
{
    const std::u16string wide = Wide(path);
    if (const std::u16string parent = Parent(wide); !parent.empty())
        AddCollection(Narrow(parent));
    Node& node = nodes_[wide];
    node.type = Resource;
    node.content = std::move(content);
    node.created = kStartDate;
    node.modified = kStartDate;
    return node;
}

Node& Provider::AddCollection(const std::string& path)
{
    const std::u16string wide = Wide(path);
    if (const auto found = nodes_.find(wide); found != nodes_.end())
        return found->second;
    if (const std::u16string parent = Parent(wide); !parent.empty())
        AddCollection(Narrow(parent));
    Node& node = nodes_[wide];
    node.type = Collection;
    node.created = kStartDate;
    node.modified = kStartDate;
    return node;
}

Node* Provider::Find(const std::string& path)
{
    return Find(Wide(path));
}

Node* Provider::Find(const std::u16string& path)
{
    const auto found = nodes_.find(path);
    return found == nodes_.end() ? nullptr : &found->second;
}

std::string Provider::Content(const std::string& path)
{
    const Node* node = Find(path);
    return node ? node->content : "(missing)";
}

std::vector<std::string> Provider::Paths() const
{
    std::vector<std::string> paths;
    for (const auto& [path, node] : nodes_)
        paths.push_back(Narrow(path) + (node.type == Collection ? "/" : ""));
    return paths;
}

void Provider::SetOrder(const std::string& collection, std::vector<std::string> names)
{
    auto& order = orders_[Wide(collection)];
    order.clear();
    for (const std::string& name : names)
        order.push_back(Wide(name));
}

TALSTATUS Provider::CreateObject(const GUID& iid, void** out)
{
    const auto make = [&](const char* what, auto create) -> TALSTATUS {
        if (const auto status = recorder_.Enter(Name("Create"), what))
            return *status;
        *out = create();
        return TAL_STATUS_SUCCESS;
    };
    *out = nullptr;
    const bool has1 = (spec_.generations & 1) != 0;
    const bool has2 = (spec_.generations & 2) != 0;
    if (iid == IID_KestDAV_2 && has2)
        return make("IKestDAV2", [&] {
            second_->AddRef();
            return static_cast<IKestDAV2*>(second_.get());
        });
    if (iid == IID_KestDAV_1 && has1)
        return make("IKestDAV", [&] {
            first_->AddRef();
            return static_cast<IKestDAV*>(first_.get());
        });
    if (iid == IID_KestResource_2 && has2)
        return make("IKestDAVResource2", [&] { return NewResource2(*this); });
    if (iid == IID_KestResource_1 && has1)
        return make("IKestDAVResource", [&] { return NewResource1(*this); });
    if (iid == IID_KestCollection_2 && has2)
        return make("IKestDAVCollection2", [&] { return NewCollection2(*this); });
    if (iid == IID_KestCollection_1 && has1)
        return make("IKestDAVCollection", [&] { return NewCollection1(*this); });
    return ProviderFailure(kCodeNoInterface);
}

} // namespace harness
