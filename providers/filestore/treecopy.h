// SPDX-License-Identifier: Apache-2.0
//
// A copy of a file or a tree, made beside the destination's volume and renamed into place whole.
#pragma once

#include <string>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore {

class TreeCopy {
  public:
    TreeCopy(Store& store, Volume& from, Volume& to) : store_(store), from_(from), to_(to) {}
    // Removes what was not published.
    ~TreeCopy();
    TreeCopy(const TreeCopy&) = delete;
    TreeCopy& operator=(const TreeCopy&) = delete;

    // Copies content, permissions, and both dates. Links are followed to files and left out
    // otherwise; what is neither file nor directory is left out.
    TALSTATUS Make(const Target& source, bool shallow);
    bool IsDirectory() const { return isDirectory_; }
    // Puts the copy in place with a copy of the properties. Code 37 when a lock came in between.
    TALSTATUS Publish(const Guard& guard, const Directory& directory, const std::string& path,
                      bool replace);

  private:
    TALSTATUS CopyObject(const std::string& source, const Directory& directory,
                         const std::string& path, const std::string& leaf);
    TALSTATUS CopyFile(FileHandle source, const FileInfo& info, const Directory& directory,
                       const std::string& leaf);
    TALSTATUS CopyMembers(FileHandle source, const std::string& sourcePath,
                          const std::string& path);
    TALSTATUS CopyDates(FileHandle source, const FileInfo& info, FileHandle copy,
                        const Directory& directory);
    TALSTATUS CopyProperties(MetadataSession& to, const std::string& path);

    Store& store_;
    Volume& from_;
    Volume& to_;
    std::string sourcePath_;
    std::string tmpName_;
    bool shallow_ = false;
    bool isDirectory_ = false;
};

} // namespace filestore
