// SPDX-License-Identifier: Apache-2.0
//
// Ends the renames that processes began and did not live to record: where the disk shows that one
// happened, the metadata follows; one that stopped half-way is finished or taken back.
#pragma once

#include <mutex>

#include "providers/filestore/filesystem.h"
#include "providers/filestore/metadata.h"

namespace filestore {

// Recovers one rename that nobody works on any more, and removes the intent: its process is dead,
// or this one could not end it. `sync`: the names are to be on the disk before the metadata says
// so. `from` and `to` guard the intent's names (Volume::MutexOf).
TALSTATUS RecoverRename(FileSystem& fs, MetadataSession& session, const RenameIntent& intent,
                        bool sync, std::mutex& from, std::mutex& to);

} // namespace filestore
