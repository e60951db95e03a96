// SPDX-License-Identifier: Apache-2.0
//
// Passwords as they are kept: hashes of crypt(5), yescrypt for new ones.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestd {

// The longest password in bytes: what crypt(3) takes with its terminator.
inline constexpr size_t kLongestPassword = 511;

// The hash of a password with fresh salt. `cost` is yescrypt's, 1 to 11; 0 takes the library's
// default. Takes tens of milliseconds and some megabytes on purpose. Empty when it cannot be
// computed (a password that is too long or holds a NUL, no memory).
std::string HashPassword(std::string_view password, unsigned cost = 0);

// Whether the password fits the hash. As slow as HashPassword. The comparison takes the same time
// wherever the texts differ.
bool IsPassword(std::string_view password, const std::string& hash);

// Whether the text is a hash that this machine's crypt(3) knows.
bool IsUsableHash(const std::string& hash);

// A hash of no known password, with the cost of a real one: checked where there is no such user, so
// that the time of an answer does not tell which names exist.
const std::string& DecoyHash();

} // namespace kestd
