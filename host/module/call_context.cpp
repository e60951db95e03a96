// SPDX-License-Identifier: Apache-2.0
//
// The request of each thread, and the component that tells of it.
#include "host/module/call_context.h"

#include <utility>

#include "host/component.h"
#include <kest/host.h>
#include <kest/identifiers.h>
#include <kest/layout.h>
#include <kest/status.h>

namespace kestd {

namespace {

thread_local RunningCall* t_call = nullptr;

constexpr TALSTATUS kNoCall = HostFailure(kCodeNotFound);
constexpr TALSTATUS kNullArgument = HostFailure(kCodeInvalidParameter);
constexpr TALSTATUS kTooMany = HostFailure(kCodeInsufficientResources);
constexpr TALSTATUS kNoInterface = HostFailure(kCodeNoInterface);

// What the rules say for the running call. The object has no state, as that of the call's context.
class Access final : public IKestAccess {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!iid || !out)
            return kNullArgument;
        const bool isKnown = *iid == IID_KestAccess_1 || *iid == IID_IUnknown;
        *out = isKnown ? static_cast<IKestAccess*>(this) : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : kNoInterface;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }

    TALSTATUS IsRestricted(BOOLEAN* restricted) override
    {
        if (!restricted)
            return kNullArgument;
        *restricted = t_call && t_call->Access().IsRestricted();
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetRights(UINT32 length, const char* path, UINT32* rights) override
    {
        if (!path || !rights)
            return kNullArgument;
        *rights = t_call ? t_call->Access().At({path, length}) : kRightsAll;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetMemberRights(UINT32 length, const char* path, UINT32* rights,
                              BOOLEAN* uniform) override
    {
        if (!path || !rights || !uniform)
            return kNullArgument;
        bool isUniform = true;
        *rights = t_call ? t_call->Access().OfMembers({path, length}, isUniform) : kRightsAll;
        *uniform = isUniform;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetRightsBelow(UINT32 length, const char* path, UINT32* rights) override
    {
        if (!path || !rights)
            return kNullArgument;
        *rights = t_call ? t_call->Access().Below({path, length}) : kRightsAll;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS ReportDenied(UINT32 length, const char* path, UINT32 rights) override
    {
        if (!path)
            return kNullArgument;
        return AtBoundary([&] {
            if (t_call)
                t_call->Access().Deny({path, length}, rights);
            return TAL_STATUS_SUCCESS;
        });
    }
};

// The object has no state: every thread sees its own call through it, and one is enough.
class CallContext final : public IKestCallContext {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!iid || !out)
            return kNullArgument;
        if (*iid == IID_KestAccess_1) {
            *out = static_cast<IKestAccess*>(&access_);
            return TAL_STATUS_SUCCESS;
        }
        const bool isKnown = *iid == IID_KestCallContext_1 || *iid == IID_IUnknown;
        *out = isKnown ? static_cast<IKestCallContext*>(this) : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : kNoInterface;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }

    TALSTATUS GetRequest(IKestIO_5** request) override
    {
        if (!request)
            return kNullArgument;
        *request = t_call ? t_call->Request() : nullptr;
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }
    TALSTATUS GetMethod(UINT32* method) override
    {
        if (!method)
            return kNullArgument;
        *method = t_call ? t_call->Method() : static_cast<UINT32>(KestMethodUnknown);
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }
    TALSTATUS IsBodyComplete(BOOLEAN* complete) override
    {
        if (!complete)
            return kNullArgument;
        *complete = t_call && t_call->HasBodyArrived();
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }
    TALSTATUS ReportFailure(TALSTATUS failure) override
    {
        if (!t_call)
            return kNoCall;
        t_call->ReportFailure(failure);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS IsCancelled(BOOLEAN* cancelled) override
    {
        if (!cancelled)
            return kNullArgument;
        *cancelled = t_call && t_call->IsCancelled();
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }
    TALSTATUS SetAttachment(const GUID* key, IUnknown* object) override
    {
        if (!key)
            return kNullArgument;
        if (!t_call)
            return kNoCall;
        return t_call->attachments.Set(*key, object) ? TAL_STATUS_SUCCESS : kTooMany;
    }
    TALSTATUS GetAttachment(const GUID* key, IUnknown** object) override
    {
        if (!key || !object)
            return kNullArgument;
        *object = t_call ? t_call->attachments.Get(*key) : nullptr;
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }
    TALSTATUS GetConditions(KEST_CONDITIONS* conditions) override
    {
        if (!conditions)
            return kNullArgument;
        *conditions = t_call ? t_call->Conditions() : KEST_CONDITIONS{};
        return t_call ? TAL_STATUS_SUCCESS : kNoCall;
    }

  private:
    Access access_;
};

class Factory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (!iid || !out)
            return kNullArgument;
        const bool isKnown = *iid == IID_IClassFactory || *iid == IID_IUnknown;
        *out = isKnown ? static_cast<IClassFactory*>(this) : nullptr;
        return isKnown ? TAL_STATUS_SUCCESS : kNoInterface;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }

    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override
    {
        if (out)
            *out = nullptr;
        return outer ? kNullArgument : context_.QueryInterface(iid, out);
    }
    TALSTATUS LockServer(BOOLEAN) override { return TAL_STATUS_SUCCESS; }

  private:
    CallContext context_;
};

} // namespace

bool Attachments::Set(const GUID& key, IUnknown* object) noexcept
{
    if (object)
        object->AddRef();
    for (size_t i = 0; i < count_; ++i) {
        if (!(entries_[i].key == key))
            continue;
        IUnknown* const before = entries_[i].object;
        entries_[i] = object ? Entry{key, object} : entries_[--count_];
        before->Release();
        return true;
    }
    if (!object)
        return true;
    if (count_ == kMost) {
        object->Release();
        return false;
    }
    entries_[count_++] = {key, object};
    return true;
}

IUnknown* Attachments::Get(const GUID& key) const noexcept
{
    for (size_t i = 0; i < count_; ++i)
        if (entries_[i].key == key)
            return entries_[i].object;
    return nullptr;
}

// An object may tie another one while it goes.
void Attachments::ReleaseAll() noexcept
{
    while (count_)
        entries_[--count_].object->Release();
}

RunningCall* ExchangeRunningCall(RunningCall* call) noexcept
{
    return std::exchange(t_call, call);
}

CallScope::CallScope(RunningCall& call) noexcept : call_(call), before_(t_call)
{
    t_call = &call;
}

CallScope::~CallScope()
{
    call_.attachments.ReleaseAll();
    t_call = before_;
}

IClassFactory* CallContextFactory()
{
    static Factory factory;
    return &factory;
}

} // namespace kestd
