// SPDX-License-Identifier: Apache-2.0
//
// IReadAttrResults: the values of an attribute, one after the other. Implemented by the host.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IReadAttrResults : IUnknown {
    // The next value: its length in bytes and its text, which belongs to the results. Code 9 past
    // the last. [any thread; one at a time; no reply]
    virtual TALSTATUS NextValue(UINT32* bytes, WCHAR** value) = 0;

  protected:
    ~IReadAttrResults() = default;
};
