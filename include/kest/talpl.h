// SPDX-License-Identifier: Apache-2.0
//
// ITalpl, the platform layer: registry, lists, code pages, memory, timers, threads, strings,
// synchronisation, time. Created once per component from CLSID_HadranTalpl as IID_IHadranTalpl_1.
//
// Every operation may be called from any thread. Results are TALSTATUS unless another type stands
// in front; a failure carries kFacilityPlatform. Out-parameters are left alone on failure unless
// said otherwise. Times to wait are milliseconds; kTalxForever waits without end.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

enum TALX_REG_TYPE : UINT32 {
    TALX_REG_BINARY = 0,
    TALX_REG_UINT32 = 1,
    TALX_REG_SZ = 2,       // wide, with its terminator
    TALX_REG_MULTI_SZ = 3, // wide strings, each with its terminator, then one more terminator
    TALX_REG_UINT64 = 4,
};

enum TALX_KEY_ACCESS : UINT32 {
    TALX_KEY_READ = 0,
    TALX_KEY_WRITE = 1,
    TALX_KEY_ALL_ACCESS = 2,
};

// What TalxEnumerateKey returns. KeyNameLength counts bytes; the name has no terminator.
struct TALX_KEY_INFORMATION {
    UINT64 LastWriteTime;
    UINT32 Reserved;
    UINT32 KeyNameLength;
    WCHAR KeyName[1]; // variable
};

// What TalxQueryValueKey and TalxEnumerateValueKey return. ValueOffset counts from the record's
// start; KeyValueNameLength counts bytes, no terminator.
struct TALX_KEY_VALUE_INFORMATION {
    UINT32 Reserved;
    UINT32 ValueType; // a TALX_REG_TYPE
    UINT32 ValueOffset;
    UINT32 ValueLength; // bytes
    UINT32 KeyValueNameLength;
    WCHAR KeyValueName[1]; // variable
};

static_assert(sizeof(TALX_KEY_INFORMATION) == 24 &&
              offsetof(TALX_KEY_INFORMATION, KeyNameLength) == 12 &&
              offsetof(TALX_KEY_INFORMATION, KeyName) == 16);
static_assert(sizeof(TALX_KEY_VALUE_INFORMATION) == 24 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, ValueOffset) == 8 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, KeyValueName) == 20);

// Counts since the process started, and what is live now. Approximate only while other threads
// allocate; exact when they are quiet.
struct TALPL_STATISTICS {
    UINT64 LiveAllocations;  // blocks not yet given to TalxFreeMemory
    UINT64 LiveBytes;        // bytes asked for in those blocks
    UINT64 TotalAllocations; // successful ones
    UINT64 FailedAllocations;
    UINT64 OpenKeys;
    UINT64 LiveSyncObjects; // events, mutexes, locks, timers, work items, threads
};
static_assert(sizeof(TALPL_STATISTICS) == 48);

inline constexpr UINT32 kTalxForever = 0xFFFFFFFF;

// Code-page selectors.
inline constexpr UINT32 kCodePageUtf8 = 1;    // strict
inline constexpr UINT32 kCodePageUtf8Alt = 3; // the same as 1
inline constexpr UINT32 kCodePageLatin1 = 4;

using TALX_CALLBACK = void (*)(void* context);         // timers and work items
using TALX_THREAD_ROUTINE = UINT32 (*)(void* context); // result: the exit status

