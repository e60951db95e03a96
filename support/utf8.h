// SPDX-License-Identifier: Apache-2.0
//
// From UTF-16 to UTF-8 where the room is bounded.
#pragma once

#include <cstddef>

#include <kest/types.h>

// True when the text begins with a surrogate pair.
[[nodiscard]] bool StartsPair(const WCHAR* text, size_t units);

// Converts the longest run of whole characters from the start of `text` that fits `room` bytes with
// a terminator. Returns the bytes written, terminator not counted; `out` is empty when the text is
// not well-formed UTF-16.
size_t WideToUtf8Cut(const WCHAR* text, size_t units, char* out, size_t room);
