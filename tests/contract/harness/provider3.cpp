// SPDX-License-Identifier: Apache-2.0
//
// The third generation of scripted providers.
#include "provider3.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "records3.h"
#include "text.h"

namespace harness {

namespace {

constexpr DAV_DATETIME kChangeDate = Ticks(1769864400); // 2026-01-31T13:00:00Z

std::u16string PathOf(const UNICODE_STRING* path)
{
    std::u16string text(path->Buffer, path->Length / sizeof(WCHAR));
    return text == u"/" ? std::u16string() : text;
}

std::u16string ParentOf(const std::u16string& path)
{
    const size_t slash = path.rfind(u'/');
    return slash == std::u16string::npos ? std::u16string() : path.substr(0, slash);
}

bool IsIn(const std::u16string& path, const std::u16string& tree)
{
    return path == tree || (path.starts_with(tree) && path[tree.size()] == u'/');
}

std::string TextOf(const DAV_TEXT& text)
{
    return {text.Text ? text.Text : "", text.Length};
}

} // namespace

void Describe(const Node& node, DAV_OBJECT_INFO* info)
{
    if (!info)
        return;
    info->Type = node.type;
    info->Attributes = node.attributes;
    info->Flags = (node.locks.empty() ? 0 : kObjectHasLocks) |
                  (node.properties.empty() && node.dead.empty() ? 0 : kObjectHasProperties);
    info->ResourceSize =
        node.type == Resource ? (node.sizeShown ? node.sizeShown : node.content.size()) : 0;
    info->CreationDate = node.created;
    info->ModificationDate = node.modified;
    const std::string tag = TagOf(node);
    info->Tag.Length = static_cast<UINT32>(std::min<size_t>(tag.size(), kTagBytes));
    std::memcpy(info->Tag.Text, tag.data(), info->Tag.Length);
}

namespace {

// Judges preconditions and locks of one request.
class Judgement {
  public:
    Judgement(Provider& provider, const DAV_PRECONDITIONS* preconditions,
              IKestDAVFailures3* failures)
        : provider_(provider), preconditions_(preconditions), failures_(failures)
    {
    }

    TALSTATUS Conditions(const std::u16string& path) const
    {
        if (!preconditions_)
            return TAL_STATUS_SUCCESS;
        const Node* node = provider_.Find(path);
        const std::string match = TextOf(preconditions_->Match);
        const std::string noneMatch = TextOf(preconditions_->NoneMatch);
        bool holds = true;
        if (!match.empty())
            holds = node && (match == "*" || match.find(TagOf(*node)) != std::string::npos);
        else if (node && preconditions_->UnmodifiedSince)
            holds = node->modified <= preconditions_->UnmodifiedSince;
        if (node && !noneMatch.empty())
            holds = holds && noneMatch != "*" && noneMatch.find(TagOf(*node)) == std::string::npos;
        return holds && HoldsIf(path) ? TAL_STATUS_SUCCESS
                                      : ProviderFailure(kCodePreconditionFailed);
    }

    // `isMember`: the name comes or goes. `isTree`: everything below is concerned, too.
    TALSTATUS Locks(const std::u16string& path, bool isMember, bool isTree) const
    {
        TALSTATUS result = TAL_STATUS_SUCCESS;
        provider_.EachNode([&](const std::u16string& root, const Node& node) {
            for (const LockRecord& lock : node.locks) {
                const bool covers = root == path || (isTree && IsIn(root, path)) ||
                                    (lock.depth == -1 && IsIn(path, root)) ||
                                    (isMember && root == ParentOf(path));
                if (!covers || HasToken(lock.token))
                    continue;
                result = ProviderFailure(kCodeLocked);
                std::u16string text = root;
                UNICODE_STRING told = Counted(text);
                if (failures_)
                    (void)failures_->OnFailure(&told, result);
                return;
            }
        });
        return result;
    }

  private:
    bool HasToken(const std::string& token) const
    {
        if (!preconditions_)
            return false;
        for (UINT32 i = 0; i < preconditions_->TokenCount; ++i)
            if (TextOf(preconditions_->Tokens[i]) == token)
                return true;
        return false;
    }
    bool HoldsIf(const std::u16string& path) const
    {
        bool any = preconditions_->IfCount == 0;
        for (UINT32 i = 0; i < preconditions_->IfCount; ++i) {
            const DAV_IF_LIST& list = preconditions_->If[i];
            const std::u16string about = list.Path.Length ? Wide(TextOf(list.Path)) : path;
            bool all = true;
            for (UINT32 j = 0; j < list.Count; ++j)
                all = all && HoldsCondition(about, list.Conditions[j]);
            any = any || all;
        }
        return any;
    }
    bool HoldsCondition(const std::u16string& path, const DAV_IF_CONDITION& condition) const
    {
        const std::string value = TextOf(condition.Value);
        const Node* node = provider_.Find(path);
        bool holds = false;
        if (condition.Kind == kIfTag)
            holds = node && TagOf(*node) == value;
        else if (condition.Kind == kIfToken)
            provider_.EachNode([&](const std::u16string& root, const Node& each) {
                for (const LockRecord& lock : each.locks)
                    holds = holds || (lock.token == value &&
                                      (root == path || (lock.depth == -1 && IsIn(path, root))));
            });
        return holds != (condition.Negated != FALSE);
    }

