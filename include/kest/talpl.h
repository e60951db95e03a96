// SPDX-License-Identifier: Apache-2.0
//
// ITalpl, the platform layer: registry, lists, code pages, memory, timers, threads, strings,
// synchronisation, time. Implemented by libtolm.so; created once per component from
// CLSID_HadranTalpl as IID_IHadranTalpl_1.
//
// Every operation may be called from any thread; those tagged "one at a time" work on a caller's
// list or string, which the caller guards. dav.h says what the tags mean. Results are TALSTATUS
// unless another type stands in front; a failure carries kFacilityPlatform. Out-parameters are left
// alone on failure unless said otherwise. Times to wait are milliseconds; kTalxForever waits
// without end.
#pragma once

#include <kest/talpl_fault_injection.h>
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
// LastWriteTime is the file's: 100 ns units since 1601.
struct TALX_KEY_INFORMATION {
    UINT64 LastWriteTime;
    UINT32 Reserved;
    UINT32 KeyNameLength;
    WCHAR KeyName[1]; // variable
};

// What TalxQueryValueKey and TalxEnumerateValueKey return. ValueOffset counts from the record's
// start; KeyValueNameLength counts bytes, no terminator. The data follows the name at its type's
// alignment: 2 for strings, 4 or 8 for numbers.
struct TALX_KEY_VALUE_INFORMATION {
    UINT32 Reserved;
    UINT32 ValueType; // a TALX_REG_TYPE
    UINT32 ValueOffset;
    UINT32 ValueLength; // bytes
    UINT32 KeyValueNameLength;
    WCHAR KeyValueName[1]; // variable
};

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

inline constexpr UINT32 kTalxForever = 0xFFFFFFFF;

// Code-page selectors.
inline constexpr UINT32 kCodePageUtf8 = 1;    // strict
inline constexpr UINT32 kCodePageUtf8Alt = 3; // the same as 1
inline constexpr UINT32 kCodePageLatin1 = 4;

using TALX_CALLBACK = void (*)(void* context);         // timers and work items
using TALX_THREAD_ROUTINE = UINT32 (*)(void* context); // result: the exit status

struct ITalpl : IUnknown {
    // -- Registry. Key paths are written whole ("Kest\Configuration\KestDav"): names joined by
    //    single backslashes, at most 1024 code units; a value's name has 1 to 1024. Names compare
    //    without case. Enumeration is in the file's order. Reading never waits for a file. A handle
    //    stands for its path: what it reads is the registry of the moment, and after the key was
    //    deleted (or is not in a file that was loaded since) its operations fail with code 11.
    //    Code 4 is for a malformed path or name, a null pointer, or a handle that is no open key;
    //    code 6 for what the handle was not opened for.
    //
    //    Changes are written back before the operation returns: a new file replaces the old one in
    //    one step, with its permissions; comments and order stay. When that fails, file and
    //    registry are as before: code 6 (no permission), 33 (the file was edited and has not been
    //    loaded again), 35 (no space), 16 (the file could not be loaded with the change), 1 (other,
    //    logged). What the command line set is never written, and cannot be deleted (code 6).

