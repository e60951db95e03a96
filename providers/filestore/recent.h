// SPDX-License-Identifier: Apache-2.0
//
// The file that GetType opened last on this thread. The module asks for a path's type and then
// opens it, in one request and with nothing in between; handing the open file over saves the second
// walk down the path, which is a good part of what a small GET costs.
//
// The hand-over is good for the very next operation of the store on this thread, for the same
// request and the same path; every other operation drops it. So nothing is served from it that was
// not opened by the running request itself.
#pragma once

#include <kest/io.h>

#include "providers/filestore/store.h"

namespace filestore::recent {

// Keeps the open file for the running request; closes it when no request runs.
void Keep(const Target& target, OpenFile file, const FileInfo& info);
// Takes the file over if it is the one that was kept for the running request. Drops it otherwise.
[[nodiscard]] bool Take(const Target& target, OpenFile* file, FileInfo* info);
// Every operation but the two above begins with this.
void Drop();

} // namespace filestore::recent
