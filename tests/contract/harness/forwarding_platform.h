// SPDX-License-Identifier: Apache-2.0
//
// Operations of the platform layer that nobody watches: they go to the real one.
#pragma once

#include <kest/talpl.h>

namespace harness {

// A base: what it leaves out is to be implemented.
class ForwardingPlatform : public ITalpl {
  public:
    TALSTATUS TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out) override
    {
        return real_->TalxCreateKey(key, access, out);
    }
    TALSTATUS TalxDeleteKey(const WCHAR* key) override { return real_->TalxDeleteKey(key); }
    TALSTATUS TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                    UINT32* resultLength) override
    {
        return real_->TalxEnumerateValueKey(key, index, info, size, resultLength);
    }
    TALSTATUS TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type, const void* data,
                              UINT32 size) override
    {
        return real_->TalxSetValueKey(key, name, type, data, size);
    }
    TALSTATUS TalxDebugBreakPoint() override { return real_->TalxDebugBreakPoint(); }
    TALSTATUS TalxInitializeListHead(LIST_ENTRY* head) override
    {
        return real_->TalxInitializeListHead(head);
    }
    TALSTATUS TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry) override
    {
        return real_->TalxInsertEntryAfter(where, entry);
    }
    TALSTATUS TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry) override
    {
        return real_->TalxInsertEntryBefore(where, entry);
    }
    TALSTATUS TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry) override
    {
        return real_->TalxInsertHeadList(head, entry);
    }
    TALSTATUS TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry) override
    {
        return real_->TalxInsertTailList(head, entry);
    }
    BOOLEAN TalxIsListEmpty(LIST_ENTRY* head) override { return real_->TalxIsListEmpty(head); }
    TALSTATUS TalxRemoveEntryList(LIST_ENTRY* entry) override
    {
        return real_->TalxRemoveEntryList(entry);
    }
    TALSTATUS TalxAllocTimer(HANDLE* out) override { return real_->TalxAllocTimer(out); }
    TALSTATUS TalxAllocWorkItem(HANDLE* out) override { return real_->TalxAllocWorkItem(out); }
    TALSTATUS TalxCancelTimer(HANDLE timer) override { return real_->TalxCancelTimer(timer); }
    TALSTATUS TalxDestroyTimer(HANDLE timer) override { return real_->TalxDestroyTimer(timer); }
    TALSTATUS TalxDestroyWorkItem(HANDLE item) override { return real_->TalxDestroyWorkItem(item); }
    TALSTATUS TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                UINT32 delay) override
    {
        return real_->TalxScheduleTimer(timer, callback, context, delay);
    }
    TALSTATUS TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context) override
    {
        return real_->TalxScheduleWorkItem(item, callback, context);
    }
    TALSTATUS TalxSleep(UINT32 time) override { return real_->TalxSleep(time); }
    INT32 TalxCompareMemory(const void* a, const void* b, UINT32 size) override
    {
        return real_->TalxCompareMemory(a, b, size);
    }
    TALSTATUS TalxCopyMemory(void* to, const void* from, UINT32 size) override
    {
        return real_->TalxCopyMemory(to, from, size);
    }
    TALSTATUS TalxFillMemory(void* to, UINT32 size, UINT8 value) override
    {
        return real_->TalxFillMemory(to, size, value);
    }
    TALSTATUS TalxMoveMemory(void* to, const void* from, UINT32 size) override
    {
        return real_->TalxMoveMemory(to, from, size);
    }
    UINT32 TalxStrHash(const char* text) override { return real_->TalxStrHash(text); }
    UINT32 TalxStrHashW(const WCHAR* text) override { return real_->TalxStrHashW(text); }
    UINT32 TalxStrlen(const char* text) override { return real_->TalxStrlen(text); }
    UINT32 TalxStrlenW(const WCHAR* text) override { return real_->TalxStrlenW(text); }
    TALSTATUS TalxZeroMemory(void* to, UINT32 size) override
    {
        return real_->TalxZeroMemory(to, size);
    }
    TALSTATUS TalxAppendUnicodeStringToString(UNICODE_STRING* to,
                                              const UNICODE_STRING* from) override
    {
        return real_->TalxAppendUnicodeStringToString(to, from);
    }
    TALSTATUS TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from) override
    {
        return real_->TalxAppendUnicodeToString(to, from);
    }
    INT32 TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) override
    {
        return real_->TalxCompareString(a, b, ignoreCase);
    }
    INT32 TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                   BOOLEAN ignoreCase) override
    {
        return real_->TalxCompareUnicodeString(a, b, ignoreCase);
    }
    TALSTATUS TalxCopyString(STRING* to, const STRING* from) override
    {
        return real_->TalxCopyString(to, from);
    }
    TALSTATUS TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from) override
    {
        return real_->TalxCopyUnicodeString(to, from);
    }
    BOOLEAN TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) override
    {
        return real_->TalxEqualString(a, b, ignoreCase);
    }
    BOOLEAN TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                   BOOLEAN ignoreCase) override
    {
        return real_->TalxEqualUnicodeString(a, b, ignoreCase);
    }
    TALSTATUS TalxInitString(STRING* to, const char* text) override
    {
        return real_->TalxInitString(to, text);
    }
    TALSTATUS TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text) override
    {
        return real_->TalxInitUnicodeString(to, text);
    }
    TALSTATUS TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to) override
    {
        return real_->TalxIntegerToUnicodeString(value, base, to);
    }
    TALSTATUS TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base,
                                         UINT32* out) override
    {
        return real_->TalxUnicodeStringToInteger(text, base, out);
    }
    TALSTATUS TalxAcquireMutex(HANDLE mutex, BOOLEAN wait) override
    {
        return real_->TalxAcquireMutex(mutex, wait);
    }
    TALSTATUS TalxAcquireSpinLock(HANDLE lock) override { return real_->TalxAcquireSpinLock(lock); }
    TALSTATUS TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out) override
    {
        return real_->TalxAllocEvent(manualReset, signaled, out);
    }
    TALSTATUS TalxAllocMutex(HANDLE* out) override { return real_->TalxAllocMutex(out); }
    TALSTATUS TalxAllocSpinLock(HANDLE* out) override { return real_->TalxAllocSpinLock(out); }
    TALSTATUS TalxDestroyEvent(HANDLE event) override { return real_->TalxDestroyEvent(event); }
    TALSTATUS TalxDestroyMutex(HANDLE mutex) override { return real_->TalxDestroyMutex(mutex); }
    TALSTATUS TalxDestroySpinLock(HANDLE lock) override { return real_->TalxDestroySpinLock(lock); }
    UINT32 TalxGetCurrentIrql() override { return real_->TalxGetCurrentIrql(); }
    UINT32 TalxInterlockedDecrement(UINT32* value) override
    {
        return real_->TalxInterlockedDecrement(value);
    }
    UINT32 TalxInterlockedExchange(UINT32* value, UINT32 newValue) override
    {
        return real_->TalxInterlockedExchange(value, newValue);
    }
    UINT32 TalxInterlockedIncrement(UINT32* value) override
    {
        return real_->TalxInterlockedIncrement(value);
    }
    TALSTATUS TalxReleaseMutex(HANDLE mutex) override { return real_->TalxReleaseMutex(mutex); }
    TALSTATUS TalxReleaseSpinLock(HANDLE lock) override { return real_->TalxReleaseSpinLock(lock); }
    TALSTATUS TalxResetEvent(HANDLE event) override { return real_->TalxResetEvent(event); }
    TALSTATUS TalxSignalEvent(HANDLE event) override { return real_->TalxSignalEvent(event); }
    TALSTATUS TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events, BOOLEAN all,
                                        UINT32 time, UINT32* index) override
    {
        return real_->TalxWaitForMultipleEvents(count, events, all, time, index);
    }
    TALSTATUS TalxWaitForSingleEvent(HANDLE event, UINT32 time) override
    {
        return real_->TalxWaitForSingleEvent(event, time);
    }
    TALSTATUS TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out) override
    {
        return real_->TalxCreateThread(routine, context, out);
    }
    TALSTATUS TalxDestroyThread(HANDLE thread) override { return real_->TalxDestroyThread(thread); }
    TALSTATUS TalxExitThread(UINT32 status) override { return real_->TalxExitThread(status); }
    TALSTATUS TalxGetThreadExitStatus(HANDLE thread, UINT32* status) override
    {
        return real_->TalxGetThreadExitStatus(thread, status);
    }
    TALSTATUS TalxSetThreadPriority(HANDLE thread, INT32 priority) override
    {
        return real_->TalxSetThreadPriority(thread, priority);
    }
    TALSTATUS TalxWaitForThreadExit(HANDLE thread, UINT32 time) override
    {
        return real_->TalxWaitForThreadExit(thread, time);
    }
    TALSTATUS TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out) override
    {
        return real_->TalxGetGeneralTalplStatistics(out);
    }
    TALSTATUS TalxDeleteValue(HANDLE key, const WCHAR* name) override
    {
        return real_->TalxDeleteValue(key, name);
    }

  protected:
    explicit ForwardingPlatform(ITalpl* real) : real_(real) {}
    ~ForwardingPlatform() = default;
    ITalpl* real_; // owned by the process
};

} // namespace harness
