// SPDX-License-Identifier: Apache-2.0
//
// IEventHandler: somebody who listens to events. Implemented by the listener.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct IEventHandler : IUnknown {
    // An event of a class that the handler subscribed to. `data` is valid during the call. What it
    // returns changes nothing. [event thread; one at a time; no reply]
    virtual TALSTATUS ConsumeEvent(GUID* eventClass, UINT32 type, void* data) = 0;

  protected:
    ~IEventHandler() = default;
};
