// SPDX-License-Identifier: Apache-2.0
//
// The third generation's faces of a namespace whose store is made anew from case to case.
#pragma once

#include <utility>

#include <kest/com.h>

#include "providers/filestore/namespace.h"

namespace truth_test {

// Calls an operation of the store of the moment, which `current` gives.
template <filestore::Store& (*current)(), class Interface> struct Served {
    template <class... P, class... A>
    static TALSTATUS Now(TALSTATUS (Interface::*operation)(P...), A... arguments)
    {
        return filestore::Protected([&] { // nothing is thrown through the module
            const auto whole =
                Ref<filestore::FileNamespace>::Adopt(new filestore::FileNamespace(current()));
            Ref<Interface> face;
            const TALSTATUS status = Query(whole.Get(), face);
            return Failed(status) ? status : (face.Get()->*operation)(arguments...);
        });
    }
};

template <filestore::Store& (*current)()>
class ServedUploads3 final : public IKestDAVUploads3, Served<current, IKestDAVUploads3> {
  public:
    TALSTATUS QueryInterface(const GUID*, void**) override { return TAL_STATUS_NO_INTERFACE; }
    UINT32 AddRef() override { return 1; } // lives as long as the process
    UINT32 Release() override { return 1; }

    TALSTATUS GetLimits(SCHANDLE s, UNICODE_STRING* path, DAV_UPLOAD* upload) override
    {
        return this->Now(&IKestDAVUploads3::GetLimits, s, path, upload);
    }
    TALSTATUS Begin(SCHANDLE s, UNICODE_STRING* path, UINT64 length, const DAV_TEXT* terms,
                    const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures,
                    DAV_UPLOAD* upload) override
    {
        return this->Now(&IKestDAVUploads3::Begin, s, path, length, terms, given, failures, upload);
    }
    TALSTATUS Find(SCHANDLE s, UNICODE_STRING* path, const DAV_TEXT* name, UINT32* size,
                   char* terms, DAV_UPLOAD* upload) override
    {
        return this->Now(&IKestDAVUploads3::Find, s, path, name, size, terms, upload);
    }
    TALSTATUS Continue(SCHANDLE s, UNICODE_STRING* path, const DAV_TEXT* name, UINT64 offset,
                       UINT64 length, const DAV_PRECONDITIONS* given,
                       IKestDAVResource3** content) override
    {
        return this->Now(&IKestDAVUploads3::Continue, s, path, name, offset, length, given,
                         content);
    }
    TALSTATUS Cancel(SCHANDLE s, UNICODE_STRING* path, const DAV_TEXT* name) override
    {
        return this->Now(&IKestDAVUploads3::Cancel, s, path, name);
    }
};

template <filestore::Store& (*current)()>
class ServedNamespace3 final : public IKestDAV3, Served<current, IKestDAV3> {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        const bool isUploads = iid && out && *iid == IidOf<IKestDAVUploads3>::value;
        if (isUploads)
            *out = static_cast<IKestDAVUploads3*>(&uploads_);
        return isUploads ? TAL_STATUS_SUCCESS : TAL_STATUS_NO_INTERFACE;
    }
    UINT32 AddRef() override { return 1; } // lives as long as the process
    UINT32 Release() override { return 1; }

    TALSTATUS GetInfo(SCHANDLE s, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override
    {
        return this->Now(&IKestDAV3::GetInfo, s, path, info);
    }
    TALSTATUS Judge(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given) override
    {
        return this->Now(&IKestDAV3::Judge, s, path, given);
    }
    TALSTATUS MakeCollection(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                             UINT32 count, DAV_PROPERTY_CHANGE* changes,
                             IKestDAVFailures3* failures, DAV_CHANGE* change) override
    {
        return this->Now(&IKestDAV3::MakeCollection, s, path, given, count, changes, failures,
                         change);
    }
    TALSTATUS Delete(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                     IKestDAVFailures3* failures) override
    {
        return this->Now(&IKestDAV3::Delete, s, path, given, failures);
    }
    TALSTATUS Copy(SCHANDLE s, UNICODE_STRING* from, UNICODE_STRING* to, UINT32 flags,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return this->Now(&IKestDAV3::Copy, s, from, to, flags, given, failures, change);
    }
    TALSTATUS Move(SCHANDLE s, UNICODE_STRING* from, UNICODE_STRING* to, UINT32 flags,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures,
                   DAV_CHANGE* change) override
    {
        return this->Now(&IKestDAV3::Move, s, from, to, flags, given, failures, change);
    }
    TALSTATUS PatchProperties(SCHANDLE s, UNICODE_STRING* path, const DAV_PRECONDITIONS* given,
                              UINT32 count, DAV_PROPERTY_CHANGE* changes,
                              IKestDAVFailures3* failures, DAV_CHANGE* change) override
    {
        return this->Now(&IKestDAV3::PatchProperties, s, path, given, count, changes, failures,
                         change);
    }
    TALSTATUS GetProperties(SCHANDLE s, UNICODE_STRING* path, UINT64* place, UINT32* size,
                            DAV_PROPERTY* buffer) override
    {
        return this->Now(&IKestDAV3::GetProperties, s, path, place, size, buffer);
    }
    TALSTATUS Lock(SCHANDLE s, UNICODE_STRING* path, const DAV_LOCK_REQUEST* request,
                   const DAV_PRECONDITIONS* given, IKestDAVFailures3* failures, UINT32* size,
                   DAV_LOCK_INFO_3* lock, DAV_CHANGE* change) override
    {
        return this->Now(&IKestDAV3::Lock, s, path, request, given, failures, size, lock, change);
    }
    TALSTATUS RefreshLock(SCHANDLE s, UNICODE_STRING* path, INT64 timeout,
                          const DAV_PRECONDITIONS* given, UINT32* size,
                          DAV_LOCK_INFO_3* lock) override
    {
        return this->Now(&IKestDAV3::RefreshLock, s, path, timeout, given, size, lock);
    }
    TALSTATUS Unlock(SCHANDLE s, UNICODE_STRING* path, const DAV_TEXT* token,
                     const DAV_PRECONDITIONS* given) override
    {
        return this->Now(&IKestDAV3::Unlock, s, path, token, given);
    }
    TALSTATUS GetLocks(SCHANDLE s, UNICODE_STRING* path, UINT64* place, UINT32* size,
                       DAV_LOCK_INFO_3* buffer) override
    {
        return this->Now(&IKestDAV3::GetLocks, s, path, place, size, buffer);
    }
    TALSTATUS GetQuota(SCHANDLE s, UNICODE_STRING* path, DAV_QUOTA* quota) override
    {
        return this->Now(&IKestDAV3::GetQuota, s, path, quota);
    }

  private:
    ServedUploads3<current> uploads_;
};

} // namespace truth_test