    Provider& provider_;
    const DAV_PRECONDITIONS* preconditions_;
    IKestDAVFailures3* failures_;
};

class Namespace3 final : public IKestDAV3 {
  public:
    explicit Namespace3(Provider& provider) : owner_(provider) {}
    virtual ~Namespace3() = default;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
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

class Resource3 final : public IKestDAVResource3 {
  public:
    explicit Resource3(Provider& provider) : owner_(provider)
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(1);
    }
    virtual ~Resource3()
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(-1);
    }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<IKestDAVResource3>::value && *iid != IID_IUnknown)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<IKestDAVResource3*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override
    {
        const UINT32 left = --references_;
        if (left == 0)
            delete this;
        return left;
    }

    TALSTATUS Open(SCHANDLE, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                   const DAV_PRECONDITIONS* conditions, IKestDAVFailures3* failures,
                   DAV_OBJECT_INFO* info) override
    {
        constexpr const char* kPurposes[] = {"read", "replace", "modify"};
        const std::string size = expected < 0 ? "?" : std::to_string(expected);
        std::string arguments = Narrow(path) + ", " + kPurposes[purpose];
        if (purpose != kOpenRead)
            arguments += ", " + size + ", " + PreconditionsText(conditions);
        if (const auto status = Note("Open", arguments))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        path_ = PathOf(path);
        purpose_ = purpose;
        if (purpose != kOpenRead)
            preconditions_ = conditions;
        const Node* node = owner_.Find(path_);
        if (!node && purpose != kOpenReplace)
            return ProviderFailure(kCodeNotFound);
        if (node)
            Describe(*node, info);
        if (purpose != kOpenRead) {
            if (const TALSTATUS status = JudgeChange(failures); Failed(status))
                return status;
            content_ = purpose == kOpenModify ? node->content : std::string();
        } else if (node->type == Resource) {
            content_ = node->content;
        }
        isOpen_ = true;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override
    {
        *read = 0;
        if (const auto status =
                Note("Read", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        if (owner_.onRead)
            owner_.onRead(Narrow(path_), offset);
        if (!isOpen_ || offset > content_.size())
            return TAL_STATUS_SUCCESS;
        size_t bytes = std::min<size_t>(length, content_.size() - offset);
        if (owner_.readLimit)
            bytes = std::min<size_t>(bytes, owner_.readLimit);
        std::memcpy(buffer, content_.data() + offset, bytes);
        *read = static_cast<UINT32>(bytes);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) override
    {
        if (const auto status =
                Note("Write", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        if (!isOpen_ || purpose_ == kOpenRead)
            return ProviderFailure(kCodeInvalidParameter);
        if (content_.size() < offset + length)
            content_.resize(offset + length);
        content_.replace(offset, length, buffer, length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SetLength(UINT64 length) override
    {
        if (const auto status = Note("SetLength", std::to_string(length)))
            return *status;
        content_.resize(length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME, IKestDAVFailures3* failures,
                      DAV_CHANGE* change) override
    {
        if (const auto status = Note("Publish", modified ? "dated" : ""))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        if (!isOpen_ || purpose_ == kOpenRead)
            return ProviderFailure(kCodeInvalidParameter);
        isOpen_ = false;
        if (const TALSTATUS status = JudgeChange(failures); Failed(status))
            return status;
        const bool existed = owner_.Find(path_) != nullptr;
        Node& node = existed ? *owner_.Find(path_) : owner_.AddFile(Narrow(path_));
        node.content = content_;
        node.modified = modified ? modified : kChangeDate;
        node.version += existed ? 1 : 0;
        change->Outcome = existed ? kOutcomeReplaced : kOutcomeCreated;
        Describe(node, &change->Info);
        return TAL_STATUS_SUCCESS;
    }

  private:
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments)
    {
        return owner_.Log().Enter(owner_.Name("res3.") + operation, arguments);
    }
    TALSTATUS JudgeChange(IKestDAVFailures3* failures)
    {
        const Node* node = owner_.Find(path_);
        if (node && node->type == Collection)
            return ProviderFailure(kCodeMethodNotAllowed);
        if (!owner_.Find(ParentOf(path_)))
            return ProviderFailure(kCodeConflict);
        const Judgement judgement(owner_, preconditions_, failures);
        const TALSTATUS status = judgement.Conditions(path_);
        return Failed(status) ? status : judgement.Locks(path_, node == nullptr, false);
    }

    Provider& owner_;
    UINT32 references_ = 1;
    std::u16string path_;
    std::string content_;
    UINT32 purpose_ = kOpenRead;
    const DAV_PRECONDITIONS* preconditions_ = nullptr;
    bool isOpen_ = false;
};

} // namespace

std::shared_ptr<IKestDAV3> MakeNamespace3(Provider& provider)
{
    return std::make_shared<Namespace3>(provider);
}

IKestDAVResource3* NewResource3(Provider& provider)
{
    return new Resource3(provider);
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
