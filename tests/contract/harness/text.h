// SPDX-License-Identifier: Apache-2.0
//
// Strings and times between what tests write and what the contract carries.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include <kest/types.h>

namespace harness {

// UTF-8 to UTF-16 and back; test text is well-formed, anything else becomes "?".
std::u16string Wide(std::string_view text);
std::string Narrow(std::u16string_view text);
std::string Narrow(const UNICODE_STRING* text); // "null" for a null pointer
std::string Narrow(const STRING* text);         // "null" for a null pointer

// Views on a string's buffer, for in-arguments. `text` must outlive the result.
UNICODE_STRING Counted(std::u16string& text);
STRING Counted(std::string& text);

// Seconds since 1970 as 100 ns units since 1601, and back.
inline constexpr UINT64 kEpochSeconds = 11644473600;
inline constexpr UINT64 kTicksPerSecond = 10000000;
constexpr UINT64 Ticks(UINT64 unixSeconds)
{
    return (unixSeconds + kEpochSeconds) * kTicksPerSecond;
}
constexpr time_t UnixSeconds(UINT64 ticks)
{
    return static_cast<time_t>(ticks / kTicksPerSecond) - static_cast<time_t>(kEpochSeconds);
}

// A path of exactly `units` units below `top`.
std::string PathOfUnits(size_t units, const std::string& top);

// Copies text and terminator the way the host's length arguments work: *length is the room, then
// the text's length. False when it does not fit; *length is then the room needed.
bool CopyOut(std::string_view text, UINT32* length, char* buffer);

// "0000000a" with lower-case digits.
std::string Hex(UINT32 value);

} // namespace harness
