// SPDX-License-Identifier: Apache-2.0
//
// IDirectory: opens entries of the directory. Implemented by the host, CLSID_Directory_1 as
// IID_IDirectory_1.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IDirectory : IUnknown {
    // Opens an entry by its full distinguished name: two backslashes, the tree, then the components
    // from the root down, separated by backslashes. `flags` 1 opens for reading. `iid` is
    // IID_IDirectoryObject_1; the caller releases *out. Code 11 when there is no such entry, 1 when
    // the directory cannot be asked. May wait for the network, within a bound.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS Open(const WCHAR* name, UINT32 flags, SCHANDLE session, const GUID* iid,
                           void** out) = 0;

  protected:
    ~IDirectory() = default;
};
