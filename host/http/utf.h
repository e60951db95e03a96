// SPDX-License-Identifier: Apache-2.0
//
// Strict conversions between UTF-8 (on the wire) and UTF-16 (in the contract).
#pragma once

#include <string>
#include <string_view>

namespace kestd {

// Appends `text` as UTF-16. False for anything that is not well-formed UTF-8 (overlong forms,
// surrogates, code points past U+10FFFF, cut sequences); `out` then holds a part of it.
bool AppendWide(std::string_view text, std::u16string& out);

// Appends `text` as UTF-8. False for unpaired surrogates.
bool AppendUtf8(std::u16string_view text, std::string& out);

} // namespace kestd
