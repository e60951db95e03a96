// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVResource3: one resource's content, read or on its way in, third generation.
//
// Another face of the object that IKestDAVResource2 is one of, found by QueryInterface; an object
// is used by one of the two only. Everything that is not content is asked of IKestDAV3. Until Open
// has succeeded every other operation fails with code 4; Open may be called again and lets go of
// what was open. Failures in general are those that namespace_3.h lists.
//
// New content is seen by nobody until Publish has put it under the name, whole and in one step; an
// object that is released without that leaves everything as it was.
#pragma once

#include <kest/dav/failures_3.h>
#include <kest/dav/records_3.h>
#include <kest/unknown.h>

struct IKestDAVResource3 : IUnknown {
    // Opens a path. `purpose`: kOpenRead, the object may be a collection, which has no content, and
    // preconditions are judged once; kOpenReplace or kOpenModify, where preconditions and locks are
    // judged, so that no body is taken in vain, and again by Publish: the preconditions' texts stay
    // valid until then. `expected` is the
    // content's size in bytes where it is known, -1 otherwise; one that cannot be kept is refused
    // (35). `info` is what bears the name now, info->Size set by the caller; may be null when not
    // reading. With kOpenReplace and nothing there its ResourceSize is 0 and its Tag empty.
    // Failures: 11 nothing there, also for kOpenModify (404), 39 a collection where content is to
    // be changed (405), 33 no parent (409), 16 a name that cannot be kept (400), 40 (412), 37
    // (423). [request thread; one at a time; before the reply]
    virtual TALSTATUS Open(SCHANDLE hSession, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                           const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                           DAV_OBJECT_INFO* info) = 0;
    // Reads up to `length` bytes at `offset`, at the same cost everywhere; fewer only at the end,
    // where *read is 0 at last. What is read is the object that was opened, whatever has taken its
    // name since. Failures: 1 (500, or the body ends short), 39 a collection.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) = 0;
    // Writes all of `length` bytes at `offset`, anywhere: a gap reads as zeros.
    // Failures: 35 (507), 1 (500); Publish then fails with the first of them.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) = 0;
    // Ends the content at `length` bytes: what is beyond is cut off, a gap reads as zeros.
    // Failures as Write. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetLength(UINT64 length) = 0;
    // Puts the content under the name, on the disk as the provider's setting wants it. `modified`
    // and `created` are the client's dates, 0 for none: now, and that of what is replaced. A reader
    // of the name sees the old content or all of the new. Can be called once; the object then has
    // nothing open. Failures: 40 (412), 37 (423), 39 a collection has taken the name (405), 33 the
    // parent has gone (409). [request thread; one at a time; before the reply]
    virtual TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME created,
                              IKestDAVFailures3* failures, DAV_CHANGE* change) = 0;

  protected:
    ~IKestDAVResource3() = default;
};
