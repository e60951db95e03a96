// SPDX-License-Identifier: Apache-2.0
//
// From the first DllGetClassObject to the running module.
#include <cstring>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

using harness::kInjected;
using harness::Narrow;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;

namespace {

constexpr GUID kUnknownClass = {0xDEADBEEF, 1, 2, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr char kFailureLine[] = "KestDav -DllGetClassObject- Module initialization failed\n";

// A world whose module has not been touched.
class Lifecycle : public testing::Test {
  protected:
    World world{{{.name = "gen2"}}, {.start = false}};

    int GetClassObject(const GUID& clazz, const GUID& iid, void** out)
    {
        return world.getClassObject(&clazz, &iid, out);
    }
    IClassFactory* Factory()
    {
        void* out = nullptr;
        EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), 0);
        return static_cast<IClassFactory*>(out);
    }
    IKestReq_2* Module()
    {
        void* out = nullptr;
        EXPECT_EQ(Factory()->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
        return static_cast<IKestReq_2*>(out);
    }
};

TEST_F(Lifecycle, ClassObjectOfAnUnknownClass_SucceedsAndLeavesThePointerAlone)
{
    int marker = 0;
    void* out = &marker;
    EXPECT_EQ(GetClassObject(kUnknownClass, IID_IClassFactory, &out), 0);
    EXPECT_EQ(out, &marker);
}

TEST_F(Lifecycle, ClassObjectAsIUnknown_FailsWithANullPointer)
{
    int marker = 0;
    void* out = &marker;
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IUnknown, &out), -1);
    EXPECT_EQ(out, nullptr);
}

TEST_F(Lifecycle, ClassObjectAsAnotherInterface_Fails)
{
    void* out = nullptr;
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_KestReq_2, &out), -1);
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, nullptr), -1);
}

TEST_F(Lifecycle, RegistrationEntryPoints_DoNothing)
{
    EXPECT_EQ(world.registerServer(), 0);
    EXPECT_EQ(world.unregisterServer(), 0);
    EXPECT_THAT(world.Calls(), ElementsAre());
}

TEST_F(Lifecycle, FirstClassObject_SetsUpPlatformAndStore)
{
    Factory();
    EXPECT_EQ(world.platform.moduleName, "KEST-DAV");
    EXPECT_EQ(world.platform.LiveLocks(), 1);
    EXPECT_THAT(world.Calls(), ElementsAre("create.ObjectManagerDataStore()",
                                           "om.Initialize(module, 1, 0, 31, set, null, null, 6)"));
    Factory();
    EXPECT_EQ(world.Calls().size(), 2U) << "stage one runs once";
}

TEST_F(Lifecycle, FirstCreateInstance_RunsStageTwoInItsOrder)
{
    IClassFactory* factory = Factory();
    world.recorder.Clear();
    void* out = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls(),
                ElementsAre("create.EventMgr()", "event.RegisterEventHandlerIf(global)",
                            "create.SecurityAttributeManager()",
                            "sa.SARegisterAttribute(kestdav, 24)", "create.KestUtil()",
                            "gen2.Create(IKestDAV2)", "gen2.GetDAVSupport()"));
    world.recorder.Clear();
    void* second = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &second), TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls(), ElementsAre());
    EXPECT_NE(out, second);
    static_cast<IKestReq_2*>(second)->Release();
    static_cast<IKestReq_2*>(out)->Release();
}

class StageOneFailure : public Lifecycle, public testing::WithParamInterface<const char*> {};

TEST_P(StageOneFailure, IsReportedRememberedAndCleanedUp)
{
    world.Fail(GetParam(), kInjected);
    void* out = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kFailureLine);
    EXPECT_EQ(world.platform.References(), 0);
    EXPECT_EQ(world.platform.LiveLocks(), 0);
    EXPECT_EQ(world.platform.LiveAllocations(), 0);

    world.recorder.Clear(); // nothing would fail now
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), -1);
    EXPECT_EQ(GetClassObject(kUnknownClass, IID_IClassFactory, &out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kFailureLine) + kFailureLine);
    EXPECT_THAT(world.Calls(), ElementsAre()) << "it is not tried again";
}

INSTANTIATE_TEST_SUITE_P(Calls, StageOneFailure,
                         testing::Values("create.HadranTalpl", "platform.TalxAllocReadWriteLock"),
                         [](const auto& row) {
                             return std::string(row.param).substr(0, 6) == "create" ? "Platform"
                                                                                    : "Lock";
                         });

