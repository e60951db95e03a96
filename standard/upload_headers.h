// SPDX-License-Identifier: Apache-2.0
//
// What upload requests say of the file beside its content: its length where the body has none, and
// its date.
#pragma once

#include <string_view>

#include <kest/types.h>

namespace standard {

// "X-Expected-Entity-Length": the length in bytes that a chunked body will have. False when it is
// not one number.
bool ReadExpectedLength(std::string_view header, UINT64& bytes) noexcept;

// "X-OC-Mtime": seconds since 1970, with or without a fraction, as a system time. False for what is
// no such number, and for a time that a system time cannot hold.
bool ReadModificationTime(std::string_view header, UINT64& time) noexcept;

} // namespace standard
