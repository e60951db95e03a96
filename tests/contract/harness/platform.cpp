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

TALSTATUS WatchedPlatform::TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out)
{
    return real_->TalxCreateKey(key, access, out);
}

TALSTATUS WatchedPlatform::TalxDeleteKey(const WCHAR* key)
{
    return real_->TalxDeleteKey(key);
}

TALSTATUS WatchedPlatform::TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                            UINT32* resultLength)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxEnumerateKey"))
        return *status;
    return real_->TalxEnumerateKey(key, index, info, size, resultLength);
}

TALSTATUS WatchedPlatform::TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                                 UINT32* resultLength)
{
    return real_->TalxEnumerateValueKey(key, index, info, size, resultLength);
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

TALSTATUS WatchedPlatform::TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type,
                                           const void* data, UINT32 size)
{
    return real_->TalxSetValueKey(key, name, type, data, size);
}

TALSTATUS WatchedPlatform::TalxDebugBreakPoint()
{
    return real_->TalxDebugBreakPoint();
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

TALSTATUS WatchedPlatform::TalxInitializeListHead(LIST_ENTRY* head)
{
    return real_->TalxInitializeListHead(head);
}

TALSTATUS WatchedPlatform::TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry)
{
    return real_->TalxInsertEntryAfter(where, entry);
}

TALSTATUS WatchedPlatform::TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry)
{
    return real_->TalxInsertEntryBefore(where, entry);
}

TALSTATUS WatchedPlatform::TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry)
{
    return real_->TalxInsertHeadList(head, entry);
}

TALSTATUS WatchedPlatform::TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry)
{
    return real_->TalxInsertTailList(head, entry);
}

BOOLEAN WatchedPlatform::TalxIsListEmpty(LIST_ENTRY* head)
{
    return real_->TalxIsListEmpty(head);
}

TALSTATUS WatchedPlatform::TalxRemoveEntryList(LIST_ENTRY* entry)
{
    return real_->TalxRemoveEntryList(entry);
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

TALSTATUS WatchedPlatform::TalxAllocTimer(HANDLE* out)
{
    return real_->TalxAllocTimer(out);
}

TALSTATUS WatchedPlatform::TalxAllocWorkItem(HANDLE* out)
{
    return real_->TalxAllocWorkItem(out);
}

TALSTATUS WatchedPlatform::TalxCancelTimer(HANDLE timer)
{
    return real_->TalxCancelTimer(timer);
}

TALSTATUS WatchedPlatform::TalxDestroyTimer(HANDLE timer)
{
    return real_->TalxDestroyTimer(timer);
}

TALSTATUS WatchedPlatform::TalxDestroyWorkItem(HANDLE item)
{
    return real_->TalxDestroyWorkItem(item);
}

TALSTATUS WatchedPlatform::TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                             UINT32 delay)
{
    return real_->TalxScheduleTimer(timer, callback, context, delay);
}

TALSTATUS WatchedPlatform::TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context)
{
    return real_->TalxScheduleWorkItem(item, callback, context);
}

TALSTATUS WatchedPlatform::TalxSleep(UINT32 time)
{
    return real_->TalxSleep(time);
}

INT32 WatchedPlatform::TalxCompareMemory(const void* a, const void* b, UINT32 size)
{
    return real_->TalxCompareMemory(a, b, size);
}

TALSTATUS WatchedPlatform::TalxCopyMemory(void* to, const void* from, UINT32 size)
{
    return real_->TalxCopyMemory(to, from, size);
}

TALSTATUS WatchedPlatform::TalxFillMemory(void* to, UINT32 size, UINT8 value)
{
    return real_->TalxFillMemory(to, size, value);
}

TALSTATUS WatchedPlatform::TalxMoveMemory(void* to, const void* from, UINT32 size)
{
    return real_->TalxMoveMemory(to, from, size);
}

UINT32 WatchedPlatform::TalxStrHash(const char* text)
{
    return real_->TalxStrHash(text);
}

UINT32 WatchedPlatform::TalxStrHashW(const WCHAR* text)
{
    return real_->TalxStrHashW(text);
}

UINT32 WatchedPlatform::TalxStrlen(const char* text)
{
    return real_->TalxStrlen(text);
}

UINT32 WatchedPlatform::TalxStrlenW(const WCHAR* text)
{
    return real_->TalxStrlenW(text);
}

TALSTATUS WatchedPlatform::TalxZeroMemory(void* to, UINT32 size)
{
    return real_->TalxZeroMemory(to, size);
}

TALSTATUS WatchedPlatform::TalxAppendUnicodeStringToString(UNICODE_STRING* to,
                                                           const UNICODE_STRING* from)
{
    return real_->TalxAppendUnicodeStringToString(to, from);
}

TALSTATUS WatchedPlatform::TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from)
{
    return real_->TalxAppendUnicodeToString(to, from);
}

INT32 WatchedPlatform::TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase)
{
    return real_->TalxCompareString(a, b, ignoreCase);
}

INT32 WatchedPlatform::TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                                BOOLEAN ignoreCase)
{
    return real_->TalxCompareUnicodeString(a, b, ignoreCase);
}

TALSTATUS WatchedPlatform::TalxCopyString(STRING* to, const STRING* from)
{
    return real_->TalxCopyString(to, from);
}

TALSTATUS WatchedPlatform::TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from)
{
    return real_->TalxCopyUnicodeString(to, from);
}

BOOLEAN WatchedPlatform::TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase)
{
    return real_->TalxEqualString(a, b, ignoreCase);
}

