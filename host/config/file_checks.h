// SPDX-License-Identifier: Apache-2.0
//
// What keeps a configured file or directory from being used.
#pragma once

#include <string>

namespace kestd {

// What keeps `path` from being read as a file or entered as a directory; empty when nothing does.
std::string WhatIsWrongWithFile(const std::string& path);
std::string WhatIsWrongWithDirectory(const std::string& path);
// What keeps a log from being written to `path`, or from being made there. Makes nothing.
std::string WhatIsWrongWithLogFile(const std::string& path);

} // namespace kestd
