// SPDX-License-Identifier: Apache-2.0
//
// What opened files and collections have in common: name, dates, attributes, properties, locks.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kest/dav.h>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

inline constexpr UINT32 kMaxPropertyBytes = 1u << 20; // of one property's value
inline constexpr size_t kMaxPropertyNameBytes = 4096; // as UTF-8

class Node {
  public:
    explicit Node(Store& store) : store_(store) {}

    // Binds to what a request has opened. Copies the token, which may be null.
    void Bind(SCHANDLE session, const Target& target, const DAV_LOCK_TOKEN* token);
    void Unbind() { bound_ = false; }
    bool IsBound() const { return bound_; }
    bool IsRoot() const { return volume_ == nullptr; }

    Store& GetStore() const { return store_; }
    Volume& GetVolume() const { return *volume_; }
    const std::string& Path() const { return path_; }
    bool IsDeleted() const { return deletedId_ != 0; }

    // The guard over changes by this request.
    Guard MakeGuard() const;
    // Whether the object may be changed where it is: code 6 for the root, a read-only volume and
    // what has been deleted, and what Guard answers.
    TALSTATUS CheckChange() const;

    TALSTATUS GetDisplayName(UNICODE_STRING* out) const;
    TALSTATUS GetAttributes(const FileInfo& info, UINT32* attributes) const;

    // Changes to the object that is open as `file`. On the disk when they return if the volume's
    // setting is SyncLevel::Full. SetAttributes brings `info` up to date, too.
    TALSTATUS SetCreated(FileHandle file, UINT64 date) const;
    TALSTATUS SetModified(FileHandle file, UINT64 date) const;
    TALSTATUS SetAttributes(FileHandle file, FileInfo* info, UINT32 attributes) const;

    // As the interfaces' operations of these names.
    TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer);
    TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer);
    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer);
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer);
    TALSTATUS GetNamedProperty(const UNICODE_STRING* name, UINT32* length, char* value) const;
    // A null value removes. Code 35 for a value that is too long.
    TALSTATUS SetNamedProperty(const UNICODE_STRING* name, UINT32 length, const char* value) const;

  private:
    TALSTATUS CheckObject() const; // CheckChange without the guard
    TALSTATUS JudgeConditions() const;
    TALSTATUS Patch(const Guard& guard, const std::string& key, const char* value,
                    UINT32 length) const;
    bool KeepsProperties() const { return volume_ && volume_->MayHaveProperties(); }

    Store& store_;
    bool bound_ = false;
    Volume* volume_ = nullptr; // null: the root
    std::string path_;
    std::string shownName_; // where it is not the path's leaf
    INT64 deletedId_ = 0;
    SCHANDLE session_{};
    std::string token_;
    std::vector<LockRecord> locks_; // of the discovery that runs
    size_t nextLock_ = 0;
    INT64 lastProperty_ = 0;
};

// Copies a name as UTF-16. Code 7 when it does not fit; `out` is then unchanged.
TALSTATUS PutName(std::string_view name, UNICODE_STRING* out);

// The attribute bits that follow from an object's permissions.
[[nodiscard]] UINT32 AttributesOf(const FileInfo& info);

// Marks or unmarks as hidden, if that is a change.
TALSTATUS SetHidden(const Volume& volume, std::string_view path, bool on);

} // namespace filestore
