// SPDX-License-Identifier: Apache-2.0
//
// Counted strings of the contract as views.
#pragma once

#include <string_view>

#include <kest/types.h>

namespace kest {

// The text of a counted string; empty for one without a buffer.
inline std::u16string_view ViewOf(const UNICODE_STRING& text) noexcept
{
    return text.Buffer ? std::u16string_view(text.Buffer, text.Length / sizeof(WCHAR))
                       : std::u16string_view();
}
inline std::string_view ViewOf(const STRING& text) noexcept
{
    return text.Buffer ? std::string_view(text.Buffer, text.Length) : std::string_view();
}

} // namespace kest
