// SPDX-License-Identifier: Apache-2.0
//
// The store's namespace operations.
#pragma once

#include <kest/dav.h>

#include "providers/filestore/namespace3.h"
#include "providers/filestore/object.h"
#include "providers/filestore/store.h"
#include "providers/filestore/uploads3.h"

namespace filestore {

class FileNamespace final : public Object<FileNamespace, IKestDAV2> {
  public:
    explicit FileNamespace(Store& store)
        : store_(store), third_(*this, store), uploads_(*this, store)
    {
    }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    TALSTATUS Copy(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* errorId) override;
    TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token,
                     DAV_ERROR_ID* errorId) override;
    TALSTATUS BeginSession(SCHANDLE hSession) override;
    TALSTATUS EndSession(SCHANDLE hSession) override;
    TALSTATUS GetDAVSupport(UINT32* caps) override;
    TALSTATUS GetMultiStatus(SCHANDLE hSession, DAV_ERROR_ID* errorId, UINT32* size,
                             DAV_MULTI_STATUS* buffer) override;
    TALSTATUS GetType(SCHANDLE hSession, UNICODE_STRING* path, DAV_TYPE* type) override;
    TALSTATUS Lock(SCHANDLE hSession, INT32 depth, INT64 timeout, DAV_LOCK_SCOPE scope,
                   DAV_LOCK_TYPE type, UNICODE_STRING* path, STRING* owner, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* errorId) override;
    TALSTATUS LockRefresh(SCHANDLE hSession, DAV_DATETIME timeout, UNICODE_STRING* path,
                          DAV_LOCK_TOKEN* token, DAV_LOCK_2* lock) override;
    TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override;
    TALSTATUS MkCol(SCHANDLE hSession, DAV_LOCK_TOKEN* token, UNICODE_STRING* path) override;
    TALSTATUS Move(SCHANDLE hSession, BOOLEAN overwrite, INT32 depth, UNICODE_STRING* source,
                   UNICODE_STRING* destination, DAV_LOCK_TOKEN* token,
                   DAV_ERROR_ID* errorId) override;
    TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                           UINT32* outputLength, void* output) override;

  private:
    TALSTATUS TypeOf(const UNICODE_STRING* path, DAV_TYPE* type);
    TALSTATUS MakeCollection(SCHANDLE session, const DAV_LOCK_TOKEN* token,
                             const UNICODE_STRING* path);
    TALSTATUS LocateEnds(const UNICODE_STRING* source, const UNICODE_STRING* destination,
                         Target* from, Target* to) const;
    TALSTATUS MoveWhole(SCHANDLE session, bool overwrite, const UNICODE_STRING* source,
                        const UNICODE_STRING* destination, const DAV_LOCK_TOKEN* token);
    TALSTATUS ListLock(DAV_LOCK_PLACE* place, UINT32* length, void* out) const;

    Store& store_;
    NamespaceTearOff third_;
    UploadsTearOff uploads_;
};

} // namespace filestore
