// SPDX-License-Identifier: Apache-2.0
//
// The converter of base/ under the host's own names, for who has not changed over.
#pragma once

#include "base/utf.h"

namespace kestd {

using base::AppendUtf8;

[[nodiscard]] inline bool AppendWide(std::string_view text, std::u16string& out)
{
    return base::AppendUtf16(text, out);
}

} // namespace kestd
