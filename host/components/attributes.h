// SPDX-License-Identifier: Apache-2.0
//
// CLSID_SecurityAttributeManager: typed data that components keep per session, with readers and one
// writer at a time.
#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>

#include "host/auth/sessions.h"
#include <kest/host.h>

namespace kestd {

// The service behind the interface. Outlives the last session. Every operation takes the session's
// lock for a few instructions; who waits for access to an attribute waits without it.
class AttributeService {
  public:
    // How long somebody waits for access before code 10. Callers that keep an attribute longer than
    // a request are broken; this keeps them from stopping the host.
    static constexpr std::chrono::seconds kLongestWait{60};
    // Bytes of one attribute's data.
    static constexpr UINT32 kLargestAttribute = 1024 * 1024;

    explicit AttributeService(SessionTable& sessions);
    AttributeService(const AttributeService&) = delete;
    AttributeService& operator=(const AttributeService&) = delete;

    // The operations of ISA; the interface is documented in <kest/host.h>.
    TALSTATUS Register(const GUID& id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                       SA_FREE_CALLBACK freeData, HANDLE* registration);
    TALSTATUS Deregister(HANDLE registration);
    TALSTATUS Create(SCHANDLE session, HANDLE registration, void* data, SA_INIT_CALLBACK init,
                     UINT32 createMode, UINT32 openMode, Attribute** out, UINT32* mode);
    TALSTATUS Delete(UINT32 mode, Attribute* attribute);
    TALSTATUS Reference(SCHANDLE session, HANDLE registration, UINT32 mode, Attribute** out);
    TALSTATUS Dereference(UINT32 mode, Attribute* attribute);
    TALSTATUS Enumerate(SCHANDLE session, UINT32 index, GUID* id);
    TALSTATUS Acquire(UINT32 mode, Attribute* attribute);
    TALSTATUS Give(Attribute* attribute); // SARelease

  private:
    struct Registration {
        GUID id;
        UINT32 size;
        SA_CLEANUP_CALLBACK cleanup;
        SA_FREE_CALLBACK freeData;
        bool isGone;
    };
    enum class Found { Taken, Missing, Removed, TimedOut };

    std::optional<Registration> Registered(HANDLE handle) const;
    Found Take(std::unique_lock<std::mutex>& lock, AttributeBlock& block, UINT32 mode);
    TALSTATUS Initialise(AttributeBlock& block, void* data, SA_INIT_CALLBACK init,
                         UINT32 createMode);
    TALSTATUS End(UINT32 mode, Attribute* attribute, bool remove);
    void EndSession(SCHANDLE session);
    uint64_t NextToClean(SCHANDLE session);
    void Destroy(AttributeBlock* block);

    SessionTable& sessions_;
    mutable std::mutex mutex_; // guards registrations_; never held with a session's
    std::deque<Registration> registrations_;
};

// The host's ISA, one object for all: a new reference for the caller on every QueryInterface.
ISA* MakeAttributeInterface(AttributeService& service);

} // namespace kestd
