// SPDX-License-Identifier: Apache-2.0
//
// Where a COPY or a MOVE goes to.
#pragma once

#include "support/globals.h"
#include "support/memory.h"

namespace standard {

// Makes a provider path of what IKestIO_3::GetCopyInfo and GetMoveInfo give: a URL whose escapes
// are decoded here, or an unescaped path, below the module's root. The host has judged the URL's
// authority. `path` refers to `text`, has no "/" at its end and room for a terminator, which stands
// there. Code 16 for anything else, and for the module's root; code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadDestination(const UNICODE_STRING& target, Paged<WCHAR>& text,
                                        UNICODE_STRING& path);

} // namespace standard
