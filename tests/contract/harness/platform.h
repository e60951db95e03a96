// SPDX-License-Identifier: Apache-2.0
//
// The real platform layer with a watch on it: what is allocated, which locks are held, and failures
// on demand ("platform.TalxAllocPagedMemory" and so on; not listed among the recorder's calls).
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "forwarding_platform.h"
#include "recorder.h"
#include <kest/com.h>
#include <kest/talpl.h>

namespace harness {

class WatchedPlatform : public ForwardingPlatform {
  public:
    WatchedPlatform(Recorder& recorder, ITalpl* real)
        : ForwardingPlatform(real), recorder_(recorder)
    {
    }
    virtual ~WatchedPlatform() = default; // behind the contract's slots

    UINT64 fixedTime = 0;            // TalxGetSystemTime's answer, if not 0
    std::string moduleName;          // what TalxRegisterModuleName was told
    bool emptyListGivesHead = false; // removing from an empty list gives its head, not null

    int LiveAllocations() const { return liveAllocations_; } // made here and not freed here
    int HeldLocks() const { return heldLocks_; } // acquired minus released read/write locks
    bool HeldForWriting() const { return heldForWriting_; } // of the one lock that a module makes
    int LiveLocks() const { return liveLocks_; } // read/write locks allocated and not destroyed
    int OpenKeys() const { return openKeys_; }
    // Allocations that began with two links of 0xBAADF00D when they were freed.
    int MarkedFrees() const { return markedFrees_; }
    int References() const { return references_; }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override;
    UINT32 Release() override;
    TALSTATUS TalxCloseKey(HANDLE key) override;
    TALSTATUS TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                               UINT32* resultLength) override;
    TALSTATUS TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out) override;
    TALSTATUS TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                UINT32* resultLength) override;
    TALSTATUS TalxDebugPrintf(const char* format, ...) override;
    LIST_ENTRY* TalxRemoveHeadList(LIST_ENTRY* head) override;
    LIST_ENTRY* TalxRemoveTailList(LIST_ENTRY* head) override;
    TALSTATUS TalxCharUpperBuff(WCHAR* text, UINT32 units) override;
    TALSTATUS TalxMultiByteToWideChar(UINT32 page, const char* in, UINT32 bytes, WCHAR* out,
                                      UINT32* units) override;
    TALSTATUS TalxWideCharToMultiByte(UINT32 page, const WCHAR* in, UINT32 units, char* out,
                                      UINT32* bytes) override;
    void* TalxAllocNonPagedMemory(UINT32 size) override;
    void* TalxAllocPagedMemory(UINT32 size) override;
    TALSTATUS TalxFreeMemory(void* memory) override;
    TALSTATUS TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait) override;
    TALSTATUS TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait) override;
    TALSTATUS TalxAllocReadWriteLock(HANDLE* out) override;
    TALSTATUS TalxDestroyReadWriteLock(HANDLE lock) override;
    TALSTATUS TalxReleaseReadWriteLock(HANDLE lock) override;
    TALSTATUS TalxGetSystemTime(UINT64* time) override;
    TALSTATUS TalxRegisterModuleName(const char* name) override;

  private:
    Recorder& recorder_;
    std::atomic<int> liveAllocations_{0};
    std::atomic<int> heldLocks_{0};
    std::atomic<bool> heldForWriting_{false};
    std::atomic<int> liveLocks_{0};
    std::atomic<int> openKeys_{0};
    std::atomic<int> references_{0};
    std::atomic<int> markedFrees_{0};
    std::mutex sizesMutex_;
    std::map<void*, UINT32> sizes_; // of what is allocated
};

} // namespace harness
