// SPDX-License-Identifier: Apache-2.0
//
// Open directories.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include <kest/types.h>

#include "providers/filestore/filesystem.h"

namespace filestore {

class Volume;

// Whether children of a directory have kept creation dates, as the last look found it.
enum class KeptDates : UINT8 { Unknown, None, Some };

struct Directory {
    const Volume* volume = nullptr;
    std::string path; // within the volume
    OpenFile file;
    mutable std::atomic<KeptDates> keptDates{KeptDates::Unknown}; // see Volume::HasKeptDates

    FileHandle Get() const { return file.Get(); }
};

using DirectoryRef = std::shared_ptr<const Directory>;

} // namespace filestore
