// SPDX-License-Identifier: Apache-2.0
//
// Simple upper-casing: one code point to one code point, Unicode's UnicodeData mappings.
#pragma once

#include <unicode/uchar.h>

#include <string>
#include <string_view>

#include "base/ascii.h"
#include <kest/types.h>

namespace tolm {

inline UChar32 Upper(UChar32 c) noexcept
{
    return c < 0x80 ? base::Upper(static_cast<char>(c)) : u_toupper(c);
}

// Upper-cases in place. Unpaired surrogates stay. No simple mapping changes the number of code
// units; one that ever did would be left out.
void UpperInPlace(WCHAR* text, std::size_t units) noexcept;

// `text` in upper case: what names are compared by.
std::u16string Folded(std::u16string_view text);

// -1, 0 or 1 by the upper-cased texts: wide texts by code unit, 8-bit texts by code point, where a
// byte that is no part of well-formed UTF-8 sorts after every code point.
int CompareIgnoringCase(std::u16string_view a, std::u16string_view b) noexcept;
int CompareIgnoringCase(std::string_view a, std::string_view b) noexcept;

} // namespace tolm
