// SPDX-License-Identifier: Apache-2.0
//
// Paths that were taken apart before. A request asks what a path is and then opens it, and the next
// one asks for the same again; where a path leads within a store never changes.
#pragma once

#include <string_view>

#include <kest/types.h>

#include "providers/filestore/target.h"

namespace filestore::parsed_paths {

// Sets `target` when `text` was noted for the store of that number, and nobody has used its place
// since. Any thread; never waits.
[[nodiscard]] bool Recall(UINT64 store, std::u16string_view text, Target* target) noexcept;

// Long paths, and those whose place another thread is using, are not noted. `target` is no deleted
// entry.
void Note(UINT64 store, std::u16string_view text, const Target& target) noexcept;

} // namespace filestore::parsed_paths
