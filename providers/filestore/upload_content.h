// SPDX-License-Identifier: Apache-2.0
//
// More content for an upload that was begun before, as IKestDAVUploads3::Continue hands it out.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "providers/filestore/object.h"
#include "providers/filestore/pending_upload.h"

namespace filestore {

class UploadContent final : public Object<UploadContent, IKestDAVResource3> {
  public:
    // `given` are the caller's texts, which outlive this object's Publish.
    UploadContent(const Store& store, SCHANDLE session, const Target& target, std::string_view name,
                  const DAV_PRECONDITIONS& given);
    ~UploadContent();

    // Takes the upload, whose mutex the caller holds. `space`: how long it may get, in bytes.
    void Begin(PendingUpload& upload, UINT64 space);

    TALSTATUS Open(SCHANDLE hSession, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                   const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                   DAV_OBJECT_INFO* info) override;
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override;
    TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) override;
    TALSTATUS SetLength(UINT64 length) override;
    TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME created, IKestDAVFailures3* failures,
                      DAV_CHANGE* change) override;

  private:
    template <class F> TALSTATUS WhileHeld(F&& use);

    const Store& store_;
    Volume& volume_;
    const DAV_PRECONDITIONS given_;
    Guard guard_;
    const std::unique_ptr<UploadRegistry::Hold> hold_;
    UINT64 holder_ = 0;
    UINT64 start_ = 0; // where this object's content begins
    UINT64 space_ = 0;
};

} // namespace filestore
