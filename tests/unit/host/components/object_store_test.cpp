// SPDX-License-Identifier: Apache-2.0
#include "host/components/object_stores.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/host/fixtures.h"
#include <kest/status.h>

namespace kestd {
namespace {

struct Thing {
    int key;
    int value;
};

struct ObjectCalls {
    std::atomic<int> made{0};
    std::atomic<int> gone{0};
    std::atomic<int> cleaned{0};
    std::atomic<TALSTATUS> result{0};
};
ObjectCalls* g_objectCalls =
    nullptr; // written by the fixture, before and after every thread of a case

TALSTATUS Construct(void* object, void* data)
{
    ++g_objectCalls->made;
    EXPECT_EQ(static_cast<Thing*>(object)->value, 0);
    static_cast<Thing*>(object)->key = *static_cast<int*>(data);
    return g_objectCalls->result;
}
TALSTATUS Destruct(void*)
{
    ++g_objectCalls->gone;
    return 0;
}
TALSTATUS CleanUp(SCHANDLE)
{
    ++g_objectCalls->cleaned;
    return 0;
}
BOOLEAN HasKey(void* object, void* key)
{
    return static_cast<Thing*>(object)->key == *static_cast<int*>(key);
}

class ObjectStoreCase : public testing::Test {
  protected:
    static constexpr uint32_t kBound = 4;

    void SetUp() override
    {
        g_objectCalls = &calls_;
        store_ = stores_.MakeInterface();
        constexpr GUID owner{7, 7, 7, {7}};
        ASSERT_EQ(
            store_->Initialize(&owner, sizeof(Thing), 1, 0, 31, Destruct, nullptr, CleanUp, 6), 0U);
        session_ = table_.HoldShared(MakeUser("anna"));
    }
    void TearDown() override
    {
        table_.ReleaseSession(session_);
        table_.EndAll();
        if (store_)
            store_->Release();
        EXPECT_EQ(calls_.gone, calls_.made - unconstructed_);
        g_objectCalls = nullptr;
    }

    TALSTATUS Create(int key, Thing** thing, UINT32* mode)
    {
        void* object = nullptr;
        const TALSTATUS status =
            store_->CreateObject(session_, &key, Construct, &key, HasKey, 0, 1, 1, &object, mode);
        *thing = static_cast<Thing*>(object);
        return status;
    }
    Thing* Find(int key)
    {
        void* object = nullptr;
        return Failed(store_->FindObject(session_, &key, HasKey, 0, 2, &object))
                   ? nullptr
                   : static_cast<Thing*>(object);
    }
    Thing* Make(int key)
    {
        Thing* thing = nullptr;
        UINT32 mode = 0;
        EXPECT_EQ(Create(key, &thing, &mode), 0U);
        EXPECT_EQ(mode, kObjectCreated);
        EXPECT_EQ(store_->DereferenceObject(thing, 1), 0U);
        return thing;
    }
    bool Has(int key)
    {
        Thing* const thing = Find(key);
        if (thing)
            store_->DereferenceObject(thing, 2);
        return thing != nullptr;
    }

