// SPDX-License-Identifier: Apache-2.0
//
// Counted memory, and failing it on purpose.
#include "platform/memory.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "platform/failures.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

// In front of each block. 16 bytes keep the block as aligned as malloc's result.
struct alignas(16) Header {
    UINT64 mark;
    UINT32 size;
};
static_assert(sizeof(Header) == 16);

// Sizes of which a thread keeps a freed block. The sanitizer is to see every use after the end.
constexpr UINT32 kLeastSpare = 64 * 1024;
constexpr UINT32 kMostSpare = 512 * 1024;
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kKeepsSpare = false;
#elif defined(__has_feature)
constexpr bool kKeepsSpare = !__has_feature(address_sanitizer);
#else
constexpr bool kKeepsSpare = true;
#endif

constexpr UINT64 kLive = 0x6B65737462306C6B;
constexpr UINT64 kFreed = 0xBAADF00DBAADF00D;

// One thread's counts. Only that thread writes its block, so that counting needs no locked
// instruction and no cache line that two cores want. A thread that ends leaves its block, counts
// included, to the next thread. Live counts are differences that wrap: a block freed by another
// thread than the one that made it leaves both blocks off, and the sum right.
struct alignas(64) Counts {
    std::atomic<UINT64> liveAllocations{0};
    std::atomic<UINT64> liveBytes{0};
    std::atomic<UINT64> totalAllocations{0};
    std::atomic<UINT64> failedAllocations{0};
    void* spare = nullptr; // its thread's large block, marked as freed; see FreeBlock
    Counts* nextInList = nullptr;
    Counts* nextFree = nullptr; // under g_countsLock
};

Counts g_sharedCounts; // for threads that are ending, or when no block is to be had
std::mutex g_countsLock;
std::atomic<Counts*> g_allCounts{&g_sharedCounts};
Counts* g_freeCounts = nullptr; // under g_countsLock

thread_local constinit Counts* t_counts [[gnu::tls_model("initial-exec")]] = nullptr;

void LeaveCounts(void* counts)
{
    auto* block = static_cast<Counts*>(counts);
    t_counts = &g_sharedCounts; // later destructors of this thread may still free memory
    std::free(std::exchange(block->spare, nullptr));
    const std::lock_guard lock(g_countsLock);
    block->nextFree = g_freeCounts;
    g_freeCounts = block;
}

pthread_key_t CountsKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        if (pthread_key_create(&made, LeaveCounts) != 0)
            std::abort(); // no process has used up its thread keys before it starts
        return made;
    }();
    return key;
}

Counts* TakeCounts() noexcept
{
    Counts* block = nullptr;
    {
        const std::lock_guard lock(g_countsLock);
        if (g_freeCounts) {
            block = g_freeCounts;
            g_freeCounts = block->nextFree;
        } else if ((block = new (std::nothrow) Counts)) {
            block->nextInList = g_allCounts.load(std::memory_order_relaxed);
            g_allCounts.store(block, std::memory_order_release);
        }
    }
    if (!block)
        return &g_sharedCounts;
    if (pthread_setspecific(CountsKey(), block) != 0) {
        LeaveCounts(block);
        return &g_sharedCounts;
    }
    return t_counts = block;
}

Counts& MyCounts() noexcept
{
    return t_counts ? *t_counts : *TakeCounts();
}

