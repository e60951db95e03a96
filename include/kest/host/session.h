// SPDX-License-Identifier: Apache-2.0
//
// IKestSession: who is signed in. Implemented by the host, CLSID_KestSrv as IID_KestSession_1; one
// object per use.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IKestSession : IUnknown {
    // Binds the object to a session; must come first. Code 11 for a session that has ended.
    // [any thread; one at a time; no reply]
    virtual TALSTATUS Associate(SCHANDLE session) = 0;
    // The user's dotted name and the domain (directory tree). Either pointer may be null. The
    // strings belong to the object and live as long as it does. Code 11 for the local user, who has
    // no directory name. [any thread; one at a time; no reply]
    virtual TALSTATUS GetPrimaryCredentials(UNICODE_STRING** user, UNICODE_STRING** domain) = 0;

  protected:
    ~IKestSession() = default;
};
