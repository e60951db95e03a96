// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

TEST(Memory, BlocksAreAlignedForEveryScalarType)
{
    for (const UINT32 size : {0u, 1u, 7u, 16u, 100u, 65536u, 1u << 20}) {
        void* paged = Platform().TalxAllocPagedMemory(size);
        void* fixed = Platform().TalxAllocNonPagedMemory(size);
        ASSERT_TRUE(paged && fixed);
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(paged) % alignof(std::max_align_t));
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(fixed) % alignof(std::max_align_t));
        std::memset(paged, 0xAA, size);
        EXPECT_EQ(0u, Platform().TalxFreeMemory(paged));
        EXPECT_EQ(0u, Platform().TalxFreeMemory(fixed));
    }
    EXPECT_EQ(0u, Platform().TalxFreeMemory(nullptr));
}

TEST(Memory, WhatIsNoBlockIsRefused)
{
    alignas(16) char outside[64] = {};
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxFreeMemory(outside + 32));
    void* block = Platform().TalxAllocPagedMemory(64);
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxFreeMemory(static_cast<char*>(block) + 32));
    EXPECT_EQ(0u, Platform().TalxFreeMemory(block));
}

// A thread keeps one of its large blocks for its next use.
TEST(Memory, LargeBlocksAreNobodyElsesUntilFreed)
{
    const TALPL_STATISTICS before = Statistics();
    constexpr UINT32 kSizes[] = {262144, 262144, 131072, 262144, 524289};
    for (int round = 0; round < 3; ++round) {
        std::vector<char*> blocks;
        for (const UINT32 size : kSizes) {
            blocks.push_back(static_cast<char*>(Platform().TalxAllocPagedMemory(size)));
            ASSERT_TRUE(blocks.back());
            std::memset(blocks.back(), static_cast<int>(blocks.size()), size);
        }
        for (size_t i = 0; i < blocks.size(); ++i) {
            EXPECT_EQ(static_cast<char>(i + 1), blocks[i][0]);
            EXPECT_EQ(static_cast<char>(i + 1), blocks[i][kSizes[i] - 1]);
            EXPECT_EQ(0u, Platform().TalxFreeMemory(blocks[i]));
        }
    }
    std::thread([] { // takes its spare with it
        void* block = Platform().TalxAllocPagedMemory(262144);
        EXPECT_EQ(0u, Platform().TalxFreeMemory(block));
    })
        .join();
    EXPECT_EQ(before.LiveAllocations, Statistics().LiveAllocations);
    EXPECT_EQ(before.LiveBytes, Statistics().LiveBytes);
}

TEST(Statistics, FollowEveryBlock)
{
    const TALPL_STATISTICS before = Statistics();
    void* a = Platform().TalxAllocPagedMemory(100);
    void* b = Platform().TalxAllocNonPagedMemory(23);
    const TALPL_STATISTICS with = Statistics();
    EXPECT_EQ(before.LiveAllocations + 2, with.LiveAllocations);
    EXPECT_EQ(before.LiveBytes + 123, with.LiveBytes);
    EXPECT_EQ(before.TotalAllocations + 2, with.TotalAllocations);
    Platform().TalxFreeMemory(a);
    Platform().TalxFreeMemory(b);
    const TALPL_STATISTICS after = Statistics();
    EXPECT_EQ(before.LiveAllocations, after.LiveAllocations);
    EXPECT_EQ(before.LiveBytes, after.LiveBytes);
    EXPECT_EQ(before.TotalAllocations + 2, after.TotalAllocations);
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxGetGeneralTalplStatistics(nullptr));
}

