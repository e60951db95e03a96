// SPDX-License-Identifier: Apache-2.0
//
// Objects, class objects and the exception boundary that components are made with.
#include "kest/sdk/object.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include <kest/dav.h>
#include <kest/host.h>
#include <kest/sdk/class_object.h>

namespace {

struct TestComponent : kest::Component<0xC7B1> {};

int g_alive = 0;

// One interface that is easily implemented, and a second one beside it.
class Handler final : public kest::Object<Handler, TestComponent, IEventHandler, IClassFactory> {
  public:
    Handler() { ++g_alive; }
    ~Handler() { --g_alive; }
    TALSTATUS ConsumeEvent(GUID*, UINT32, void*) override { return TAL_STATUS_SUCCESS; }
    TALSTATUS CreateInstance(IUnknown*, const GUID*, void**) override { return 0; }
    TALSTATUS LockServer(BOOLEAN) override { return 77; }
};

TEST(Object, BeginsWithOneReferenceAndGoesWithTheLast)
{
    auto* const made = new Handler;
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(made->AddRef(), 2U);
    EXPECT_EQ(made->Release(), 1U);
    EXPECT_EQ(g_alive, 1);
    EXPECT_EQ(made->Release(), 0U);
    EXPECT_EQ(g_alive, 0);
}

TEST(Object, AnswersForEachInterface)
{
    auto* const made = new Handler;
    void* unknown = nullptr;
    void* handler = nullptr;
    void* factory = nullptr;
    EXPECT_EQ(made->QueryInterface(&IID_IUnknown, &unknown), TAL_STATUS_SUCCESS);
    EXPECT_EQ(made->QueryInterface(&IidOf<IEventHandler>::value, &handler), TAL_STATUS_SUCCESS);
    EXPECT_EQ(made->QueryInterface(&IidOf<IClassFactory>::value, &factory), TAL_STATUS_SUCCESS);
    EXPECT_EQ(unknown, handler); // the object's one identity
    EXPECT_EQ(static_cast<IClassFactory*>(factory)->LockServer(TRUE), 77U);
    // Each interface counts the same references.
    EXPECT_EQ(static_cast<IClassFactory*>(factory)->Release(), 3U);
    EXPECT_EQ(static_cast<IEventHandler*>(handler)->Release(), 2U);
    EXPECT_EQ(static_cast<IUnknown*>(unknown)->Release(), 1U);
    EXPECT_EQ(made->Release(), 0U);
    EXPECT_EQ(g_alive, 0);
}

TEST(Object, RefusesWhatItIsNot)
{
    auto* const made = new Handler;
    int something = 0;
    void* out = &something;
    EXPECT_EQ(made->QueryInterface(&IidOf<IKestDAV2>::value, &out), 0xC7B10002);
    EXPECT_EQ(out, nullptr);
    out = &something;
    EXPECT_EQ(made->QueryInterface(nullptr, &out), 0xC7B10004);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(made->QueryInterface(&IID_IUnknown, nullptr), 0xC7B10004);
    EXPECT_EQ(made->Release(), 0U);
}

TEST(Object, HandedOutWithoutItsInterfaceGoesAtOnce)
{
    void* out = nullptr;
    EXPECT_TRUE(Failed(kest::HandOut(new Handler, &IidOf<IKestDAV2>::value, &out)));
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(g_alive, 0);
    EXPECT_EQ(kest::HandOut(new Handler, &IidOf<IEventHandler>::value, &out), TAL_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<IEventHandler*>(out)->Release(), 0U);
    EXPECT_EQ(g_alive, 0);
}

TEST(Boundary, TurnsExceptionsIntoStatuses)
{
    using kest::AtBoundary;
    EXPECT_EQ(AtBoundary<TestComponent>([] { return TALSTATUS{3}; }), 3U);
    EXPECT_EQ(AtBoundary<TestComponent>([]() -> TALSTATUS { throw std::bad_alloc(); }), 0xC7B10005);
    EXPECT_EQ(AtBoundary<TestComponent>([]() -> TALSTATUS { throw std::runtime_error("x"); }),
              0xC7B10001);
    EXPECT_EQ(AtBoundary<TestComponent>([]() -> TALSTATUS { throw 1; }), 0xC7B10001);
}

TALSTATUS MakeHandler(const GUID* iid, void** out)
{
    return kest::HandOut(new Handler, iid, out);
}

// In static storage, without anything that runs at the start or the end of the process.
constinit kest::StaticClassObject<TestComponent> g_class(MakeHandler);
constexpr GUID kOwn = {1, 2, 3, {4}};
constexpr GUID kOther = {9, 2, 3, {4}};

TEST(ClassObject, MakesObjects)
{
    void* out = nullptr;
    EXPECT_EQ(g_class.CreateInstance(nullptr, &IidOf<IEventHandler>::value, &out), 0U);
    EXPECT_EQ(static_cast<IEventHandler*>(out)->Release(), 0U);
    EXPECT_TRUE(Failed(g_class.CreateInstance(nullptr, &IidOf<IKestDAV2>::value, &out)));
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(g_alive, 0);
}

TEST(ClassObject, MadeWithNewGoesWithItsLastReference)
{
    // The maker is part of the object: it goes, too.
    const auto owned = std::make_shared<int>(7);
    const auto make = [owned](const GUID*, void**) { return static_cast<TALSTATUS>(*owned); };
    auto* const made = new kest::ClassObject<TestComponent, decltype(make)>(make);
    void* out = nullptr;
    const long before = owned.use_count();
    EXPECT_EQ(made->CreateInstance(nullptr, &IID_IUnknown, &out), 7U);
    EXPECT_EQ(made->Release(), 0U);
    EXPECT_EQ(owned.use_count(), before - 1);
}

TEST(ClassObject, InStaticStorageIsEndedByNoReference)
{
    static constinit kest::StaticClassObject<TestComponent> object(MakeHandler);
    EXPECT_EQ(object.Release(), 0U);
    EXPECT_EQ(object.AddRef(), 1U);
}

TEST(ClassObject, RefusesAggregationAndNullArguments)
{
    void* out = &out;
    EXPECT_EQ(Code(g_class.CreateInstance(&g_class, &IID_IUnknown, &out)), kCodeInvalidParameter);
    EXPECT_EQ(out, nullptr);
    out = &out;
    EXPECT_EQ(Code(g_class.CreateInstance(nullptr, nullptr, &out)), kCodeInvalidParameter);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(Code(g_class.CreateInstance(nullptr, &IID_IUnknown, nullptr)), kCodeInvalidParameter);
}

TEST(ClassObject, IsHandedOutForItsClassOnly)
{
    void* out = &out;
    EXPECT_EQ(kest::GetClassObject(kOwn, g_class, &kOther, &IID_IClassFactory, &out), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(kest::GetClassObject(kOwn, g_class, nullptr, &IID_IClassFactory, &out), -1);
    EXPECT_EQ(kest::GetClassObject(kOwn, g_class, &kOwn, &IID_IClassFactory, nullptr), -1);
    EXPECT_EQ(kest::GetClassObject(kOwn, g_class, &kOwn, &IID_IClassFactory, &out), 0);
    EXPECT_EQ(out, &g_class);
    EXPECT_EQ(g_class.Release(), 1U);
}

} // namespace
