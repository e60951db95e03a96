// SPDX-License-Identifier: Apache-2.0
//
// What a tree consisted of, in a few bytes: which names led to which objects, their content's size
// and date, and the metadata. Two that differ are of a tree that has been changed in between.
#pragma once

#include <string>
#include <string_view>

#include "providers/filestore/filesystem.h"
#include "providers/filestore/metadata.h"

namespace filestore {

class Fingerprint {
  public:
    // In any order. `path` is relative to the tree. Of a directory it is only that it is there:
    // its members are added by themselves.
    void Add(std::string_view path, const FileInfo& info);
    void AddRow(std::string_view path, const Property* property); // null: hidden
    // Everything at `name` in an open directory, below a volume's root directory. 0 or an errno
    // value.
    int AddTree(FileSystem& fs, FileHandle directory, const std::string& name);
    TALSTATUS AddRows(MetadataSession& session, std::string_view tree);

    bool operator==(const Fingerprint&) const = default;

  private:
    UINT64 sum_ = 0;
    UINT64 count_ = 0;
};

} // namespace filestore
