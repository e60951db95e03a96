// SPDX-License-Identifier: Apache-2.0
//
// Metadata in an SQLite database in write-ahead mode.
#pragma once

#include <memory>
#include <string>

#include "providers/filestore/metadata.h"

namespace filestore {

// Opens "meta.db" and "state" in `directory`, making them if need be; all that this process opens
// of one directory share their connections. `durable`: a change is on the disk when its operation
// returns; otherwise a power cut can lose the last ones, but never damages the database. Null on
// failure, with one line in *reason.
[[nodiscard]] std::unique_ptr<Metadata> OpenSqliteMetadata(const std::string& directory,
                                                           bool durable, std::string* reason);

} // namespace filestore
