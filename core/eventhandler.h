// SPDX-License-Identifier: Apache-2.0
//
// The subscription to the host's configuration-change events.
#pragma once

#include "support/globals.h"

// Subscribes. A failure leaves the module without events and is not reported.
void RegisterEventHandler();
// Lets the event manager go. The subscription is the host's to end.
void UnRegisterEventHandler();

// What the handler does about a changed configuration: takes over the settings that may change
// while the module runs, which is the moniker. In core/config.cpp.
void ProcessConfigChangeEvent();

// QueryInterface of the handler; `self` may be null.
TALSTATUS EventHandlerQueryInterface(IEventHandler* self, const GUID* iid, void** out);
