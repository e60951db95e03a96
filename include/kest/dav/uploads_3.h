// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVUploads3: uploads that go on when their connection has broken, or the server has been
// started anew ("Resumable Uploads for HTTP"). Optional.
//
// Another face of the object that IKestDAV3 is one of, found by QueryInterface: a provider without
// it answers with code 2, and such uploads are not offered.
//
// An upload belongs to who began it and to the path that it was begun for: for anybody else, and
// under any other path, there is none (11). What of its content has arrived is kept, whatever ends
// the request that brought it, until it is published, cancelled, or nothing has come for as long as
// the provider keeps uploads. One request at a time adds to it: the latest, which takes it from the
// one before. Failures in general are those that namespace_3.h lists.
#pragma once

#include <kest/dav/failures_3.h>
#include <kest/dav/records_3.h>
#include <kest/dav/resource_3.h>
#include <kest/unknown.h>

struct IKestDAVUploads3 : IUnknown {
    // What uploads for a path are bound by: MostBytes and Lifetime, all else zero. upload->Size is
    // set by the caller. Failures: 13 none are offered there.
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS GetLimits(SCHANDLE hSession, UNICODE_STRING* path, DAV_UPLOAD* upload) = 0;
    // Begins an upload of new content for a path. Preconditions and locks are judged as
    // IKestDAVResource3::Open does with kOpenReplace, so that no body is taken in vain. `length` is
    // the whole's in bytes, or kUploadLengthUnknown; `terms` a text of the caller's own, at most
    // kMostUploadTerms bytes, which is kept with it. When this returns success the upload outlives
    // the process. Failures: as there; 13 none are offered (the caller may take the content in one
    // go), 35 also for a length beyond MostBytes (507).
    // [request thread; concurrent; before the reply]
    virtual TALSTATUS Begin(SCHANDLE hSession, UNICODE_STRING* path, UINT64 length,
                            const DAV_TEXT* terms, const DAV_PRECONDITIONS* preconditions,
                            IKestDAVFailures3* failures, DAV_UPLOAD* upload) = 0;
    // How far an upload has come, which is on the disk when this returns; who is adding to it adds
    // nothing more. `terms` receives the text that it was begun with: *size is the room in bytes on
    // entry (kMostUploadTerms suffices), the bytes used on return; may be null with `size`.
    // One that is complete is told as long as its content bears the name. Failures: 11 there is
    // none (404), 7 the room is too short. [request thread; concurrent; before the reply]
    virtual TALSTATUS Find(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name,
                           UINT32* size, char* terms, DAV_UPLOAD* upload) = 0;
    // Opens an upload for more content, which begins at `offset`. `length` as in Begin: it is
    // recorded where it was not known. `preconditions` are those that Publish will judge: their
    // texts stay valid until then. `content` is opened, with a reference for the caller:
    //   Write      at the end alone (else 4); 16 beyond the length, 33 another request has taken
    //              the upload, 11 it is gone
    //   Read       anything that has arrived, also in earlier requests
    //   SetLength  takes back some of what was written through this object, and nothing else (4)
    //   Publish    as of any new content, where the length, if known, has been reached (16); after
    //              a failure the upload is still there
    //   Open       fails with code 4
    // and to release it without Publish keeps what it has taken.
    // Failures: 11 there is none (404), 33 it has another offset or is complete (409), 16 it has
    // another length (400). [request thread; concurrent; before the reply]
    virtual TALSTATUS Continue(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name,
                               UINT64 offset, UINT64 length, const DAV_PRECONDITIONS* preconditions,
                               IKestDAVResource3** content) = 0;
    // Drops an upload with what has arrived of it; of a complete one only the memory of it.
    // Failures: 11 there is none (404). [request thread; concurrent; before the reply]
    virtual TALSTATUS Cancel(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name) = 0;

  protected:
    ~IKestDAVUploads3() = default;
};
