// SPDX-License-Identifier: Apache-2.0
//
// How handlers write replies. The casts that the host's `char*` parameters need live here only.
// Fixed text is passed as literals, so that the code shows the bytes that go over the wire.
#pragma once

#include <cstring>

#include "support/allowed_methods.h"
#include <kest/io.h>
#include <kest/status.h>

// Sets a header whose value is a literal.
template <size_t N> void SetHeader(IKestIO_5* io, const char* name, const char (&value)[N])
{
    // A header that the host cannot take is missing from the reply, which still goes out.
    (void)io->SetReplyHeader(const_cast<char*>(name), N - 1, const_cast<char*>(value));
}

// Sets a header from a NUL-terminated text made at run time.
inline void SetHeaderText(IKestIO_5* io, const char* name, const char* value)
{
    (void)io->SetReplyHeader(const_cast<char*>(name), static_cast<UINT32>(std::strlen(value)),
                             const_cast<char*>(value));
}

inline void SetNoContent(IKestIO_5* io)
{
    SetHeader(io, "Content-Length", "0");
}

// Appends a NUL-terminated text to the body. A failed write means that the client has gone; the
// handler finishes as usual and the host closes the connection.
inline void Put(IKestIO_5* io, const char* text)
{
    (void)io->PutString(const_cast<char*>(text));
}

// Appends counted bytes to the body.
inline void PutBytes(IKestIO_5* io, const void* data, UINT32 size)
{
    (void)io->Write(size, static_cast<UINT8*>(const_cast<void*>(data)));
}

// Sends the head with the given HTTP status and hands `status` back.
inline TALSTATUS Reply(IKestIO_5* io, HTTPSTATUS http, TALSTATUS status)
{
    if (http == 405)
        SetAllowOfRefusal(io);
    (void)io->SendHeader(http);
    return status;
}

// Sends the HTTP status that `status` maps to.
inline TALSTATUS ReplyMapped(IKestIO_5* io, TALSTATUS status)
{
    return Reply(io, static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(status)), status);
}

// The same with "Content-Length" "0".
inline TALSTATUS ReplyEmpty(IKestIO_5* io, HTTPSTATUS http, TALSTATUS status)
{
    SetNoContent(io);
    return Reply(io, http, status);
}
inline TALSTATUS ReplyEmptyMapped(IKestIO_5* io, TALSTATUS status)
{
    SetNoContent(io);
    return ReplyMapped(io, status);
}
