// SPDX-License-Identifier: Apache-2.0
//
// Uploads that go on when their connection has broken, as the third generation offers them.
#pragma once

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/tear_off.h"
#include "providers/filestore/upload_registry.h"

namespace filestore {

class UploadsTearOff final : public TearOff<IKestDAVUploads3> {
  public:
    UploadsTearOff(IUnknown& whole, Store& store) : TearOff(whole), store_(store) {}

    TALSTATUS GetLimits(SCHANDLE hSession, UNICODE_STRING* path, DAV_UPLOAD* upload) override;
    TALSTATUS Begin(SCHANDLE hSession, UNICODE_STRING* path, UINT64 length, const DAV_TEXT* terms,
                    const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                    DAV_UPLOAD* upload) override;
    TALSTATUS Find(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name, UINT32* size,
                   char* terms, DAV_UPLOAD* upload) override;
    TALSTATUS Continue(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name, UINT64 offset,
                       UINT64 length, const DAV_PRECONDITIONS* preconditions,
                       IKestDAVResource3** content) override;
    TALSTATUS Cancel(SCHANDLE hSession, UNICODE_STRING* path, const DAV_TEXT* name) override;

  private:
    TALSTATUS LocateKnown(const UNICODE_STRING* path, Target* target) const;
    template <class F>
    TALSTATUS OnUpload(SCHANDLE session, const UNICODE_STRING* path, const DAV_TEXT* name,
                       F&& use) const;
    TALSTATUS LocateUsable(const UNICODE_STRING* path, Target* target) const;
    TALSTATUS BeginAt(const Guard& guard, const Target& target, UINT64 length,
                      std::string_view terms, DAV_UPLOAD* upload);

    Store& store_;
};

} // namespace filestore
