// SPDX-License-Identifier: Apache-2.0
//
// Paths with symbolic links in them, followed step by step: a link may lead anywhere below the
// volume's root directory but into a directory that is private, whatever name it gets there by.
#pragma once

#include <string>
#include <string_view>

namespace filestore {

// Makes a directory, given by a descriptor, private for the whole process: no link leads into it
// from now on, in any volume, until as many calls of EndPrivate. Somebody keeps it open meanwhile:
// once it is removed another directory may get its number. 0 or an errno value.
[[nodiscard]] int KeepPrivate(int directory);
void EndPrivate(int directory);

// Opens what `path` leads to from the directory `top`, with the flags of open(2) but O_NOFOLLOW.
// The path's own names are taken as they stand: who may name what is private has been judged
// before. A descriptor, or -1 with errno: ENOENT for what is private, EXDEV for what is not below
// `top`, ELOOP for more than 40 links.
// `real` (may be null) becomes the path without links, a "/" before each name; "/" alone is the
// top.
[[nodiscard]] int OpenThroughLinks(int top, std::string_view path, int flags,
                                   std::string* real = nullptr);

} // namespace filestore
