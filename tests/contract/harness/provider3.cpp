// SPDX-License-Identifier: Apache-2.0
//
// The third generation of scripted providers.
#include "provider3.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "judgement.h"
#include "records3.h"

namespace harness {

void Describe(const Node& node, DAV_OBJECT_INFO* info)
{
    if (!info)
        return;
    DAV_OBJECT_INFO all{};
    all.Type = node.type;
    all.Attributes = node.attributes;
    all.Flags = (node.locks.empty() ? 0 : kObjectHasLocks) |
                (node.properties.empty() && node.dead.empty() ? 0 : kObjectHasProperties);
    all.ResourceSize =
        node.type == Resource ? (node.sizeShown ? node.sizeShown : node.content.size()) : 0;
    all.CreationDate = node.created;
    all.ModificationDate = node.modified;
    const std::string tag = TagOf(node);
    all.Tag.Length = static_cast<UINT32>(std::min<size_t>(tag.size(), kTagBytes));
    std::memcpy(all.Tag.Text, tag.data(), all.Tag.Length);
    all.Size = info->Size; // of the caller's record, beyond which nothing is written
    std::memcpy(static_cast<void*>(info), &all, std::min<size_t>(all.Size, sizeof all));
}

namespace {

class Namespace3 final : public IKestDAV3 {
  public:
    explicit Namespace3(Provider& provider) : owner_(provider) {}
    virtual ~Namespace3() = default;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid == IidOf<IKestDAVUploads3>::value && owner_.HasUploads())
            return owner_.QueryUploads(out);
        if (*iid != IidOf<IKestDAV3>::value && *iid != IID_IUnknown)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<IKestDAV3*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override
    {
        const std::lock_guard lock(owner_.Mutex());
        return static_cast<UINT32>(++owner_.references_);
    }
    UINT32 Release() override
    {
        const std::lock_guard lock(owner_.Mutex());
        return static_cast<UINT32>(--owner_.references_);
    }

