// SPDX-License-Identifier: Apache-2.0
//
// Base64 (RFC 4648 section 4), over OpenSSL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace base {

std::string EncodeBase64(std::string_view bytes);

// Padding required, no blanks, no bits behind the last byte: a text has one spelling. Nothing for
// anything else, and for more than 1 GiB.
std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace base
