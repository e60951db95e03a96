// SPDX-License-Identifier: Apache-2.0
//
// IKestDAVFailures3: takes the names of those objects for which an operation on many has failed, or
// whose lock refused it.
//
// Implemented by the caller of an operation and handed to it, or null where nobody wants to know.
// The provider calls it before the operation returns, and keeps no reference.
#pragma once

#include <kest/dav/records_3.h>
#include <kest/unknown.h>

struct IKestDAVFailures3 : IUnknown {
    // One object by its provider path, and why: for code 37 the path is the root of the lock that
    // stands in the way, whose token is not told. An operation that fails tells the same object
    // once, at most 1000 of them, in no order; it may tell none. What is returned changes nothing.
    // [request thread; one at a time; before the reply]
    virtual TALSTATUS OnFailure(UNICODE_STRING* path, TALSTATUS failure) = 0;

  protected:
    ~IKestDAVFailures3() = default;
};
