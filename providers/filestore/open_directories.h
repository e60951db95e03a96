// SPDX-License-Identifier: Apache-2.0
//
// The directories that a request has open anyway.
//
// A walk over a tree names every object by its whole path, while it holds the collections that it
// walks through open. What lies directly in one of those is reached through it, in one step and not
// by the way down from the volume's root directory.
#pragma once

#include <string_view>

#include "providers/filestore/directory.h"

namespace filestore {

// The directories that the running request has open as collections (RequestState). None is kept
// while no request runs.
namespace open_directories {

// Lets later look-ups of the running request find the directory, for as long as somebody holds it.
void Add(const DirectoryRef& directory);
// Null when the running request has none of that path open.
[[nodiscard]] DirectoryRef Find(const Volume& volume, std::string_view path);
// The tree at `path` moves or goes: from now on its directories are looked up anew.
void Forget(const Volume& volume, std::string_view path);

} // namespace open_directories

} // namespace filestore
