// SPDX-License-Identifier: Apache-2.0
//
// Content of a file: read where it is, or new content that is published in one step.
#pragma once

#include <optional>
#include <string>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/tear_off.h"
#include "providers/filestore/upload.h"

namespace filestore {

class ResourceTearOff final : public TearOff<IKestDAVResource3> {
  public:
    ResourceTearOff(IUnknown& whole, Store& store)
        : TearOff(whole), store_(store), asFile_(whole, *this)
    {
    }
    // What IID_KestContentFile_3 asks for; it lives as long as this.
    IKestDAVContentFile3& AsFile() noexcept { return asFile_; }

    TALSTATUS Open(SCHANDLE hSession, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                   const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                   DAV_OBJECT_INFO* info) override;
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override;
    TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) override;
    TALSTATUS SetLength(UINT64 length) override;
    TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME created, IKestDAVFailures3* failures,
                      DAV_CHANGE* change) override;

  private:
    class FileTearOff final : public TearOff<IKestDAVContentFile3> {
      public:
        FileTearOff(IUnknown& whole, ResourceTearOff& content) : TearOff(whole), content_(content)
        {
        }
        TALSTATUS GetDescriptor(INT32* descriptor) override
        {
            return content_.GetDescriptor(descriptor);
        }

      private:
        ResourceTearOff& content_;
    };

    TALSTATUS GetDescriptor(INT32* descriptor);
    TALSTATUS OpenContent();
    void Close();
    TALSTATUS OpenForReading(SCHANDLE session, const UNICODE_STRING* path, DAV_OBJECT_INFO* info);
    TALSTATUS JudgeReading(SCHANDLE session, const Target& target);
    TALSTATUS OpenForWriting(SCHANDLE session, const UNICODE_STRING* path, UINT32 purpose,
                             INT64 expected, DAV_OBJECT_INFO* info);
    TALSTATUS Begin(UINT32 purpose, INT64 expected);
    TALSTATUS Finish(DAV_DATETIME modified, DAV_DATETIME created);

    Store& store_;
    FileTearOff asFile_;
    Volume* volume_ = nullptr; // null: the root
    std::string path_;         // in it
    bool isOpen_ = false;
    OpenFile file_; // what was there when it was opened; none where that was only looked at
    FileInfo info_;
    // Of content on its way in. The texts are the caller's.
    DAV_PRECONDITIONS given_{};
    std::optional<Guard> guard_;
    std::optional<Upload> upload_;
};

} // namespace filestore
