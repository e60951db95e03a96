// SPDX-License-Identifier: Apache-2.0
//
// IEvent: subscribing to events and publishing them. Implemented by the host, CLSID_EventMgr as
// IID_Event_1. An object carries at most one subscription per event class.
#pragma once

#include <kest/host/event_handler.h>
#include <kest/types.h>
#include <kest/unknown.h>

// Type of the event in Global_Event_Class that says that settings have been read again.
inline constexpr UINT32 kEventConfigurationChanged = 1;

struct IEvent : IUnknown {
    // Subscribes. The manager takes over the caller's reference to `handler`, on success only. Code
    // 22 when this object has a subscription to the class. [any thread; concurrent; no reply]
    virtual TALSTATUS RegisterEventHandlerIf(GUID* eventClass, IEventHandler* handler) = 0;
    // Takes this object's subscription back, waits until its handler, if it runs on another thread,
    // has returned, and releases it. Code 11 when there is none. [any thread; concurrent; no reply]
    virtual TALSTATUS DeRegisterEventHandlerIf(GUID* eventClass) = 0;
    // Has every subscriber called on the event thread, and returns when all have been.
    // [any thread; concurrent; no reply]
    virtual TALSTATUS PublishEvent(GUID* eventClass, UINT32 type, void* data) = 0;

  protected:
    ~IEvent() = default;
};
