// SPDX-License-Identifier: Apache-2.0
//
// Appends a name to the path of a walk over a tree, in the path's own buffer.
#pragma once

#include <cstring>

#include "support/memory.h"

// Appends "/", `bytes` bytes of name and a terminator. The caller has checked the room, which
// includes the terminator.
inline void AppendChild(UNICODE_STRING& path, const WCHAR* name, UINT32 bytes)
{
    WCHAR* end = path.Buffer + path.Length / sizeof(WCHAR);
    *end++ = u'/';
    std::memcpy(end, name, bytes);
    end[bytes / sizeof(WCHAR)] = 0;
    path.Length = static_cast<UINT16>(path.Length + sizeof(WCHAR) + bytes);
}

// Cuts a path back.
inline void CutPath(UNICODE_STRING& path, UINT16 length)
{
    path.Length = length;
    path.Buffer[length / sizeof(WCHAR)] = 0;
}
