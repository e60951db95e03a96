// SPDX-License-Identifier: Apache-2.0
//
// IDirectoryObject: an open entry of the directory. Implemented by the host.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IDirectoryObject : IUnknown {
    // Reads all values of an attribute. `iid` is IID_IDmReadAttributeResults_1; the caller releases
    // *out. Code 11 when the entry has none. [any thread; one at a time; no reply]
    virtual TALSTATUS ReadAttribute(const WCHAR* attribute, const GUID* iid, void** out) = 0;

  protected:
    ~IDirectoryObject() = default;
};
