// SPDX-License-Identifier: Apache-2.0
//
// IKestUtil: dates, escapes and MIME types. Implemented by the host, CLSID_KestUtil as
// IID_KestUtil_1.
//
// Times are as TalxGetSystemTime gives them: 100 ns units since 1601-01-01 UTC. Output STRINGs come
// with Buffer and MaximumLength set; the text is NUL-terminated, the terminator not counted in
// Length, and must fit with it (else code 7). Null pointers: code 4. A time that the output cannot
// express: code 16.
#pragma once

#include <ctime>

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestUtil : IUnknown {
    // As "2026-01-31T12:00:00Z" (RFC 3339). [any thread; concurrent; no reply]
    virtual TALSTATUS SystemTimeTo8601Time(UINT64* time, STRING* out) = 0;
    // As "Sat, 31 Jan 2026 12:00:00 GMT" (RFC 9110 section 5.6.7). [any thread; concurrent; no
    // reply]
    virtual TALSTATUS SystemTimeToHttpTime(UINT64* time, STRING* out) = 0;
    // All three forms of RFC 9110 section 5.6.7. Code 16 for anything else. [any thread;
    // concurrent; no reply]
    virtual TALSTATUS HttpTimeToSystemTime(STRING* text, UINT64* time) = 0;
    // Seconds since 1970, rounded down. [any thread; concurrent; no reply]
    virtual TALSTATUS SystemTimeToTime_t(UINT64* time, time_t* out) = 0;
    // Broken down, UTC. [any thread; concurrent; no reply]
    virtual TALSTATUS SystemTimeToTm(UINT64* time, struct tm* out) = 0;
    // The reverse of SystemTimeToTime_t. [any thread; concurrent; no reply]
    virtual TALSTATUS Time_tToSystemTime(time_t time, UINT64* out) = 0;
    // Percent-escapes everything but unreserved characters and "/" (RFC 3986 section 2.3).
    // [any thread; concurrent; no reply]
    virtual TALSTATUS EscapeUri(STRING* in, STRING* out) = 0;
    // The same of wide text, as UTF-8. `flags` is 0. Code 16 for unpaired surrogates.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS EscapeUnicodeUri(UNICODE_STRING* in, UINT32 flags, STRING* out) = 0;
    // The MIME type for a name's extension. The text is static. Code 11 when none is known.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type) = 0;
    // The same for a name in UTF-8. [any thread; concurrent; no reply]
    virtual TALSTATUS GetMimeTypeFromUTF8Object(STRING* name, char** type) = 0;
    // The reverse of EscapeUri. Code 16 for a "%" without two hexadecimal digits.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS UnescapeUri(STRING* in, STRING* out) = 0;
    // The status for an errno value; success for 0. [any thread; concurrent; no reply]
    virtual TALSTATUS MapPlatformErrorToTalStatus(UINT32 error) = 0;

  protected:
    ~IKestUtil() = default;
};