void Count(const Counts& owner, std::atomic<UINT64>& count, UINT64 by) noexcept
{
    if (&owner == &g_sharedCounts)
        count.fetch_add(by, std::memory_order_relaxed);
    else
        count.store(count.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

std::atomic<UINT64> g_openKeys{0};
std::atomic<UINT64> g_liveSyncObjects{0};

// Failures on demand.
bool StartedForInjection() noexcept
{
    const char* value = std::getenv("TOLM_FAULT_INJECTION");
    return value && std::strcmp(value, "1") == 0;
}

const bool g_injects = StartedForInjection();
std::atomic<UINT64> g_failAt{0};
std::atomic<bool> g_failAfter{false};
std::atomic<UINT64> g_asked{0};

bool FailsOnDemand() noexcept
{
    if (!g_injects)
        return false;
    const UINT64 asked = g_asked.fetch_add(1) + 1;
    const UINT64 failAt = g_failAt.load();
    return failAt != 0 && (asked == failAt || (g_failAfter.load() && asked > failAt));
}

class FaultInjectionObject final : public ITalplFaultInjection {
  public:
    // The platform layer and this interface belong to one object that lives as long as the
    // process; identity and count are the platform layer's.
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        return SharedTalpl().QueryInterface(iid, out);
    }
    UINT32 AddRef() override { return SharedTalpl().AddRef(); }
    UINT32 Release() override { return SharedTalpl().Release(); }

    TALSTATUS FailAllocation(UINT64 nth, BOOLEAN andAfter) override
    {
        g_failAt = 0; // no allocation fails between the next two lines
        g_asked = 0;
        g_failAfter = andAfter != FALSE;
        g_failAt = nth;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetAllocationCount(UINT64* count) override
    {
        if (!count)
            return Fail(kCodeInvalidParameter);
        *count = g_asked;
        return TAL_STATUS_SUCCESS;
    }
};

constinit FaultInjectionObject g_faultInjection;

} // namespace

void* AllocateBlock(UINT32 size) noexcept
{
    Counts& counts = MyCounts();
    void* memory = nullptr;
    if (!FailsOnDemand()) {
        if (counts.spare && static_cast<Header*>(counts.spare)->size == size)
            memory = std::exchange(counts.spare, nullptr);
        else
            memory = std::malloc(sizeof(Header) + size);
    }
    if (!memory) {
        Count(counts, counts.failedAllocations, 1);
        return nullptr;
    }
    auto* header = new (memory) Header{kLive, size};
    Count(counts, counts.liveAllocations, 1);
    Count(counts, counts.liveBytes, size);
    Count(counts, counts.totalAllocations, 1);
    return header + 1;
}

bool FreeBlock(void* memory) noexcept
{
    Header* header = static_cast<Header*>(memory) - 1;
    if (header->mark != kLive)
        return false;
    header->mark = kFreed;
    Counts& counts = MyCounts();
    Count(counts, counts.liveAllocations, ~UINT64{0}); // minus one
    Count(counts, counts.liveBytes, UINT64{0} - header->size);
    KeepStores(header);
    // Every transfer takes a large block of the same size. To the allocator that is the costliest
    // of all sizes: it is cut off and joined again each time.
    if (kKeepsSpare && header->size >= kLeastSpare && header->size <= kMostSpare && !counts.spare &&
        &counts != &g_sharedCounts)
        counts.spare = header;
    else
        std::free(header);
    return true;
}

void* AllocateObject(std::size_t size, bool isSync) noexcept
{
    void* memory = FailsOnDemand() ? nullptr : std::malloc(size);
    if (!memory) {
        Counts& counts = MyCounts();
        Count(counts, counts.failedAllocations, 1);
        return nullptr;
    }
    (isSync ? g_liveSyncObjects : g_openKeys).fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void FreeObject(void* memory, bool isSync) noexcept
{
    (isSync ? g_liveSyncObjects : g_openKeys).fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

void ReadStatistics(TALPL_STATISTICS& out) noexcept
{
    out = {};
    for (const Counts* c = g_allCounts.load(std::memory_order_acquire); c; c = c->nextInList) {
        out.LiveAllocations += c->liveAllocations.load(std::memory_order_relaxed);
        out.LiveBytes += c->liveBytes.load(std::memory_order_relaxed);
        out.TotalAllocations += c->totalAllocations.load(std::memory_order_relaxed);
        out.FailedAllocations += c->failedAllocations.load(std::memory_order_relaxed);
    }
    out.OpenKeys = g_openKeys.load(std::memory_order_relaxed);
    out.LiveSyncObjects = g_liveSyncObjects.load(std::memory_order_relaxed);
}

ITalplFaultInjection* FaultInjection() noexcept
{
    return g_injects ? &g_faultInjection : nullptr;
}

void* Talpl::TalxAllocNonPagedMemory(UINT32 size)
{
    return AllocateBlock(size);
}

void* Talpl::TalxAllocPagedMemory(UINT32 size)
{
    return AllocateBlock(size);
}

TALSTATUS Talpl::TalxFreeMemory(void* memory)
{
    return !memory || FreeBlock(memory) ? TAL_STATUS_SUCCESS : Fail(kCodeInvalidParameter);
}

TALSTATUS Talpl::TalxGetGeneralTalplStatistics(TALPL_STATISTICS* out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    ReadStatistics(*out);
    return TAL_STATUS_SUCCESS;
}

} // namespace tolm
