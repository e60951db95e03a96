// SPDX-License-Identifier: Apache-2.0
//
// Dates of the reply's header fields.
#pragma once

#include "support/globals.h"
#include "support/reply.h"

// Sets a header to a date in HTTP form (RFC 9110 section 5.6.7); a date that cannot be written is
// left out.
inline void SetDateHeader(IKestIO_5* io, const char* name, DAV_DATETIME date)
{
    char buffer[128];
    STRING text = {0, sizeof buffer, buffer};
    if (!Failed(g_pIKestUtil->SystemTimeToHttpTime(&date, &text)))
        (void)io->SetReplyHeader(const_cast<char*>(name), text.Length, buffer);
}
