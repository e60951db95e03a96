// SPDX-License-Identifier: Apache-2.0
//
// Character-level helpers over 8-bit (UTF-8) text; none of them validates UTF-8. Each has an escape
// set and a hexadecimal style of its own: they are not interchangeable, and clients and stored
// pages rely on every one of them as it is.
#pragma once

#include <kest/types.h>

// A copy in platform memory, for the caller to give to TalxFreeMemory; null when memory is short.
[[nodiscard]] char* kestdav_strdup(const char* source);

// Escapes space, % ? # : + & * " ' < > and the line ends as "%" and two characters of lower-case
// hexadecimal, padded with a blank (a carriage return is "% d"); doubles backslashes. `destination`
// has room for three bytes per source byte and a terminator.
void uri_escape(char* destination, const char* source);

// Writes " & ' < > as "&#x3C" (no semicolon) followed by the character itself, and every byte
// outside 0x20 to 0x7E as "&#x" and its value as a signed character. `destination` has room for
// kXmlEscapeBytes per source byte and a terminator.
void xml_escape(char* destination, const char* source);
inline constexpr UINT32 kXmlEscapeBytes = 11; // "&#xFFFFFFC3"

// Decodes "%" escapes in place; "+" stays. 0xC7B50001 at a "%" without two hexadecimal digits
// behind it: the text is then partly decoded and still terminated where it was.
[[nodiscard]] TALSTATUS uri_unescape(char* text);
inline constexpr TALSTATUS kMalformedEscape = 0xC7B50001;

// Escapes a path for an href: controls, space, 0x7F and up, and : ; < = > ? @ [ \ ] ^ " # % & ` as
// "%" and two upper-case hexadecimal digits. The destination's Buffer and MaximumLength are set by
// the caller; three times the source and one byte always suffice. TAL_STATUS_BUFFER_TOO_SMALL when
// an escape would not leave a byte free behind it, or when the text and its terminator do not fit;
// the destination then holds nothing of use.
[[nodiscard]] TALSTATUS ConvertUTF8PathToUTF8EscapedUri(STRING* pPath, STRING* pUri);

// Prints a number with a terminator and returns the number of its digits. Digits are '0' plus the
// remainder, so bases above 10 give other characters; bases below 2 give an empty text. Room for
// base 10: kU64Digits.
INT32 U64ToAscii(UINT64 Value, UINT32 Base, char* pBuffer);
inline constexpr UINT32 kU64Digits = 21; // with the terminator
