// SPDX-License-Identifier: Apache-2.0
//
// IKestIO_3: one HTTP request and its reply, as the host hands it to a request handler.
//
// Implemented by the host, valid until RequestHandler returns; a handler never frees it. Used by
// the handler that runs the request and by what it calls, one at a time. Header names are
// NUL-terminated and compared without case. Texts and strings that the host hands out belong to it
// and live as long as the request. An operation that is given a null pointer where it needs one
// fails with code 4. dav.h says what the tags mean.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestIO_3 : IUnknown {
    // Drops the rest of the request body. [request thread; one at a time; during the reply]
    virtual TALSTATUS DiscardClientPayload() = 0;
    // Overwrite flag, depth (-1 infinite) and destination of a COPY (RFC 4918 sections 9.8, 10.2,
    // 10.3, 10.6). The destination is a full URL. Code 16 when the request has none.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetCopyInfo(BOOLEAN* overwrite, INT32* depth,
                                  UNICODE_STRING** destination) = 0;
    // Overwrite flag and destination of a MOVE. The destination is an unescaped path that begins
    // with the module's location. Code 16 when the request has none.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination) = 0;
    // The request's path as sent, still escaped, without the query. [request thread; one at a time;
    // during the reply]
    virtual TALSTATUS GetRawUrl(STRING** url) = 0;
    // The client's address as text, in the caller's buffer without a terminator. Code 7 when it
    // does not fit. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetRemoteAddress(UNICODE_STRING* address) = 0;
    // The client's name where the host knows it, else its address; as GetRemoteAddress.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetRemoteHost(UNICODE_STRING* host) = 0;
    // The request's path, unescaped once, dot segments removed. MaximumLength exceeds Length by at
    // least 2048 bytes. `reserved` may be null. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetUrl(UINT32* reserved, UNICODE_STRING** url) = 0;
    // The query, still escaped, without "?". `reserved` may be null. [request thread; one at a
    // time; during the reply]
    virtual TALSTATUS GetUrlArguments(UINT32* reserved, UNICODE_STRING** arguments) = 0;
    // Copies a request header's value; lines of one name are joined with ", ". *length is the room
    // on entry and the value's length on return; the value and a terminator must fit, else code 7
    // with *length the room needed and the buffer full of the value's first bytes (lock tokens are
    // looked for there). Code 11 when the header is missing. [request thread; one at a time; during
    // the reply]
    virtual TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) = 0;
    // The method's number, a KEST_METHOD. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetRequestMethod(UINT32* method) = 0;
    // As GetRequestHeader, for a reply header set so far. [request thread; one at a time; during
    // the reply]
    virtual TALSTATUS GetReplyHeader(char* name, UINT32* length, char* buffer) = 0;
    // What the host takes the client for: 1 a browser, 0 anything else. [request thread; one at a
    // time; during the reply]
    virtual TALSTATUS GetUserAgent(UINT32* kind) = 0;
    // Bytes of body that are announced and not yet read; 0 when there is no body. For a body whose
    // length is not known yet (chunked), at least 1 while some may be left.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS IsClientPayloadAvailable(UINT32* available) = 0;
    // Reads up to `size` body bytes, waiting for the client within the host's time limits. The end
    // of the body is code 8 with *read 0; code 10 when the client is too slow, 16 when what it
    // sends is malformed, 1 when it went away. [request thread; one at a time; during the reply]
    virtual TALSTATUS ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read) = 0;
    // Appends a NUL-terminated text to the reply body, waiting for a slow client within the host's
    // limits. Code 1 when the client has left or is too slow: whatever is appended from then on is
    // lost. [request thread; one at a time; during the reply]
    virtual TALSTATUS PutString(char* text) = 0;
    // Ends the head: status line and the headers set so far. The body follows. Code 16 when the
    // head has ended before; a number outside 200 to 599 is sent as 500. [request thread; one at a
    // time; before the reply]
    virtual TALSTATUS SendHeader(HTTPSTATUS status) = 0;
    // Replaces a request header for later reads, or adds it; `length` bytes are copied.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS SetRequestHeader(char* name, UINT32 length, char* value) = 0;
    // Sets a reply header, in place of an earlier one of that name; `length` bytes of `value` are
    // copied. An empty "Content-Length" stands for whatever the body turns out to be. Code 4 for
    // a name or value that no header can have, or after the head has ended. [request thread; one at
    // a time; before the reply]
    virtual TALSTATUS SetReplyHeader(char* name, UINT32 length, char* value) = 0;
    // Tells the host that long work goes on. Fails when the reply can reach nobody any more.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS Working() = 0;
    // Appends bytes to the reply body, as PutString. `data` may be reused when this returns.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS Write(UINT32 size, UINT8* data) = 0;
    // Memory that lives as long as the request, aligned for every scalar type; null when short.
    // [request thread; one at a time; during the reply]
    virtual void* AllocMemory(UINT32 size) = 0;
    // The head's header lines as received, NUL-terminated. [request thread; one at a time; during
    // the reply]
    virtual TALSTATUS GetRawHeaders(UINT8** headers) = 0;
    // The name that the client used for the server, without the port; *length as in
    // GetRequestHeader. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetHostname(UINT32* length, char* buffer) = 0;
    // The port that the client used, in decimal; *length as in GetRequestHeader.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetPort(UINT32* length, char* buffer) = 0;
    // "http" or "https", with a terminator; *length as in GetRequestHeader.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetProtocolName(UINT32* length, char* buffer) = 0;

  protected:
    ~IKestIO_3() = default;
};
