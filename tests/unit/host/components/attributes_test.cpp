// SPDX-License-Identifier: Apache-2.0
#include "host/components/attributes.h"

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/host/fixtures.h"
#include <kest/status.h>

namespace kestd {
namespace {

constexpr GUID kFirstId{1, 2, 3, {4}};
constexpr GUID kSecondId{2, 2, 3, {4}};

struct Data {
    uint64_t value;
    SCHANDLE session;
};

// What the callbacks of the running test count and use.
struct AttributeCalls {
    AttributeService* service = nullptr;
    HANDLE registration = nullptr;
    std::atomic<int> made{0};
    std::atomic<int> cleaned{0};
    std::atomic<int> freed{0};
    std::atomic<TALSTATUS> initResult{0};
    bool cleanupDeletes = false;
    uint64_t seenAtCleanup = 0;
};
AttributeCalls* g_attributeCalls =
    nullptr; // written by the fixture, before and after every thread of a case

TALSTATUS Init(Attribute* attribute, void* data)
{
    ++g_attributeCalls->made;
    static_cast<Data*>(attribute->pData)->value = *static_cast<uint64_t*>(data);
    return g_attributeCalls->initResult;
}

TALSTATUS Cleanup(SCHANDLE session)
{
    ++g_attributeCalls->cleaned;
    Attribute* attribute = nullptr;
    if (Failed(g_attributeCalls->service->Reference(session, g_attributeCalls->registration,
                                                    kAttributeExclusive, &attribute)))
        return 0;
    g_attributeCalls->seenAtCleanup = static_cast<Data*>(attribute->pData)->value;
    return g_attributeCalls->cleanupDeletes
               ? g_attributeCalls->service->Delete(kAttributeExclusive, attribute)
               : g_attributeCalls->service->Dereference(kAttributeExclusive, attribute);
}

TALSTATUS Free(Attribute*)
{
    ++g_attributeCalls->freed;
    return 0;
}

class Attributes : public testing::Test {
  protected:
    void SetUp() override
    {
        g_attributeCalls = &calls_;
        calls_.service = &service_;
        ASSERT_EQ(service_.Register(kFirstId, sizeof(Data), Cleanup, Free, &calls_.registration),
                  0U);
        session_ = table_.HoldShared(MakeUser("anna"));
    }
    void TearDown() override
    {
        table_.ReleaseSession(session_);
        table_.EndAll();
        g_attributeCalls = nullptr;
    }

    TALSTATUS Create(Attribute** out, UINT32* mode, UINT32 createMode = kAttributeExclusive,
                     UINT32 openMode = kAttributeShared)
    {
        uint64_t value = 42;
        return service_.Create(session_, calls_.registration, &value, Init, createMode, openMode,
                               out, mode);
    }
    void MakeOne()
    {
        Attribute* attribute = nullptr;
        UINT32 mode = 0;
        ASSERT_EQ(Create(&attribute, &mode), 0U);
        ASSERT_EQ(service_.Dereference(mode, attribute), 0U);
    }

