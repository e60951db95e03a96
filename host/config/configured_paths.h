// SPDX-License-Identifier: Apache-2.0
//
// Looks whether the files and directories that the settings name are there: what is missing is said
// before anybody is served without it.
#pragma once

#include <string>

#include <kest/talpl.h>

namespace kestd {

// Empty when all are there and can be read, and all libraries of classes can be loaded; else
// "FILE:LINE: 'KEY' 'NAME': reason" for each, a line each.
// The users file is not looked at: whoever reads it says what is wrong.
std::string CheckConfiguredPaths(ITalpl& platform);

} // namespace kestd
