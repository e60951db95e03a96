// SPDX-License-Identifier: Apache-2.0
//
// What a user can be called, whoever names him.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestd {

inline constexpr size_t kLongestUserName = 128; // bytes

// Empty when the name can be used; else what is wrong with it. No colon (the credentials end the
// name there), no backslash (domains are cut off there), no control character, not empty.
std::string WhatIsWrongWithName(std::string_view name);

} // namespace kestd
