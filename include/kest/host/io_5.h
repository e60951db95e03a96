// SPDX-License-Identifier: Apache-2.0
//
// IKestIO_5: one HTTP request and its reply, with the operations that came after IKestIO_3. This is
// what the host passes to RequestHandler.
#pragma once

#include <kest/host/io_3.h>

struct IKestIO_5 : IKestIO_3 {
    // The body (NUL-terminated HTML) to send with a reply of that status that the handler leaves
    // without one. Copied. [request thread; one at a time; before the reply]
    virtual TALSTATUS SetCustomError(HTTPSTATUS status, char* text) = 0;
    // The realm of the host's sign-in; *length as in GetRequestHeader. [request thread; one at a
    // time; during the reply]
    virtual TALSTATUS GetAuthRealm(UINT32* length, char* buffer) = 0;
    // 1 when the client speaks TLS, to the host or to a proxy in front of it. [request thread; one
    // at a time; during the reply]
    virtual BOOLEAN IsSecure() = 0;

  protected:
    ~IKestIO_5() = default;
};
