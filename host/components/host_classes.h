// SPDX-License-Identifier: Apache-2.0
//
// The host's classes as the component manager knows them.
#pragma once

#include <memory>

#include "host/auth/authenticator.h"
#include "host/auth/passwords.h"
#include "host/auth/session_admission.h"
#include "host/auth/sessions.h"
#include "host/components/attributes.h"
#include "host/components/directory.h"
#include "host/components/events.h"
#include "host/components/object_stores.h"
#include "host/components/server_service.h"

namespace kestd {

// Everything that components reach of the host, in one place and in the order of who needs whom.
// Components keep references for as long as the process lives, so a running host never destroys
// this; tests, which hold no component, may.
struct HostServices {
    struct Settings {
        UserSettings users;
        HostIdentity identity;
    };
    explicit HostServices(const Settings& settings, const Clock& clock,
                          Authenticator::Matcher matches = IsPassword);

    SessionTable sessions;
    AttributeService attributes; // cleans up before the objects of a session go
    ObjectStores objects;
    EventBus events;
    DirectoryService directory;
    Authenticator authenticator;
    SessionAdmission sessionAdmission;
    std::shared_ptr<const HostIdentity> identity;
};

// Registers CLSID_KestSrv, CLSID_KestUtil, CLSID_EventMgr, CLSID_SecurityAttributeManager,
// CLSID_ObjectManagerDataStore and CLSID_Directory_1 of `services`, which must outlive their use.
// Registering again replaces the classes.
TALSTATUS RegisterHostClasses(HostServices& services);
// Takes the classes away again; objects that exist stay.
void UnregisterHostClasses();

} // namespace kestd
