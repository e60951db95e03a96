// SPDX-License-Identifier: Apache-2.0
//
// From UTF-16 to UTF-8 where the room is bounded.
#include "support/utf8.h"

#include "support/globals.h"

bool StartsPair(const WCHAR* text, size_t units)
{
    return units > 1 && text[0] >= 0xD800 && text[0] < 0xDC00 && text[1] >= 0xDC00 &&
           text[1] < 0xE000;
}

namespace {

size_t Utf8Bytes(WCHAR unit)
{
    return unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
}

// How many units from the start convert into at most `bytes` bytes without splitting a character.
size_t UnitsThatFit(const WCHAR* text, size_t units, size_t bytes)
{
    size_t taken = 0;
    while (taken < units) {
        const bool pair = StartsPair(text + taken, units - taken);
        const size_t need = pair ? 4 : Utf8Bytes(text[taken]);
        if (need > bytes)
            break;
        bytes -= need;
        taken += pair ? 2 : 1;
    }
    return taken;
}

} // namespace

size_t WideToUtf8Cut(const WCHAR* text, size_t units, char* out, size_t room)
{
    const size_t fit = UnitsThatFit(text, units, room - 1);
    UINT32 bytes = static_cast<UINT32>(room - 1);
    if (fit == 0 || Code(pITalpl->TalxWideCharToMultiByte(
                        kCodePageUtf8, text, static_cast<UINT32>(fit), out, &bytes)) != 0)
        bytes = 0;
    out[bytes] = '\0';
    return bytes;
}
