// SPDX-License-Identifier: Apache-2.0
//
// Identifiers to text and back.
#include "platform/guid_text.h"

#include <cstdio>

#include "base/hex.h"

namespace tolm {
bool ParseGuid(std::u16string_view text, GUID& out) noexcept
{
    static constexpr char kForm[] = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (text.size() != kGuidText)
        return false;
    UINT8 bytes[16] = {}; // in text order
    int digits = 0;
    for (std::size_t i = 0; i < kGuidText; ++i) {
        if (kForm[i] != 'x') {
            if (text[i] != static_cast<WCHAR>(kForm[i]))
                return false;
            continue;
        }
        const int digit = base::HexValue(text[i]);
        if (digit < 0)
            return false;
        bytes[digits / 2] = static_cast<UINT8>(bytes[digits / 2] << 4 | digit);
        ++digits;
    }
    out.Data1 = static_cast<UINT32>(bytes[0]) << 24 | static_cast<UINT32>(bytes[1]) << 16 |
                static_cast<UINT32>(bytes[2]) << 8 | bytes[3];
    out.Data2 = static_cast<UINT16>(bytes[4] << 8 | bytes[5]);
    out.Data3 = static_cast<UINT16>(bytes[6] << 8 | bytes[7]);
    for (int i = 0; i < 8; ++i)
        out.Data4[i] = bytes[8 + i];
    return true;
}

void FormatGuid(const GUID& g, char (&out)[kGuidText + 1]) noexcept
{
    std::snprintf(out, sizeof out, "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", g.Data1,
                  g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4],
                  g.Data4[5], g.Data4[6], g.Data4[7]);
}

} // namespace tolm
