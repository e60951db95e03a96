// SPDX-License-Identifier: Apache-2.0
//
// What a client is told about a failure that a component has reported.
#pragma once

#include <string>
#include <string_view>

#include <kest/types.h>

namespace kestd {

inline constexpr char kRetrySeconds[] = "5"; // "Retry-After" of a 503

// The HTTP status for a failure. What is the system's fault and not the request's is 500; 503 for
// what may be over soon (memory, descriptors, a database in use); 507 for a full disk. Never 417,
// which clients take for their own mistake, and never a success.
[[nodiscard]] int HttpStatusOf(TALSTATUS failure) noexcept;

// The body of a reply that the server itself makes about an error, and its type. Throws
// std::bad_alloc.
inline constexpr std::string_view kErrorType = "text/plain; charset=utf-8";
[[nodiscard]] std::string ErrorText(int status);

} // namespace kestd
