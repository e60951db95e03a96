// SPDX-License-Identifier: Apache-2.0
//
// The step in which an upload takes its name.
#pragma once

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/upload.h"

namespace filestore {

// Puts finished content in place if no lock has come in between, and none has gone that the
// conditions ask for, which are judged if `isConditional`.
TALSTATUS PublishUpload(const Guard& guard, Volume& volume, std::string_view path,
                        bool isConditional, Upload* upload);

} // namespace filestore
