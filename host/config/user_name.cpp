// SPDX-License-Identifier: Apache-2.0
//
// Checks names of users.
#include "host/config/user_name.h"

#include "base/ascii.h"
#include "base/utf.h"

namespace kestd {

std::string WhatIsWrongWithName(std::string_view name)
{
    if (name.empty())
        return "a user's name cannot be empty";
    if (name.size() > kLongestUserName)
        return "a user's name has at most " + std::to_string(kLongestUserName) + " bytes";
    if (!base::IsUtf8(name) || base::HasControlOrTab(name))
        return "a user's name is UTF-8 text without control characters";
    if (name.find_first_of(":\\") != std::string_view::npos)
        return "a user's name holds neither ':' nor '\\'";
    if (name.front() == '#' || base::Trimmed(name).size() != name.size())
        return "a user's name begins with neither '#' nor a blank and does not end with a blank";
    return {};
}

} // namespace kestd