TEST_F(Lifecycle, InformationalStatusOfThePlatform_EndsStageOneToo)
{
    world.Offer(CLSID_HadranTalpl, [this](const GUID& iid, void** out) {
        EXPECT_EQ(world.platform.QueryInterface(&iid, out), TAL_STATUS_SUCCESS);
        return TAL_STATUS_INFO_END_OF_FILE;
    });
    void* out = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), -1);
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kFailureLine) + kFailureLine);
    EXPECT_EQ(world.platform.References(), 0);
    EXPECT_EQ(world.platform.LiveLocks(), 0) << "nothing was made with it";
}

TEST_F(Lifecycle, InformationalStatusOfTheLock_EndsStageOneToo)
{
    world.Fail("platform.TalxAllocReadWriteLock", TAL_STATUS_INFO_END_OF_FILE);
    void* out = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kFailureLine);
}

TEST_F(Lifecycle, Services_AreKeptByOneReferenceEach)
{
    world.Start();
    EXPECT_EQ(world.platform.References(), 1);
    EXPECT_EQ(world.objects.References(), 1);
    EXPECT_EQ(world.attributes.References(), 1);
    EXPECT_EQ(world.util.References(), 1);
    EXPECT_EQ(world.event.References(), 1);
}

TEST_F(Lifecycle, ProvidersAreMade_WhileNobodyCanReadTheirList)
{
    std::vector<std::pair<std::string, bool>> seen;
    world.recorder.onCall = [&](std::string_view name) {
        seen.emplace_back(name, world.platform.HeldForWriting());
    };
    Module()->Release();
    EXPECT_THAT(seen, testing::Contains(std::pair(std::string("create.KestUtil"), false)));
    EXPECT_THAT(seen, testing::Contains(std::pair(std::string("gen2.Create"), true)));
    EXPECT_THAT(seen, testing::Contains(std::pair(std::string("gen2.GetDAVSupport"), true)));
    EXPECT_EQ(world.platform.HeldLocks(), 0);
}

class StageTwoFailure : public Lifecycle, public testing::WithParamInterface<const char*> {};

TEST_P(StageTwoFailure, IsRetriedByTheNextCreateInstance)
{
    IClassFactory* factory = Factory();
    world.Fail(GetParam(), kInjected);
    void* out = nullptr;
    EXPECT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_NO_INTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(world.recorder.Count("gen2.Create"), 0);
    EXPECT_EQ(world.platform.HeldLocks(), 0);

    ASSERT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(world.recorder.Count("gen2.Create"), 1);
    EXPECT_EQ(world.recorder.Count("event.RegisterEventHandlerIf"), 1) << "subscribed once";
    auto* module = static_cast<IKestReq_2*>(out);
    world.module = module;
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_EQ(world.Run(Request(KestMethodHead, "/Ferro/gen2/a")).heads, 1);
}

INSTANTIATE_TEST_SUITE_P(Calls, StageTwoFailure,
                         testing::Values("create.SecurityAttributeManager",
                                         "sa.SARegisterAttribute", "create.KestUtil"),
                         [](const auto& row) {
                             std::string name = row.param;
                             name.erase(0, name.find('.') + 1);
                             return name;
                         });

TEST_F(Lifecycle, WithoutEvents_TheModuleStarts)
{
    world.Fail("create.EventMgr", kInjected);
    world.module = Module(); // released with the world
    EXPECT_TRUE(world.module);
    EXPECT_EQ(world.event.handler, nullptr);
}

TEST_F(Lifecycle, RefusedSubscription_GivesTheHandlerReferenceBack)
{
    world.Fail("event.RegisterEventHandlerIf", kInjected);
    world.Fail("create.KestUtil", kInjected);
    void* out = nullptr;
    IClassFactory* factory = Factory();
    EXPECT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_NO_INTERFACE);
    ASSERT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
    world.module = static_cast<IKestReq_2*>(out);
    ASSERT_TRUE(world.event.handler) << "the retry subscribes";
    EXPECT_EQ(world.event.handler->AddRef(), 2U) << "one reference is the subscription's";
    world.event.handler->Release();
}

