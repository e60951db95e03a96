// SPDX-License-Identifier: Apache-2.0
//
// IKestIO: one HTTP request and its reply, as the host hands it to a request handler. Implemented
// by the host, used on the request's thread only, valid until RequestHandler returns; a handler
// never frees it. Header names are NUL-terminated and compared without case.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestIO_3 : IUnknown {
    // Drops the rest of the request body.
    virtual TALSTATUS DiscardClientPayload() = 0;
    // Overwrite flag, depth (-1 infinite) and destination of a COPY (RFC 4918 sections 9.8, 10.2,
    // 10.3, 10.6). The destination is a full URL, owned by the host.
    virtual TALSTATUS GetCopyInfo(BOOLEAN* overwrite, INT32* depth,
                                  UNICODE_STRING** destination) = 0;
    // Overwrite flag and destination of a MOVE. The destination is an unescaped path that begins
    // with the module's location, owned by the host.
    virtual TALSTATUS GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination) = 0;
    // The request's path as sent, still escaped, without the query. Owned by the host.
    virtual TALSTATUS GetRawUrl(STRING** url) = 0;
    // The client's address as text, in the caller's buffer without a terminator. Code 7 when it
    // does not fit.
    virtual TALSTATUS GetRemoteAddress(UNICODE_STRING* address) = 0;
    // The client's name where the host knows it, else its address; as GetRemoteAddress.
    virtual TALSTATUS GetRemoteHost(UNICODE_STRING* host) = 0;
    // The request's path, unescaped once, dot segments removed. Owned by the host; MaximumLength
    // exceeds Length by at least 2048 bytes. `reserved` may be null.
    virtual TALSTATUS GetUrl(UINT32* reserved, UNICODE_STRING** url) = 0;
    // The query, still escaped, without "?". Owned by the host.
    virtual TALSTATUS GetUrlArguments(UINT32* reserved, UNICODE_STRING** arguments) = 0;
    // Copies a request header's value. *length is the room on entry and the value's length on
    // return; the value and a terminator must fit, else code 7 with *length the room needed and the
    // buffer full of the value's first bytes (lock tokens are looked for there). Code 11 when the
    // header is missing.
    virtual TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) = 0;
    virtual TALSTATUS GetRequestMethod(UINT32* method) = 0; // a KEST_METHOD
    // As GetRequestHeader, for a reply header set so far.
    virtual TALSTATUS GetReplyHeader(char* name, UINT32* length, char* buffer) = 0;
    // What the host takes the client for: 1 a browser, 0 anything else.
    virtual TALSTATUS GetUserAgent(UINT32* kind) = 0;
    // Bytes of body that are announced and not yet read; 0 when there is no body. For a body whose
    // length is not known yet (chunked), at least 1 while some may be left.
    virtual TALSTATUS IsClientPayloadAvailable(UINT32* available) = 0;
    // Reads up to `size` body bytes, waiting for the client within the host's time limits. The end
    // of the body is code 8 with *read 0; code 10 when the client is too slow; code 1 when it went
    // away.
    virtual TALSTATUS ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read) = 0;
    // Appends a NUL-terminated text to the reply body.
    virtual TALSTATUS PutString(char* text) = 0;
    // Ends the head: status line and the headers set so far. The body follows.
    virtual TALSTATUS SendHeader(HTTPSTATUS status) = 0;
    // Replaces a request header for later reads, or adds it; `length` bytes are copied.
    virtual TALSTATUS SetRequestHeader(char* name, UINT32 length, char* value) = 0;
    // Sets a reply header; `length` is the number of bytes of `value`.
    virtual TALSTATUS SetReplyHeader(char* name, UINT32 length, char* value) = 0;
    // Tells the client that long work goes on.
    virtual TALSTATUS Working() = 0;
    // Appends bytes to the reply body. `data` may be reused when this returns.
    virtual TALSTATUS Write(UINT32 size, UINT8* data) = 0;
    // Memory that lives as long as the request; null when short.
    virtual void* AllocMemory(UINT32 size) = 0;
    // The head's header lines as received, NUL-terminated. Owned by the host.
    virtual TALSTATUS GetRawHeaders(UINT8** headers) = 0;
    // The name and the port that the client used; *length as in GetRequestHeader.
    virtual TALSTATUS GetHostname(UINT32* length, char* buffer) = 0;
    virtual TALSTATUS GetPort(UINT32* length, char* buffer) = 0;
    // "http" or "https", with a terminator; *length as in GetRequestHeader.
    virtual TALSTATUS GetProtocolName(UINT32* length, char* buffer) = 0;

  protected:
    ~IKestIO_3() = default;
};

struct IKestIO_5 : IKestIO_3 {
    // The body to send with an error reply that the handler leaves without one.
    virtual TALSTATUS SetCustomError(HTTPSTATUS status, char* text) = 0;
    // The realm of the host's sign-in; *length as in GetRequestHeader.
    virtual TALSTATUS GetAuthRealm(UINT32* length, char* buffer) = 0;
    virtual BOOLEAN IsSecure() = 0; // 1 when the request came over TLS

  protected:
    ~IKestIO_5() = default;
};

// Request method numbers of the host.
enum KEST_METHOD : UINT32 {
    KestMethodGet = 0,
    KestMethodPut = 1,
    KestMethodPost = 2,
    KestMethodDelete = 3,
    KestMethodTrace = 4,
    KestMethodOptions = 5,
    KestMethodConnect = 6,
    // 7 is reserved: handlers treat it as PROPPATCH, and the host hands it out for no method.
    KestMethodPropFind = 8,
    KestMethodPropPatch = 9,
    KestMethodMkCol = 10,
    KestMethodCopy = 11,
    KestMethodMove = 12,
    KestMethodLock = 13,
    KestMethodUnlock = 14,
    KestMethodHead = 27,
    KestMethodUnknown = 28,
};
