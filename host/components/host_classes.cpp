// SPDX-License-Identifier: Apache-2.0
//
// Makes the host's services and registers their classes.
#include "host/components/host_classes.h"

#include <functional>

#include "host/component.h"
#include "host/components/digest_service.h"
#include "host/components/util_service.h"
#include <kest/sdk/class_object.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

using Maker = std::function<TALSTATUS(const GUID* iid, void** out)>;
using HostClass = kest::ClassObject<HostComponent, Maker>;

TALSTATUS RegisterClass(const GUID& clazz, Maker make)
{
    const Ref<IClassFactory> factory = Ref<IClassFactory>::Adopt(new HostClass(std::move(make)));
    return TolmRegisterClassObject(&clazz, factory.Get());
}

} // namespace

HostServices::HostServices(const Settings& settings, const Clock& clock,
                           Authenticator::Matcher matches)
    : sessions(settings.users.sessions, clock), attributes(sessions),
      objects(sessions, settings.users.objectsPerSession), directory(sessions),
      authenticator(settings.users.auth, clock, std::move(matches)),
      sessionAdmission(authenticator, sessions),
      identity(std::make_shared<const HostIdentity>(settings.identity))
{
}

TALSTATUS RegisterHostClasses(HostServices& services)
{
    // One ISA and one IKestUtil serve everybody; the makers own a reference each.
    const auto attributes = std::shared_ptr<ISA>(MakeAttributeInterface(services.attributes),
                                                 [](ISA* made) { made->Release(); });
    const auto util =
        std::shared_ptr<IKestUtil>(MakeUtilService(), [](IKestUtil* made) { made->Release(); });
    const std::pair<const GUID*, Maker> classes[] = {
        {&CLSID_KestSrv,
         [&services](const GUID* iid, void** out) {
             if (*iid == IID_KestSession_1)
                 return kest::HandOut(MakeSessionService(services.sessions), iid, out);
             return kest::HandOut(MakeConfigService(services.identity, services.sessions), iid,
                                  out);
         }},
        {&CLSID_KestUtil,
         [util](const GUID* iid, void** out) { return util->QueryInterface(iid, out); }},
        {&CLSID_KestDigest,
         [](const GUID* iid, void** out) { return kest::HandOut(MakeDigest(), iid, out); }},
        {&CLSID_EventMgr,
         [&services](const GUID* iid, void** out) {
             return kest::HandOut(MakeEventService(services.events), iid, out);
         }},
        {&CLSID_SecurityAttributeManager,
         [attributes](const GUID* iid, void** out) {
             return attributes->QueryInterface(iid, out);
         }},
        {&CLSID_ObjectManagerDataStore,
         [&services](const GUID* iid, void** out) {
             return kest::HandOut(services.objects.MakeInterface(), iid, out);
         }},
        {&CLSID_Directory_1,
         [&services](const GUID* iid, void** out) {
             return kest::HandOut(MakeDirectoryInterface(services.directory), iid, out);
         }},
    };
    for (const auto& [clazz, make] : classes)
        if (const TALSTATUS status = RegisterClass(*clazz, make); Failed(status))
            return status;
    return TAL_STATUS_SUCCESS;
}

void UnregisterHostClasses()
{
    for (const GUID* const clazz :
         {&CLSID_KestSrv, &CLSID_KestUtil, &CLSID_KestDigest, &CLSID_EventMgr,
          &CLSID_SecurityAttributeManager, &CLSID_ObjectManagerDataStore, &CLSID_Directory_1})
        (void)TolmRegisterClassObject(clazz, nullptr);
}

} // namespace kestd
