// SPDX-License-Identifier: Apache-2.0
#include "platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace harness {

TALSTATUS WatchedPlatform::QueryInterface(const GUID* iid, void** out)
{
    *out = nullptr;
    if (*iid != IID_IHadranTalpl_1 && *iid != IID_IUnknown)
        return real_->QueryInterface(iid, out); // fault injection
    AddRef();
    *out = static_cast<ITalpl*>(this);
    return TAL_STATUS_SUCCESS;
}

UINT32 WatchedPlatform::AddRef()
{
    return static_cast<UINT32>(++references_);
}

UINT32 WatchedPlatform::Release()
{
    return static_cast<UINT32>(--references_);
}

TALSTATUS WatchedPlatform::TalxCloseKey(HANDLE key)
{
    --openKeys_;
    return real_->TalxCloseKey(key);
}

TALSTATUS WatchedPlatform::TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                            UINT32* resultLength)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxEnumerateKey"))
        return *status;
    return real_->TalxEnumerateKey(key, index, info, size, resultLength);
}

TALSTATUS WatchedPlatform::TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxOpenKey"))
        return *status;
    const TALSTATUS status = real_->TalxOpenKey(key, access, out);
    openKeys_ += !Failed(status);
    return status;
}

TALSTATUS WatchedPlatform::TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                             UINT32* resultLength)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxQueryValueKey"))
        return *status;
    return real_->TalxQueryValueKey(key, name, info, size, resultLength);
}

TALSTATUS WatchedPlatform::TalxDebugPrintf(const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return real_->TalxDebugPrintf("%s", text);
}

LIST_ENTRY* WatchedPlatform::TalxRemoveHeadList(LIST_ENTRY* head)
{
    if (emptyListGivesHead && real_->TalxIsListEmpty(head))
        return head;
    return real_->TalxRemoveHeadList(head);
}

LIST_ENTRY* WatchedPlatform::TalxRemoveTailList(LIST_ENTRY* head)
{
    if (emptyListGivesHead && real_->TalxIsListEmpty(head))
        return head;
    return real_->TalxRemoveTailList(head);
}

TALSTATUS WatchedPlatform::TalxCharUpperBuff(WCHAR* text, UINT32 units)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxCharUpperBuff"))
        return *status;
    return real_->TalxCharUpperBuff(text, units);
}

TALSTATUS WatchedPlatform::TalxMultiByteToWideChar(UINT32 page, const char* in, UINT32 bytes,
                                                   WCHAR* out, UINT32* units)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxMultiByteToWideChar"))
        return *status;
    return real_->TalxMultiByteToWideChar(page, in, bytes, out, units);
}

TALSTATUS WatchedPlatform::TalxWideCharToMultiByte(UINT32 page, const WCHAR* in, UINT32 units,
                                                   char* out, UINT32* bytes)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxWideCharToMultiByte"))
        return *status;
    return real_->TalxWideCharToMultiByte(page, in, units, out, bytes);
}

void* WatchedPlatform::TalxAllocNonPagedMemory(UINT32 size)
{
    if (recorder_.EnterUnlisted("platform.TalxAllocNonPagedMemory"))
        return nullptr;
    void* memory = real_->TalxAllocNonPagedMemory(size);
    liveAllocations_ += memory != nullptr;
    return memory;
}

void* WatchedPlatform::TalxAllocPagedMemory(UINT32 size)
{
    if (recorder_.EnterUnlisted("platform.TalxAllocPagedMemory"))
        return nullptr;
    void* memory = real_->TalxAllocPagedMemory(size);
    liveAllocations_ += memory != nullptr;
    const std::lock_guard lock(sizesMutex_);
    sizes_[memory] = size;
    return memory;
}

TALSTATUS WatchedPlatform::TalxFreeMemory(void* memory)
{
    liveAllocations_ -= memory != nullptr;
    {
        const std::lock_guard lock(sizesMutex_);
        const auto known = sizes_.extract(memory);
        const UINT64 marks[] = {0xBAADF00D, 0xBAADF00D};
        markedFrees_ += known && known.mapped() >= sizeof marks &&
                        std::memcmp(memory, marks, sizeof marks) == 0;
    }
    return real_->TalxFreeMemory(memory);
}

TALSTATUS WatchedPlatform::TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait)
{
    const TALSTATUS status = real_->TalxAcquireLockForReadAccess(lock, wait);
    heldLocks_ += !Failed(status);
    return status;
}

TALSTATUS WatchedPlatform::TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait)
{
    const TALSTATUS status = real_->TalxAcquireLockForWriteAccess(lock, wait);
    heldLocks_ += !Failed(status);
    if (!Failed(status))
        heldForWriting_ = true;
    return status;
}

TALSTATUS WatchedPlatform::TalxAllocReadWriteLock(HANDLE* out)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxAllocReadWriteLock"))
        return *status;
    const TALSTATUS status = real_->TalxAllocReadWriteLock(out);
    liveLocks_ += !Failed(status);
    return status;
}

TALSTATUS WatchedPlatform::TalxDestroyReadWriteLock(HANDLE lock)
{
    --liveLocks_;
    return real_->TalxDestroyReadWriteLock(lock);
}

TALSTATUS WatchedPlatform::TalxReleaseReadWriteLock(HANDLE lock)
{
    --heldLocks_;
    heldForWriting_ = false;
    return real_->TalxReleaseReadWriteLock(lock);
}

TALSTATUS WatchedPlatform::TalxGetSystemTime(UINT64* time)
{
    if (fixedTime == 0)
        return real_->TalxGetSystemTime(time);
    *time = fixedTime;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS WatchedPlatform::TalxRegisterModuleName(const char* name)
{
    moduleName = name;
    return real_->TalxRegisterModuleName(name);
}

} // namespace harness
