// SPDX-License-Identifier: Apache-2.0
//
// The tables of storage providers, and of the classes that libraries bring.
#pragma once

#include <string>

#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kProvidersKey = u"Kest\\Policies\\DAV Handlers\\Configured";
inline constexpr const char16_t* kClassesKey = u"Tolm\\Classes";

// Empty when the libraries of all classes can be loaded, else all problems.
std::string CheckClassLibraries(ITalpl& platform);

} // namespace kestd