BOOLEAN WatchedPlatform::TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                                BOOLEAN ignoreCase)
{
    return real_->TalxEqualUnicodeString(a, b, ignoreCase);
}

TALSTATUS WatchedPlatform::TalxInitString(STRING* to, const char* text)
{
    return real_->TalxInitString(to, text);
}

TALSTATUS WatchedPlatform::TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text)
{
    return real_->TalxInitUnicodeString(to, text);
}

TALSTATUS WatchedPlatform::TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to)
{
    return real_->TalxIntegerToUnicodeString(value, base, to);
}

TALSTATUS WatchedPlatform::TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base,
                                                      UINT32* out)
{
    return real_->TalxUnicodeStringToInteger(text, base, out);
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

TALSTATUS WatchedPlatform::TalxAcquireMutex(HANDLE mutex, BOOLEAN wait)
{
    return real_->TalxAcquireMutex(mutex, wait);
}

TALSTATUS WatchedPlatform::TalxAcquireSpinLock(HANDLE lock)
{
    return real_->TalxAcquireSpinLock(lock);
}

TALSTATUS WatchedPlatform::TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out)
{
    return real_->TalxAllocEvent(manualReset, signaled, out);
}

TALSTATUS WatchedPlatform::TalxAllocMutex(HANDLE* out)
{
    return real_->TalxAllocMutex(out);
}

TALSTATUS WatchedPlatform::TalxAllocReadWriteLock(HANDLE* out)
{
    if (const auto status = recorder_.EnterUnlisted("platform.TalxAllocReadWriteLock"))
        return *status;
    const TALSTATUS status = real_->TalxAllocReadWriteLock(out);
    liveLocks_ += !Failed(status);
    return status;
}

TALSTATUS WatchedPlatform::TalxAllocSpinLock(HANDLE* out)
{
    return real_->TalxAllocSpinLock(out);
}

TALSTATUS WatchedPlatform::TalxDestroyEvent(HANDLE event)
{
    return real_->TalxDestroyEvent(event);
}

TALSTATUS WatchedPlatform::TalxDestroyMutex(HANDLE mutex)
{
    return real_->TalxDestroyMutex(mutex);
}

TALSTATUS WatchedPlatform::TalxDestroyReadWriteLock(HANDLE lock)
{
    --liveLocks_;
    return real_->TalxDestroyReadWriteLock(lock);
}

TALSTATUS WatchedPlatform::TalxDestroySpinLock(HANDLE lock)
{
    return real_->TalxDestroySpinLock(lock);
}

UINT32 WatchedPlatform::TalxGetCurrentIrql()
{
    return real_->TalxGetCurrentIrql();
}

UINT32 WatchedPlatform::TalxInterlockedDecrement(UINT32* value)
{
    return real_->TalxInterlockedDecrement(value);
}

UINT32 WatchedPlatform::TalxInterlockedExchange(UINT32* value, UINT32 newValue)
{
    return real_->TalxInterlockedExchange(value, newValue);
}

UINT32 WatchedPlatform::TalxInterlockedIncrement(UINT32* value)
{
    return real_->TalxInterlockedIncrement(value);
}

TALSTATUS WatchedPlatform::TalxReleaseMutex(HANDLE mutex)
{
    return real_->TalxReleaseMutex(mutex);
}

TALSTATUS WatchedPlatform::TalxReleaseReadWriteLock(HANDLE lock)
{
    --heldLocks_;
    heldForWriting_ = false;
    return real_->TalxReleaseReadWriteLock(lock);
}

TALSTATUS WatchedPlatform::TalxReleaseSpinLock(HANDLE lock)
{
    return real_->TalxReleaseSpinLock(lock);
}

TALSTATUS WatchedPlatform::TalxResetEvent(HANDLE event)
{
    return real_->TalxResetEvent(event);
}

TALSTATUS WatchedPlatform::TalxSignalEvent(HANDLE event)
{
    return real_->TalxSignalEvent(event);
}

TALSTATUS WatchedPlatform::TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events,
                                                     BOOLEAN all, UINT32 time, UINT32* index)
{
    return real_->TalxWaitForMultipleEvents(count, events, all, time, index);
}

TALSTATUS WatchedPlatform::TalxWaitForSingleEvent(HANDLE event, UINT32 time)
{
    return real_->TalxWaitForSingleEvent(event, time);
}

TALSTATUS WatchedPlatform::TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out)
{
    return real_->TalxCreateThread(routine, context, out);
}

TALSTATUS WatchedPlatform::TalxDestroyThread(HANDLE thread)
{
    return real_->TalxDestroyThread(thread);
}

TALSTATUS WatchedPlatform::TalxExitThread(UINT32 status)
{
    return real_->TalxExitThread(status);
}

TALSTATUS WatchedPlatform::TalxGetThreadExitStatus(HANDLE thread, UINT32* status)
{
    return real_->TalxGetThreadExitStatus(thread, status);
}

TALSTATUS WatchedPlatform::TalxSetThreadPriority(HANDLE thread, INT32 priority)
{
    return real_->TalxSetThreadPriority(thread, priority);
}

TALSTATUS WatchedPlatform::TalxWaitForThreadExit(HANDLE thread, UINT32 time)
{
    return real_->TalxWaitForThreadExit(thread, time);
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

TALSTATUS WatchedPlatform::TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out)
{
    return real_->TalxGetGeneralTalplStatistics(out);
}

TALSTATUS WatchedPlatform::TalxDeleteValue(HANDLE key, const WCHAR* name)
{
    return real_->TalxDeleteValue(key, name);
}

} // namespace harness
