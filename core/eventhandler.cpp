// SPDX-License-Identifier: Apache-2.0
//
// The one handler of the host's events.
#include "core/eventhandler.h"

namespace {

// This handler's failures carry a high half of their own.
constexpr UINT16 kFacilityEventHandler = 0xC7AE;
constexpr TALSTATUS kInvalidParameter = MakeStatus(kFacilityEventHandler, kCodeInvalidParameter);
constexpr TALSTATUS kNoInterface = MakeStatus(kFacilityEventHandler, kCodeNoInterface);

struct EventHandler final : IEventHandler {
    // Hosts may come through the table without an object.
    __attribute__((no_sanitize("null"))) TALSTATUS QueryInterface(const GUID* iid,
                                                                  void** out) override
    {
        return EventHandlerQueryInterface(this, iid, out);
    }
    UINT32 AddRef() override { return ++cReference; }
    UINT32 Release() override { return --cReference; } // static: never freed
    TALSTATUS ConsumeEvent(GUID* eventClass, UINT32 type, void* data) override;

    UINT32 cReference = 0;
};

TALSTATUS EventHandler::ConsumeEvent(GUID*, UINT32 type, void*)
{
    if (type == kEventConfigurationChanged)
        ProcessConfigChangeEvent();
    return TAL_STATUS_SUCCESS;
}

EventHandler evntHndlrIfInstance;

// Both under g_hModuleMutex.
IEvent* pIEvent;
bool g_bSubscribed;

} // namespace

TALSTATUS EventHandlerQueryInterface(IEventHandler* self, const GUID* iid, void** out)
{
    if (!self || !out)
        return kInvalidParameter;
    *out = nullptr;
    if (*iid != IID_IUnknown && *iid != IID_EventHandler_1)
        return kNoInterface;
    evntHndlrIfInstance.AddRef();
    *out = static_cast<IEventHandler*>(&evntHndlrIfInstance);
    return TAL_STATUS_SUCCESS;
}

void RegisterEventHandler()
{
    if (g_bSubscribed) // by an earlier stage two that failed later on
        return;
    if (!pIEvent) {
        Ref<IEvent> manager;
        if (Failed(Create(CLSID_EventMgr, manager)))
            return;
        pIEvent = manager.Detach();
    }
    Ref<IEventHandler> handler;
    if (Failed(Query(static_cast<IEventHandler*>(&evntHndlrIfInstance), handler)))
        return;
    GUID eventClass = Global_Event_Class;
    if (Failed(pIEvent->RegisterEventHandlerIf(&eventClass, handler.Get())))
        return;
    (void)handler.Detach(); // the manager's now
    g_bSubscribed = true;
}

void UnRegisterEventHandler()
{
    if (pIEvent)
        pIEvent->Release();
    pIEvent = nullptr;
}
