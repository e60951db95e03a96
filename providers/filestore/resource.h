// SPDX-License-Identifier: Apache-2.0
//
// An opened file: read where it is, or new content for its name that takes its place when the
// object is released (upload.h).
#pragma once

#include <memory>
#include <optional>

#include <kest/dav.h>

#include "providers/filestore/node.h"
#include "providers/filestore/object.h"
#include "providers/filestore/resource3.h"
#include "providers/filestore/store.h"
#include "providers/filestore/upload.h"

namespace filestore {

class FileResource final : public Object<FileResource, IKestDAVResource2> {
  public:
    explicit FileResource(Store& store) : node_(store) {}
    // Puts new content in place. What fails here goes to the host: the module has stopped looking.
    ~FileResource();

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;

    TALSTATUS Associate(SCHANDLE hSession, BOOLEAN create, DAV_OPEN_ACCESS access,
                        DAV_SHARE_MODE share, DAV_OPEN_FLAGS flags, UNICODE_STRING* path,
                        DAV_LOCK_TOKEN* token) override;
    TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) override;
    TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) override;
    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override;
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override;
    TALSTATUS GetCreationDate(DAV_DATETIME* date) override;
    TALSTATUS GetDisplayName(UNICODE_STRING* name) override;
    TALSTATUS GetETag(DAV_ETAG* etag) override;
    TALSTATUS GetModificationDate(DAV_DATETIME* date) override;
    TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) override;
    TALSTATUS GetResourceSize(UINT64* size) override;
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override;
    TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) override;
    TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) override;
    TALSTATUS SetCreationDate(DAV_DATETIME date) override;
    TALSTATUS SetModificationDate(DAV_DATETIME date) override;
    TALSTATUS GetLiveAttributes(UINT32* attributes) override;
    TALSTATUS SetLiveAttributes(UINT32 attributes) override;
    TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                           UINT32* outputLength, void* output) override;
    TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                  UINT32* resultLength, char* result) override;

  private:
    TALSTATUS Open(SCHANDLE session, DAV_OPEN_ACCESS access, const UNICODE_STRING* path,
                   const DAV_LOCK_TOKEN* token);
    TALSTATUS Create(SCHANDLE session, const UNICODE_STRING* path, const DAV_LOCK_TOKEN* token);
    void KeepMissing(const Target& target);
    bool TakeMissing(const Target& target);
    TALSTATUS StartUpload(bool keepContent, bool seemsFree);
    TALSTATUS FinishUpload();
    TALSTATUS Inspect(FileInfo* out) const;
    bool IsListedWithoutDates() const;
    FileHandle Handle();
    void CloseAll();

    Node node_;     // bound while associated
    OpenFile file_; // what is there now; none while a new name is made, or nothing but looked at
    FileInfo info_;
    // What the running request has looked for here, and in vain.
    struct {
        const IKestIO_5* request = nullptr;
        const Volume* volume = nullptr;
        std::string path;
    } missing_;
    std::optional<Upload> upload_;
    bool isUploadConditional_ = false; // by an "If" header
    std::optional<bool> uploadHidden_; // asked for while new content is on its way in
    std::unique_ptr<ResourceTearOff> third_;
};

} // namespace filestore
