// SPDX-License-Identifier: Apache-2.0
//
// Whole small files.
#pragma once

#include <string>

#include <kest/types.h>

namespace tolm {

inline constexpr std::size_t kLargestFile = 16 * 1024 * 1024;

// Reads a regular file of at most kLargestFile bytes, and when it was last written (100 ns units
// since 1601). 0 or an error number.
int ReadWholeFile(const std::string& path, std::string& text, UINT64& lastWrite);

// Puts `text` in the file's place in one step that a crash cannot tear: a new file beside it,
// written and synced, with the old one's permissions (and owner, where allowed), is renamed over
// it. 0 or an error number; on failure the old file stands and nothing is left behind. `path` is
// absolute and no symbolic link.
int ReplaceFile(const std::string& path, const std::string& text, UINT64& lastWrite);

} // namespace tolm
