// SPDX-License-Identifier: Apache-2.0
//
// Looks whether the files and directories that the settings name are there: what is missing is said
// before anybody is served without it.
#pragma once

#include <string>
#include <vector>

#include <kest/talpl.h>

namespace kestd {

// Empty when all are there and can be read, and all libraries of classes can be loaded; else
// "FILE:LINE: 'KEY' 'NAME': reason" for each, a line each.
// The users file is not looked at: whoever reads it says what is wrong.
std::string CheckConfiguredPaths(ITalpl& platform);

// What keeps `path` from being read as a file or entered as a directory; empty when nothing does.
std::string WhatIsWrongWithFile(const std::string& path);
std::string WhatIsWrongWithDirectory(const std::string& path);

// The full paths of the keys right below a key.
std::vector<std::u16string> KeysBelow(ITalpl& platform, const char16_t* key);

} // namespace kestd
