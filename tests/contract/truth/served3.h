// SPDX-License-Identifier: Apache-2.0
//
// The third generation's face of a namespace whose store is made anew from case to case.
#pragma once

#include <utility>

#include <kest/com.h>

#include "providers/filestore/namespace.h"

namespace truth_test {

// `current` gives the store of the moment.
template <filestore::Store& (*current)()> class ServedNamespace3 final : public IKestDAV3 {
  public:
    TALSTATUS QueryInterface(const GUID*, void**) override { return TAL_STATUS_NO_INTERFACE; }
    UINT32 AddRef() override { return 1; } // lives as long as the process
    UINT32 Release() override { return 1; }

    TALSTATUS GetInfo(SCHANDLE s, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override
    {
        return Now(&IKestDAV3::GetInfo, s, path, info);
    }
    TALSTATUS Judge(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given) override
    {
        return Now(&IKestDAV3::Judge, s, path, given);
    }
    TALSTATUS MakeCollection(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                             UINT32 count, DAV_PROPERTY_CHANGE* changes,
                             IKestDAVFailures3* failures, DAV_CHANGE* change) override
    {
        return Now(&IKestDAV3::MakeCollection, s, path, given, count, changes, failures, change);
    }
    TALSTATUS Delete(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                     IKestDAVFailures3* failures) override
    {
        return Now(&IKestDAV3::Delete, s, path, given, failures);
    }
    TALSTATUS Copy(SCHANDLE s, UNICODE_STRING* from, UNICODE_STRING* to, UINT32 flags,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return Now(&IKestDAV3::Copy, s, from, to, flags, given, failures, change);
    }
    TALSTATUS Move(SCHANDLE s, UNICODE_STRING* from, UNICODE_STRING* to, UINT32 flags,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return Now(&IKestDAV3::Move, s, from, to, flags, given, failures, change);
    }
    TALSTATUS PatchProperties(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                              UINT32 count, DAV_PROPERTY_CHANGE* changes,
                              IKestDAVFailures3* failures, DAV_CHANGE* change) override
    {
        return Now(&IKestDAV3::PatchProperties, s, path, given, count, changes, failures, change);
    }
    TALSTATUS GetProperties(SCHANDLE s, UNICODE_STRING* path, UINT64* place, UINT32* size,
                            DAV_PROPERTY* buffer) override
    {
        return Now(&IKestDAV3::GetProperties, s, path, place, size, buffer);
    }
    TALSTATUS Lock(SCHANDLE s, UNICODE_STRING* path, const DAV_LOCK_REQUEST* request,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures, UINT32* size,
                   DAV_LOCK_INFO_3* lock, DAV_CHANGE* change) override
    {
        return Now(&IKestDAV3::Lock, s, path, request, given, failures, size, lock, change);
    }
    TALSTATUS RefreshLock(SCHANDLE s, UNICODE_STRING* path, INT64 timeout,
                          const DAV_PRECONDITIONS* given, UINT32* size,
                          DAV_LOCK_INFO_3* lock) override
    {
        return Now(&IKestDAV3::RefreshLock, s, path, timeout, given, size, lock);
    }
    TALSTATUS Unlock(SCHANDLE s, UNICODE_STRING* path, const DAV_TEXT* token,
                     const DAV_PRECONDITIONS* given) override
    {
        return Now(&IKestDAV3::Unlock, s, path, token, given);
    }
    TALSTATUS GetLocks(SCHANDLE s, UNICODE_STRING* path, UINT64* place, UINT32* size,
                       DAV_LOCK_INFO_3* buffer) override
    {
        return Now(&IKestDAV3::GetLocks, s, path, place, size, buffer);
    }
    TALSTATUS GetQuota(SCHANDLE s, UNICODE_STRING* path, DAV_QUOTA* quota) override
    {
        return Now(&IKestDAV3::GetQuota, s, path, quota);
    }

  private:
    template <class... P, class... A>
    static TALSTATUS Now(TALSTATUS (IKestDAV3::*operation)(P...), A... arguments)
    {
        return filestore::Protected([&] { // nothing is thrown through the module
            const auto whole =
                Ref<filestore::FileNamespace>::Adopt(new filestore::FileNamespace(current()));
            Ref<IKestDAV3> face;
            const TALSTATUS status = Query(whole.Get(), face);
            return Failed(status) ? status : (face.Get()->*operation)(arguments...);
        });
    }
};

} // namespace truth_test
