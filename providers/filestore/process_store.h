// SPDX-License-Identifier: Apache-2.0
//
// The store of this process.
//
// Settings, read once when the store is first used:
//   'Kest\Configuration\FileStore\Volumes'   one text value per volume: name = directory
//   'Kest\Configuration\FileStore'
//     'Sync'            "none", "data" (default) or "full", see SyncLevel
//     'Keep Deleted'    days for which deleted entries are kept, default 30; 0: not at all
//     'Keep Free'       MiB; while less is free, kept entries give way, default 256
//     'Reserve'         KiB that deletions and unlocking can use on a full disk, default 1024
//     'Upload Time'     seconds for which an upload that was broken off can go on, default 86400
//     'Server Address'  IPv4 address that a collection's location is shown with, default 127.0.0.1
#pragma once

#include "providers/filestore/store.h"

namespace filestore {

// The store of this process, made from the registry at the first call.
[[nodiscard]] Store& ProcessStore();

} // namespace filestore
