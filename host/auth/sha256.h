// SPDX-License-Identifier: Apache-2.0
//
// Digests of short texts.
#pragma once

#include <array>
#include <string_view>

namespace kestd {

using Sha256Digest = std::array<unsigned char, 32>;

// SHA-256 of two texts in a row. Any thread. Throws std::runtime_error where there is no memory.
Sha256Digest Sha256(std::string_view first, std::string_view second);

} // namespace kestd
