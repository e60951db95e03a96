// SPDX-License-Identifier: Apache-2.0
//
// The one object behind CLSID_HadranTalpl. Its operations are defined by topic: registry_keys,
// debug, lists, codepage, memory, work (timers and work items), strings, sync, events, threads.
#pragma once

#include <kest/talpl.h>

namespace tolm {

class Talpl final : public ITalpl {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override;
    UINT32 Release() override;

    TALSTATUS TalxCloseKey(HANDLE key) override;
    TALSTATUS TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out) override;
    TALSTATUS TalxDeleteKey(const WCHAR* key) override;
    TALSTATUS TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                               UINT32* resultLength) override;
    TALSTATUS TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                    UINT32* resultLength) override;
    TALSTATUS TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out) override;
    TALSTATUS TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                UINT32* resultLength) override;
    TALSTATUS TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type, const void* data,
                              UINT32 size) override;
    TALSTATUS TalxDebugBreakPoint() override;
    TALSTATUS TalxDebugPrintf(const char* format, ...) override;
    TALSTATUS TalxInitializeListHead(LIST_ENTRY* head) override;
    TALSTATUS TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry) override;
    TALSTATUS TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry) override;
    TALSTATUS TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry) override;
    TALSTATUS TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry) override;
    BOOLEAN TalxIsListEmpty(LIST_ENTRY* head) override;
    TALSTATUS TalxRemoveEntryList(LIST_ENTRY* entry) override;
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
    TALSTATUS TalxAllocTimer(HANDLE* out) override;
    TALSTATUS TalxAllocWorkItem(HANDLE* out) override;
    TALSTATUS TalxCancelTimer(HANDLE timer) override;
    TALSTATUS TalxDestroyTimer(HANDLE timer) override;
    TALSTATUS TalxDestroyWorkItem(HANDLE item) override;
    TALSTATUS TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                UINT32 delay) override;
    TALSTATUS TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context) override;
    TALSTATUS TalxSleep(UINT32 time) override;
    INT32 TalxCompareMemory(const void* a, const void* b, UINT32 size) override;
    TALSTATUS TalxCopyMemory(void* to, const void* from, UINT32 size) override;
    TALSTATUS TalxFillMemory(void* to, UINT32 size, UINT8 value) override;
    TALSTATUS TalxMoveMemory(void* to, const void* from, UINT32 size) override;
    UINT32 TalxStrHash(const char* text) override;
    UINT32 TalxStrHashW(const WCHAR* text) override;
    UINT32 TalxStrlen(const char* text) override;
    UINT32 TalxStrlenW(const WCHAR* text) override;
    TALSTATUS TalxZeroMemory(void* to, UINT32 size) override;
    TALSTATUS TalxAppendUnicodeStringToString(UNICODE_STRING* to,
                                              const UNICODE_STRING* from) override;
    TALSTATUS TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from) override;
    INT32 TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) override;
    INT32 TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                   BOOLEAN ignoreCase) override;
    TALSTATUS TalxCopyString(STRING* to, const STRING* from) override;
    TALSTATUS TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from) override;
    BOOLEAN TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) override;
    BOOLEAN TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                   BOOLEAN ignoreCase) override;
    TALSTATUS TalxInitString(STRING* to, const char* text) override;
    TALSTATUS TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text) override;
    TALSTATUS TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to) override;
    TALSTATUS TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base,
                                         UINT32* out) override;
    TALSTATUS TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait) override;
    TALSTATUS TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait) override;
    TALSTATUS TalxAcquireMutex(HANDLE mutex, BOOLEAN wait) override;
    TALSTATUS TalxAcquireSpinLock(HANDLE lock) override;
    TALSTATUS TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out) override;
    TALSTATUS TalxAllocMutex(HANDLE* out) override;
    TALSTATUS TalxAllocReadWriteLock(HANDLE* out) override;
    TALSTATUS TalxAllocSpinLock(HANDLE* out) override;
    TALSTATUS TalxDestroyEvent(HANDLE event) override;
    TALSTATUS TalxDestroyMutex(HANDLE mutex) override;
    TALSTATUS TalxDestroyReadWriteLock(HANDLE lock) override;
    TALSTATUS TalxDestroySpinLock(HANDLE lock) override;
    UINT32 TalxGetCurrentIrql() override;
    UINT32 TalxInterlockedDecrement(UINT32* value) override;
    UINT32 TalxInterlockedExchange(UINT32* value, UINT32 newValue) override;
    UINT32 TalxInterlockedIncrement(UINT32* value) override;
    TALSTATUS TalxReleaseMutex(HANDLE mutex) override;
    TALSTATUS TalxReleaseReadWriteLock(HANDLE lock) override;
    TALSTATUS TalxReleaseSpinLock(HANDLE lock) override;
    TALSTATUS TalxResetEvent(HANDLE event) override;
    TALSTATUS TalxSignalEvent(HANDLE event) override;
    TALSTATUS TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events, BOOLEAN all,
                                        UINT32 time, UINT32* index) override;
    TALSTATUS TalxWaitForSingleEvent(HANDLE event, UINT32 time) override;
    TALSTATUS TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out) override;
    TALSTATUS TalxDestroyThread(HANDLE thread) override;
    TALSTATUS TalxExitThread(UINT32 status) override;
    TALSTATUS TalxGetThreadExitStatus(HANDLE thread, UINT32* status) override;
    TALSTATUS TalxSetThreadPriority(HANDLE thread, INT32 priority) override;
    TALSTATUS TalxWaitForThreadExit(HANDLE thread, UINT32 time) override;
    TALSTATUS TalxGetSystemTime(UINT64* time) override;
    TALSTATUS TalxRegisterModuleName(const char* name) override;
    TALSTATUS TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out) override;
    TALSTATUS TalxDeleteValue(HANDLE key, const WCHAR* name) override;
};

// Lives as long as the process; counts references only to answer AddRef and Release.
Talpl& SharedTalpl() noexcept;

// The shared object for tests (memory.cpp), or null unless the process was started with
// TOLM_FAULT_INJECTION=1.
ITalplFaultInjection* FaultInjection() noexcept;

} // namespace tolm
