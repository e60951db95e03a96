// SPDX-License-Identifier: Apache-2.0
//
// An opened directory, or the root that lists the volumes.
#pragma once

#include <memory>
#include <string>

#include <kest/dav.h>

#include "providers/filestore/collection3.h"
#include "providers/filestore/listing.h"
#include "providers/filestore/node.h"
#include "providers/filestore/object.h"
#include "providers/filestore/store.h"

namespace filestore {

class FileCollection final : public Object<FileCollection, IKestDAVCollection2> {
  public:
    explicit FileCollection(Store& store) : node_(store), listing_(store) {}

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    TALSTATUS Associate(SCHANDLE hSession, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override;
    TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) override;
    TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) override;
    TALSTATUS GetCreationDate(DAV_DATETIME* date) override;
    TALSTATUS GetDisplayName(UNICODE_STRING* name) override;
    TALSTATUS GetETag(DAV_ETAG* etag) override;
    TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) override;
    TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) override;
    TALSTATUS GetModificationDate(DAV_DATETIME* date) override;
    TALSTATUS SetCreationDate(DAV_DATETIME date) override;
    TALSTATUS SetModificationDate(DAV_DATETIME date) override;
    TALSTATUS GetLiveAttributes(UINT32* attributes) override;
    TALSTATUS SetLiveAttributes(UINT32 attributes) override;
    TALSTATUS IoctlRequest(SCHANDLE hSession, UINT32 code, UINT32 inputLength, void* input,
                           UINT32* outputLength, void* output) override;
    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override;
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override;
    TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) override;
    TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                  UINT32* resultLength, char* result) override;

  private:
    FileHandle Handle() const { return directory_ ? directory_->Get() : kNoFile; }
    TALSTATUS Emit(UINT32* size, DAV_COMMON_ENUM* buffer);
    TALSTATUS Describe(const char* name, DAV_COMMON_ENUM* out);
    TALSTATUS PackDeleted(const DeletedEntry& entry, const FileInfo& info, bool hidden,
                          UINT32* length, void* out);

    TALSTATUS Open(SCHANDLE session, const UNICODE_STRING* path, const DAV_LOCK_TOKEN* token);
    TALSTATUS LocateMembers(UINT32* length, void* out) const;
    TALSTATUS EmitDeleted(UINT32* length, void* out);

    Node node_;              // bound while associated
    DirectoryRef directory_; // null for the root
    FileInfo info_;
    Listing listing_;
    size_t next_ = 0; // of its names
    // The list of deleted children: the last one given out, and the URI that its record points at.
    INT64 lastDeleted_ = 0;
    std::u16string deletedUri_;
    std::unique_ptr<CollectionTearOff> third_;
};

} // namespace filestore
