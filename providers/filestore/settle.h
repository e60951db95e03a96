// SPDX-License-Identifier: Apache-2.0
//
// Ends the renames that processes began and did not live to record: where the disk shows that one
// happened, the metadata follows; one that stopped half-way is finished or taken back.
#pragma once

#include "providers/filestore/filesystem.h"
#include "providers/filestore/metadata.h"

namespace filestore {

// Settles one rename whose process is dead, and removes the intent. `sync`: the names are to be on
// the disk before the metadata says so.
TALSTATUS SettleRename(FileSystem& fs, MetadataSession& session, const RenameIntent& intent,
                       bool sync);

} // namespace filestore
