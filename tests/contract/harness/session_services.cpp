// SPDX-License-Identifier: Apache-2.0
//
// The scripted services that keep things for sessions: attributes and objects.
#include "services.h"

#include <algorithm>
#include <cstring>

#include "host_failure.h"
#include "text.h"

namespace harness {

// -- Session attributes.

void AttributeService::EndSession(int number)
{
    bool has = false;
    {
        const std::lock_guard lock(mutex_);
        has = held_.contains(Key(SessionHandle(number)));
    }
    if (has && cleanup_)
        cleanup_(SessionHandle(number));
}

void* AttributeService::Data(int number)
{
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(Key(SessionHandle(number)));
    return found == held_.end() ? nullptr : found->second->data.data();
}

TALSTATUS AttributeService::SARegisterAttribute(const GUID* id, UINT32 size,
                                                SA_CLEANUP_CALLBACK cleanup, SA_FREE_CALLBACK,
                                                HANDLE* registration)
{
    if (const auto status =
            recorder_.Enter("sa.SARegisterAttribute",
                            std::string(*id == KESTDAV_SESSION_ATTRIBUTE ? "kestdav" : "?") + ", " +
                                std::to_string(size)))
        return *status;
    size_ = size;
    cleanup_ = cleanup;
    *registration = this;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADeregisterAttribute(HANDLE)
{
    return NotScripted(recorder_, "sa.SADeregisterAttribute");
}
TALSTATUS AttributeService::SACreate(SCHANDLE session, HANDLE registration, void* data,
                                     SA_INIT_CALLBACK init, UINT32 createMode, UINT32 openMode,
                                     Attribute** out, UINT32* mode)
{
    if (const auto status = recorder_.Enter(
            "sa.SACreate", "session=" + std::to_string(Key(session)) + ", " +
                               std::to_string(createMode) + ", " + std::to_string(openMode)))
        return *status;
    if (registration != this)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    auto& held = held_[Key(session)];
    *mode = held ? openMode : createMode;
    if (!held) {
        held = std::make_unique<Held>();
        held->data.resize((size_ + 7) / 8);
        held->attribute = {session, held->data.data()};
        if (const TALSTATUS status = init(&held->attribute, data); Failed(status)) {
            held_.erase(Key(session));
            return status;
        }
    }
    ++referenced_;
    *out = &held->attribute;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADelete(UINT32 mode, Attribute* attribute)
{
    if (const auto status = recorder_.Enter("sa.SADelete", std::to_string(mode)))
        return *status;
    const std::lock_guard lock(mutex_);
    --referenced_;
    held_.erase(Key(attribute->hSC));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                                        Attribute** out)
{
    if (const auto status = recorder_.Enter("sa.SAReference", std::to_string(mode)))
        return *status;
    if (registration != this)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(Key(session));
    if (found == held_.end())
        return HostFailure(kCodeNotFound);
    ++referenced_;
    *out = &found->second->attribute;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADereference(UINT32 mode, Attribute*)
{
    --referenced_;
    return recorder_.Enter("sa.SADereference", std::to_string(mode)).value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SAGetSCHandle(Attribute* attribute, SCHANDLE* session)
{
    *session = attribute->hSC;
    return recorder_.Enter("sa.SAGetSCHandle").value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SAEnumerate(SCHANDLE, UINT32, GUID*)
{
    return NotScripted(recorder_, "sa.SAEnumerate");
}
TALSTATUS AttributeService::SAAcquire(UINT32 mode, Attribute*)
{
    return recorder_.Enter("sa.SAAcquire", std::to_string(mode)).value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SARelease(Attribute*)
{
    return recorder_.Enter("sa.SARelease").value_or(TAL_STATUS_SUCCESS);
}

// -- Object store.

size_t ObjectService::Objects(int session) const
{
    const std::lock_guard lock(mutex_);
    const auto found = objects_.find(Key(SessionHandle(session)));
    return found == objects_.end() ? 0 : found->second.size();
}

TALSTATUS ObjectService::Initialize(const GUID* owner, UINT32 size, UINT16 version, UINT32 flags,
                                    UINT32 buckets, SC_DESTRUCTOR destructor,
                                    SC_CONSTRUCTOR constructor, SC_SESSION_CLEANUP cleanup,
                                    UINT32 options)
{
    const auto present = [](bool is) { return is ? "set" : "null"; };
    if (const auto status = recorder_.Enter(
            "om.Initialize", std::string(*owner == KESTDAV_MODULE_ID ? "module" : "?") + ", " +
                                 std::to_string(version) + ", " + std::to_string(flags) + ", " +
                                 std::to_string(buckets) + ", " + present(destructor) + ", " +
                                 present(constructor) + ", " + present(cleanup) + ", " +
                                 std::to_string(options)))
        return *status;
    size_ = size;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS ObjectService::CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor,
                                      void* key, SC_COMPARE compare, UINT32 flags, UINT32 options,
                                      UINT32 reference, void** object, UINT32* mode)
{
    if (const auto status = recorder_.Enter(
            "om.CreateObject", Narrow(static_cast<UNICODE_STRING*>(key)) + ", " +
                                   std::to_string(flags) + ", " + std::to_string(options) + ", " +
                                   std::to_string(reference)))
        return *status;
    const std::lock_guard lock(mutex_);
    auto& held = objects_[Key(session)];
    for (const auto& candidate : held)
        if (compare(candidate.get(), key)) {
            ++referenced_;
            *object = candidate.get();
            *mode = kObjectExisted;
            return TAL_STATUS_SUCCESS;
        }
    auto made = std::make_unique<UINT64[]>((size_ + 7) / 8);
    if (const TALSTATUS status = constructor(made.get(), initData); Failed(status))
        return status;
    ++referenced_;
    *object = made.get();
    *mode = kObjectCreated;
    held.push_back(std::move(made));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS ObjectService::FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32 flags,
                                    UINT32 reference, void** object)
{
    if (const auto status = recorder_.Enter(
            "om.FindObject", Narrow(static_cast<UNICODE_STRING*>(key)) + ", " +
                                 std::to_string(flags) + ", " + std::to_string(reference)))
        return *status;
    const std::lock_guard lock(mutex_);
    for (const auto& candidate : objects_[Key(session)])
        if (compare(candidate.get(), key)) {
            ++referenced_;
            *object = candidate.get();
            return TAL_STATUS_SUCCESS;
        }
    return HostFailure(kCodeNotFound);
}
TALSTATUS ObjectService::DereferenceObject(void*, UINT32 reference)
{
    --referenced_;
    return recorder_.Enter("om.DereferenceObject", std::to_string(reference))
        .value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS ObjectService::DeleteObject(void*)
{
    return NotScripted(recorder_, "om.DeleteObject");
}
TALSTATUS ObjectService::ReferenceObjectByHandle(HANDLE, void**)
{
    return NotScripted(recorder_, "om.ReferenceObjectByHandle");
}
TALSTATUS ObjectService::EnumerateObjects(SCHANDLE, UINT32, void**)
{
    return NotScripted(recorder_, "om.EnumerateObjects");
}
TALSTATUS ObjectService::GetObjectHandle(void*, HANDLE*)
{
    return NotScripted(recorder_, "om.GetObjectHandle");
}
TALSTATUS ObjectService::AcquireObject(void*)
{
    return NotScripted(recorder_, "om.AcquireObject");
}
TALSTATUS ObjectService::ReleaseObject(void*)
{
    return NotScripted(recorder_, "om.ReleaseObject");
}
TALSTATUS ObjectService::IncrementReference(void*)
{
    return NotScripted(recorder_, "om.IncrementReference");
}
TALSTATUS ObjectService::DecrementReference(void*)
{
    return NotScripted(recorder_, "om.DecrementReference");
}
TALSTATUS ObjectService::GetObjectSecurityContext(void*, SCHANDLE*)
{
    return NotScripted(recorder_, "om.GetObjectSecurityContext");
}
TALSTATUS ObjectService::AllocateObject(void**)
{
    return NotScripted(recorder_, "om.AllocateObject");
}
TALSTATUS ObjectService::DeallocateObject(void*)
{
    return NotScripted(recorder_, "om.DeallocateObject");
}
TALSTATUS ObjectService::OpenObject(SCHANDLE, HANDLE, void**)
{
    return NotScripted(recorder_, "om.OpenObject");
}
TALSTATUS ObjectService::GetObjectStats(UINT32*, UINT64*)
{
    return NotScripted(recorder_, "om.GetObjectStats");
}

} // namespace harness
