// SPDX-License-Identifier: Apache-2.0
//
// Lock tokens as text and back.
#include "support/lock_token.h"

#include <algorithm>
#include <cstring>

#include <kest/status.h>

bool ReadTokenHeader(IKestIO_5* io, const char* name, char (&text)[kTokenHeaderBytes + 1])
{
    UINT32 length = kTokenHeaderBytes;
    if (Code(io->GetRequestHeader(const_cast<char*>(name), &length, text)) != kCodeSuccess)
        return false;
    text[std::min(length, kTokenHeaderBytes)] = 0;
    return true;
}

bool FindToken(const char* header, const char** token, UINT32* length)
{
    if (!std::strstr(header, "opaquelocktoken"))
        return false;
    const char* const colon = std::strchr(header, ':');
    *token = colon ? colon + 1 : "";
    *length = static_cast<UINT32>(std::strcspn(*token, ">"));
    return true;
}

bool CopyToken(const char* header, char* out, UINT32 room, UINT32* length)
{
    const char* token = nullptr;
    if (!FindToken(header, &token, length))
        return false;
    *length = std::min(*length, room - 1);
    std::memcpy(out, token, *length);
    out[*length] = 0;
    return true;
}
