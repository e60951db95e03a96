// SPDX-License-Identifier: Apache-2.0
//
// The names of statuses.
#pragma once

#include <string_view>

namespace kestd {

// "Not Found" for 404; empty for a number without a name.
std::string_view ReasonPhrase(int status) noexcept;

} // namespace kestd
