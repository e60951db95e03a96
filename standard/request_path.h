// SPDX-License-Identifier: Apache-2.0
//
// Provider paths of a request: its own, and those that its headers name by URL.
#pragma once

#include <string_view>

#include "support/globals.h"
#include <kest/io.h>

namespace standard {

// The provider path, unescaped UTF-8, of a URL in a header: an absolute one, whose scheme and
// authority are the client's spelling of this server and are not compared, or an absolute path. It
// has no trailing "/" and lives in request memory. A URL that is not below the module's root gives
// a path that no provider has. Fails with code 16 for anything that is no such URL, and with code 5
// when memory is short.
[[nodiscard]] TALSTATUS ProviderPathOfUrl(IKestIO_5* io, std::string_view url,
                                          std::string_view& path);

} // namespace standard
