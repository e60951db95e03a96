// SPDX-License-Identifier: Apache-2.0
//
// The names in an opened collection, taken at once, and what there is to say about each when its
// turn comes: memory is the names', and the first member comes early.
#pragma once

#include <optional>
#include <string>
#include <unordered_set>

#include "providers/filestore/directory.h"
#include "providers/filestore/name_list.h"
#include "providers/filestore/store.h"

namespace filestore {

class Listing {
  public:
    explicit Listing(Store& store) : store_(store) {}

    // Takes the names of what is served: of the volumes for the root, which is a null volume, else
    // of the directory, which has `path` in the volume. Code 10 when the request was cancelled.
    TALSTATUS Read(Volume* volume, DirectoryRef directory, const std::string& path, bool isSorted);
    void Clear();
    bool IsRead() const { return names_.has_value(); }
    const NameList& Names() const { return *names_; }

    // Code 11 for what is gone meanwhile, leads outside or is neither file nor directory, and for
    // nothing else: the others are told of, or none is. `info` has the date that is kept.
    TALSTATUS Inspect(const char* name, FileInfo* info) const;
    bool IsHidden(const char* name) const { return !hidden_.empty() && hidden_.contains(name); }

  private:
    TALSTATUS InspectVolume(std::string_view name, FileInfo* info) const;
    TALSTATUS InspectLink(const char* name, FileInfo* info) const;

    Store& store_;
    Volume* volume_ = nullptr;
    DirectoryRef directory_;
    std::string path_;
    std::optional<NameList> names_;
    bool hasKeptDates_ = false;
    std::unordered_set<std::string> hidden_; // members that are
};

} // namespace filestore
