// SPDX-License-Identifier: Apache-2.0
//
// An opened collection's members in batches.
#pragma once

#include <string>
#include <unordered_set>

#include "providers/filestore/listing.h"
#include "providers/filestore/store.h"
#include "providers/filestore/tear_off.h"

namespace filestore {

class CollectionTearOff final : public TearOff<IKestDAVCollection3> {
  public:
    CollectionTearOff(IUnknown& whole, Store& store)
        : TearOff(whole), store_(store), listing_(store)
    {
    }

    TALSTATUS Open(SCHANDLE hSession, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override;
    TALSTATUS GetMembers(UINT32* size, DAV_MEMBER* buffer) override;

  private:
    TALSTATUS OpenTarget(Target* target, DAV_OBJECT_INFO* info);
    TALSTATUS ReadNames();
    TALSTATUS FindLocked(MetadataSession& session);
    TALSTATUS Pack(UINT32* size, char* buffer);
    TALSTATUS PackMember(std::string_view name, UINT64 now, DAV_MEMBER* out) const;

    Store& store_;
    bool isOpen_ = false;
    Volume* volume_ = nullptr; // null: the root
    DirectoryRef directory_;
    std::string path_;
    Listing listing_;
    size_t next_ = 0; // of its names
    std::unordered_set<std::string> withProperties_;
    std::unordered_set<std::string> locked_;
    bool isAllLocked_ = false; // by a lock on this collection or above it
};

} // namespace filestore
