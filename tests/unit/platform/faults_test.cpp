// SPDX-License-Identifier: Apache-2.0
//
// What happens when memory runs out: each operation fails with code 5, or does without, and leaves
// everything as it was. Blocks of the platform layer fail through its own injection; what the
// library uses inside fails through this program's operator new.
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>

#include "tests/unit/platform/support.h"

namespace {

// Whether injection is possible is settled when the process starts.
[[gnu::constructor]] void StartForInjection(int, char** arguments)
{
    if (getenv("TOLM_FAULT_INJECTION"))
        return;
    setenv("TOLM_FAULT_INJECTION", "1", 1);
    execv("/proc/self/exe", arguments);
    abort();
}

std::atomic<long> g_untilFailure{-1}; // allocations with new that still succeed; negative: all
std::atomic<bool> g_hasFailed{false};

} // namespace

// Not inlined: the compiler would see malloc'd memory meet delete, and warn.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (g_untilFailure.load() >= 0 && g_untilFailure.fetch_sub(1) == 0) {
        g_hasFailed = true;
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace talpl_test {
namespace {

ITalplFaultInjection& Injection()
{
    static ITalplFaultInjection* const injection = [] {
        void* out = nullptr;
        if (Platform().QueryInterface(&IID_TalplFaultInjection_1, &out) != 0)
            abort();
        return static_cast<ITalplFaultInjection*>(out);
    }();
    return *injection;
}

// Runs `attempt` with each of its allocations failing in turn, until it gets through without.
// `check` looks at the state after every failed run.
void FailEach(const std::function<TALSTATUS()>& attempt, const std::function<void()>& check)
{
    for (long n = 0;; ++n) {
        ASSERT_LT(n, 20000) << "never succeeds";
        g_hasFailed = false;
        g_untilFailure = n;
        const TALSTATUS status = attempt();
        g_untilFailure = -1;
        if (!g_hasFailed) {
            EXPECT_EQ(0u, status);
            EXPECT_GT(n, 0) << "nothing was allocated";
            return;
        }
        if (status == 0)
            return; // it could do without
        ASSERT_EQ(Failure(kCodeInsufficientResources), status) << "allocation " << n;
        check();
    }
}

class Faults : public RegistryTest {
  protected:
    ~Faults() override { Injection().FailAllocation(0, FALSE); }
};

TEST_F(Faults, TheNthBlockFails)
{
    const TALPL_STATISTICS before = Statistics();
    ASSERT_EQ(0u, Injection().FailAllocation(2, FALSE));
    void* first = Platform().TalxAllocPagedMemory(8);
    void* second = Platform().TalxAllocNonPagedMemory(8);
    void* third = Platform().TalxAllocPagedMemory(8);
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    EXPECT_NE(nullptr, third);
    UINT64 asked = 0;
    EXPECT_EQ(0u, Injection().GetAllocationCount(&asked));
    EXPECT_EQ(3u, asked);
    const TALPL_STATISTICS after = Statistics();
    EXPECT_EQ(before.FailedAllocations + 1, after.FailedAllocations);
    EXPECT_EQ(before.TotalAllocations + 2, after.TotalAllocations);
    EXPECT_EQ(before.LiveBytes + 16, after.LiveBytes);
    Platform().TalxFreeMemory(first);
    Platform().TalxFreeMemory(third);
    EXPECT_EQ(Failure(kCodeInvalidParameter), Injection().GetAllocationCount(nullptr));
}

TEST_F(Faults, EveryBlockAfterTheNthFails)
{
    ASSERT_EQ(0u, Injection().FailAllocation(2, TRUE));
    void* first = Platform().TalxAllocPagedMemory(8);
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, Platform().TalxAllocPagedMemory(8));
    EXPECT_EQ(nullptr, Platform().TalxAllocPagedMemory(8));
    ASSERT_EQ(0u, Injection().FailAllocation(0, TRUE));
    void* again = Platform().TalxAllocPagedMemory(8);
    EXPECT_NE(nullptr, again);
    Platform().TalxFreeMemory(first);
    Platform().TalxFreeMemory(again);
}

TEST_F(Faults, ObjectsBehindHandlesFailWithCodeFive)
{
    ASSERT_EQ("", Load("['A']\n'v' = 1\n"));
    ITalpl& p = Platform();
    const std::function<TALSTATUS(HANDLE*)> makers[] = {
        [&](HANDLE* out) { return p.TalxAllocEvent(TRUE, TRUE, out); },
        [&](HANDLE* out) { return p.TalxAllocMutex(out); },
        [&](HANDLE* out) { return p.TalxAllocReadWriteLock(out); },
        [&](HANDLE* out) { return p.TalxAllocSpinLock(out); },
        [&](HANDLE* out) { return p.TalxAllocTimer(out); },
        [&](HANDLE* out) { return p.TalxAllocWorkItem(out); },
        [&](HANDLE* out) { return p.TalxCreateThread([](void*) { return 0u; }, nullptr, out); },
        [&](HANDLE* out) { return p.TalxOpenKey(u"A", TALX_KEY_READ, out); },
        [&](HANDLE* out) { return p.TalxCreateKey(u"New", TALX_KEY_READ, out); },
    };
    const TALPL_STATISTICS before = Statistics();
    UINT64 count = 0;
    for (const auto& make : makers) {
        HANDLE out = nullptr;
        ASSERT_EQ(0u, Injection().FailAllocation(1, TRUE));
        EXPECT_EQ(Failure(kCodeInsufficientResources), make(&out)) << "maker " << count;
        EXPECT_EQ(nullptr, out);
        EXPECT_EQ(++count, Statistics().FailedAllocations - before.FailedAllocations);
    }
    EXPECT_EQ(before.LiveSyncObjects, Statistics().LiveSyncObjects);
    EXPECT_EQ(before.OpenKeys, Statistics().OpenKeys);
    EXPECT_EQ("['A']\n'v' = 1\n", Text()) << "no key was made without its handle";
}

TEST_F(Faults, ALoadFailsWholeOrNotAtAll)
{
    ASSERT_EQ("", Load("['A']\n'v' = 'old'\n"));
    WriteFile(File(), "['A\\B']\n'a rather long name' = 'new, and long enough to need memory'\n"
                      "'list' = ['a', 'b']\n'number' = 5\n['A']\n'v' = 'new'\n");
    const std::string path = File().string();
    char error[256];
    FailEach([&] { return TolmRegistryLoad(path.c_str(), error, sizeof error); },
             [&] {
                 EXPECT_STREQ("the registry file needs more memory than there is", error);
                 EXPECT_EQ("SZ:old", Query(u"A", u"v"));
             });
    EXPECT_EQ("SZ:new", Query(u"A", u"v"));
}

TEST_F(Faults, AWriteChangesTheFileAndTheRegistryOrNeither)
{
    const std::string text = "['A']\n'v' = 'old and long enough to need memory of its own'\n";
    ASSERT_EQ("", Load(text));
    HANDLE key = Open(u"A");
    FailEach([&] { return Platform().TalxSetValueKey(key, u"v", TALX_REG_SZ, u"new", 8); },
             [&] {
                 EXPECT_EQ(text, Text());
                 EXPECT_EQ("SZ:old and long enough to need memory of its own", Query(u"A", u"v"));
                 EXPECT_EQ(1, FileCount());
             });
    EXPECT_EQ("SZ:new", Query(u"A", u"v"));
    EXPECT_EQ("['A']\n'v' = 'new'\n", Text());
    FailEach([&] { return Platform().TalxDeleteValue(key, u"v"); },
             [&] { EXPECT_EQ("SZ:new", Query(u"A", u"v")); });
    EXPECT_EQ("['A']\n", Text());
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
    HANDLE made = nullptr;
    FailEach([&] { return Platform().TalxCreateKey(u"Some\\Key", TALX_KEY_READ, &made); },
             [&] {
                 EXPECT_EQ(nullptr, made);
                 EXPECT_EQ("['A']\n", Text());
             });
    EXPECT_EQ(0u, Platform().TalxCloseKey(made));
    FailEach([&] { return Platform().TalxDeleteKey(u"Some\\Key"); },
             [&] { EXPECT_EQ("['A']\n\n['Some\\Key']\n", Text()); });
    EXPECT_EQ(Text().find("Some"), std::string::npos);
    EXPECT_EQ(0u, Statistics().OpenKeys);
}

TEST_F(Faults, AnOverrideIsSetOrNot)
{
    ASSERT_EQ("", Load("['A']\n'v' = 'file'\n"));
    FailEach([&] { return TolmRegistrySetOverride(u"A", u"v", TALX_REG_SZ, u"line", 10); },
             [&] { EXPECT_EQ("SZ:file", Query(u"A", u"v")); });
    EXPECT_EQ("SZ:line", Query(u"A", u"v"));
    FailEach([&] { return TolmRegistrySetOverride(u"A", u"v", TALX_REG_SZ, nullptr, 0); },
             [&] { EXPECT_EQ("SZ:line", Query(u"A", u"v")); });
    EXPECT_EQ("SZ:file", Query(u"A", u"v"));
}

TEST_F(Faults, ReadingFailsCleanly)
{
    ASSERT_EQ("", Load("['A long enough name to need memory']\n'v long enough too, surely' = 1\n"));
    const WCHAR* path = u"A long enough name to need memory";
    const TALPL_STATISTICS before = Statistics();
    HANDLE key = nullptr;
    FailEach([&] { return Platform().TalxOpenKey(path, TALX_KEY_READ, &key); },
             [&] {
                 EXPECT_EQ(nullptr, key);
                 EXPECT_EQ(before.OpenKeys, Statistics().OpenKeys);
             });
    char record[128];
    UINT32 used = 0;
    FailEach(
        [&] {
            return Platform().TalxQueryValueKey(key, u"V LONG enough too, surely", record,
                                                sizeof record, &used);
        },
        [] {});
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
}

class NoFactory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    UINT32 AddRef() override { return ++references; }
    UINT32 Release() override { return --references; }
    TALSTATUS CreateInstance(IUnknown*, const GUID*, void** out) override
    {
        *out = this;
        return 0;
    }
    TALSTATUS LockServer(BOOLEAN) override { return 0; }
    UINT32 references = 0;
};