    // Gives the handle back. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxCloseKey(HANDLE key) = 0;
    // Opens a key, making it and its parents if need be. `access` is a TALX_KEY_ACCESS.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out) = 0;
    // Removes the key with its values and subkeys. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDeleteKey(const WCHAR* key) = 0;
    // Fills a TALX_KEY_INFORMATION for subkey `index` (from 0). Code 9 past the last, 7 when `size`
    // bytes are too few: nothing is written then, and *resultLength (may be null) has the bytes
    // needed. A key without a header of its own counts as a subkey when keys below it exist.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                       UINT32* resultLength) = 0;
    // The same for values, with a TALX_KEY_VALUE_INFORMATION. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                            UINT32* resultLength) = 0;
    // Opens a key that exists; code 11 when it does not. The handle goes back with TalxCloseKey.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out) = 0;
    // Fills a TALX_KEY_VALUE_INFORMATION. Code 11 for a missing value, 7 as above.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                        UINT32* resultLength) = 0;
    // Sets a value of `size` bytes, at most 1 MiB. Strings are well-formed UTF-16 with their
    // terminators, numbers at most 2^63 - 1 (else code 16); binary data has no place in the file
    // (code 28). [any thread; concurrent; no reply]
    virtual TALSTATUS TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type, const void* data,
                                      UINT32 size) = 0;

    // -- Debugging.

    // Stops in the debugger that is attached. Code 28 without one; the process then goes on.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDebugBreakPoint() = 0;
    // Writes one line to the log, as printf would, under the name that the calling library
    // registered (else its file name). At most 1023 bytes; the rest is cut.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDebugPrintf(const char* format, ...) = 0;

    // -- Lists. Nothing is allocated and nothing locked. Null pointers: code 4.

    // Makes an empty list. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInitializeListHead(LIST_ENTRY* head) = 0;
    // Puts `entry`, which is in no list, behind `where`. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry) = 0;
    // Puts `entry`, which is in no list, before `where`. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry) = 0;
    // Puts `entry`, which is in no list, first. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry) = 0;
    // Puts `entry`, which is in no list, last. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry) = 0;
    // 1 when the list has no entry; a null head is an empty list.
    // [any thread; one at a time; no reply]
    virtual BOOLEAN TalxIsListEmpty(LIST_ENTRY* head) = 0;
    // Takes the entry out of whatever list it is in. Its links then point to itself, so that
    // removing it once more does no harm. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxRemoveEntryList(LIST_ENTRY* entry) = 0;
    // Takes the first entry out and returns it; null when the list is empty.
    // [any thread; one at a time; no reply]
    virtual LIST_ENTRY* TalxRemoveHeadList(LIST_ENTRY* head) = 0;
    // Takes the last entry out and returns it; null when the list is empty.
    // [any thread; one at a time; no reply]
    virtual LIST_ENTRY* TalxRemoveTailList(LIST_ENTRY* head) = 0;

    // -- Code pages. Lengths are what the text takes, without a terminator; none is read or
    //    written. `units` (code units of the wide text) and `bytes` hold the room on entry and what
    //    was used on return. Code 7 when the room is short: the count then is what is needed, and
    //    `out` has an unspecified beginning of the text; a room of 0 with a null `out` asks for the
    //    count. Code 16 for text that is malformed anywhere, also past the end of a short room:
    //    UTF-8 that is overlong, cut, a surrogate or past U+10FFFF; unpaired surrogates; characters
    //    that Latin-1 does not have. Nothing is ever written past the room. Code 28 for an unknown
    //    selector, 4 for null pointers or more than 715,827,882 units to convert.

    // Upper-cases in place with Unicode's simple mappings, which never change the length. Unpaired
    // surrogates stay as they are. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxCharUpperBuff(WCHAR* text, UINT32 units) = 0;
    // Converts to UTF-16. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxMultiByteToWideChar(UINT32 page, const char* in, UINT32 bytes, WCHAR* out,
                                              UINT32* units) = 0;
    // Converts from UTF-16. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxWideCharToMultiByte(UINT32 page, const WCHAR* in, UINT32 units, char* out,
                                              UINT32* bytes) = 0;

    // -- Memory. Blocks of `size` bytes (0 gives a block of its own), aligned for every scalar
    //    type, not cleared. Null when memory is short. "Paged" and "non-paged" are the same here.

    // A block of `size` bytes, which TalxFreeMemory takes back; null when memory is short.
    // [any thread; concurrent; no reply]
    virtual void* TalxAllocNonPagedMemory(UINT32 size) = 0;
    // A block of `size` bytes; null when memory is short. [any thread; concurrent; no reply]
    virtual void* TalxAllocPagedMemory(UINT32 size) = 0;
    // Any thread may free any block. Null is allowed. Code 4 for what is recognised as no live
    // block, which is a last resort and no licence to try. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxFreeMemory(void* memory) = 0;

    // -- Timers and work items. Callbacks run on one of four platform threads, which start with the
    //    first use; a callback that blocks for long keeps others waiting. A timer or item is
    //    scheduled at most once at a time, and may be scheduled again as soon as its callback has
    //    begun, from inside it too. Handles that are none of the kind: code 4.

    // Makes a timer. Code 5 without memory. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocTimer(HANDLE* out) = 0;
    // Makes a work item. Code 5 without memory. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocWorkItem(HANDLE* out) = 0;
    // Takes the timer back and waits until its callback, if it runs, has returned (not when called
    // from that callback). Code 11 when it was not scheduled; it has waited all the same.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxCancelTimer(HANDLE timer) = 0;
    // Cancels and frees. A callback may destroy its own timer or item: that is freed when the
    // callback returns, and may not be used again. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyTimer(HANDLE timer) = 0;
    // As TalxDestroyTimer, for a work item. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyWorkItem(HANDLE item) = 0;
    // Runs the callback once, `delay` milliseconds from now (not kTalxForever). A timer that was
    // scheduled already is moved. Code 5 when no thread can be started.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxScheduleTimer(HANDLE timer, TALX_CALLBACK callback, void* context,
                                        UINT32 delay) = 0;
    // Runs the callback once, soon. Code 33 when the item is scheduled and has not begun.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxScheduleWorkItem(HANDLE item, TALX_CALLBACK callback, void* context) = 0;
    // Waits at least `time` milliseconds. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxSleep(UINT32 time) = 0;

    // -- Raw memory and NUL-terminated strings. A size of 0 needs no pointers; else null is code 4.

    // As memcmp: below 0, 0 or above 0. Has no status, so the pointers must be good.
    // [any thread; concurrent; no reply]
    virtual INT32 TalxCompareMemory(const void* a, const void* b, UINT32 size) = 0;
    // Copies `size` bytes between blocks that do not overlap. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxCopyMemory(void* to, const void* from, UINT32 size) = 0;
    // Sets `size` bytes to `value`. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxFillMemory(void* to, UINT32 size, UINT8 value) = 0;
    // Copies `size` bytes; the blocks may overlap. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxMoveMemory(void* to, const void* from, UINT32 size) = 0;
    // FNV-1a with 32 bits, over the bytes (of each unit the low one first). Stable, and no defence
    // against chosen keys. [any thread; concurrent; no reply]
    virtual UINT32 TalxStrHash(const char* text) = 0;
    // The same of a wide text. [any thread; concurrent; no reply]
    virtual UINT32 TalxStrHashW(const WCHAR* text) = 0;
    // Bytes before the terminator; 0 for null. [any thread; concurrent; no reply]
    virtual UINT32 TalxStrlen(const char* text) = 0;
    // Code units before the terminator; 0 for null. [any thread; concurrent; no reply]
    virtual UINT32 TalxStrlenW(const WCHAR* text) = 0;
    // Clears `size` bytes. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxZeroMemory(void* to, UINT32 size) = 0;

    // -- Counted strings. Copies and appends take at most MaximumLength bytes (of wide strings
    //    whole units) and write no terminator. Comparisons give exactly -1, 0 or 1; a null string
    //    or Buffer is the empty text. Wide texts are ordered by code unit, 8-bit texts by byte.
    //    With `ignoreCase` the upper-cased texts are compared (Unicode's simple mappings, pairs of
    //    surrogates included): wide texts by code unit, 8-bit texts as UTF-8 by code point, where a
    //    byte that is no part of well-formed UTF-8 comes after every code point. So "_" is after
    //    "a" without case and before it with.

    // All or nothing: code 7, and nothing changed, when it does not fit. `from` may be `to`.
    // [any thread; one at a time; no reply]
    virtual TALSTATUS TalxAppendUnicodeStringToString(UNICODE_STRING* to,
                                                      const UNICODE_STRING* from) = 0;
    // The same for a NUL-terminated text. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from) = 0;
    // Compares 8-bit texts. [any thread; concurrent; no reply]
    virtual INT32 TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) = 0;
    // Compares wide texts. [any thread; concurrent; no reply]
    virtual INT32 TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                           BOOLEAN ignoreCase) = 0;
    // Copies what fits and sets to->Length; cutting is no failure.
    // [any thread; one at a time; no reply]
    virtual TALSTATUS TalxCopyString(STRING* to, const STRING* from) = 0;
    // The same for wide texts, of which whole units are copied.
    // [any thread; one at a time; no reply]
    virtual TALSTATUS TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from) = 0;
    // 1 when TalxCompareString gives 0. [any thread; concurrent; no reply]
    virtual BOOLEAN TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase) = 0;
    // 1 when TalxCompareUnicodeString gives 0. [any thread; concurrent; no reply]
    virtual BOOLEAN TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                           BOOLEAN ignoreCase) = 0;
    // Lets `to` stand for `text`, which stays the caller's and must outlive it; MaximumLength
    // counts the terminator. Null gives the empty string. Code 38 for a text that cannot be
    // counted. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInitString(STRING* to, const char* text) = 0;
    // The same for a wide text. [any thread; one at a time; no reply]
    virtual TALSTATUS TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text) = 0;
    // Digits of base 2, 8, 10 or 16 (0 is 10), capitals, no prefix. Code 7 when they do not fit.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to) = 0;
    // Reads the whole text; base 0 takes "0x", "0o" and "0b" and else is 10. Code 16 for anything
    // that is no number of 32 bits, signs and spaces included. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base,
                                                 UINT32* out) = 0;

    // -- Synchronisation. An acquire with wait FALSE, or a wait whose time is up, fails with
    //    code 10. Handles that are none of the kind: code 4. Destroying what is held or waited for
    //    fails with code 33 and changes nothing.

    // Shared access. The same thread may take it again while it has it, also past a writer that
    // waits: readers are preferred. A stream of readers that never ends keeps writers out, so a
    // read lock is for data that hardly ever changes. Uncontended about 20 ns with the release.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait) = 0;
    // Exclusive access. Not recursive, and a reader that asks for it waits for itself; taking the
    // lock for reading by the thread that writes fails with code 33.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait) = 0;
    // Takes a mutex; recursive: each acquire needs its release. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAcquireMutex(HANDLE mutex, BOOLEAN wait) = 0;
    // Takes a spin lock; not recursive, to be held briefly and never while waiting.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAcquireSpinLock(HANDLE lock) = 0;
    // An event that is not `manualReset` is taken by the one wait that it ends.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out) = 0;
    // Makes a mutex. Code 5 without memory. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocMutex(HANDLE* out) = 0;
    // Makes a read/write lock. Code 5 without memory. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocReadWriteLock(HANDLE* out) = 0;
    // Makes a spin lock. Code 5 without memory. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxAllocSpinLock(HANDLE* out) = 0;
    // Ends an event that nobody waits for. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyEvent(HANDLE event) = 0;
    // Ends a mutex that nobody holds. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyMutex(HANDLE mutex) = 0;
    // Ends a read/write lock that nobody holds. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyReadWriteLock(HANDLE lock) = 0;
    // Ends a spin lock that nobody holds. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroySpinLock(HANDLE lock) = 0;
    // Always 0: there is one level. [any thread; concurrent; no reply]
    virtual UINT32 TalxGetCurrentIrql() = 0;
    // Takes one off; returns the new value. Full barriers; the counter wraps.
    // [any thread; concurrent; no reply]
    virtual UINT32 TalxInterlockedDecrement(UINT32* value) = 0;
    // Sets; returns the old value. [any thread; concurrent; no reply]
    virtual UINT32 TalxInterlockedExchange(UINT32* value, UINT32 newValue) = 0;
    // Adds one; returns the new value. [any thread; concurrent; no reply]
    virtual UINT32 TalxInterlockedIncrement(UINT32* value) = 0;
    // By the thread that acquired it, else code 6. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxReleaseMutex(HANDLE mutex) = 0;
    // By the thread that acquired it, for either access. Releasing what is not held is an error
    // that is not detected. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxReleaseReadWriteLock(HANDLE lock) = 0;
    // Gives a spin lock back. Code 6 when nobody holds it. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxReleaseSpinLock(HANDLE lock) = 0;
    // Takes the signal of an event back. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxResetEvent(HANDLE event) = 0;
    // Signals an event: ends the waits for it. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxSignalEvent(HANDLE event) = 0;
    // Waits for 1 to 64 events (else code 4): for all of them, which are then taken together or not
    // at all, or for one, whose index goes to *index (may be null; left alone when waiting for
    // all). [any thread; concurrent; no reply]
    virtual TALSTATUS TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events, BOOLEAN all,
                                                UINT32 time, UINT32* index) = 0;
    // Waits until the event is signalled. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxWaitForSingleEvent(HANDLE event, UINT32 time) = 0;

    // -- Threads. A thread's handle is destroyed after it has ended, and only once.

    // Starts a thread. The handle goes back with TalxDestroyThread. Code 5 when the system has
    // none. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out) = 0;
    // Gives a thread's handle back. Code 33 while it runs. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDestroyThread(HANDLE thread) = 0;
    // Ends the calling thread, which TalxCreateThread made (else code 28, and it returns). Frames
    // that were compiled without exceptions are left without their destructors.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxExitThread(UINT32 status) = 0;
    // What the routine returned or gave to TalxExitThread. Code 10 while it runs.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxGetThreadExitStatus(HANDLE thread, UINT32* status) = 0;
    // The nice value, -20 to 19; below the process's own needs permission (code 6). Code 11 when
    // the thread has ended. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxSetThreadPriority(HANDLE thread, INT32 priority) = 0;
    // Waits until the thread has ended; a thread cannot wait for itself (code 33).
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxWaitForThreadExit(HANDLE thread, UINT32 time) = 0;

    // -- Time and the rest.

    // The time now: 100 ns units since 1601-01-01 UTC. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxGetSystemTime(UINT64* time) = 0;
    // The name that the calling library's lines get; 1 to 63 bytes (38 when longer), copied.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxRegisterModuleName(const char* name) = 0;
    // Fills the counts. Code 4 for null. [any thread; concurrent; no reply]
    virtual TALSTATUS TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out) = 0;
    // Removes a value as TalxDeleteKey removes a key. Code 11 when it is not set.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS TalxDeleteValue(HANDLE key, const WCHAR* name) = 0;

  protected:
    ~ITalpl() = default;
};
