// SPDX-License-Identifier: Apache-2.0
//
// Numbers and dates as text, on the stack.
#pragma once

#include <charconv>

#include "support/globals.h"
#include "support/reply.h"

// The decimal text of a number, NUL-terminated.
class U64ToAscii {
  public:
    explicit U64ToAscii(UINT64 value)
    {
        *std::to_chars(text_, text_ + sizeof text_ - 1, value).ptr = 0;
    }
    const char* Text() const { return text_; }

  private:
    char text_[21]; // 20 digits and the terminator
};

// Sets a header to a date in HTTP form (RFC 9110 section 5.6.7); a date that cannot be written is
// left out.
inline void SetDateHeader(IKestIO_5* io, const char* name, DAV_DATETIME date)
{
    char buffer[128];
    STRING text = {0, sizeof buffer, buffer};
    if (!Failed(g_pIKestUtil->SystemTimeToHttpTime(&date, &text)))
        (void)io->SetReplyHeader(const_cast<char*>(name), text.Length, buffer);
}