struct ITalpl : IUnknown {
    // -- Registry. Key paths are written whole ("Kest\Configuration\KestDav"); names compare
    //    without case. Enumeration is in the file's order.
    virtual TALSTATUS TalxCloseKey(HANDLE key) = 0;
    // Opens a key, making it and its parents if need be.
    virtual TALSTATUS TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out) = 0;
    // Removes the key with its values and subkeys.
    virtual TALSTATUS TalxDeleteKey(const WCHAR* key) = 0;
    // Fills a TALX_KEY_INFORMATION for subkey `index`. Code 9 past the last, 7 when `size` is short
    // (resultLength then holds the bytes needed).
    virtual TALSTATUS TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                       UINT32* resultLength) = 0;
    virtual TALSTATUS TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                            UINT32* resultLength) = 0;
    virtual TALSTATUS TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out) = 0;
    // Fills a TALX_KEY_VALUE_INFORMATION. Code 11 for a missing value, 7 when `size` is short.
    virtual TALSTATUS TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                        UINT32* resultLength) = 0;
    // Sets a value; the file is replaced atomically before this returns.
    virtual TALSTATUS TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type, const void* data,
                                      UINT32 size) = 0;
    virtual TALSTATUS TalxDebugBreakPoint() = 0;
    virtual TALSTATUS TalxDebugPrintf(const char* format, ...) = 0;

    // -- Lists.
    virtual TALSTATUS TalxInitializeListHead(LIST_ENTRY* head) = 0;
    virtual TALSTATUS TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry) = 0;
    virtual TALSTATUS TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry) = 0;
    virtual TALSTATUS TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry) = 0;
    virtual TALSTATUS TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry) = 0;
    virtual BOOLEAN TalxIsListEmpty(LIST_ENTRY* head) = 0;
    virtual TALSTATUS TalxRemoveEntryList(LIST_ENTRY* entry) = 0;
    virtual LIST_ENTRY* TalxRemoveHeadList(LIST_ENTRY* head) = 0; // null when empty
    virtual LIST_ENTRY* TalxRemoveTailList(LIST_ENTRY* head) = 0; // null when empty

    // -- Code pages. `units`/`bytes` hold the room on entry and what was used on return. Code 16
    // for
    //    malformed input, 7 when the room is short; nothing is written past the room.
    virtual TALSTATUS TalxCharUpperBuff(WCHAR* text, UINT32 units) = 0;
    virtual TALSTATUS TalxMultiByteToWideChar(UINT32 page, const char* in, UINT32 bytes, WCHAR* out,
                                              UINT32* units) = 0;
    virtual TALSTATUS TalxWideCharToMultiByte(UINT32 page, const WCHAR* in, UINT32 units, char* out,
                                              UINT32* bytes) = 0;

    // -- Memory. Null when short; aligned for every scalar type.
    virtual void* TalxAllocNonPagedMemory(UINT32 size) = 0;
    virtual void* TalxAllocPagedMemory(UINT32 size) = 0;
    virtual TALSTATUS TalxFreeMemory(void* memory) = 0; // null is allowed

    // -- Timers and work items. Callbacks run on a platform thread.
    virtual TALSTATUS TalxAllocTimer(HANDLE* out) = 0;
    virtual TALSTATUS TalxAllocWorkItem(HANDLE* out) = 0;
    virtual TALSTATUS TalxCancelTimer(HANDLE timer) = 0;
    virtual TALSTATUS TalxDestroyTimer(HANDLE timer) = 0;
    virtual TALSTATUS TalxDestroyWorkItem(HANDLE item) = 0;
    virtual TALSTATUS TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                        UINT32 delay) = 0;
    virtual TALSTATUS TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context) = 0;
    virtual TALSTATUS TalxSleep(UINT32 time) = 0;

    // -- Raw memory and NUL-terminated strings.
    virtual INT32 TalxCompareMemory(const void* a, const void* b, UINT32 size) = 0; // as memcmp
    virtual TALSTATUS TalxCopyMemory(void* to, const void* from, UINT32 size) = 0;
    virtual TALSTATUS TalxFillMemory(void* to, UINT32 size, UINT8 value) = 0;
    virtual TALSTATUS TalxMoveMemory(void* to, const void* from, UINT32 size) = 0;
    virtual UINT32 TalxStrHash(const char* text) = 0;
    virtual UINT32 TalxStrHashW(const WCHAR* text) = 0;
    virtual UINT32 TalxStrlen(const char* text) = 0;   // bytes
    virtual UINT32 TalxStrlenW(const WCHAR* text) = 0; // code units
    virtual TALSTATUS TalxZeroMemory(void* to, UINT32 size) = 0;

    // -- Counted strings. Copies and appends take at most MaximumLength bytes and write no
    //    terminator; an append that does not fit fails with code 7 and changes nothing. Comparisons
    //    give exactly -1, 0 or 1.
    virtual TALSTATUS TalxAppendUnicodeStringToString(UNICODE_STRING* to,
                                                      const UNICODE_STRING* from) = 0;
    virtual TALSTATUS TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from) = 0;
    virtual INT32 TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) = 0;
    virtual INT32 TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                           BOOLEAN ignoreCase) = 0;
    virtual TALSTATUS TalxCopyString(STRING* to, const STRING* from) = 0;
    virtual TALSTATUS TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from) = 0;
    virtual BOOLEAN TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) = 0;
    virtual BOOLEAN TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                           BOOLEAN ignoreCase) = 0;
    virtual TALSTATUS TalxInitString(STRING* to, const char* text) = 0;
    virtual TALSTATUS TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text) = 0;
    virtual TALSTATUS TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to) = 0;
    virtual TALSTATUS TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base,
                                                 UINT32* out) = 0;

    // -- Synchronisation. An acquire with wait FALSE, or a wait whose time is up, fails with
    // code 10.
    virtual TALSTATUS TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait) = 0;
    virtual TALSTATUS TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait) = 0;
    virtual TALSTATUS TalxAcquireMutex(HANDLE mutex, BOOLEAN wait) = 0;
    virtual TALSTATUS TalxAcquireSpinLock(HANDLE lock) = 0;
    virtual TALSTATUS TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out) = 0;
    virtual TALSTATUS TalxAllocMutex(HANDLE* out) = 0;
    virtual TALSTATUS TalxAllocReadWriteLock(HANDLE* out) = 0;
    virtual TALSTATUS TalxAllocSpinLock(HANDLE* out) = 0;
    virtual TALSTATUS TalxDestroyEvent(HANDLE event) = 0;
    virtual TALSTATUS TalxDestroyMutex(HANDLE mutex) = 0;
    virtual TALSTATUS TalxDestroyReadWriteLock(HANDLE lock) = 0;
    virtual TALSTATUS TalxDestroySpinLock(HANDLE lock) = 0;
    virtual UINT32 TalxGetCurrentIrql() = 0;                    // always 0: there is one level
    virtual UINT32 TalxInterlockedDecrement(UINT32* value) = 0; // the new value
    virtual UINT32 TalxInterlockedExchange(UINT32* value, UINT32 newValue) = 0; // the old value
    virtual UINT32 TalxInterlockedIncrement(UINT32* value) = 0;                 // the new value
    virtual TALSTATUS TalxReleaseMutex(HANDLE mutex) = 0;
    virtual TALSTATUS TalxReleaseReadWriteLock(HANDLE lock) = 0;
    virtual TALSTATUS TalxReleaseSpinLock(HANDLE lock) = 0;
    virtual TALSTATUS TalxResetEvent(HANDLE event) = 0;
    virtual TALSTATUS TalxSignalEvent(HANDLE event) = 0;
    // Waits for all of the events, or for one of them whose index goes to *index (may be null).
    virtual TALSTATUS TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events, BOOLEAN all,
                                                UINT32 time, UINT32* index) = 0;
    virtual TALSTATUS TalxWaitForSingleEvent(HANDLE event, UINT32 time) = 0;

    // -- Threads.
    virtual TALSTATUS TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out) = 0;
    virtual TALSTATUS TalxDestroyThread(HANDLE thread) = 0; // after it has ended
    virtual TALSTATUS TalxExitThread(UINT32 status) = 0;    // ends the calling platform thread
    virtual TALSTATUS TalxGetThreadExitStatus(HANDLE thread, UINT32* status) = 0;
    virtual TALSTATUS TalxSetThreadPriority(HANDLE thread, INT32 priority) = 0; // nice value
    virtual TALSTATUS TalxWaitForThreadExit(HANDLE thread, UINT32 time) = 0;

    // -- Time and the rest.
    virtual TALSTATUS TalxGetSystemTime(UINT64* time) = 0; // 100 ns units since 1601-01-01 UTC
    virtual TALSTATUS TalxRegisterModuleName(const char* name) = 0;
    virtual TALSTATUS TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out) = 0;
    virtual TALSTATUS TalxDeleteValue(HANDLE key, const WCHAR* name) = 0;

  protected:
    ~ITalpl() = default;
};

// Makes allocations of the platform layer fail on demand. Reached with QueryInterface from ITalpl,
// and only in a process that was started with TOLM_FAULT_INJECTION=1 in its environment.
struct ITalplFaultInjection : IUnknown {
    // The `nth` allocation from now on (1 is the next) of the whole process fails; with `andAfter`
    // every later one too. 0 switches the injection off.
    virtual TALSTATUS FailAllocation(UINT64 nth, BOOLEAN andAfter) = 0;
    // Allocations asked for since the last FailAllocation.
    virtual TALSTATUS GetAllocationCount(UINT64* count) = 0;

  protected:
    ~ITalplFaultInjection() = default;
};
