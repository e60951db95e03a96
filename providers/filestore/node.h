// SPDX-License-Identifier: Apache-2.0
//
// What files and collections have in common: names, dates, attributes.
#pragma once

#include <string_view>

#include <kest/dav.h>

#include "providers/filestore/store.h"

namespace filestore {

// Copies a name as UTF-16. Code 7 when it does not fit; `out` is then unchanged.
TALSTATUS PutName(std::string_view name, UNICODE_STRING* out);

// Changes when the content does, and with every replacement.
[[nodiscard]] DAV_ETAG ETagOf(const FileInfo& info);

// The attribute bits that follow from an object's permissions.
[[nodiscard]] UINT32 AttributesOf(const FileInfo& info);

// Changes to an object that is there. Each is on the disk when it returns if the volume's setting
// is SyncLevel::Full.
TALSTATUS SetCreated(const Volume& volume, std::string_view path, FileHandle file, UINT64 date);
TALSTATUS SetModified(const Volume& volume, FileHandle file, UINT64 date);
// Brings `info` up to date, too.
TALSTATUS SetAttributes(const Volume& volume, FileHandle file, FileInfo* info, UINT32 attributes);

} // namespace filestore
