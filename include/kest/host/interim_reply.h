// SPDX-License-Identifier: Apache-2.0
//
// IKestInterimReply: replies before the reply (RFC 9110 section 15.2). Another face of the request
// object, found by QueryInterface; a host need not offer it.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

// One header line. Texts need no terminator. layout.h pins it.
struct KEST_HEADER_LINE {
    STRING Name;
    STRING Value;
};

inline constexpr UINT32 kMostInterimLines = 16;

struct IKestInterimReply : IUnknown {
    // Sends an interim reply with these lines and no others, at once. `status` is 102 to 199.
    // Failures: 13 the client takes none (HTTP/1.0), 16 the reply's own head has ended, 4 another
    // status, too many lines, or one that no header can have, 1 the client has left, 5 no memory.
    // None of them keeps the reply from being sent. [request thread; one at a time; before the
    // reply]
    virtual TALSTATUS SendInterim(HTTPSTATUS status, UINT32 count,
                                  const KEST_HEADER_LINE* lines) = 0;

  protected:
    ~IKestInterimReply() = default;
};
