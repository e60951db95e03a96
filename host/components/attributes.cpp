// SPDX-License-Identifier: Apache-2.0
//
// Attributes of sessions: their data, their readers and writers, their end.
#include "host/components/attributes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "host/component.h"

namespace kestd {

// One attribute of one session; its data follows in the same allocation. All fields but `shown` are
// guarded by the session's lock.
struct AttributeBlock {
    Attribute shown; // first: what callers hold is its address
    Session* session;
    uint64_t registration; // index and one
    GUID id;
    SA_FREE_CALLBACK freeData;
    int32_t access;      // readers, or -1 for the writer
    uint32_t references; // callers that hold or wait
    bool isRemoved;      // no longer the session's; gone with the last reference
    bool isCleaned;      // its clean-up has been called
};

namespace {

constexpr size_t kDataOffset = (sizeof(AttributeBlock) + alignof(std::max_align_t) - 1) /
                               alignof(std::max_align_t) * alignof(std::max_align_t);
constexpr int32_t kWriter = -1;

AttributeBlock& BlockOf(Attribute* attribute)
{
    return *reinterpret_cast<AttributeBlock*>(attribute);
}

bool IsMode(UINT32 mode)
{
    return mode == kAttributeExclusive || mode == kAttributeShared;
}

AttributeBlock* FindIn(Session& session, uint64_t registration)
{
    for (AttributeBlock* const block : session.attributes)
        if (block->registration == registration)
            return block;
    return nullptr;
}

bool IsFree(const AttributeBlock& block, UINT32 mode)
{
    return mode == kAttributeExclusive ? block.access == 0 : block.access >= 0;
}

// With the session's lock: false when nobody has this access.
bool GiveBack(AttributeBlock& block, UINT32 mode)
{
    if (mode == kAttributeExclusive ? block.access != kWriter : block.access <= 0)
        return false;
    block.access = mode == kAttributeExclusive ? 0 : block.access - 1;
    if (block.references > 1) // somebody may wait
        block.session->accessGiven.notify_all();
    return true;
}

// With the session's lock: true when this was the last reference of a removed attribute, which the
// caller then destroys without the lock.
bool DropReference(AttributeBlock& block)
{
    return --block.references == 0 && block.isRemoved;
}

void RemoveFrom(Session& session, AttributeBlock& block)
{
    std::erase(session.attributes, &block);
    block.isRemoved = true;
    session.accessGiven.notify_all();
}

} // namespace

AttributeService::AttributeService(SessionTable& sessions) : sessions_(sessions)
{
    sessions.OnEnd([this](SCHANDLE session) { EndSession(session); });
}

std::optional<AttributeService::Registration> AttributeService::Registered(HANDLE handle) const
{
    const auto number = reinterpret_cast<uint64_t>(handle);
    const std::lock_guard lock(mutex_);
    if (number == 0 || number > registrations_.size() || registrations_[number - 1].isGone)
        return std::nullopt;
    return registrations_[number - 1];
}

TALSTATUS AttributeService::Register(const GUID& id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                                     SA_FREE_CALLBACK freeData, HANDLE* registration)
{
    if (!registration || size > kLargestAttribute)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    for (const Registration& known : registrations_)
        if (!known.isGone && known.id == id)
            return HostFailure(kCodeObjectExists);
    registrations_.push_back({id, size, cleanup, freeData, false});
    *registration = reinterpret_cast<HANDLE>(registrations_.size());
    return TAL_STATUS_SUCCESS;
}

TALSTATUS AttributeService::Deregister(HANDLE handle)
{
    const auto number = reinterpret_cast<uint64_t>(handle);
    {
        const std::lock_guard lock(mutex_);
        if (number == 0 || number > registrations_.size() || registrations_[number - 1].isGone)
            return HostFailure(kCodeNotFound);
        registrations_[number - 1].isGone = true;
    }
    std::vector<AttributeBlock*> gone;
    sessions_.ForEachPlace([&](Session& session) {
        AttributeBlock* const block = FindIn(session, number);
        if (!block)
            return;
        gone.reserve(gone.size() + 1);
        ++block->references;
        RemoveFrom(session, *block);
        if (DropReference(*block))
            gone.push_back(block);
    });
    for (AttributeBlock* const block : gone)
        Destroy(block);
    return TAL_STATUS_SUCCESS;
}

// With the session's lock: takes a reference and the access. The lock is let go while it waits.
AttributeService::Found AttributeService::Take(std::unique_lock<std::mutex>& lock,
                                               AttributeBlock& block, UINT32 mode)
{
    ++block.references;
    if (!IsFree(block, mode)) {
        const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
        while (!block.isRemoved && !IsFree(block, mode))
            if (block.session->accessGiven.wait_until(lock, deadline) == std::cv_status::timeout &&
                !block.isRemoved && !IsFree(block, mode)) {
                --block.references; // not the last: whoever has the access has one too
                return Found::TimedOut;
            }
    }
    if (block.isRemoved) {
        const bool isLast = DropReference(block);
        lock.unlock();
        if (isLast)
            Destroy(&block);
        return Found::Removed;
    }
    block.access = mode == kAttributeExclusive ? kWriter : block.access + 1;
    return Found::Taken;
}

TALSTATUS AttributeService::Create(SCHANDLE session, HANDLE registration, void* data,
                                   SA_INIT_CALLBACK init, UINT32 createMode, UINT32 openMode,
                                   Attribute** out, UINT32* mode)
{
    if (!out || !mode || !IsMode(createMode) || !IsMode(openMode))
        return HostFailure(kCodeInvalidParameter);
    *out = nullptr;
    const auto number = reinterpret_cast<uint64_t>(registration);
    for (;;) {
        SessionTable::Locked locked = sessions_.Lock(session);
        if (!locked || locked->state != Session::State::Active)
            return HostFailure(kCodeNotFound);
        if (AttributeBlock* const block = FindIn(*locked.session, number)) {
            const Found found = Take(locked.lock, *block, openMode);
            if (found == Found::Removed)
                continue; // its making failed, or it was deleted: make it ourselves
            if (found == Found::TimedOut)
                return HostFailure(kCodeTimeout);
            *out = &block->shown;
            *mode = openMode;
            return TAL_STATUS_SUCCESS;
        }
        locked.lock.unlock(); // known attributes are found without asking for their registration
        const auto known = Registered(registration);
        if (!known)
            return HostFailure(kCodeNotFound);
        void* const memory = ::operator new(kDataOffset + known->size);
        std::memset(memory, 0, kDataOffset + known->size);
        auto* const block =
            new (memory) AttributeBlock{{session, static_cast<char*>(memory) + kDataOffset},
                                        locked.session,
                                        number,
                                        known->id,
                                        known->freeData,
                                        kWriter,
                                        1,
                                        false,
                                        false};
        locked.lock.lock();
        const bool isSame = locked->number == SessionTable::NumberOf(session) &&
                            locked->state == Session::State::Active;
        if (!isSame || FindIn(*locked.session, number)) { // somebody was faster
            ::operator delete(memory);
            continue;
        }
        try {
            locked->attributes.push_back(block);
        } catch (...) {
            ::operator delete(memory);
            throw;
        }
        locked.lock.unlock();
        if (const TALSTATUS status = Initialise(*block, data, init, createMode); Failed(status))
            return status;
        *out = &block->shown;
        *mode = createMode;
        return TAL_STATUS_SUCCESS;
    }
}

// The new attribute is in the session and exclusively ours, so others wait for it outside.
TALSTATUS AttributeService::Initialise(AttributeBlock& block, void* data, SA_INIT_CALLBACK init,
                                       UINT32 createMode)
{
    const TALSTATUS status = init ? init(&block.shown, data) : TAL_STATUS_SUCCESS;
    std::unique_lock lock(block.session->mutex);
    if (!Failed(status)) {
        if (createMode == kAttributeShared) {
            block.access = 1;
            block.session->accessGiven.notify_all();
        }
        return status;
    }
    RemoveFrom(*block.session, block);
    const bool isLast = DropReference(block);
    block.freeData = nullptr; // what was never initialised has nothing to free
    lock.unlock();
    if (isLast)
        Destroy(&block);
    return status;
}

TALSTATUS AttributeService::Reference(SCHANDLE session, HANDLE registration, UINT32 mode,
                                      Attribute** out)
{
    if (!out || !IsMode(mode))
        return HostFailure(kCodeInvalidParameter);
    *out = nullptr;
    SessionTable::Locked locked = sessions_.Lock(session);
    AttributeBlock* const block =
        locked ? FindIn(*locked.session, reinterpret_cast<uint64_t>(registration)) : nullptr;
    if (!block)
        return HostFailure(kCodeNotFound);
    const Found found = Take(locked.lock, *block, mode);
    if (found != Found::Taken)
        return HostFailure(found == Found::TimedOut ? kCodeTimeout : kCodeNotFound);
    *out = &block->shown;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS AttributeService::Dereference(UINT32 mode, Attribute* attribute)
{
    return End(mode, attribute, false);
}

TALSTATUS AttributeService::Delete(UINT32 mode, Attribute* attribute)
{
    return End(mode, attribute, true);
}

// Ends one reference, and with `remove` the attribute's place in its session.
TALSTATUS AttributeService::End(UINT32 mode, Attribute* attribute, bool remove)
{
    if (!attribute || !IsMode(mode))
        return HostFailure(kCodeInvalidParameter);
    AttributeBlock& block = BlockOf(attribute);
    std::unique_lock lock(block.session->mutex);
    if (!GiveBack(block, mode))
        return HostFailure(kCodeInvalidParameter);
    if (remove && !block.isRemoved)
        RemoveFrom(*block.session, block);
    const bool isLast = DropReference(block);
    lock.unlock();
    if (isLast)
        Destroy(&block);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS AttributeService::Enumerate(SCHANDLE session, UINT32 index, GUID* id)
{
    if (!id)
        return HostFailure(kCodeInvalidParameter);
    const SessionTable::Locked locked = sessions_.Lock(session);
    if (!locked)
        return HostFailure(kCodeNotFound);
    if (index >= locked->attributes.size())
        return HostFailure(kCodeNoMoreEntries);
    *id = locked->attributes[index]->id;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS AttributeService::Acquire(UINT32 mode, Attribute* attribute)
{
    if (!attribute || !IsMode(mode))
        return HostFailure(kCodeInvalidParameter);
    AttributeBlock& block = BlockOf(attribute);
    std::unique_lock lock(block.session->mutex);
    const Found found = Take(lock, block, mode);
    if (found == Found::Taken) {
        --block.references; // the caller's own counts already
        return TAL_STATUS_SUCCESS;
    }
    return HostFailure(found == Found::TimedOut ? kCodeTimeout : kCodeNotFound);
}

TALSTATUS AttributeService::Give(Attribute* attribute)
{
    if (!attribute)
        return HostFailure(kCodeInvalidParameter);
    AttributeBlock& block = BlockOf(attribute);
    const std::lock_guard lock(block.session->mutex);
    const UINT32 mode = block.access == kWriter ? kAttributeExclusive : kAttributeShared;
    if (!GiveBack(block, mode))
        return HostFailure(kCodeInvalidParameter);
    return TAL_STATUS_SUCCESS;
}

// One attribute at a time and without memory of its own: the end of a session cannot fail.
void AttributeService::EndSession(SCHANDLE session)
{
    while (const uint64_t owner = NextToClean(session)) {
        SA_CLEANUP_CALLBACK cleanup = nullptr;
        {
            const std::lock_guard lock(mutex_);
            if (!registrations_[owner - 1].isGone)
                cleanup = registrations_[owner - 1].cleanup;
        }
        if (cleanup)
            (void)cleanup(session); // the session ends whatever it says
    }
    for (;;) { // what the callbacks left
        SessionTable::Locked locked = sessions_.Lock(session);
        if (!locked || locked->attributes.empty())
            return;
        AttributeBlock& block = *locked->attributes.back();
        ++block.references;
        RemoveFrom(*locked.session, block);
        const bool isLast = DropReference(block);
        locked.lock.unlock();
        if (isLast)
            Destroy(&block);
    }
}

// The registration of an attribute whose clean-up has not been called yet; 0 when there is none.
uint64_t AttributeService::NextToClean(SCHANDLE session)
{
    const SessionTable::Locked locked = sessions_.Lock(session);
    if (!locked)
        return 0;
    for (AttributeBlock* const block : locked->attributes)
        if (!std::exchange(block->isCleaned, true))
            return block->registration;
    return 0;
}

// Without a lock: nobody knows the attribute any more.
void AttributeService::Destroy(AttributeBlock* block)
{
    if (block->freeData)
        (void)block->freeData(&block->shown); // its memory goes in any case
    ::operator delete(block);
}

namespace {

class AttributeInterface final : public Object<AttributeInterface, ISA> {
  public:
    explicit AttributeInterface(AttributeService& service) : service_(service) {}

    TALSTATUS SARegisterAttribute(const GUID* id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                                  SA_FREE_CALLBACK freeData, HANDLE* registration) override
    {
        if (!id)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary(
            [&] { return service_.Register(*id, size, cleanup, freeData, registration); });
    }
    TALSTATUS SADeregisterAttribute(HANDLE registration) override
    {
        return AtBoundary([&] { return service_.Deregister(registration); });
    }
    TALSTATUS SACreate(SCHANDLE session, HANDLE registration, void* data, SA_INIT_CALLBACK init,
                       UINT32 createMode, UINT32 openMode, Attribute** out, UINT32* mode) override
    {
        return AtBoundary([&] {
            return service_.Create(session, registration, data, init, createMode, openMode, out,
                                   mode);
        });
    }
    TALSTATUS SADelete(UINT32 mode, Attribute* attribute) override
    {
        return AtBoundary([&] { return service_.Delete(mode, attribute); });
    }
    TALSTATUS SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                          Attribute** out) override
    {
        return AtBoundary([&] { return service_.Reference(session, registration, mode, out); });
    }
    TALSTATUS SADereference(UINT32 mode, Attribute* attribute) override
    {
        return AtBoundary([&] { return service_.Dereference(mode, attribute); });
    }
    TALSTATUS SAGetSCHandle(Attribute* attribute, SCHANDLE* session) override
    {
        if (!attribute || !session)
            return HostFailure(kCodeInvalidParameter);
        *session = attribute->hSC;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SAEnumerate(SCHANDLE session, UINT32 index, GUID* id) override
    {
        return AtBoundary([&] { return service_.Enumerate(session, index, id); });
    }
    TALSTATUS SAAcquire(UINT32 mode, Attribute* attribute) override
    {
        return AtBoundary([&] { return service_.Acquire(mode, attribute); });
    }
    TALSTATUS SARelease(Attribute* attribute) override
    {
        return AtBoundary([&] { return service_.Give(attribute); });
    }

  private:
    AttributeService& service_;
};

} // namespace

ISA* MakeAttributeInterface(AttributeService& service)
{
    return new AttributeInterface(service);
}

} // namespace kestd
