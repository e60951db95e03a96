// SPDX-License-Identifier: Apache-2.0
//
// What the server itself says of an error.
#pragma once

#include <string>
#include <string_view>

namespace kestd {

inline constexpr char kRetrySeconds[] = "5"; // "Retry-After" of a 503

// The body of a reply that the server itself makes about an error, and its type. Throws
// std::bad_alloc.
inline constexpr std::string_view kErrorType = "text/plain; charset=utf-8";
[[nodiscard]] std::string ErrorText(int status);

} // namespace kestd
