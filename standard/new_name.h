// SPDX-License-Identifier: Apache-2.0
//
// Which provider a name belongs to that does not exist yet.
#pragma once

#include "support/globals.h"

namespace standard {

// Finds the provider that serves a path, or else the one that serves the nearest collection above
// it, which says itself why the name cannot be made. Without any: code 6 for a name beside the
// providers' own, since nothing can be made there, code 33 for one further down, whose parent is
// missing. The caller holds the providers' list.
[[nodiscard]] TALSTATUS FindProviderOfNew(SCHANDLE session, const UNICODE_STRING& path,
                                          KESTDAV_HANDLER*& handler);

} // namespace standard
