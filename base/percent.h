// SPDX-License-Identifier: Apache-2.0
//
// Percent-encoding (RFC 3986 section 2.1).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/ascii.h"

namespace base {

// What never needs an escape (RFC 3986 section 2.3).
constexpr bool IsUnreserved(char c) noexcept
{
    return IsAlphanumeric(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

// The byte that the escape "%XX" at `at` stands for; -1 when no whole escape stands there. `at` is
// within the text.
int EscapedByte(std::string_view text, size_t at) noexcept;

// Escapes everything but unreserved characters and "/", with upper-case digits.
std::string PercentEncode(std::string_view text);

// Undoes every escape, once. Nothing for a malformed escape and for an escaped NUL.
std::optional<std::string> PercentDecode(std::string_view text);

} // namespace base
