// SPDX-License-Identifier: Apache-2.0
//
// IKestCallContext: the request that runs on the calling thread. Implemented by the host,
// CLSID_KestCallContext as IID_KestCallContext_1.
//
// Every operation fails with code 11 on a thread that runs none, and with code 4 for a null
// pointer. Components may use it; none may need it.
#pragma once

#include <kest/host/io_5.h>
#include <kest/types.h>
#include <kest/unknown.h>

// Conditions under which a client wants its change to happen. Texts are as they were sent and valid
// until the call ends; with Length 0 the client sent none. layout.h pins it.
struct KEST_CONDITIONS {
    // "If-Match", "If-None-Match" and "If-Unmodified-Since" (RFC 9110 section 13) of a request that
    // changes something, for what bears the request's own path.
    STRING Match;
    STRING NoneMatch;
    UINT64 UnmodifiedSince; // as TalxGetSystemTime counts, whole seconds; 0: none
    // COPY and MOVE: whether the client lets them replace what is at the destination ("Overwrite",
    // RFC 4918 section 10.6). The flag of GetCopyInfo and GetMoveInfo is also clear where nothing
    // was there to replace.
    BOOLEAN MayReplace;
};

struct IKestCallContext : IUnknown {
    // The request. Borrowed: no reference is added, valid until the call ends.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetRequest(IKestIO_5** request) = 0;
    // The method's number, a KEST_METHOD. [request thread; one at a time; during the reply]
    virtual TALSTATUS GetMethod(UINT32* method) = 0;
    // 1 when the request's body has arrived whole (also when it has none).
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS IsBodyComplete(BOOLEAN* complete) = 0;
    // Reports a failure that the module does not see or would tell as something else, such as a
    // commit that failed when an object was released, or a listing that ends too soon. The first
    // one counts. While no reply has left the host sends its status in place of whatever the module
    // says: 507 for code 35, 503 for 5 and 10, 500 for what has no HTTP status of its own. A reply
    // that has begun is broken off, so that no client takes it for whole.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS ReportFailure(TALSTATUS failure) = 0;
    // 1 when the reply can reach nobody any more: the client has left, or the server is stopping.
    // Long work (a copy, a walk, a long read) asks between two steps and ends with a failure; it
    // has at most a second for that. Costs no system call in the usual case.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS IsCancelled(BOOLEAN* cancelled) = 0;
    // Ties an object to the running request under a key of the caller's choice, such as its class
    // identifier, in place of one that was there; null takes that away. The request holds a
    // reference from here on and releases it on the thread on which the handler returns, after it
    // has returned. Code 5 with more than 8 keys. [request thread; one at a time; during the reply]
    virtual TALSTATUS SetAttachment(const GUID* key, IUnknown* object) = 0;
    // What is tied to the request under a key. Borrowed: no reference is added, valid until the
    // call ends or another takes its place. Null with success when there is none.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetAttachment(const GUID* key, IUnknown** object) = 0;
    // The client's conditions, which the host has read and not judged: all are empty where it
    // gives them to nobody, as in the classic dialect. A provider judges them in the step that
    // takes or changes the name, and fails it, or reports, with code 40. Operations of the third
    // generation are handed them as DAV_PRECONDITIONS instead.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS GetConditions(KEST_CONDITIONS* conditions) = 0;

  protected:
    ~IKestCallContext() = default;
};
