// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVContentFile3: the open file that a resource's content stands in, for a host that can send
// from it. Another face of the object that IKestDAVResource3 is one of, found by QueryInterface; a
// provider whose content is in no file does not offer it.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestDAVContentFile3 : IUnknown {
    // The descriptor of a file that holds at each offset what IKestDAVResource3::Read would give,
    // after Open with kOpenRead. It stays the provider's and is valid until the next Open or the
    // object's release; it is read by position only. Failures: 4 nothing is open to be read, 39 a
    // collection, 13 the content is in no file: use Read.
    // [request thread; one at a time; during the reply]
    virtual TALSTATUS GetDescriptor(INT32* descriptor) = 0;

  protected:
    ~IKestDAVContentFile3() = default;
};