TEST(Statistics, AreExactWhenBlocksChangeThreads)
{
    const TALPL_STATISTICS before = Statistics();
    constexpr int kBlocks = 500;
    std::vector<std::vector<void*>> made(4);
    std::vector<std::thread> threads;
    for (auto& mine : made)
        threads.emplace_back([&mine] {
            for (int i = 0; i < kBlocks; ++i)
                mine.push_back(Platform().TalxAllocPagedMemory(10));
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(before.LiveAllocations + 4 * kBlocks, Statistics().LiveAllocations);
    EXPECT_EQ(before.LiveBytes + 40 * kBlocks, Statistics().LiveBytes);
    std::thread([&made] {
        for (const auto& blocks : made)
            for (void* block : blocks)
                Platform().TalxFreeMemory(block);
    }).join();
    EXPECT_EQ(before.LiveAllocations, Statistics().LiveAllocations);
    EXPECT_EQ(before.LiveBytes, Statistics().LiveBytes);
    EXPECT_EQ(before.TotalAllocations + 4 * kBlocks, Statistics().TotalAllocations);
}

TEST(Statistics, CountWhatIsBehindHandles)
{
    const TALPL_STATISTICS before = Statistics();
    HANDLE event = nullptr;
    HANDLE timer = nullptr;
    HANDLE lock = nullptr;
    EXPECT_EQ(0u, Platform().TalxAllocEvent(FALSE, FALSE, &event));
    EXPECT_EQ(0u, Platform().TalxAllocTimer(&timer));
    EXPECT_EQ(0u, Platform().TalxAllocSpinLock(&lock));
    EXPECT_EQ(before.LiveSyncObjects + 3, Statistics().LiveSyncObjects);
    EXPECT_EQ(0u, Platform().TalxDestroyEvent(event));
    EXPECT_EQ(0u, Platform().TalxDestroyTimer(timer));
    EXPECT_EQ(0u, Platform().TalxDestroySpinLock(lock));
    EXPECT_EQ(before.LiveSyncObjects, Statistics().LiveSyncObjects);
    EXPECT_EQ(before.LiveAllocations, Statistics().LiveAllocations);
}

TEST(Identity, OneObjectForTheWholeProcess)
{
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(0u, TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IHadranTalpl_1, &first));
    ASSERT_EQ(0u, TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IUnknown, &second));
    EXPECT_EQ(first, second);
    auto* object = static_cast<ITalpl*>(first);
    const UINT32 count = object->AddRef();
    EXPECT_EQ(count - 1, object->Release());
    object->Release();
    static_cast<IUnknown*>(second)->Release();
    void* out = object;
    EXPECT_EQ(Failure(kCodeNoInterface), object->QueryInterface(&CLSID_HadranTalpl, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(Failure(kCodeInvalidParameter), object->QueryInterface(&IID_IUnknown, nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter), object->QueryInterface(nullptr, &out));
    EXPECT_EQ(Failure(kCodeNoInterface), object->QueryInterface(&IID_TalplFaultInjection_1, &out))
        << "this process was not started for fault injection";
}

TEST(Time, CountsFrom1601)
{
    UINT64 now = 0;
    EXPECT_EQ(0u, Platform().TalxGetSystemTime(&now));
    const UINT64 unixTime = now / 10'000'000 - 11'644'473'600;
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(unixTime), 5);
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxGetSystemTime(nullptr));
    EXPECT_EQ(0u, Platform().TalxGetCurrentIrql());
}

TEST(Lists, KeepTheirOrder)
{
    LIST_ENTRY head;
    LIST_ENTRY e[5];
    EXPECT_EQ(0u, Platform().TalxInitializeListHead(&head));
    EXPECT_EQ(TRUE, Platform().TalxIsListEmpty(&head));
    EXPECT_EQ(nullptr, Platform().TalxRemoveHeadList(&head));
    EXPECT_EQ(nullptr, Platform().TalxRemoveTailList(&head));
    Platform().TalxInsertTailList(&head, &e[1]);
    Platform().TalxInsertTailList(&head, &e[3]);
    Platform().TalxInsertHeadList(&head, &e[0]);
    Platform().TalxInsertEntryAfter(&e[1], &e[2]);
    Platform().TalxInsertEntryBefore(&head, &e[4]);
    EXPECT_EQ(FALSE, Platform().TalxIsListEmpty(&head));
    const LIST_ENTRY* at = &head;
    for (const LIST_ENTRY& entry : e) {
        EXPECT_EQ(&entry, at->Flink);
        EXPECT_EQ(at, entry.Blink);
        at = at->Flink;
    }
    EXPECT_EQ(&head, at->Flink);
    EXPECT_EQ(&e[4], head.Blink);
    EXPECT_EQ(0u, Platform().TalxRemoveEntryList(&e[2]));
    EXPECT_EQ(0u, Platform().TalxRemoveEntryList(&e[2])) << "a second removal does no harm";
    EXPECT_EQ(&e[4], Platform().TalxRemoveTailList(&head));
    EXPECT_EQ(&e[0], Platform().TalxRemoveHeadList(&head));
    EXPECT_EQ(&e[1], Platform().TalxRemoveHeadList(&head));
    EXPECT_EQ(&e[3], Platform().TalxRemoveHeadList(&head));
    EXPECT_EQ(TRUE, Platform().TalxIsListEmpty(&head));
    EXPECT_EQ(&head, head.Flink);
    EXPECT_EQ(&head, head.Blink);
}

TEST(Lists, NullArgumentsAreRefused)
{
    LIST_ENTRY entry;
    Platform().TalxInitializeListHead(&entry);
    const TALSTATUS refused = Failure(kCodeInvalidParameter);
    EXPECT_EQ(refused, Platform().TalxInitializeListHead(nullptr));
    EXPECT_EQ(refused, Platform().TalxInsertEntryAfter(nullptr, &entry));
    EXPECT_EQ(refused, Platform().TalxInsertEntryBefore(&entry, nullptr));
    EXPECT_EQ(refused, Platform().TalxInsertHeadList(&entry, nullptr));
    EXPECT_EQ(refused, Platform().TalxInsertTailList(nullptr, &entry));
    EXPECT_EQ(refused, Platform().TalxRemoveEntryList(nullptr));
    EXPECT_EQ(TRUE, Platform().TalxIsListEmpty(nullptr));
    EXPECT_EQ(nullptr, Platform().TalxRemoveHeadList(nullptr));
}

} // namespace
} // namespace talpl_test
