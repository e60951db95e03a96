// SPDX-License-Identifier: Apache-2.0
//
// The stores of all components, and the interface through which one uses its own.
#include "host/components/object_stores.h"

#include <thread>
#include <utility>

#include "host/component.h"

namespace kestd {

class ObjectStoreInterface final : public Object<ObjectStoreInterface, ISCOM> {
  public:
    ObjectStoreInterface(ObjectStores& all, std::shared_ptr<ObjectStore> store)
        : all_(all), store_(std::move(store))
    {
    }

    // `version`, `flags`, `buckets` and `options` are the component's own marks and hints.
    TALSTATUS Initialize(const GUID* owner, UINT32 size, UINT16, UINT32, UINT32,
                         SC_DESTRUCTOR destructor, SC_CONSTRUCTOR constructor,
                         SC_SESSION_CLEANUP cleanup, UINT32) override
    {
        if (!owner)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&] {
            return store_->Initialize({*owner, size, destructor, constructor, cleanup});
        });
    }
    TALSTATUS CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor, void* key,
                           SC_COMPARE compare, UINT32, UINT32, UINT32, void** object,
                           UINT32* mode) override
    {
        return AtBoundary([&] {
            return store_->Create(session, initData, constructor, key, compare, object, mode);
        });
    }
    TALSTATUS DeleteObject(void* object) override
    {
        return AtBoundary([&] { return store_->Delete(object); });
    }
    TALSTATUS ReferenceObjectByHandle(HANDLE handle, void** object) override
    {
        return AtBoundary([&] { return store_->ReferenceByHandle(nullptr, handle, object); });
    }
    TALSTATUS DereferenceObject(void* object, UINT32) override
    {
        return AtBoundary([&] { return store_->DropReference(object); });
    }
    TALSTATUS EnumerateObjects(SCHANDLE session, UINT32 index, void** object) override
    {
        return AtBoundary([&] { return store_->Enumerate(session, index, object); });
    }
    TALSTATUS GetObjectHandle(void* object, HANDLE* handle) override
    {
        return AtBoundary([&] { return store_->HandleOf(object, handle); });
    }
    TALSTATUS FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32, UINT32,
                         void** object) override
    {
        return AtBoundary([&] { return store_->Find(session, key, compare, object); });
    }
    TALSTATUS AcquireObject(void* object) override
    {
        return AtBoundary([&] { return store_->Acquire(object); });
    }
    TALSTATUS ReleaseObject(void* object) override
    {
        return AtBoundary([&] { return store_->Give(object); });
    }
    TALSTATUS IncrementReference(void* object) override
    {
        return AtBoundary([&] { return store_->AddReference(object); });
    }
    TALSTATUS DecrementReference(void* object) override
    {
        return AtBoundary([&] { return store_->DropReference(object); });
    }
    TALSTATUS GetObjectSecurityContext(void* object, SCHANDLE* session) override
    {
        return AtBoundary([&] { return store_->SessionOf(object, session); });
    }
    TALSTATUS AllocateObject(void** object) override
    {
        return AtBoundary([&] { return store_->Allocate(object); });
    }
    TALSTATUS DeallocateObject(void* object) override
    {
        return AtBoundary([&] { return store_->Deallocate(object); });
    }
    TALSTATUS OpenObject(SCHANDLE session, HANDLE handle, void** object) override
    {
        return AtBoundary([&] { return store_->ReferenceByHandle(&session, handle, object); });
    }
    TALSTATUS GetObjectStats(UINT32* objects, UINT64* bytes) override
    {
        return AtBoundary([&] { return store_->Statistics(objects, bytes); });
    }

    ~ObjectStoreInterface() { all_.Forget(store_.get()); }

  private:
    ObjectStores& all_;
    const std::shared_ptr<ObjectStore> store_;
};

ObjectStores::ObjectStores(SessionTable& sessions, uint32_t objectsPerSession)
    : sessions_(sessions), objectsPerSession_(objectsPerSession)
{
    sessions.OnEnd([this](SCHANDLE session) { EndSession(session); });
}

ISCOM* ObjectStores::MakeInterface()
{
    auto store = std::make_shared<ObjectStore>(sessions_, objectsPerSession_);
    {
        const std::lock_guard lock(mutex_);
        stores_.push_back(store);
    }
    try {
        return new ObjectStoreInterface(*this, store);
    } catch (...) {
        Forget(store.get());
        throw;
    }
}

void ObjectStores::Forget(ObjectStore* store)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(stores_, [&](const auto& known) { return known.get() == store; });
}

void ObjectStores::EndSession(SCHANDLE session)
{
    for (;;) {
        const ObjectStore* first = nullptr;
        if (const SessionTable::Locked locked = sessions_.Lock(session);
            locked && !locked->objects.empty())
            first = locked->objects.front().store;
        if (!first)
            return;
        std::shared_ptr<ObjectStore> store;
        {
            const std::lock_guard lock(mutex_);
            for (const auto& known : stores_)
                if (known.get() == first)
                    store = known;
        }
        if (store)
            store->EndSession(session);
        else
            std::this_thread::yield(); // it is going, and takes its objects along
    }
}

} // namespace kestd
