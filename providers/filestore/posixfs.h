// SPDX-License-Identifier: Apache-2.0
//
// A volume over a directory of the machine.
#pragma once

#include <memory>

#include "providers/filestore/filesystem.h"

namespace filestore {

// Opens `directory`. Null on failure, with the errno value in *error.
[[nodiscard]] std::unique_ptr<FileSystem> OpenPosixFileSystem(const char* directory, int* error);

} // namespace filestore
