// SPDX-License-Identifier: Apache-2.0
//
// One component's objects: search, references, handles, eviction.
#include "host/components/object_store.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "host/component.h"

namespace kestd {

// What stands before each object's own bytes. `next` and `previous` are guarded by the session's
// lock, `access` by its own.
struct StoredObject {
    static constexpr uint32_t kMark = 0x0B1EC75D;

    uint32_t mark; // kMark while the object lives, so that a foreign pointer is found out
    std::atomic<uint32_t> references;
    ObjectStore* store;
    Session* place; // null for one that AllocateObject made
    SCHANDLE session;
    uint64_t handle; // 0 for one that AllocateObject made
    StoredObject* previous;
    StoredObject* next;
    bool isHooked; // in the session's list; guarded by the session's lock
    std::mutex access;
};

namespace {

constexpr size_t kBodyOffset = (sizeof(StoredObject) + alignof(std::max_align_t) - 1) /
                               alignof(std::max_align_t) * alignof(std::max_align_t);

void* BodyOf(StoredObject& object)
{
    return reinterpret_cast<char*>(&object) + kBodyOffset;
}

void PushFront(ObjectList& list, StoredObject& object)
{
    object.previous = nullptr;
    object.next = list.first;
    (list.first ? list.first->previous : list.last) = &object;
    list.first = &object;
    object.isHooked = true;
    ++list.count;
}

void TakeOut(ObjectList& list, StoredObject& object)
{
    (object.previous ? object.previous->next : list.first) = object.next;
    (object.next ? object.next->previous : list.last) = object.previous;
    object.isHooked = false;
    --list.count;
}

} // namespace

ObjectStore::ObjectStore(SessionTable& sessions, uint32_t objectsPerSession)
    : sessions_(sessions), objectsPerSession_(std::max<uint32_t>(objectsPerSession, 1))
{
}

ObjectStore::~ObjectStore()
{
    Dead dead;
    sessions_.ForEachPlace([&](Session& session) {
        ObjectList* const list = ListIn(session);
        if (!list)
            return;
        dead.reserve(dead.size() + list->count);
        while (list->first) {
            dead.push_back(list->first);
            TakeOut(*list, *list->first);
        }
        std::erase_if(session.objects, [&](const ObjectList& l) { return l.store == this; });
    });
    for (StoredObject* const object : dead)
        Destroy(object, true);
}

TALSTATUS ObjectStore::Initialize(const Shape& shape)
{
    if (shape.size == 0 || shape.size > kLargestObject)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    if (isReady_.load(std::memory_order_relaxed))
        return HostFailure(kCodeObjectExists);
    shape_ = shape;
    isReady_.store(true, std::memory_order_release);
    return TAL_STATUS_SUCCESS;
}

StoredObject* ObjectStore::NewObject(SCHANDLE session, Session* place)
{
    void* const memory = ::operator new(kBodyOffset + shape_.size);
    std::memset(memory, 0, kBodyOffset + shape_.size);
    auto* const object = new (memory) StoredObject{};
    object->mark = StoredObject::kMark;
    object->references.store(1, std::memory_order_relaxed);
    object->store = this;
    object->place = place;
    object->session = session;
    count_.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void ObjectStore::Destroy(StoredObject* object, bool isConstructed)
{
    if (isConstructed && shape_.destructor)
        (void)shape_.destructor(BodyOf(*object)); // its memory goes in any case
    object->mark = 0;
    object->~StoredObject();
    ::operator delete(object);
    count_.fetch_sub(1, std::memory_order_relaxed);
}

// The object behind a pointer that was handed out; null for anything else that can be told.
StoredObject* ObjectStore::Known(void* object) const
{
    if (!object)
        return nullptr;
    auto* const header = reinterpret_cast<StoredObject*>(static_cast<char*>(object) - kBodyOffset);
    return header->mark == StoredObject::kMark && header->store == this ? header : nullptr;
}

ObjectList* ObjectStore::ListIn(Session& session)
{
    for (ObjectList& list : session.objects)
        if (list.store == this)
            return &list;
    return nullptr;
}

// With the session's lock: the object that fits, moved to the front and referenced.
StoredObject* ObjectStore::Search(Session& session, void* key, SC_COMPARE compare)
{
    ObjectList* const list = ListIn(session);
    if (!list)
        return nullptr;
    for (StoredObject* object = list->first; object; object = object->next)
        if (compare(BodyOf(*object), key)) {
            if (object != list->first) {
                TakeOut(*list, *object);
                PushFront(*list, *object);
            }
            object->references.fetch_add(1, std::memory_order_relaxed);
            return object;
        }
    return nullptr;
}

TALSTATUS ObjectStore::Find(SCHANDLE session, void* key, SC_COMPARE compare, void** object)
{
    if (!object || !compare || !isReady_.load(std::memory_order_acquire))
        return HostFailure(kCodeInvalidParameter);
    *object = nullptr;
    const SessionTable::Locked locked = sessions_.Lock(session);
    StoredObject* const found = locked ? Search(*locked.session, key, compare) : nullptr;
    if (!found)
        return HostFailure(kCodeNotFound);
    *object = BodyOf(*found);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Create(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor,
                              void* key, SC_COMPARE compare, void** object, UINT32* mode)
{
    if (!object || !mode || !compare || !isReady_.load(std::memory_order_acquire))
        return HostFailure(kCodeInvalidParameter);
    if (!Failed(Find(session, key, compare, object))) {
        *mode = kObjectExisted;
        return TAL_STATUS_SUCCESS;
    }
    Session* place = nullptr;
    if (const SessionTable::Locked locked = sessions_.Lock(session); locked)
        place = locked.session;
    if (!place)
        return HostFailure(kCodeNotFound);
    // Made and constructed before anybody can see it; of two racing makers the slower one throws
    // its own away.
    StoredObject* const made = NewObject(session, place);
    const SC_CONSTRUCTOR construct = constructor ? constructor : shape_.constructor;
    if (const TALSTATUS status = construct ? construct(BodyOf(*made), initData) : 0;
        Failed(status)) {
        Destroy(made, false);
        return status;
    }
    Dead dead;
    StoredObject* taken = nullptr;
    try {
        const SessionTable::Locked locked = sessions_.Lock(session);
        if (locked && locked->state == Session::State::Active) {
            taken = Search(*locked.session, key, compare);
            if (!taken) {
                dead.reserve(objectsPerSession_ + 1);
                if (!ListIn(*locked.session))
                    locked->objects.push_back({this});
                GiveHandle(*made);
                PushFront(*ListIn(*locked.session), *made);
                EvictOver(*locked.session, dead);
                taken = made;
            }
        }
    } catch (...) {
        Destroy(made, true);
        throw;
    }
    for (StoredObject* const old : dead)
        Destroy(old, true);
    if (taken != made)
        Destroy(made, true);
    if (!taken)
        return HostFailure(kCodeNotFound);
    *object = BodyOf(*taken);
    *mode = taken == made ? kObjectCreated : kObjectExisted;
    return TAL_STATUS_SUCCESS;
}

void ObjectStore::GiveHandle(StoredObject& object)
{
    const std::lock_guard lock(mutex_);
    handles_.emplace(lastHandle_ + 1, &object);
    object.handle = ++lastHandle_;
}

// With the session's lock: takes the object out of the list, if it is there.
bool ObjectStore::Unhook(Session& session, StoredObject& object)
{
    ObjectList* const list = ListIn(session);
    if (!list || !object.isHooked)
        return false;
    TakeOut(*list, object);
    return true;
}

// True when nobody references the object: its handle is then gone and nobody can find it again.
bool ObjectStore::Retire(StoredObject& object)
{
    const std::lock_guard lock(mutex_); // references by handle are taken under it
    if (object.references.load(std::memory_order_acquire) != 0)
        return false;
    handles_.erase(object.handle);
    return true;
}

// With the session's lock: over the bound, takes out the least recently used objects that nobody
// references.
void ObjectStore::EvictOver(Session& session, Dead& dead)
{
    ObjectList* const list = ListIn(session);
    StoredObject* object = list->last;
    while (object && list->count > objectsPerSession_ && dead.size() < dead.capacity()) {
        StoredObject* const before = object->previous;
        if (Retire(*object)) {
            TakeOut(*list, *object);
            dead.push_back(object);
        }
        object = before;
    }
}

TALSTATUS ObjectStore::Delete(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object || !object->place)
        return HostFailure(kCodeInvalidParameter);
    bool isDead = false;
    {
        const std::lock_guard lock(object->place->mutex);
        if (!Unhook(*object->place, *object))
            return HostFailure(kCodeNotFound);
        isDead = Retire(*object);
        if (!isDead) { // goes with its last reference; no longer found
            const std::lock_guard handles(mutex_);
            handles_.erase(object->handle);
        }
    }
    if (isDead)
        Destroy(object, true);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::AddReference(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object)
        return HostFailure(kCodeInvalidParameter);
    object->references.fetch_add(1, std::memory_order_relaxed);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::DropReference(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object || !object->place)
        return HostFailure(kCodeInvalidParameter);
    bool isDead = false;
    {
        const std::lock_guard lock(object->place->mutex);
        if (object->references.load(std::memory_order_relaxed) == 0)
            return HostFailure(kCodeInvalidParameter);
        const uint32_t left = object->references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        isDead = left == 0 && !object->isHooked && Retire(*object);
    }
    if (isDead)
        Destroy(object, true);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Enumerate(SCHANDLE session, UINT32 index, void** object)
{
    if (!object)
        return HostFailure(kCodeInvalidParameter);
    *object = nullptr;
    const SessionTable::Locked locked = sessions_.Lock(session);
    if (!locked)
        return HostFailure(kCodeNotFound);
    ObjectList* const list = ListIn(*locked.session);
    StoredObject* at = list ? list->first : nullptr;
    for (; at && index > 0; --index)
        at = at->next;
    if (!at)
        return HostFailure(kCodeNoMoreEntries);
    at->references.fetch_add(1, std::memory_order_relaxed);
    *object = BodyOf(*at);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::HandleOf(void* pointer, HANDLE* handle) const
{
    const StoredObject* const object = Known(pointer);
    if (!object || !object->handle || !handle)
        return HostFailure(kCodeInvalidParameter);
    *handle = reinterpret_cast<HANDLE>(object->handle);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::ReferenceByHandle(const SCHANDLE* session, HANDLE handle, void** object)
{
    if (!object)
        return HostFailure(kCodeInvalidParameter);
    *object = nullptr;
    const std::lock_guard lock(mutex_);
    const auto found = handles_.find(reinterpret_cast<uint64_t>(handle));
    if (found == handles_.end())
        return HostFailure(kCodeNotFound);
    StoredObject& known = *found->second;
    if (session && (session->hTypeId != known.session.hTypeId || session->hId != known.session.hId))
        return HostFailure(kCodeAccessDenied);
    known.references.fetch_add(1, std::memory_order_relaxed);
    *object = BodyOf(known);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Acquire(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object)
        return HostFailure(kCodeInvalidParameter);
    object->access.lock();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Give(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object)
        return HostFailure(kCodeInvalidParameter);
    object->access.unlock();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::SessionOf(void* pointer, SCHANDLE* session) const
{
    const StoredObject* const object = Known(pointer);
    if (!object || !object->place || !session)
        return HostFailure(kCodeInvalidParameter);
    *session = object->session;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Allocate(void** object)
{
    if (!object || !isReady_.load(std::memory_order_acquire))
        return HostFailure(kCodeInvalidParameter);
    *object = BodyOf(*NewObject({}, nullptr));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Deallocate(void* pointer)
{
    StoredObject* const object = Known(pointer);
    if (!object || object->place)
        return HostFailure(kCodeInvalidParameter);
    Destroy(object, false);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ObjectStore::Statistics(UINT32* objects, UINT64* bytes) const
{
    const uint32_t count = count_.load(std::memory_order_relaxed);
    if (objects)
        *objects = count;
    if (bytes)
        *bytes = uint64_t{count} * shape_.size;
    return TAL_STATUS_SUCCESS;
}

void ObjectStore::EndSession(SCHANDLE session)
{
    {
        const SessionTable::Locked locked = sessions_.Lock(session);
        if (!locked || !ListIn(*locked.session))
            return;
    }
    if (shape_.cleanup)
        (void)shape_.cleanup(session); // the session ends whatever it says
    for (;;) { // one at a time and without memory of its own: the end of a session cannot fail
        SessionTable::Locked locked = sessions_.Lock(session);
        ObjectList* const list = locked ? ListIn(*locked.session) : nullptr;
        if (!list)
            return;
        StoredObject* const object = list->first;
        if (!object) {
            std::erase_if(locked->objects, [&](const ObjectList& l) { return l.store == this; });
            return;
        }
        TakeOut(*list, *object);
        const bool isDead = Retire(*object);
        if (!isDead) { // goes with its last reference
            const std::lock_guard lock(mutex_);
            handles_.erase(object->handle);
        }
        locked.lock.unlock();
        if (isDead)
            Destroy(object, true);
    }
}

} // namespace kestd
