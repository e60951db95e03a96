// SPDX-License-Identifier: Apache-2.0
//
// Which locks stand in the way of a change, and which tokens open them.
#include "providers/filestore/guard.h"

#include <algorithm>
#include <map>
#include <new>
#include <span>
#include <utility>

#include <kest/com.h>
#include <kest/host.h>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/ifheader.h"
#include "providers/filestore/names.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

// Answers for the resources that the conditions name. Paths come with the module's location, as the
// request spells it; what lies elsewhere is nothing that this store knows.
class ResourceState final : public IfState {
  public:
    // `hasWeakTags`: some files have none that could be compared.
    ResourceState(const Store& store, std::string_view location, bool hasWeakTags)
        : store_(store), location_(location), hasWeakTags_(hasWeakTags)
    {
    }
    bool HasLock(std::string_view path, std::string_view token) override
    {
        Target target;
        std::unique_ptr<MetadataSession> session;
        std::vector<LockRecord> locks;
        if (!Locate(path, &target) || !target.volume->MayHaveLocks() ||
            !IsKnown(Store::OpenMetadata(*target.volume, &session)) ||
            !IsKnown(CoveringLocks(*session, target.path.View(), store_.Now(), &locks)))
            return false;
        return std::any_of(locks.begin(), locks.end(),
                           [&](const LockRecord& lock) { return lock.token == token; });
    }
    bool HasEntityTag(std::string_view path, std::string_view entityTag) override
    {
        Target target;
        OpenFile file;
        FileInfo info;
        return Locate(path, &target) &&
               IsKnown(store_.OpenExisting(&target, OpenFor::Locating, &file, &info)) &&
               (!hasWeakTags_ || HasStrongTag(info, store_.Now())) &&
               ETagText(ETagOf(info)) == entityTag;
    }
    // Why an answer was not to be had: then none of them counts.
    TALSTATUS Status() const { return failure_; }

  private:
    bool Locate(std::string_view path, Target* out)
    {
        if (!path.starts_with(location_))
            return false;
        path.remove_prefix(location_.size());
        return path.starts_with('/') && IsKnown(store_.Locate(path, out)) && !out->IsRoot();
    }
    // False for what is not there, and for what cannot be told.
    bool IsKnown(TALSTATUS status)
    {
        if (Failed(status) && Code(status) != kCodeNotFound && Code(status) != kCodeNameTooLong)
            failure_ = status;
        return !Failed(status);
    }
    const Store& store_;
    const std::string_view location_;
    const bool hasWeakTags_;
    TALSTATUS failure_ = TAL_STATUS_SUCCESS;
};

std::string SignedInUser(SCHANDLE handle)
{
    Ref<IKestSession> session;
    UNICODE_STRING* name = nullptr;
    UNICODE_STRING* domain = nullptr;
    TALSTATUS status = Create(CLSID_KestSrv, session);
    if (!Failed(status))
        status = session->Associate(handle);
    if (!Failed(status))
        status = session->GetPrimaryCredentials(&name, &domain);
    if (Code(status) == kCodeInsufficientResources)
        throw std::bad_alloc(); // who it is is not known
    if (Failed(status))
        return {}; // the local user has no directory name
    return Utf8Of(name) + "@" + Utf8Of(domain);
}

} // namespace

Guard::Guard(const Store& store, SCHANDLE session, const DAV_LOCK_TOKEN* token)
    : store_(store), session_(session)
{
    if (token && token->Buffer && token->Length)
        tokens_.emplace_back(token->Buffer, token->Length);
    std::string text;
    if (!call::Header("If", &text))
        return;
    header_ = std::move(text);
    if (const std::optional<IfHeader> parsed = IfHeader::Parse(*header_))
        for (const std::string_view given : parsed->SubmittedTokens())
            tokens_.emplace_back(given);
}

namespace {

IfCondition ConditionOf(const DAV_IF_CONDITION& given)
{
    constexpr IfCondition::Kind kKinds[] = {
        IfCondition::Kind::LockToken, IfCondition::Kind::EntityTag, IfCondition::Kind::OtherToken};
    IfCondition out;
    out.negated = given.Negated != FALSE;
    out.kind = kKinds[std::min(given.Kind, kIfNever)];
    out.value.assign(given.Value.Length ? given.Value.Text : "", given.Value.Length);
    return out;
}

} // namespace

Guard::Guard(const Store& store, SCHANDLE session, const Target& own,
             const DAV_PRECONDITIONS& preconditions)
    : store_(store), session_(session), given_(&preconditions), ownVolume_(own.volume),
      own_(own.path.View())
{
    for (UINT32 i = 0; i < preconditions.TokenCount; ++i)
        if (preconditions.Tokens[i].Length)
            tokens_.emplace_back(preconditions.Tokens[i].Text, preconditions.Tokens[i].Length);
    if (!preconditions.IfCount)
        return;
    std::vector<IfList> lists;
    for (const DAV_IF_LIST& given : std::span(preconditions.If, preconditions.IfCount)) {
        IfList list;
        if (given.Path.Length)
            list.resource.emplace(given.Path.Text, given.Path.Length);
        for (UINT32 i = 0; i < given.Count; ++i)
            list.conditions.push_back(ConditionOf(given.Conditions[i]));
        lists.push_back(std::move(list));
    }
    lists_ = IfHeader::Of(std::move(lists));
}

