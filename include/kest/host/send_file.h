// SPDX-License-Identifier: Apache-2.0
//
// IKestSendFile: a part of the reply's body that leaves from an open file. Another face of the
// request object (IKestIO_5), found by QueryInterface; a host need not offer it.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestSendFile : IUnknown {
    // Appends to the body what stands at `offset` of the open file `descriptor`, `length` bytes at
    // most, without its passing through the caller's memory. The head has been sent with a
    // "Content-Length". The descriptor stays the caller's; its position is not used. *sent is how
    // many bytes were taken: fewer than `length` with success where the file ends before that.
    // Failures: 4 bad arguments; 13 this reply or this file cannot be sent so, and nothing was (use
    // Write for it); 1 the client has gone, or the file cannot be read: the reply is to end as it
    // is. [request thread; one at a time; during the reply]
    virtual TALSTATUS SendFile(INT32 descriptor, UINT64 offset, UINT64 length, UINT64* sent) = 0;

  protected:
    ~IKestSendFile() = default;
};