    TALSTATUS GetInfo(SCHANDLE, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override
    {
        if (const auto status = Note("GetInfo", Narrow(path)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(PathOf(path));
        if (!node)
            return ProviderFailure(kCodeNotFound);
        Describe(*node, info);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Judge(SCHANDLE, UNICODE_STRING* path, const DAV_PRECONDITIONS* conditions) override
    {
        if (const auto status = Note("Judge", Narrow(path), conditions))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        return Judgement(owner_, conditions, nullptr).Conditions(PathOf(path));
    }
    TALSTATUS MakeCollection(SCHANDLE, UNICODE_STRING* path, const DAV_PRECONDITIONS* conditions,
                             UINT32 count, DAV_PROPERTY_CHANGE*, IKestDAVFailures3* failures,
                             DAV_CHANGE* change) override
    {
        if (const auto status =
                Note("MakeCollection", Narrow(path) + ", properties=" + std::to_string(count),
                     conditions))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Judgement judgement(owner_, conditions, failures);
        const std::u16string name = PathOf(path);
        TALSTATUS status = judgement.Conditions(name);
        if (!Failed(status))
            status = judgement.Locks(name, true, false);
        if (!Failed(status))
            status = owner_.MakeCollection(name);
        return Failed(status) ? status : Tell(name, kOutcomeCreated, change);
    }
    TALSTATUS Delete(SCHANDLE, UNICODE_STRING* path, const DAV_PRECONDITIONS* conditions,
                     IKestDAVFailures3* failures) override
    {
        if (const auto status = Note("Delete", Narrow(path), conditions))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Judgement judgement(owner_, conditions, failures);
        const std::u16string name = PathOf(path);
        if (!owner_.Find(name))
            return ProviderFailure(kCodeNotFound);
        TALSTATUS status = judgement.Conditions(name);
        if (!Failed(status))
            status = judgement.Locks(name, true, true);
        if (!Failed(status))
            owner_.EraseTree(name);
        return status;
    }
    TALSTATUS Copy(SCHANDLE, UNICODE_STRING* source, UNICODE_STRING* destination, UINT32 flags,
                   const DAV_PRECONDITIONS* conditions, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return Relocate("Copy", source, destination, flags, conditions, failures, change);
    }
    TALSTATUS Move(SCHANDLE, UNICODE_STRING* source, UNICODE_STRING* destination, UINT32 flags,
                   const DAV_PRECONDITIONS* conditions, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return Relocate("Move", source, destination, flags, conditions, failures, change);
    }
    TALSTATUS PatchProperties(SCHANDLE, UNICODE_STRING* path, const DAV_PRECONDITIONS* conditions,
                              UINT32 count, DAV_PROPERTY_CHANGE* changes,
                              IKestDAVFailures3* failures, DAV_CHANGE* change) override
    {
        if (const auto status =
                Note("PatchProperties", Narrow(path) + ChangesText(count, changes), conditions))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Judgement judgement(owner_, conditions, failures);
        const std::u16string name = PathOf(path);
        Node* node = owner_.Find(name);
        TALSTATUS status = node ? judgement.Conditions(name) : ProviderFailure(kCodeNotFound);
        if (!Failed(status))
            status = judgement.Locks(name, false, false);
        if (!Failed(status))
            status = PatchNode(*node, count, changes, owner_.refusedProperty);
        return Failed(status) ? status : Tell(name, kOutcomeReplaced, change);
    }
    TALSTATUS GetProperties(SCHANDLE, UNICODE_STRING* path, UINT64* place, UINT32* size,
                            DAV_PROPERTY* buffer) override
    {
        if (const auto status = Note("GetProperties", Narrow(path)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(PathOf(path));
        return node ? PackProperties(*node, place, size, buffer) : ProviderFailure(kCodeNotFound);
    }
    TALSTATUS Lock(SCHANDLE, UNICODE_STRING* path, const DAV_LOCK_REQUEST* request,
                   const DAV_PRECONDITIONS* conditions, IKestDAVFailures3* failures, UINT32* size,
                   DAV_LOCK_INFO_3* lock, DAV_CHANGE* change) override
    {
        if (const auto status = Note("Lock", Narrow(path) + LockText(*request), conditions))
            return *status;
        const std::lock_guard guard(owner_.Mutex());
        const std::u16string name = PathOf(path);
        const Judgement judgement(owner_, conditions, failures);
        TALSTATUS status = judgement.Conditions(name);
        if (!Failed(status))
            status = Conflicts(name, *request, failures);
        const DAV_OUTCOME outcome = owner_.Find(name) ? kOutcomeReplaced : kOutcomeCreated;
        if (!Failed(status) && outcome == kOutcomeCreated && !owner_.Find(ParentOf(name)))
            status = ProviderFailure(kCodeConflict);
        if (Failed(status))
            return status;
        if (outcome == kOutcomeCreated)
            owner_.AddFile(Narrow(name));
        LockRecord made = {request->Type,    request->Scope,         request->Depth,
                           request->Timeout, TextOf(request->Owner), owner_.nextToken};
        owner_.Find(name)->locks.push_back(made);
        (void)Tell(name, outcome, change);
        return PackLock3(made, Narrow(name), size, lock);
    }
    TALSTATUS RefreshLock(SCHANDLE, UNICODE_STRING* path, INT64 timeout,
                          const DAV_PRECONDITIONS* conditions, UINT32* size,
                          DAV_LOCK_INFO_3* lock) override
    {
        if (const auto status = Note(
                "RefreshLock", Narrow(path) + ", timeout=" + std::to_string(timeout), conditions))
            return *status;
        const std::lock_guard guard(owner_.Mutex());
        const std::u16string name = PathOf(path);
        for (UINT32 i = 0; i < conditions->TokenCount; ++i)
            if (const auto [root, held] = Covering(name, TextOf(conditions->Tokens[i])); held) {
                held->timeout = timeout;
                return PackLock3(*held, Narrow(root), size, lock);
            }
        return ProviderFailure(kCodePreconditionFailed);
    }
    TALSTATUS Unlock(SCHANDLE, UNICODE_STRING* path, const DAV_TEXT* token,
                     const DAV_PRECONDITIONS* conditions) override
    {
        if (const auto status =
                Note("Unlock", Narrow(path) + ", token=" + TextOf(*token), conditions))
            return *status;
        const std::lock_guard guard(owner_.Mutex());
        const auto [root, held] = Covering(PathOf(path), TextOf(*token));
        if (!held)
            return ProviderFailure(kCodeNotFound);
        if (const TALSTATUS status =
                Judgement(owner_, conditions, nullptr).Conditions(PathOf(path));
            Failed(status))
            return status;
        auto& locks = owner_.Find(root)->locks;
        locks.erase(locks.begin() + (held - locks.data()));
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetLocks(SCHANDLE, UNICODE_STRING* path, UINT64* place, UINT32* size,
                       DAV_LOCK_INFO_3* buffer) override
    {
        if (const auto status = Note("GetLocks", Narrow(path)))
            return *status;
        const std::lock_guard guard(owner_.Mutex());
        const std::u16string name = PathOf(path);
        UINT64 at = 0;
        TALSTATUS result = ProviderFailure(kCodeNoMoreEntries);
        owner_.EachNode([&](const std::u16string& root, const Node& node) {
            for (const LockRecord& each : node.locks)
                if ((root == name || (each.depth == -1 && IsIn(name, root))) && at++ == *place)
                    result = PackLock3(each, Narrow(root), size, buffer);
        });
        *place += Failed(result) ? 0 : 1;
        return result;
    }
    TALSTATUS GetQuota(SCHANDLE, UNICODE_STRING* path, DAV_QUOTA* quota) override
    {
        if (const auto status = Note("GetQuota", Narrow(path)))
            return *status;
        if (owner_.quotaAvailable == 0)
            return ProviderFailure(kCodeNotImplemented);
        quota->Used = owner_.quotaUsed;
        quota->Available = owner_.quotaAvailable;
        return TAL_STATUS_SUCCESS;
    }

  private:
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments)
    {
        return owner_.Log().Enter(owner_.Name("3.") + operation, arguments);
    }
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments,
                                  const DAV_PRECONDITIONS* conditions)
    {
        return Note(operation, arguments + ", " + PreconditionsText(conditions));
    }
    // The lock of a token that covers a path, and its root.
    std::pair<std::u16string, LockRecord*> Covering(const std::u16string& path,
                                                    const std::string& token)
    {
        std::u16string found;
        owner_.EachNode([&](const std::u16string& root, const Node& node) {
            for (const LockRecord& each : node.locks)
                if (each.token == token && (root == path || (each.depth == -1 && IsIn(path, root))))
                    found = root;
        });
        if (found.empty())
            return {};
        for (LockRecord& each : owner_.Find(found)->locks)
            if (each.token == token)
                return {found, &each};
        return {};
    }
    TALSTATUS Conflicts(const std::u16string& path, const DAV_LOCK_REQUEST& request,
                        IKestDAVFailures3* failures)
    {
        TALSTATUS result = TAL_STATUS_SUCCESS;
        owner_.EachNode([&](const std::u16string& root, const Node& node) {
            for (const LockRecord& each : node.locks) {
                const bool meets = root == path || (each.depth == -1 && IsIn(path, root)) ||
                                   (request.Depth == -1 && IsIn(root, path));
                if (!meets || (each.scope == Shared && request.Scope == Shared))
                    continue;
                result = ProviderFailure(kCodeLocked);
                std::u16string text = root;
                UNICODE_STRING told = Counted(text);
                if (failures)
                    (void)failures->OnFailure(&told, result);
            }
        });
        return result;
    }
    TALSTATUS Tell(const std::u16string& path, DAV_OUTCOME outcome, DAV_CHANGE* change)
    {
        if (change) {
            change->Outcome = outcome;
            Describe(*owner_.Find(path), &change->Info);
        }
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Relocate(const char* operation, UNICODE_STRING* source, UNICODE_STRING* destination,
                       UINT32 flags, const DAV_PRECONDITIONS* conditions,
                       IKestDAVFailures3* failures, DAV_CHANGE* change)
    {
        const std::string how = std::string(flags & kRelocateOverwrite ? ", overwrite" : ", keep") +
                                (flags & kRelocateShallow ? ", shallow" : "");
        if (const auto status =
                Note(operation, Narrow(source) + ", " + Narrow(destination) + how, conditions))
            return *status;
        const bool isMove = std::strcmp(operation, "Move") == 0;
        const std::lock_guard lock(owner_.Mutex());
        const std::u16string from = PathOf(source);
        const std::u16string to = PathOf(destination);
        const Judgement judgement(owner_, conditions, failures);
        if (!owner_.Find(from))
            return ProviderFailure(kCodeNotFound);
        if (IsIn(from, to) || IsIn(to, from))
            return ProviderFailure(kCodeAccessDenied);
        TALSTATUS status = judgement.Conditions(from);
        if (!Failed(status) && isMove)
            status = judgement.Locks(from, true, true);
        if (!Failed(status))
            status = judgement.Locks(to, true, true);
        const bool existed = owner_.Find(to) != nullptr;
        if (!Failed(status))
            status = owner_.CopyTree((flags & kRelocateOverwrite) != 0, from, to);
        if (Failed(status))
            return status;
        if (flags & kRelocateShallow)
            for (const std::u16string& name : owner_.Children(to))
                owner_.EraseTree(to + u"/" + name);
        if (isMove)
            owner_.EraseTree(from);
        owner_.EachNode([&](const std::u16string& path, Node& node) {
            if (IsIn(path, to))
                node.locks.clear(); // RFC 4918 section 7.6
        });
        return Tell(to, existed ? kOutcomeReplaced : kOutcomeCreated, change);
    }

    Provider& owner_;
};

} // namespace

std::shared_ptr<IKestDAV3> MakeNamespace3(Provider& provider)
{
    return std::make_shared<Namespace3>(provider);
}

std::string TagOf(const Node& node)
{
    return node.tag.empty() ? "\"v" + std::to_string(node.version) + "\"" : node.tag;
}

std::string PreconditionsText(const DAV_PRECONDITIONS* preconditions)
{
    if (!preconditions)
        return "null";
    std::string text;
    const auto add = [&](const char* name, const std::string& value) {
        if (!value.empty())
            text += (text.empty() ? "" : "; ") + std::string(name) + "=" + value;
    };
    add("match", TextOf(preconditions->Match));
    add("none-match", TextOf(preconditions->NoneMatch));
    if (preconditions->UnmodifiedSince)
        add("since", std::to_string(UnixSeconds(preconditions->UnmodifiedSince)));
    if (preconditions->IfCount)
        add("if", std::to_string(preconditions->IfCount));
    std::string tokens;
    for (UINT32 i = 0; i < preconditions->TokenCount; ++i)
        tokens += (tokens.empty() ? "" : ",") + TextOf(preconditions->Tokens[i]);
    add("tokens", tokens);
    return text.empty() ? "-" : text;
}

} // namespace harness
