// SPDX-License-Identifier: Apache-2.0
//
// Text on its way to the page: from UTF-16 to UTF-8, escaped for URLs, and counted.
#pragma once

#include <cstddef>

#include <kest/io.h>

// Writes UTF-16 text of any length to the page as UTF-8, unescaped. Nothing is written from a piece
// that is not well-formed.
void PutWide(IKestIO_5* io, const WCHAR* text, size_t units);

// Writes `length` bytes escaped with uri_escape, whatever their number.
void PutUriEscaped(IKestIO_5* io, const char* text, size_t length);

// Steps over one character. Characters are bytes here: multi-byte sequences are not looked at, and
// what counts with it may cut one in the middle (kept: templates are laid out for it).
const char* utf8NextChar(const char* str);
// Steps to the terminator.
size_t utf8strlen(const char* str);

// Reads a decimal number with leading blanks and sign. Numbers that 32 bits cannot hold, negative
// ones included, become the largest one.
UINT32 ParseDecimal(const char* text);
