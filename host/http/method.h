// SPDX-License-Identifier: Apache-2.0
//
// Request methods and their numbers.
#pragma once

#include <string_view>

#include <kest/io.h>

namespace kestd {

// The number of a method token (compared with case, RFC 9110 section 9.1); KestMethodUnknown for a
// method that the server does not know.
UINT32 MethodNumber(std::string_view token) noexcept;

// The token of a number; "other" for one that stands for no single method.
std::string_view MethodName(UINT32 method) noexcept;

// Whether requests of the method ask for a change of what is stored, locks included.
bool IsChange(UINT32 method) noexcept;

} // namespace kestd
