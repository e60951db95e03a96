// SPDX-License-Identifier: Apache-2.0
//
// Metadata over other ones that fail where a test says so.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "providers/filestore/failures.h"
#include "providers/filestore/metadata.h"

namespace filestore {

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
    bool Count(UINT64 now, UINT64 most, Amounts* out) override
    {
        return judge_("meta Count") == 0 && real_->Count(now, most, out);
    }
    void RecountFlags() override { real_->RecountFlags(); }
    void Checkpoint() override { real_->Checkpoint(); }

  private:
    const std::unique_ptr<Metadata> real_;
    const FailingSession::Judge judge_;
    int* const transactions_;
};

} // namespace filestore
