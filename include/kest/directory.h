// SPDX-License-Identifier: Apache-2.0
//
// The directory service: names and attributes of users. Implemented by the host, CLSID_Directory_1.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IDirectory : IUnknown {
    // Opens an entry by its full distinguished name: two backslashes, the tree, then the components
    // from the root down, separated by backslashes. `flags` 1 opens for reading. Code 11 when there
    // is no such entry.
    virtual TALSTATUS Open(const WCHAR* name, UINT32 flags, SCHANDLE session, const GUID* iid,
                           void** out) = 0;

  protected:
    ~IDirectory() = default;
};

struct IDirectoryObject : IUnknown {
    // Reads all values of an attribute. Code 11 when the entry has none.
    virtual TALSTATUS ReadAttribute(const WCHAR* attribute, const GUID* iid, void** out) = 0;

  protected:
    ~IDirectoryObject() = default;
};

struct IReadAttrResults : IUnknown {
    // The next value: its length in bytes and its text, which belongs to the results. Code 9 past
    // the last.
    virtual TALSTATUS NextValue(UINT32* bytes, WCHAR** value) = 0;

  protected:
    ~IReadAttrResults() = default;
};
