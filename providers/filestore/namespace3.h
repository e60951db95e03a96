// SPDX-License-Identifier: Apache-2.0
//
// The store's namespace as the third provider generation sees it.
#pragma once

#include <span>
#include <string>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/tear_off.h"

namespace filestore {

class NamespaceTearOff final : public TearOff<IKestDAV3> {
  public:
    NamespaceTearOff(IUnknown& whole, Store& store) : TearOff(whole), store_(store) {}

    TALSTATUS GetInfo(SCHANDLE hSession, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override;
    TALSTATUS Judge(SCHANDLE hSession, UNICODE_STRING* path,
                    const DAV_PRECONDITIONS* preconditions) override;
    TALSTATUS MakeCollection(SCHANDLE hSession, UNICODE_STRING* path,
                             const DAV_PRECONDITIONS* preconditions, UINT32 count,
                             DAV_PROPERTY_CHANGE* changes, IKestDAVFailures3* failures,
                             DAV_CHANGE* change) override;
    TALSTATUS Delete(SCHANDLE hSession, UNICODE_STRING* path,
                     const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures) override;
    TALSTATUS Copy(SCHANDLE hSession, UNICODE_STRING* source, UNICODE_STRING* destination,
                   UINT32 flags, const DAV_PRECONDITIONS* preconditions,
                   IKestDAVFailures3* failures, DAV_CHANGE* change) override;
    TALSTATUS Move(SCHANDLE hSession, UNICODE_STRING* source, UNICODE_STRING* destination,
                   UINT32 flags, const DAV_PRECONDITIONS* preconditions,
                   IKestDAVFailures3* failures, DAV_CHANGE* change) override;
    TALSTATUS PatchProperties(SCHANDLE hSession, UNICODE_STRING* path,
                              const DAV_PRECONDITIONS* preconditions, UINT32 count,
                              DAV_PROPERTY_CHANGE* changes, IKestDAVFailures3* failures,
                              DAV_CHANGE* change) override;
    TALSTATUS GetProperties(SCHANDLE hSession, UNICODE_STRING* path, UINT64* place, UINT32* size,
                            DAV_PROPERTY* buffer) override;
    TALSTATUS Lock(SCHANDLE hSession, UNICODE_STRING* path, const DAV_LOCK_REQUEST* request,
                   const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                   UINT32* size, DAV_LOCK_INFO_3* lock, DAV_CHANGE* change) override;
    TALSTATUS RefreshLock(SCHANDLE hSession, UNICODE_STRING* path, INT64 timeout,
                          const DAV_PRECONDITIONS* preconditions, UINT32* size,
                          DAV_LOCK_INFO_3* lock) override;
    TALSTATUS Unlock(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* token,
                     const DAV_PRECONDITIONS* preconditions) override;
    TALSTATUS GetLocks(SCHANDLE hSession, UNICODE_STRING* path, UINT64* place, UINT32* size,
                       DAV_LOCK_INFO_3* buffer) override;
    TALSTATUS GetQuota(SCHANDLE hSession, UNICODE_STRING* path, DAV_QUOTA* quota) override;

  private:
    TALSTATUS Relocate(SCHANDLE session, bool isMove, const UNICODE_STRING* source,
                       const UNICODE_STRING* destination, UINT32 flags,
                       const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                       DAV_CHANGE* change);
    TALSTATUS RelocateOnce(const Guard& guard, bool isMove, UINT32 flags, const Target& from,
                           const Target& to, bool* replaced);
    TALSTATUS Patch(const Guard& guard, Target* target, std::span<DAV_PROPERTY_CHANGE> changes);
    TALSTATUS Describe(const Target& target, bool hasReplaced, DAV_CHANGE* change) const;

    Store& store_;
};

} // namespace filestore