    ManualClock clock_;
    SessionTable table_{{}, clock_};
    ObjectStores stores_{table_, kBound};
    ObjectCalls calls_;
    int unconstructed_ = 0; // constructions that failed on purpose
    ISCOM* store_ = nullptr;
    SCHANDLE session_{};
};

TEST_F(ObjectStoreCase, Create_MakesOnceAndFindsAfterwards)
{
    Thing* const made = Make(1);
    Thing* again = nullptr;
    UINT32 mode = 0;
    ASSERT_EQ(Create(1, &again, &mode), 0U);
    EXPECT_EQ(mode, kObjectExisted);
    EXPECT_EQ(again, made);
    EXPECT_EQ(calls_.made, 1);
    EXPECT_EQ(store_->DereferenceObject(again, 1), 0U);
    EXPECT_EQ(Find(2), nullptr);
    EXPECT_TRUE(Has(1));
}

TEST_F(ObjectStoreCase, ObjectsOfAnotherSession_AreNotFound)
{
    Make(1);
    const SCHANDLE other = table_.HoldShared(MakeUser("otto"));
    int key = 1;
    void* object = nullptr;
    EXPECT_EQ(Code(store_->FindObject(other, &key, HasKey, 0, 2, &object)), kCodeNotFound);
    EXPECT_EQ(Code(store_->FindObject({}, &key, HasKey, 0, 2, &object)), kCodeNotFound);
    table_.ReleaseSession(other);
}

TEST_F(ObjectStoreCase, OverTheBound_TheLeastRecentlyUsedGoes)
{
    for (int key = 1; key <= 4; ++key)
        Make(key);
    EXPECT_TRUE(Has(1)); // used again: 2 is the oldest now
    Make(5);
    EXPECT_FALSE(Has(2));
    for (const int key : {1, 3, 4, 5})
        EXPECT_TRUE(Has(key)) << key;
    EXPECT_EQ(calls_.gone, 1);
}

TEST_F(ObjectStoreCase, ReferencedObjects_AreNeverEvicted)
{
    std::vector<Thing*> held;
    for (int key = 1; key <= 4; ++key) {
        Make(key);
        held.push_back(Find(key));
    }
    Make(5); // nothing else can go, and it was referenced while it was made
    EXPECT_EQ(calls_.gone, 0);
    for (Thing* const thing : held)
        store_->DereferenceObject(thing, 2);
    Make(6);
    EXPECT_EQ(calls_.gone, 2); // back to the bound
}

TEST_F(ObjectStoreCase, SessionEnd_CleansUpAndDestroys)
{
    Make(1);
    Make(2);
    table_.ReleaseSession(session_);
    table_.EndAll();
    EXPECT_EQ(calls_.cleaned, 1);
    EXPECT_EQ(calls_.gone, 2);
    EXPECT_FALSE(Has(1));
    Thing* thing = nullptr;
    UINT32 mode = 0;
    EXPECT_EQ(Code(Create(1, &thing, &mode)), kCodeNotFound);
    session_ = table_.HoldShared(MakeUser("anna"));
}

TEST_F(ObjectStoreCase, ReferencedAtTheEndOfItsSession_GoesWithTheReference)
{
    Make(1);
    Thing* const held = Find(1);
    table_.ReleaseSession(session_);
    table_.EndAll();
    EXPECT_EQ(calls_.gone, 0);
    held->value = 3; // still memory of ours
    EXPECT_EQ(store_->DereferenceObject(held, 2), 0U);
    EXPECT_EQ(calls_.gone, 1);
    session_ = table_.HoldShared(MakeUser("anna"));
}

TEST_F(ObjectStoreCase, FailedConstruction_IsReturnedAndLeavesNothing)
{
    calls_.result = MakeStatus(kFacilityModule, kCodeInsufficientResources);
    unconstructed_ = 1;
    Thing* thing = nullptr;
    UINT32 mode = 0;
    EXPECT_EQ(Create(1, &thing, &mode), MakeStatus(kFacilityModule, kCodeInsufficientResources));
    EXPECT_EQ(thing, nullptr);
    calls_.result = 0;
    EXPECT_FALSE(Has(1));
    UINT32 objects = 99;
    EXPECT_EQ(store_->GetObjectStats(&objects, nullptr), 0U);
    EXPECT_EQ(objects, 0U);
}

TEST_F(ObjectStoreCase, Deleted_IsNotFoundAndGoesWithItsReferences)
{
    Make(1);
    Thing* const held = Find(1);
    EXPECT_EQ(store_->DeleteObject(held), 0U);
    EXPECT_FALSE(Has(1));
    EXPECT_EQ(calls_.gone, 0);
    EXPECT_EQ(Code(store_->DeleteObject(held)), kCodeNotFound);
    EXPECT_EQ(store_->DereferenceObject(held, 2), 0U);
    EXPECT_EQ(calls_.gone, 1);
    Thing* const second = Make(1);
    EXPECT_EQ(store_->DeleteObject(second), 0U);
    EXPECT_EQ(calls_.gone, 2);
}

TEST_F(ObjectStoreCase, Handles_StandForObjectsUntilTheyGo)
{
    Thing* const thing = Make(1);
    HANDLE handle = nullptr;
    ASSERT_EQ(store_->GetObjectHandle(thing, &handle), 0U);
    void* object = nullptr;
    EXPECT_EQ(store_->ReferenceObjectByHandle(handle, &object), 0U);
    EXPECT_EQ(object, thing);
    store_->DereferenceObject(object, 1);
    EXPECT_EQ(store_->OpenObject(session_, handle, &object), 0U);
    store_->DereferenceObject(object, 1);
    const SCHANDLE other = table_.HoldShared(MakeUser("otto"));
    EXPECT_EQ(Code(store_->OpenObject(other, handle, &object)), kCodeAccessDenied);
    table_.ReleaseSession(other);
    EXPECT_EQ(store_->DeleteObject(thing), 0U);
    EXPECT_EQ(Code(store_->ReferenceObjectByHandle(handle, &object)), kCodeNotFound);
    EXPECT_EQ(Code(store_->ReferenceObjectByHandle(nullptr, &object)), kCodeNotFound);
}

TEST_F(ObjectStoreCase, Enumeration_GivesTheLastUsedFirst)
{
    for (int key = 1; key <= 3; ++key)
        Make(key);
    EXPECT_TRUE(Has(1));
    std::vector<int> keys;
    void* object = nullptr;
    for (UINT32 i = 0; !Failed(store_->EnumerateObjects(session_, i, &object)); ++i) {
        keys.push_back(static_cast<Thing*>(object)->key);
        store_->DereferenceObject(object, 1);
    }
    EXPECT_EQ(keys, (std::vector<int>{1, 3, 2}));
}

TEST_F(ObjectStoreCase, SessionOfAnObject_IsTold)
{
    Thing* const thing = Make(1);
    SCHANDLE session{};
    EXPECT_EQ(store_->GetObjectSecurityContext(thing, &session), 0U);
    EXPECT_TRUE(IsSame(session, session_));
    EXPECT_EQ(store_->AcquireObject(thing), 0U);
    EXPECT_EQ(store_->ReleaseObject(thing), 0U);
}

TEST_F(ObjectStoreCase, AllocatedObjects_BelongToNoSession)
{
    void* object = nullptr;
    ASSERT_EQ(store_->AllocateObject(&object), 0U);
    EXPECT_EQ(static_cast<Thing*>(object)->key, 0);
    EXPECT_EQ(Code(store_->DeleteObject(object)), kCodeInvalidParameter);
    EXPECT_EQ(store_->DeallocateObject(object), 0U);
    EXPECT_EQ(Code(store_->DeallocateObject(Make(1))), kCodeInvalidParameter);
}

TEST_F(ObjectStoreCase, BadArguments_AreRefused)
{
    void* object = nullptr;
    int key = 1;
    EXPECT_EQ(Code(store_->FindObject(session_, &key, nullptr, 0, 2, &object)),
              kCodeInvalidParameter);
    EXPECT_EQ(Code(store_->FindObject(session_, &key, HasKey, 0, 2, nullptr)),
              kCodeInvalidParameter);
    EXPECT_EQ(Code(store_->CreateObject(session_, &key, Construct, &key, HasKey, 0, 1, 1, &object,
                                        nullptr)),
              kCodeInvalidParameter);
    EXPECT_EQ(Code(store_->DereferenceObject(nullptr, 1)), kCodeInvalidParameter);
    Thing* const thing = Make(1);
    EXPECT_EQ(Code(store_->DereferenceObject(thing, 1)), kCodeInvalidParameter); // one too many
    constexpr GUID owner{};
    EXPECT_EQ(Code(store_->Initialize(&owner, 8, 1, 0, 31, nullptr, nullptr, nullptr, 6)),
              kCodeObjectExists);
    ISCOM* const raw = stores_.MakeInterface();
    EXPECT_EQ(Code(raw->FindObject(session_, &key, HasKey, 0, 2, &object)), kCodeInvalidParameter);
    EXPECT_EQ(Code(raw->Initialize(&owner, 0, 1, 0, 31, nullptr, nullptr, nullptr, 6)),
              kCodeInvalidParameter);
    raw->Release();
}

TEST_F(ObjectStoreCase, ReleasedStore_TakesItsObjectsAlong)
{
    Make(1);
    Make(2);
    EXPECT_EQ(store_->Release(), 0U);
    store_ = nullptr;
    EXPECT_EQ(calls_.gone, 2);
    EXPECT_EQ(calls_.cleaned, 0);
}

TEST_F(ObjectStoreCase, RacingMakers_GetOneObject)
{
    std::atomic<int> created{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                Thing* thing = nullptr;
                UINT32 mode = 0;
                if (Failed(Create(i % 3, &thing, &mode)))
                    continue;
                created += mode == kObjectCreated;
                if (thing->key != i % 3)
                    created += 1000;
                store_->DereferenceObject(thing, 1);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(created, 3);
}

TEST_F(ObjectStoreCase, MakingFindingEvictingAndEnding_Race)
{
    std::atomic<bool> stop{false};
    std::thread ender([&] {
        while (!stop)
            table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1500; ++i) {
                const SCHANDLE session = table_.HoldShared(MakeUser("otto"));
                int key = (i * 7 + t) % 9;
                void* object = nullptr;
                UINT32 mode = 0;
                if (!Failed(store_->CreateObject(session, &key, Construct, &key, HasKey, 0, 1, 1,
                                                 &object, &mode))) {
                    HANDLE handle = nullptr;
                    store_->GetObjectHandle(object, &handle);
                    void* same = nullptr;
                    if (!Failed(store_->ReferenceObjectByHandle(handle, &same)))
                        store_->DereferenceObject(same, 1);
                    store_->DereferenceObject(object, 1);
                }
                table_.ReleaseSession(session);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    stop = true;
    ender.join();
    table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
    EXPECT_EQ(calls_.made, calls_.gone);
}

} // namespace
} // namespace kestd