    ManualClock clock_;
    SessionTable table_{{}, clock_};
    AttributeService service_{table_};
    AttributeCalls calls_;
    SCHANDLE session_{};
};

TEST_F(Attributes, FirstCreate_MakesAndHoldsExclusively)
{
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    ASSERT_EQ(Create(&attribute, &mode), 0U);
    EXPECT_EQ(mode, kAttributeExclusive);
    EXPECT_EQ(static_cast<Data*>(attribute->pData)->value, 42U);
    EXPECT_TRUE(IsSame(attribute->hSC, session_));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(attribute->pData) % alignof(std::max_align_t), 0U);
    EXPECT_EQ(service_.Dereference(kAttributeExclusive, attribute), 0U);
    Attribute* again = nullptr;
    ASSERT_EQ(Create(&again, &mode), 0U);
    EXPECT_EQ(mode, kAttributeShared);
    EXPECT_EQ(again, attribute);
    EXPECT_EQ(calls_.made, 1);
    EXPECT_EQ(service_.Dereference(kAttributeShared, again), 0U);
}

TEST_F(Attributes, SharedMode_DoesNotBlockOthers)
{
    MakeOne();
    std::vector<Attribute*> held(8);
    UINT32 mode = 0;
    for (Attribute*& attribute : held) // all at once, on one thread: none waits
        ASSERT_EQ(Create(&attribute, &mode), 0U);
    for (Attribute* attribute : held)
        EXPECT_EQ(service_.Dereference(kAttributeShared, attribute), 0U);
}

TEST_F(Attributes, RacingFirstRequests_OneMakesAndTheOthersWaitForIt)
{
    for (int round = 0; round < 50; ++round) {
        const SCHANDLE session = table_.HoldShared(MakeUser("user" + std::to_string(round)));
        std::atomic<int> makers{0};
        std::atomic<int> early{0};
        std::atomic<bool> isBegun{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                Attribute* attribute = nullptr;
                UINT32 mode = 0;
                uint64_t value = 1;
                if (Failed(service_.Create(session, calls_.registration, &value, Init, 1, 2,
                                           &attribute, &mode)))
                    return;
                if (mode == kAttributeExclusive) {
                    ++makers;
                    std::this_thread::yield(); // here the module begins the session
                    isBegun = true;
                } else if (!isBegun) {
                    ++early;
                }
                service_.Dereference(mode, attribute);
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(makers, 1);
        EXPECT_EQ(early, 0);
        table_.ReleaseSession(session);
    }
}

TEST_F(Attributes, FailedInit_LeavesNothing)
{
    calls_.initResult = MakeStatus(kFacilityModule, kCodeAccessDenied);
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    EXPECT_EQ(Create(&attribute, &mode), MakeStatus(kFacilityModule, kCodeAccessDenied));
    EXPECT_EQ(attribute, nullptr);
    EXPECT_EQ(calls_.freed, 0);
    GUID id{};
    EXPECT_EQ(Code(service_.Enumerate(session_, 0, &id)), kCodeNoMoreEntries);
    calls_.initResult = 0;
    MakeOne();
    EXPECT_EQ(calls_.made, 2);
}

TEST_F(Attributes, FailedInit_LetsTheNextWaiterMakeIt)
{
    calls_.initResult = MakeStatus(kFacilityModule, kCodeAccessDenied);
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            Attribute* attribute = nullptr;
            UINT32 mode = 0;
            if (Failed(Create(&attribute, &mode)))
                ++failed;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 4);
    EXPECT_EQ(calls_.made, 4);
}

TEST_F(Attributes, SessionEnd_CleansUpOnceAndFreesTheRest)
{
    for (const bool cleanupDeletes : {false, true}) {
        calls_.cleanupDeletes = cleanupDeletes;
        calls_.cleaned = calls_.freed = 0;
        const SCHANDLE session = table_.HoldShared(MakeUser("otto"));
        Attribute* attribute = nullptr;
        UINT32 mode = 0;
        uint64_t value = 7;
        ASSERT_EQ(
            service_.Create(session, calls_.registration, &value, Init, 1, 2, &attribute, &mode),
            0U);
        service_.Dereference(mode, attribute);
        table_.ReleaseSession(session);
        table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
        EXPECT_EQ(calls_.cleaned, 1);
        EXPECT_EQ(calls_.freed, 1);
        EXPECT_EQ(calls_.seenAtCleanup, 7U);
        EXPECT_EQ(Code(service_.Create(session, calls_.registration, &value, Init, 1, 2, &attribute,
                                       &mode)),
                  kCodeNotFound);
        EXPECT_EQ(Code(service_.Reference(session, calls_.registration, 1, &attribute)),
                  kCodeNotFound);
    }
}

TEST_F(Attributes, SessionWithoutTheAttribute_IsNotCleanedUp)
{
    table_.ReleaseSession(table_.HoldShared(MakeUser("otto")));
    table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
    EXPECT_EQ(calls_.cleaned, 0);
}

TEST_F(Attributes, DeletedWhileOthersReferenceIt_LivesUntilTheLastLeaves)
{
    MakeOne();
    Attribute* first = nullptr;
    Attribute* second = nullptr;
    ASSERT_EQ(service_.Reference(session_, calls_.registration, kAttributeShared, &first), 0U);
    ASSERT_EQ(service_.Reference(session_, calls_.registration, kAttributeShared, &second), 0U);
    EXPECT_EQ(service_.Delete(kAttributeShared, first), 0U);
    EXPECT_EQ(calls_.freed, 0);
    static_cast<Data*>(second->pData)->value = 5; // its memory is still there
    Attribute* third = nullptr;
    EXPECT_EQ(Code(service_.Reference(session_, calls_.registration, kAttributeShared, &third)),
              kCodeNotFound);
    EXPECT_EQ(service_.Dereference(kAttributeShared, second), 0U);
    EXPECT_EQ(calls_.freed, 1);
    MakeOne();
    EXPECT_EQ(calls_.made, 2);
}

TEST_F(Attributes, Writer_WaitsForReadersAndBlocksThem)
{
    MakeOne();
    Attribute* reader = nullptr;
    ASSERT_EQ(service_.Reference(session_, calls_.registration, kAttributeShared, &reader), 0U);
    std::atomic<bool> isWriting{false};
    std::thread writer([&] {
        Attribute* attribute = nullptr;
        EXPECT_EQ(
            service_.Reference(session_, calls_.registration, kAttributeExclusive, &attribute), 0U);
        isWriting = true;
        EXPECT_EQ(service_.Dereference(kAttributeExclusive, attribute), 0U);
    });
    EXPECT_FALSE(isWriting);
    EXPECT_EQ(service_.Dereference(kAttributeShared, reader), 0U);
    writer.join();
    EXPECT_TRUE(isWriting);
}

TEST_F(Attributes, AccessGivenBackAndTaken_KeepsTheReference)
{
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    ASSERT_EQ(Create(&attribute, &mode), 0U);
    EXPECT_EQ(service_.Give(attribute), 0U);
    Attribute* other = nullptr;
    ASSERT_EQ(service_.Reference(session_, calls_.registration, kAttributeExclusive, &other), 0U);
    EXPECT_EQ(service_.Dereference(kAttributeExclusive, other), 0U);
    EXPECT_EQ(service_.Acquire(kAttributeShared, attribute), 0U);
    EXPECT_EQ(service_.Dereference(kAttributeShared, attribute), 0U);
    EXPECT_EQ(Code(service_.Give(attribute)), kCodeInvalidParameter); // nobody has access
}

TEST_F(Attributes, WrongMode_IsRefusedAndChangesNothing)
{
    MakeOne();
    Attribute* attribute = nullptr;
    ASSERT_EQ(service_.Reference(session_, calls_.registration, kAttributeShared, &attribute), 0U);
    EXPECT_EQ(Code(service_.Dereference(kAttributeExclusive, attribute)), kCodeInvalidParameter);
    EXPECT_EQ(Code(service_.Dereference(3, attribute)), kCodeInvalidParameter);
    EXPECT_EQ(Code(service_.Delete(kAttributeExclusive, attribute)), kCodeInvalidParameter);
    EXPECT_EQ(service_.Dereference(kAttributeShared, attribute), 0U);
    UINT32 mode = 0;
    EXPECT_EQ(Code(Create(&attribute, &mode, 0, 2)), kCodeInvalidParameter);
    EXPECT_EQ(Code(Create(nullptr, &mode)), kCodeInvalidParameter);
}

TEST_F(Attributes, RegistrationOfAKnownIdentifier_IsRefused)
{
    HANDLE other = nullptr;
    EXPECT_EQ(Code(service_.Register(kFirstId, 8, nullptr, nullptr, &other)), kCodeObjectExists);
    EXPECT_EQ(service_.Register(kSecondId, 8, nullptr, nullptr, &other), 0U);
    EXPECT_NE(other, calls_.registration);
    EXPECT_EQ(Code(service_.Register({9, 9, 9, {}}, AttributeService::kLargestAttribute + 1,
                                     nullptr, nullptr, &other)),
              kCodeInvalidParameter);
}

TEST_F(Attributes, Deregistration_TakesTheAttributesAway)
{
    MakeOne();
    EXPECT_EQ(service_.Deregister(calls_.registration), 0U);
    EXPECT_EQ(calls_.freed, 1);
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    EXPECT_EQ(Code(Create(&attribute, &mode)), kCodeNotFound);
    EXPECT_EQ(Code(service_.Deregister(calls_.registration)), kCodeNotFound);
    EXPECT_EQ(Code(service_.Deregister(reinterpret_cast<HANDLE>(99))), kCodeNotFound);
}

TEST_F(Attributes, Enumeration_NamesEachOfTheSession)
{
    HANDLE second = nullptr;
    ASSERT_EQ(service_.Register(kSecondId, 8, nullptr, nullptr, &second), 0U);
    MakeOne();
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    ASSERT_EQ(service_.Create(session_, second, nullptr, nullptr, 2, 2, &attribute, &mode), 0U);
    EXPECT_EQ(*static_cast<uint64_t*>(attribute->pData), 0U); // zeroed
    EXPECT_EQ(mode, kAttributeShared);
    service_.Dereference(mode, attribute);
    GUID id{};
    EXPECT_EQ(service_.Enumerate(session_, 0, &id), 0U);
    EXPECT_EQ(id, kFirstId);
    EXPECT_EQ(service_.Enumerate(session_, 1, &id), 0U);
    EXPECT_EQ(id, kSecondId);
    EXPECT_EQ(Code(service_.Enumerate(session_, 2, &id)), kCodeNoMoreEntries);
    EXPECT_EQ(Code(service_.Enumerate({}, 0, &id)), kCodeNotFound);
}

TEST_F(Attributes, RequestsAndSessionEnds_Race)
{
    std::atomic<bool> stop{false};
    std::thread ender([&] {
        while (!stop)
            table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1500; ++i) {
                const SCHANDLE session = table_.HoldShared(MakeUser("otto"));
                Attribute* attribute = nullptr;
                UINT32 mode = 0;
                uint64_t value = 3;
                if (!Failed(service_.Create(session, calls_.registration, &value, Init, 1, 2,
                                            &attribute, &mode)))
                    service_.Dereference(mode, attribute);
                table_.ReleaseSession(session);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    stop = true;
    ender.join();
    table_.EndWhere([](const Principal& principal) { return principal.name == "otto"; });
    EXPECT_EQ(calls_.made, calls_.freed);
    EXPECT_EQ(calls_.made, calls_.cleaned);
}

} // namespace
} // namespace kestd
