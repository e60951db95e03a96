// SPDX-License-Identifier: Apache-2.0
//
// CLSID_ObjectManagerDataStore: fixed-size objects that a component keeps per session, found by a
// compare callback, the least recently used going first when a session has too many.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/auth/sessions.h"
#include <kest/host.h>

namespace kestd {

// One store of one component. Searches run under the session's lock, so requests of different
// sessions never meet, and those of one meet for the length of a short search: a session holds at
// most `objectsPerSession` objects, the last used first. Compare callbacks run under that lock and
// must not call back into the host's services; all other callbacks run without a lock.
class ObjectStore {
  public:
    static constexpr UINT32 kLargestObject = 1024 * 1024; // bytes

    ObjectStore(SessionTable& sessions, uint32_t objectsPerSession);
    ~ObjectStore(); // frees what is left, also objects that somebody still references
    ObjectStore(const ObjectStore&) = delete;
    ObjectStore& operator=(const ObjectStore&) = delete;

    struct Shape {
        GUID owner{};
        UINT32 size = 0;
        SC_DESTRUCTOR destructor = nullptr;
        SC_CONSTRUCTOR constructor = nullptr;
        SC_SESSION_CLEANUP cleanup = nullptr;
    };

    // The operations of ISCOM; the interface is documented in <kest/host.h>.
    TALSTATUS Initialize(const Shape& shape);
    TALSTATUS Create(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor, void* key,
                     SC_COMPARE compare, void** object, UINT32* mode);
    TALSTATUS Find(SCHANDLE session, void* key, SC_COMPARE compare, void** object);
    TALSTATUS Delete(void* object);
    TALSTATUS AddReference(void* object);
    TALSTATUS DropReference(void* object);
    TALSTATUS Enumerate(SCHANDLE session, UINT32 index, void** object);
    TALSTATUS HandleOf(void* object, HANDLE* handle) const;
    // A null session takes the object of any.
    TALSTATUS ReferenceByHandle(const SCHANDLE* session, HANDLE handle, void** object);
    TALSTATUS Acquire(void* object);
    TALSTATUS Give(void* object); // ReleaseObject
    TALSTATUS SessionOf(void* object, SCHANDLE* session) const;
    TALSTATUS Allocate(void** object);
    TALSTATUS Deallocate(void* object);
    TALSTATUS Statistics(UINT32* objects, UINT64* bytes) const;

    // The session ends: cleans up and gives its objects away.
    void EndSession(SCHANDLE session);

  private:
    using Dead = std::vector<StoredObject*>; // destroyed once no lock is held

    StoredObject* NewObject(SCHANDLE session, Session* place);
    StoredObject* Known(void* object) const;
    ObjectList* ListIn(Session& session);
    StoredObject* Search(Session& session, void* key, SC_COMPARE compare);
    bool Unhook(Session& session, StoredObject& object);
    void EvictOver(Session& session, Dead& dead);
    void GiveHandle(StoredObject& object);
    bool Retire(StoredObject& object);
    void Destroy(StoredObject* object, bool isConstructed);

    SessionTable& sessions_;
    const uint32_t objectsPerSession_;
    Shape shape_;
    std::atomic<bool> isReady_{false};

    mutable std::mutex mutex_; // guards handles_ and lastHandle_; taken after a session's lock
    std::unordered_map<uint64_t, StoredObject*> handles_;
    uint64_t lastHandle_ = 0;
    std::atomic<uint32_t> count_{0};
};

} // namespace kestd
