// SPDX-License-Identifier: Apache-2.0
//
// Text helpers of the services: UTF-8 and UTF-16, percent-escapes, names that compare without case.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/http/ascii.h"
#include <kest/types.h>

namespace kestd {

// Strict conversions (RFC 3629; unpaired surrogates are refused). Nothing for malformed input.
std::optional<std::string> ToUtf8(std::u16string_view text);
std::optional<std::u16string> ToUtf16(std::string_view text);
bool IsValidUtf8(std::string_view text);
// True when the text holds a control character (C0 or DEL).
bool HasControlCharacter(std::string_view text);

// Percent-escapes everything but unreserved characters and "/" (RFC 3986 section 2.3), with
// upper-case digits.
std::string EscapeUriPath(std::string_view text);
// Undoes every percent-escape. Nothing for a malformed escape and for an escaped NUL.
std::optional<std::string> UnescapeUriPath(std::string_view text);

// RFC 4648 section 4, padding required, no blanks. Nothing for anything else.
std::optional<std::string> DecodeBase64(std::string_view text);

inline std::u16string_view ViewOf(const UNICODE_STRING& text)
{
    return {text.Buffer, text.Length / sizeof(WCHAR)};
}
inline std::string_view ViewOf(const STRING& text)
{
    return {text.Buffer, text.Length};
}

} // namespace kestd
