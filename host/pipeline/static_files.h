// SPDX-License-Identifier: Apache-2.0
//
// The static files that the module's pages refer to, under /Wharf/ and beside its location.
#pragma once

#include <string>

#include "host/pipeline/exchange.h"

namespace kestd {

// Where the pages look for them, as a path: "/Wharf/" for the location "/Ferro", "/dav/Wharf/" for
// "/dav/Ferro".
inline std::string WharfBeside(const std::string& location)
{
    return location.substr(0, location.rfind('/')) + "/Wharf/";
}

// Answers a GET or HEAD of `name` (unescaped, relative to `directory`) with the file's content, its
// dates and an entity tag; everything else with an error. Nothing outside of the directory is
// reachable, symbolic links included.
void ServeStaticFile(Exchange& exchange, const std::string& directory, const std::string& name);

} // namespace kestd