TEST_F(Faults, AClassIsRegisteredOrNot)
{
    static NoFactory factory;
    static NoFactory other;
    for (UINT32 i = 0; i < 100; ++i) { // the table grows on the way
        const GUID clazz{0xFA017000 + i, 1, 2, {3}};
        FailEach([&] { return TolmRegisterClassObject(&clazz, &factory); }, [] {});
        void* out = nullptr;
        EXPECT_EQ(0u, TolmCreateInstance(&clazz, nullptr, &IID_IUnknown, &out));
    }
    EXPECT_EQ(100u, factory.references);
    const GUID clazz{0xFA017000, 1, 2, {3}};
    EXPECT_EQ(0u, TolmRegisterClassObject(&clazz, &other));
    EXPECT_EQ(1u, other.references);
}

TEST_F(Faults, CreatingAnObjectOfAKnownClassAllocatesNothing)
{
    void* out = nullptr;
    UINT64 before = 0;
    UINT64 after = 0;
    ASSERT_EQ(0u, Injection().GetAllocationCount(&before));
    g_hasFailed = false;
    g_untilFailure = 0; // the first use of new would fail
    for (int i = 0; i < 10; ++i)
        if (TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IHadranTalpl_1, &out) == 0)
            static_cast<IUnknown*>(out)->Release();
    g_untilFailure = -1;
    EXPECT_NE(nullptr, out);
    EXPECT_FALSE(g_hasFailed);
    ASSERT_EQ(0u, Injection().GetAllocationCount(&after));
    EXPECT_EQ(before, after);
}

TEST_F(Faults, BothInterfacesAreOneObject)
{
    void* back = nullptr;
    ASSERT_EQ(0u, Injection().QueryInterface(&IID_IUnknown, &back));
    EXPECT_EQ(static_cast<IUnknown*>(&Platform()), back);
    const UINT32 count = Injection().AddRef();
    EXPECT_EQ(count - 1, Platform().Release());
    Platform().Release();
}

} // namespace
} // namespace talpl_test
