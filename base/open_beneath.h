// SPDX-License-Identifier: Apache-2.0
//
// Opening a path that must not lead out of a directory.
#pragma once

#include <cstdint>

namespace base {

// Opens `path` beneath the directory that `directory` is open as, by openat2(2). No name, link or
// rename that races with it leads outside; "magic" links of /proc are never followed. `flags` are
// those of open(2), `resolve` adds RESOLVE_* of openat2. A descriptor that the caller closes, or -1
// with errno: EXDEV where the path leaves, ELOOP at a link that must not be followed.
int OpenBeneath(int directory, const char* path, uint64_t flags, uint64_t resolve = 0) noexcept;

} // namespace base
