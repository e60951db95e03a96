// SPDX-License-Identifier: Apache-2.0
//
// Strict conversion between UTF-8 (on the wire and on disks) and UTF-16 (in the contract).
//
// Most texts are ASCII, whole or at their start: that run is copied directly, and the rest goes
// through ICU. Refused as malformed: overlong forms, surrogates that are not a pair, code points
// past U+10FFFF, cut sequences. Texts are at most kLongestText units long; longer ones are refused
// in the same way.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace base {

inline constexpr size_t kLongestText = std::numeric_limits<int>::max() / 3; // what ICU counts to

enum class Converted { Whole, TooLong, Malformed };

// Converts into `room` units at `out`. `used` is how many were written, or with TooLong how many
// would be needed; nothing when malformed. What lies in `out` behind the text is undefined.
[[nodiscard]] Converted Utf8ToUtf16(std::string_view text, char16_t* out, size_t room,
                                    size_t& used) noexcept;
[[nodiscard]] Converted Utf16ToUtf8(std::u16string_view text, char* out, size_t room,
                                    size_t& used) noexcept;

// Appends the converted text; false for malformed text, and `out` is as it was then. Throw
// std::bad_alloc.
[[nodiscard]] bool AppendUtf16(std::string_view text, std::u16string& out);
[[nodiscard]] bool AppendUtf8(std::u16string_view text, std::string& out);

// The same into a new text; nothing for malformed text.
[[nodiscard]] std::optional<std::u16string> ToUtf16(std::string_view text);
[[nodiscard]] std::optional<std::string> ToUtf8(std::u16string_view text);

// For names in messages: what is malformed becomes U+FFFD.
[[nodiscard]] std::u16string ToUtf16Replacing(std::string_view text);
[[nodiscard]] std::string ToUtf8Replacing(std::u16string_view text);

// Whether a text is well-formed.
[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;
[[nodiscard]] bool IsUtf16(std::u16string_view text) noexcept;

// Reads the first code point of `text`: the number of its bytes, 0 when there is none or it is
// malformed.
[[nodiscard]] size_t DecodeCodePoint(std::string_view text, char32_t& point) noexcept;

} // namespace base
