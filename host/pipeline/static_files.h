// SPDX-License-Identifier: Apache-2.0
//
// The static files that the module's pages refer to, under /Wharf/.
#pragma once

#include <string>

#include "host/pipeline/exchange.h"

namespace kestd {

// Answers a GET or HEAD of `name` (unescaped, relative to `directory`) with the file's content, its
// dates and an entity tag; everything else with an error. Nothing outside of the directory is
// reachable, symbolic links included.
void ServeStaticFile(Exchange& exchange, const std::string& directory, const std::string& name);

} // namespace kestd