TEST_F(Lifecycle, FactoryQueryInterface_FollowsItsTable)
{
    IClassFactory* factory = Factory(); // first reference
    EXPECT_EQ(factory->QueryInterface(&IID_IClassFactory, nullptr), TAL_STATUS_INVALID_PARAMETER);
    void* out = nullptr;
    EXPECT_EQ(factory->QueryInterface(&IID_IClassFactory, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, factory);
    EXPECT_EQ(factory->QueryInterface(&IID_IUnknown, &out), TAL_STATUS_NO_INTERFACE);
    EXPECT_EQ(out, factory) << "the pointer comes with the failure";
    EXPECT_EQ(factory->QueryInterface(&IID_KestReq_2, &out), TAL_STATUS_NO_INTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(factory->AddRef(), 3U);
    EXPECT_EQ(factory->Release(), 2U);
    EXPECT_EQ(factory->LockServer(1), TAL_STATUS_SUCCESS);
    EXPECT_EQ(factory->LockServer(0), TAL_STATUS_SUCCESS);
}

TEST_F(Lifecycle, CreateInstance_RefusesAggregationAndNullPointers)
{
    IClassFactory* factory = Factory();
    void* out = nullptr;
    EXPECT_EQ(factory->CreateInstance(nullptr, &IID_KestReq_2, nullptr),
              TAL_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(factory->CreateInstance(&world.config, &IID_KestReq_2, &out),
              TAL_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(world.recorder.Count("create.KestUtil"), 0) << "stage two has not run";
}

TEST_F(Lifecycle, CreateInstanceAsIUnknown_HandsBackTheFactory)
{
    IClassFactory* factory = Factory();
    const UINT32 before = factory->AddRef();
    void* out = nullptr;
    EXPECT_EQ(factory->CreateInstance(nullptr, &IID_IUnknown, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, factory);
    EXPECT_EQ(factory->AddRef(), before + 1) << "without a reference";
}

TEST_F(Lifecycle, CreateInstanceAsAnotherInterface_Fails)
{
    void* out = nullptr;
    EXPECT_EQ(Factory()->CreateInstance(nullptr, &IID_KestIO_5, &out), TAL_STATUS_NO_INTERFACE);
    EXPECT_EQ(out, nullptr);
}

TEST_F(Lifecycle, CreateInstanceWithoutMemory_Fails)
{
    Module()->Release();
    world.Fail("platform.TalxAllocNonPagedMemory", kInjected);
    void* out = nullptr;
    EXPECT_EQ(Factory()->CreateInstance(nullptr, &IID_KestReq_2, &out),
              TAL_STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(out, nullptr);
}

TEST_F(Lifecycle, ModuleObject_CountsReferencesAndFreesItself)
{
    const int before = (Factory(), world.platform.LiveAllocations());
    IKestReq_2* module = Module();
    const int with = world.platform.LiveAllocations();
    void* out = nullptr;
    EXPECT_EQ(module->QueryInterface(&IID_KestReq_2, nullptr), TAL_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(module->QueryInterface(&IID_IUnknown, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, module);
    EXPECT_EQ(module->QueryInterface(&IID_KestReq_2, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, module);
    EXPECT_EQ(module->AddRef(), 3U) << "IUnknown came without a reference";
    EXPECT_EQ(module->QueryInterface(&IID_KestIO_5, &out), TAL_STATUS_NO_INTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(module->Release(), 2U);
    EXPECT_EQ(module->Release(), 1U);
    EXPECT_EQ(module->Release(), 0U);
    EXPECT_EQ(world.platform.LiveAllocations(), with - 1);
    EXPECT_EQ(with - before, 2) << "one provider entry and one module object";
}

TEST_F(Lifecycle, ModuleInit_ReportsLocationAccessAndIdentifier)
{
    world.Start();
    EXPECT_EQ(world.location, "/Ferro");
    EXPECT_EQ(world.access, KestAccessUser);
    EXPECT_EQ(world.moduleId, KESTDAV_MODULE_ID);
    EXPECT_EQ(world.config.References(), 0);
}

TEST_F(Lifecycle, ModuleInit_AsksForHostAndLocationAndTerminatesThem)
{
    world.config.hostname = "dav.example:8443";
    world.config.location = "/mounted";
    world.module = Module();
    world.recorder.Clear();
    WCHAR buffer[64];
    UNICODE_STRING where = {0, sizeof buffer, buffer};
    KEST_LOCATION_ACCESS access{};
    GUID id{};
    ASSERT_EQ(world.module->ModuleInit(harness::SessionHandle(0), &access, &where, &id),
              TAL_STATUS_SUCCESS);
    EXPECT_THAT(world.Calls(), ElementsAre("create.KestSrv()", "config.GetHostname(257)",
                                           "config.GetLocation(257)"));
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_THAT(
        world.Run(Request(KestMethodPropFind, "/Ferro/gen2/a")).body,
        testing::HasSubstr("<a:href>http://dav.example:8443/mounted/Ferro/gen2/a</a:href>"));
}

TEST_F(Lifecycle, ModuleInitWithTheLongestTexts_TakesThemWhole)
{
    world.config.hostname = std::string(256, 'h');
    world.module = Module();
    WCHAR buffer[64];
    UNICODE_STRING where = {0, sizeof buffer, buffer};
    KEST_LOCATION_ACCESS access{};
    GUID id{};
    ASSERT_EQ(world.module->ModuleInit(harness::SessionHandle(0), &access, &where, &id),
              TAL_STATUS_SUCCESS);
    world["gen2"].AddFile("/gen2/a", "x");
    EXPECT_THAT(world.Run(Request(KestMethodPropFind, "/Ferro/gen2/a")).body,
                testing::HasSubstr("//" + world.config.hostname + "/Ferro/gen2/a<"));
    world.config.hostname += 'h';
    EXPECT_EQ(Code(world.module->ModuleInit(harness::SessionHandle(0), &access, &where, &id)),
              kCodeBufferTooSmall);
}

TEST_F(Lifecycle, ModuleInitWithLittleRoom_CutsTheLocation)
{
    IKestReq_2* module = Module();
    WCHAR buffer[4] = {u'?', u'?', u'?', u'?'};
    UNICODE_STRING where = {0, 6, buffer};
    KEST_LOCATION_ACCESS access{};
    GUID id{};
    EXPECT_EQ(module->ModuleInit(harness::SessionHandle(0), &access, &where, &id),
              TAL_STATUS_SUCCESS);
    EXPECT_EQ(Narrow(&where), "/Fe");
    EXPECT_EQ(buffer[3], u'?');
    module->Release();
}

class ModuleInitFailure : public Lifecycle, public testing::WithParamInterface<const char*> {};

TEST_P(ModuleInitFailure, ReturnsTheStatusAndReleasesTheConfiguration)
{
    IKestReq_2* module = Module();
    world.Fail(GetParam(), kInjected);
    WCHAR buffer[64];
    UNICODE_STRING where = {0, sizeof buffer, buffer};
    KEST_LOCATION_ACCESS access = KestAccessProxy;
    GUID id = kUnknownClass;
    EXPECT_EQ(module->ModuleInit(harness::SessionHandle(0), &access, &where, &id), kInjected);
    EXPECT_EQ(world.config.References(), 0);
    EXPECT_EQ(where.Length, 0);
    EXPECT_EQ(access, KestAccessProxy);
    EXPECT_EQ(id, kUnknownClass);
    module->Release();
}

INSTANTIATE_TEST_SUITE_P(Calls, ModuleInitFailure,
                         testing::Values("create.KestSrv", "config.GetHostname",
                                         "config.GetLocation"),
                         [](const auto& row) {
                             std::string name = row.param;
                             name.erase(0, name.find('.') + 1);
                             return name;
                         });

TEST_F(Lifecycle, EventHandlerQueryInterface_HasFailureCodesOfItsOwn)
{
    world.module = Module();
    IEventHandler* handler = world.event.handler;
    ASSERT_TRUE(handler);
    void* out = nullptr;
    EXPECT_EQ(handler->QueryInterface(&IID_EventHandler_1, nullptr), 0xC7AE0004U);
    EXPECT_EQ(handler->QueryInterface(&IID_KestReq_2, &out), 0xC7AE0002U);
    EXPECT_EQ(handler->QueryInterface(&IID_IUnknown, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, handler);
    EXPECT_EQ(handler->QueryInterface(&IID_EventHandler_1, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(out, handler);
    EXPECT_EQ(handler->Release(), 2U);
    EXPECT_EQ(handler->Release(), 1U);

    // Through the table with no object at all.
    using QueryFn = TALSTATUS (*)(IEventHandler*, const GUID*, void**);
    void* const* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(handler), sizeof table);
    EXPECT_EQ(reinterpret_cast<QueryFn>(table[0])(nullptr, &IID_IUnknown, &out), 0xC7AE0004U);
}

TEST_F(Lifecycle, ManyThreadsAtTheStart_StartOnce)
{
    std::vector<std::thread> threads;
    std::atomic<int> made{0};
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            void* out = nullptr;
            if (GetClassObject(CLSID_KestDavHandler, IID_IClassFactory, &out) != 0)
                return;
            auto* factory = static_cast<IClassFactory*>(out);
            if (factory->CreateInstance(nullptr, &IID_KestReq_2, &out) != TAL_STATUS_SUCCESS)
                return;
            ++made;
            static_cast<IKestReq_2*>(out)->Release();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(made, 8);
    EXPECT_EQ(world.recorder.Count("create.KestUtil"), 1);
    EXPECT_EQ(world.recorder.Count("gen2.Create"), 1);
    EXPECT_EQ(world.platform.HeldLocks(), 0);
}

} // namespace