Conditions Guard::On(const Volume& volume, std::string_view path) const
{
    if (!given_)
        return Conditions::Of(volume, path);
    return &volume == ownVolume_ && path == own_ ? Conditions::From(*given_, store_.Now())
                                                 : Conditions();
}

TALSTATUS Guard::CheckConditions() const
{
    if (lists_) {
        ResourceState state(store_, {}, true);
        const bool isMet =
            lists_->Evaluate(ownVolume_ ? ProviderPath(*ownVolume_, own_) : "/", state);
        if (Failed(state.Status()))
            return state.Status();
        return isMet ? TAL_STATUS_SUCCESS : Failure(kCodePreconditionFailed);
    }
    if (!header_ || call::Method() == KestMethodPost)
        return TAL_STATUS_SUCCESS;
    const std::optional<IfHeader> parsed = IfHeader::Parse(*header_);
    if (!parsed)
        return Failure(kCodeInvalidRequest);
    const std::string path = call::Path();
    ResourceState state(store_, std::string_view(path).substr(0, ModulePath().size()), false);
    const bool isMet = parsed->Evaluate(path, state);
    if (Failed(state.Status()))
        return state.Status();
    return isMet ? TAL_STATUS_SUCCESS : Failure(kCodePreconditionFailed);
}

const std::string& Guard::User() const
{
    if (!user_)
        user_ = SignedInUser(session_);
    return *user_;
}

// Of the locks on one object one must be opened: an exclusive one is alone, and of shared ones each
// holder has its own.
bool Guard::HasRequiredToken(const std::vector<const LockRecord*>& locks) const
{
    return std::any_of(locks.begin(), locks.end(), [&](const LockRecord* lock) {
        return std::find(tokens_.begin(), tokens_.end(), lock->token) != tokens_.end() &&
               lock->creator == User();
    });
}

void Guard::NoteRefusal(const Volume& volume, std::string_view lockRoot) const
{
    constexpr size_t kMost = 1000;
    if (given_ && refusing_.size() < kMost)
        refusing_.push_back(ProviderPath(volume, lockRoot));
}

TALSTATUS Guard::CheckLocks(const Volume& volume, MetadataSession& session, std::string_view path,
                            Reach reach) const
{
    refusing_.clear();
    if (!volume.MayHaveLocks()) // in a transaction the answer is exact
        return TAL_STATUS_SUCCESS;
    const UINT64 now = store_.Now();
    std::vector<LockRecord> locks;
    TALSTATUS status = CoveringLocks(session, path, now, &locks);
    if (!Failed(status) && reach != Reach::Self && !path.empty())
        status = session.LocksAt(ParentOf(path), now, &locks);
    if (!Failed(status) && reach == Reach::Tree)
        status = session.LocksWithin(path, now, &locks);
    if (Failed(status))
        return status;
    std::map<std::string_view, std::vector<const LockRecord*>> byObject;
    for (const LockRecord& lock : locks)
        byObject[lock.path].push_back(&lock);
    status = TAL_STATUS_SUCCESS;
    for (const auto& [object, on] : byObject)
        if (!HasRequiredToken(on)) {
            status = Failure(kCodeLocked);
            NoteRefusal(volume, object);
        }
    return status;
}

TALSTATUS Guard::CheckLocks(const Volume& volume, std::string_view path, Reach reach) const
{
    if (!volume.MayHaveLocks())
        return TAL_STATUS_SUCCESS;
    std::unique_ptr<MetadataSession> session;
    if (const TALSTATUS status = Store::OpenMetadata(volume, &session); Failed(status))
        return status;
    return CheckLocks(volume, *session, path, reach);
}

TALSTATUS CoveringLocks(MetadataSession& session, std::string_view path, UINT64 now,
                        std::vector<LockRecord>* out)
{
    if (const TALSTATUS status = session.LocksAt(path, now, out); Failed(status))
        return status;
    while (!path.empty()) {
        path = ParentOf(path);
        std::vector<LockRecord> above;
        if (const TALSTATUS status = session.LocksAt(path, now, &above); Failed(status))
            return status;
        for (LockRecord& lock : above)
            if (lock.depth != 0)
                out->push_back(std::move(lock));
    }
    return TAL_STATUS_SUCCESS;
}

std::string ProviderPath(const Volume& volume, std::string_view path)
{
    std::string out = "/" + volume.Name();
    if (!path.empty())
        out.append("/").append(path);
    return out;
}

} // namespace filestore
