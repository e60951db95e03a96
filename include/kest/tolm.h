// SPDX-License-Identifier: Apache-2.0
//
// libtolm.so: the component manager, and what the process that hosts it (not a component) uses to
// set it up: built-in classes, the registry file, the log.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

#pragma GCC visibility push(default)
extern "C" {

// Creates an object of `clazz` and asks it for `iid`. Classes registered by the process come first,
// then those that the registry key 'Tolm\Classes\{…}' maps to a 'Library'; the library is loaded
// and its class factory kept at the first use. `outer` must be null. On failure *out is null.
// Callable from any thread; takes no lock once a class has been used. Failures: code 4 (null
// argument), 2 (interface not offered), 11 (unknown class), 15 (library or entry point cannot be
// loaded; logged once with class, library and reason), or what the factory returned.
TALSTATUS TolmCreateInstance(const GUID* clazz, IUnknown* outer, const GUID* iid, void** out);

// Makes a class of this process available to TolmCreateInstance. The manager takes a reference to
// `factory`. Registering a class again replaces the factory; a null factory removes it. A removed
// factory keeps the manager's reference until the process ends, since a creation may be using it.
TALSTATUS TolmRegisterClassObject(const GUID* clazz, IClassFactory* factory);

// Reads the registry file and makes it current in one step. On failure (syntax, a value of a type
// that the registry cannot hold, an unreadable file) the registry stays as it was and `error` holds
// one NUL-terminated line "FILE:LINE: reason", cut at `errorSize` bytes (`error` may be null). Keys
// written by programs later go back to this file. A null path means an empty registry that is never
// written. Failures: code 11 (no such file), 15 (it cannot be read, is no regular file, or larger
// than 16 MiB), 16 (what stands in it), 5.
//
// The file is TOML. Each table is a key, headed by its full path as one quoted name, each entry a
// value: a text, a whole number from 0 to 2^63 - 1 (32 bits wide where that is enough), true or
// false (1 or 0), or a list of texts that are not empty. Nothing else is allowed.
TALSTATUS TolmRegistryLoad(const char* path, char* error, UINT32 errorSize);

// Sets a value that wins over the file's, survives TolmRegistryLoad and is never written back (what
// the command line sets). `type` is a TALX_REG_TYPE; strings are well-formed UTF-16 with their
// terminators; at most 1 MiB. A null `data` takes the setting away again. Fails with code 4 for a
// malformed key, name or value, 5 without memory; nothing is changed then.
TALSTATUS TolmRegistrySetOverride(const WCHAR* key, const WCHAR* name, UINT32 type,
                                  const void* data, UINT32 size);

// Where a value was set, as "FILE:LINE" or "the command line"; for messages. `length` is the room
// on entry and the text's length on return; a terminator follows where there is room. Fails with
// code 11 for a value that is not set, 7 for too little room (the length is then what is needed).
TALSTATUS TolmRegistryWhere(const WCHAR* key, const WCHAR* name, char* text, UINT32* length);

// Calls `report` with a line "FILE:LINE: …" for every key and value of the file that nobody has
// opened or read since it was loaded. Where classes come from does not count as unread.
void TolmRegistryReportUnread(void (*report)(const char* line, void* context), void* context);

// Writes one line to the log of events: time, severity, `component`, `text`, and the thread's mark
// in brackets. Line breaks and control characters in `text` are escaped; what is longer than 4 KiB
// is cut. Severity 0 is information, 1 a warning, 2 an error. Where standard error is the journal
// of systemd, the severity stands in front as sd-daemon(3) says, and no time.
void TolmLog(UINT32 severity, const char* component, const char* text);

// Writes whole lines to a part of the log as they are. `size` is in bytes.
void TolmLogLines(UINT32 part, const char* lines, UINT32 size);

// Sets what the lines of this thread's events end with, such as the identifier of a request; null
// for nothing. The text stays the caller's and must live until another one is set.
void TolmLogMark(const char* mark);

// Gives a part of the log a file of its own, which is opened for appending, and made with mode 0640
// where there is none; until then it goes to standard error. To be called before TolmLogQueue, by
// one thread. Returns 0, or what kept the file from being opened as errno has it (EINVAL: no such
// part); the part goes where it went before then.
int TolmLogToFile(UINT32 part, const char* path);

// Opens the files of all parts again under their paths: the old ones may have been renamed. One
// that cannot be opened is written to as before, and a line says so. Thread-safe.
void TolmLogReopen();

// From now on each part of the log is written by a thread of its own (those on standard error by
// one), and nobody who logs waits: up to 512 KiB of lines wait, later ones are dropped and counted
// in a line among the events, as are those that a file did not take. When the process ends by exit,
// it waits for at most a second for each. Fails with code 5; every line is written by whoever logs
// it then, as before.
TALSTATUS TolmLogQueue();

} // extern "C"
#pragma GCC visibility pop

inline constexpr UINT32 kLogInfo = 0;
inline constexpr UINT32 kLogWarning = 1;
inline constexpr UINT32 kLogError = 2;

// The parts of the log.
inline constexpr UINT32 kLogEvents = 0;
inline constexpr UINT32 kLogRequests = 1;
inline constexpr UINT32 kLogAudit = 2;
