// SPDX-License-Identifier: Apache-2.0
//
// Calls every operation of the platform layer by its number through the raw table, with arguments
// and an outcome that no other operation shares: a reordered member cannot pass. The numbers are
// the contract's and are written out here on purpose.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include <kest/com.h>
#include <kest/status.h>
#include <kest/talpl.h>
#include <kest/tolm.h>

namespace {

constexpr unsigned kSlots = 90;
std::atomic<bool> g_called[kSlots]; // some are called on other threads

void* Object()
{
    static void* const object = [] {
        void* out = nullptr;
        EXPECT_EQ(0u, TolmCreateInstance(&CLSID_HadranTalpl, nullptr, &IID_IHadranTalpl_1, &out));
        return out;
    }();
    return object;
}

void* Entry(unsigned slot)
{
    g_called[slot] = true;
    return (*static_cast<void***>(Object()))[slot];
}

// Calls operation `slot` with exactly these argument types.
template <class R, class... Args> R Call(unsigned slot, Args... args)
{
    return reinterpret_cast<R (*)(void*, Args...)>(Entry(slot))(Object(), args...);
}
template <class... Args> UINT16 Do(unsigned slot, Args... args)
{
    const TALSTATUS status = Call<TALSTATUS, Args...>(slot, args...);
    EXPECT_EQ(status == 0, !Failed(status));
    return Code(status);
}

using Text = const WCHAR*;
using Bytes = const char*;
using Out = HANDLE*;

void Slot0To2Unknown()
{
    void* out = nullptr;
    EXPECT_EQ(0u, (Do<const GUID*, void**>(0, &IID_IHadranTalpl_1, &out)));
    EXPECT_EQ(Object(), out);
    const UINT32 count = Call<UINT32>(1);
    EXPECT_EQ(count - 1, Call<UINT32>(2));
    EXPECT_EQ(count - 2, Call<UINT32>(2));
}

void Slot3To10And89Registry()
{
    HANDLE key = nullptr;
    EXPECT_EQ(kCodeNotFound, (Do<Text, UINT32, Out>(8, u"Slot\\A", 2, &key))); // open
    EXPECT_EQ(0u, (Do<Text, UINT32, Out>(4, u"Slot\\A", 2, &key)));            // create
    EXPECT_NE(nullptr, key);
    EXPECT_EQ(0u, (Do<HANDLE, Text, UINT32, const void*, UINT32>(10, key, u"n", TALX_REG_SZ, u"xy",
                                                                 6))); // set
    char record[64];
    UINT32 used = 0;
    EXPECT_EQ(0u, (Do<HANDLE, Text, void*, UINT32, UINT32*>(9, key, u"N", record, 64, &used)));
    EXPECT_EQ(28u, used); // query
    TALX_KEY_VALUE_INFORMATION value;
    std::memcpy(&value, record, sizeof value);
    EXPECT_EQ(6u, value.ValueLength);
    EXPECT_EQ(0, std::memcmp(record + value.ValueOffset, u"xy", 6));
    std::memset(record, 0, sizeof record);
    EXPECT_EQ(0u, (Do<HANDLE, UINT32, void*, UINT32, UINT32*>(7, key, 0, record, 64, &used)));
    EXPECT_EQ(TALX_REG_SZ, record[4]); // enumerate values
    EXPECT_EQ(kCodeNoMoreEntries,
              (Do<HANDLE, UINT32, void*, UINT32, UINT32*>(7, key, 1, record, 64, &used)));
    EXPECT_EQ(0u, (Do<HANDLE, Text>(89, key, u"n"))); // delete value
    EXPECT_EQ(kCodeNotFound,
              (Do<HANDLE, Text, void*, UINT32, UINT32*>(9, key, u"n", record, 64, &used)));
    HANDLE parent = nullptr;
    EXPECT_EQ(0u, (Do<Text, UINT32, Out>(8, u"Slot", 0, &parent)));
    EXPECT_EQ(0u, (Do<HANDLE, UINT32, void*, UINT32, UINT32*>(6, parent, 0, record, 64, &used)));
    EXPECT_EQ(18u, used); // enumerate keys
    EXPECT_EQ(0, std::memcmp(record + 16, u"A", 2));
    EXPECT_EQ(0u, Do<Text>(5, u"Slot\\A")); // delete key
    EXPECT_EQ(kCodeNotFound,
              (Do<HANDLE, UINT32, void*, UINT32, UINT32*>(6, parent, 0, record, 64, &used)));
    EXPECT_EQ(0u, Do<HANDLE>(3, parent)); // close
    EXPECT_EQ(0u, Do<HANDLE>(3, key));
}

void Slot11To12And87Debug()
{
    EXPECT_EQ(kCodeNotSupported, Do<>(11));
    EXPECT_EQ(kCodeNameTooLong, Do<Bytes>(87, std::string(64, 'n').c_str()));
    EXPECT_EQ(0u, Do<Bytes>(87, "SLOTS"));
    testing::internal::CaptureStderr();
    const auto print = reinterpret_cast<TALSTATUS (*)(void*, const char*, ...)>(Entry(12));
    EXPECT_EQ(0u, print(Object(), "%s %d", "slot", 12));
    EXPECT_NE(std::string::npos,
              testing::internal::GetCapturedStderr().find("info SLOTS: slot 12\n"));
}

void Slot13To21Lists()
{
    using Link = LIST_ENTRY*;
    LIST_ENTRY head;
    LIST_ENTRY a, b, c, d;
    EXPECT_EQ(0u, Do<Link>(13, &head));
    EXPECT_EQ(TRUE, Call<BOOLEAN>(18, &head));
    EXPECT_EQ(0u, (Do<Link, Link>(17, &head, &c))); // tail: c
    EXPECT_EQ(0u, (Do<Link, Link>(16, &head, &a))); // head: a c
    EXPECT_EQ(0u, (Do<Link, Link>(14, &a, &b)));    // after: a b c
    EXPECT_EQ(0u, (Do<Link, Link>(15, &c, &d)));    // before: a b d c
    EXPECT_EQ(FALSE, Call<BOOLEAN>(18, &head));
    EXPECT_EQ(&b, a.Flink);
    EXPECT_EQ(&d, b.Flink);
    EXPECT_EQ(&c, d.Flink);
    EXPECT_EQ(&head, c.Flink);
    EXPECT_EQ(&a, Call<Link>(20, &head)); // from the head
    EXPECT_EQ(&c, Call<Link>(21, &head)); // from the tail
    EXPECT_EQ(0u, Do<Link>(19, &b));
    EXPECT_EQ(&d, head.Flink);
    EXPECT_EQ(&d, head.Blink);
}

void Slot22To24CodePages()
{
    WCHAR wide[4] = {u'a', 0x00E9, u'z', 0};
    EXPECT_EQ(0u, (Do<WCHAR*, UINT32>(22, wide, 2)));
    EXPECT_EQ(std::u16string(u"A\u00C9z"), wide);
    UINT32 count = 4;
    EXPECT_EQ(0u,
              (Do<UINT32, Bytes, UINT32, WCHAR*, UINT32*>(23, 1, "\xC3\xA9!", 3, wide, &count)));
    EXPECT_EQ(2u, count);
    EXPECT_EQ(0x00E9, wide[0]);
    char narrow[4];
    count = 4;
    EXPECT_EQ(0u, (Do<UINT32, Text, UINT32, char*, UINT32*>(24, 3, u"\u00E9!", 2, narrow, &count)));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(0, std::memcmp(narrow, "\xC3\xA9!", 3));
}

void Slot25To27And88Memory()
{
    TALPL_STATISTICS before{};
    TALPL_STATISTICS with{};
    EXPECT_EQ(0u, Do<TALPL_STATISTICS*>(88, &before));
    void* fixed = Call<void*>(25, UINT32{10});
    void* paged = Call<void*>(26, UINT32{20});
    EXPECT_EQ(0u, Do<TALPL_STATISTICS*>(88, &with));
    EXPECT_EQ(before.LiveBytes + 30, with.LiveBytes);
    EXPECT_EQ(0u, Do<void*>(27, fixed));
    EXPECT_EQ(0u, Do<TALPL_STATISTICS*>(88, &with));
    EXPECT_EQ(before.LiveBytes + 20, with.LiveBytes);
    EXPECT_EQ(0u, Do<void*>(27, paged));
}

void Raise(void* flag)
{
    *static_cast<std::atomic<bool>*>(flag) = true;
}

void Slot28To35TimersAndWorkItems()
{
    HANDLE timer = nullptr;
    HANDLE item = nullptr;
    EXPECT_EQ(0u, Do<Out>(28, &timer));
    EXPECT_EQ(0u, Do<Out>(29, &item));
    std::atomic<bool> ran{false};
    std::atomic<bool> worked{false};
    EXPECT_EQ(0u, (Do<HANDLE, TALX_CALLBACK, void*, UINT32>(33, timer, Raise, &ran, 3'600'000)));
    EXPECT_EQ(0u, Do<HANDLE>(30, timer)); // cancel
    EXPECT_EQ(kCodeNotFound, Do<HANDLE>(30, timer));
    EXPECT_EQ(0u, (Do<HANDLE, TALX_CALLBACK, void*, UINT32>(33, timer, Raise, &ran, 1)));
    EXPECT_EQ(0u, (Do<HANDLE, TALX_CALLBACK, void*>(34, item, Raise, &worked)));
    do
        EXPECT_EQ(0u, Do<UINT32>(35, 1)); // sleep
    while (!ran || !worked);
    EXPECT_EQ(kCodeInvalidParameter, Do<HANDLE>(31, item));
    EXPECT_EQ(0u, Do<HANDLE>(31, timer));
    EXPECT_EQ(0u, Do<HANDLE>(32, item));
}

void Slot36To44RawMemoryAndTerminatedTexts()
{
    EXPECT_GT((Call<INT32, const void*, const void*, UINT32>(36, "b", "a", 1)), 0);
    char text[] = "abcd";
    EXPECT_EQ(0u, (Do<void*, const void*, UINT32>(37, text, "xy", 2)));
    EXPECT_STREQ("xycd", text);
    EXPECT_EQ(0u, (Do<void*, UINT32, UINT8>(38, text, 1, 'q')));
    EXPECT_STREQ("qycd", text);
    EXPECT_EQ(0u, (Do<void*, const void*, UINT32>(39, text + 1, text, 3)));
    EXPECT_STREQ("qqyc", text);
    EXPECT_EQ(0u, (Do<void*, UINT32>(44, text + 2, 2)));
    EXPECT_STREQ("qq", text);
    EXPECT_EQ(0xBF9CF968u, (Call<UINT32, Bytes>(40, "foobar")));
    EXPECT_EQ((Call<UINT32, Text>(41, u"ab")), (Call<UINT32, Text>(41, u"ab")));
    EXPECT_NE((Call<UINT32, Text>(41, u"ab")), (Call<UINT32, Text>(41, u"abc")));
    EXPECT_EQ(3u, (Call<UINT32, Bytes>(42, "abc")));
    EXPECT_EQ(2u, (Call<UINT32, Text>(43, u"ab")));
}

void Slot45To56CountedTexts()
{
    using Wide = UNICODE_STRING*;
    using ConstWide = const UNICODE_STRING*;
    using ConstNarrow = const STRING*;
    UNICODE_STRING a{};
    EXPECT_EQ(0u, (Do<Wide, Text>(54, &a, u"abc")));
    EXPECT_EQ(6, a.Length);
    STRING s{};
    STRING t{};
    EXPECT_EQ(0u, (Do<STRING*, Bytes>(53, &s, "abc")));
    EXPECT_EQ(3, s.Length);
    EXPECT_EQ(0u, (Do<STRING*, Bytes>(53, &t, "ABC")));
    WCHAR buffer[8] = {};
    UNICODE_STRING to{0, 14, buffer};
    EXPECT_EQ(0u, (Do<Wide, ConstWide>(50, &to, &a))); // copy
    EXPECT_EQ(0u, (Do<Wide, ConstWide>(45, &to, &a))); // append counted
    EXPECT_EQ(0u, (Do<Wide, Text>(46, &to, u"!")));    // append terminated
    EXPECT_EQ(std::u16string(u"abcabc!"), buffer);
    EXPECT_EQ(1, (Call<INT32, ConstNarrow, ConstNarrow, BOOLEAN>(47, &s, &t, FALSE)));
    EXPECT_EQ(0, (Call<INT32, ConstNarrow, ConstNarrow, BOOLEAN>(47, &s, &t, TRUE)));
    EXPECT_EQ(-1, (Call<INT32, ConstWide, ConstWide, BOOLEAN>(48, &a, &to, FALSE)));
    EXPECT_EQ(TRUE, (Call<BOOLEAN, ConstNarrow, ConstNarrow, BOOLEAN>(51, &s, &t, TRUE)));
    EXPECT_EQ(FALSE, (Call<BOOLEAN, ConstNarrow, ConstNarrow, BOOLEAN>(51, &s, &t, FALSE)));
    EXPECT_EQ(FALSE, (Call<BOOLEAN, ConstWide, ConstWide, BOOLEAN>(52, &a, &to, TRUE)));
    EXPECT_EQ(TRUE, (Call<BOOLEAN, ConstWide, ConstWide, BOOLEAN>(52, &a, &a, FALSE)));
    char narrow[2] = {};
    STRING copy{0, 2, narrow};
    EXPECT_EQ(0u, (Do<STRING*, ConstNarrow>(49, &copy, &s)));
    EXPECT_EQ(2, copy.Length);
    EXPECT_EQ('b', narrow[1]);
    EXPECT_EQ(0u, (Do<UINT32, UINT32, Wide>(55, 255, 16, &to)));
    EXPECT_EQ(0, std::memcmp(buffer, u"FF", 4));
    UINT32 number = 0;
    EXPECT_EQ(0u, (Do<ConstWide, UINT32, UINT32*>(56, &to, 16, &number)));
    EXPECT_EQ(255u, number);
}

// Runs on another thread, where a held lock is not this thread's own.
UINT16 Elsewhere(unsigned slot, HANDLE lock)
{
    UINT16 code = 0;
    std::thread([&] { code = Do<HANDLE, BOOLEAN>(slot, lock, FALSE); }).join();
    return code;
}

void Slot57To75Locks()
{
    HANDLE mutex = nullptr;
    HANDLE both = nullptr;
    HANDLE spin = nullptr;
    EXPECT_EQ(0u, Do<Out>(62, &mutex));
    EXPECT_EQ(0u, Do<Out>(63, &both));
    EXPECT_EQ(0u, Do<Out>(64, &spin));

    EXPECT_EQ(0u, (Do<HANDLE, BOOLEAN>(57, both, TRUE))); // read
    EXPECT_EQ(kCodeTimeout, Elsewhere(58, both));
    EXPECT_EQ(0u, Do<HANDLE>(74, both));
    EXPECT_EQ(0u, (Do<HANDLE, BOOLEAN>(58, both, TRUE))); // write
    EXPECT_EQ(kCodeTimeout, Elsewhere(57, both));
    EXPECT_EQ(0u, Do<HANDLE>(74, both)); // release
    EXPECT_EQ(kCodeInvalidParameter, Do<HANDLE>(66, both));
    EXPECT_EQ(0u, Do<HANDLE>(67, both)); // destroy

    EXPECT_EQ(0u, (Do<HANDLE, BOOLEAN>(59, mutex, TRUE)));
    EXPECT_EQ(kCodeTimeout, Elsewhere(59, mutex));
    EXPECT_EQ(0u, Do<HANDLE>(73, mutex));
    EXPECT_EQ(kCodeAccessDenied, Do<HANDLE>(73, mutex));
    EXPECT_EQ(kCodeInvalidParameter, Do<HANDLE>(68, mutex));
    EXPECT_EQ(0u, Do<HANDLE>(66, mutex));

    EXPECT_EQ(0u, Do<HANDLE>(60, spin));
    EXPECT_EQ(0u, Do<HANDLE>(75, spin));
    EXPECT_EQ(kCodeAccessDenied, Do<HANDLE>(75, spin));
    EXPECT_EQ(kCodeInvalidParameter, Do<HANDLE>(65, spin));
    EXPECT_EQ(0u, Do<HANDLE>(68, spin));

    UINT32 value = 10;
    EXPECT_EQ(0u, Call<UINT32>(69));
    EXPECT_EQ(9u, (Call<UINT32, UINT32*>(70, &value)));
    EXPECT_EQ(9u, (Call<UINT32, UINT32*, UINT32>(71, &value, 20)));
    EXPECT_EQ(21u, (Call<UINT32, UINT32*>(72, &value)));
}

void Slot61And65And76To79Events()
{
    HANDLE events[2] = {};
    EXPECT_EQ(0u, (Do<BOOLEAN, BOOLEAN, Out>(61, TRUE, FALSE, &events[0])));
    EXPECT_EQ(0u, (Do<BOOLEAN, BOOLEAN, Out>(61, FALSE, TRUE, &events[1])));
    UINT32 index = 9;
    EXPECT_EQ(
        0u, (Do<UINT32, const HANDLE*, BOOLEAN, UINT32, UINT32*>(78, 2, events, FALSE, 0, &index)));
    EXPECT_EQ(1u, index);
    EXPECT_EQ(kCodeTimeout, (Do<HANDLE, UINT32>(79, events[0], 0)));
    EXPECT_EQ(0u, Do<HANDLE>(77, events[0])); // signal
    EXPECT_EQ(0u, (Do<HANDLE, UINT32>(79, events[0], kTalxForever)));
    EXPECT_EQ(0u, Do<HANDLE>(76, events[0])); // reset
    EXPECT_EQ(kCodeTimeout, (Do<HANDLE, UINT32>(79, events[0], 0)));
    EXPECT_EQ(0u, Do<HANDLE>(65, events[0]));
    EXPECT_EQ(0u, Do<HANDLE>(65, events[1]));
}

UINT32 LeaveByExit(void* status)
{
    Call<TALSTATUS, UINT32>(82, *static_cast<UINT32*>(status));
    return 1;
}

void Slot80To86ThreadsAndTime()
{
    HANDLE thread = nullptr;
    UINT32 context = 82;
    EXPECT_EQ(0u, (Do<TALX_THREAD_ROUTINE, void*, Out>(80, LeaveByExit, &context, &thread)));
    EXPECT_EQ(kCodeInvalidParameter, (Do<HANDLE, INT32>(84, thread, 99)));
    EXPECT_EQ(0u, (Do<HANDLE, UINT32>(85, thread, kTalxForever)));
    UINT32 status = 0;
    EXPECT_EQ(0u, (Do<HANDLE, UINT32*>(83, thread, &status)));
    EXPECT_EQ(82u, status);
    EXPECT_EQ(0u, Do<HANDLE>(81, thread));
    UINT64 now = 0;
    EXPECT_EQ(0u, Do<UINT64*>(86, &now));
    EXPECT_GT(now, 130'000'000'000'000'000u);
}

struct Part {
    const char* name;
    void (*run)();
};

constexpr Part kParts[] = {
    {"Unknown", Slot0To2Unknown},
    {"Registry", Slot3To10And89Registry},
    {"Debug", Slot11To12And87Debug},
    {"Lists", Slot13To21Lists},
    {"CodePages", Slot22To24CodePages},
    {"Memory", Slot25To27And88Memory},
    {"TimersAndWorkItems", Slot28To35TimersAndWorkItems},
    {"RawMemoryAndTerminatedTexts", Slot36To44RawMemoryAndTerminatedTexts},
    {"CountedTexts", Slot45To56CountedTexts},
    {"Locks", Slot57To75Locks},
    {"Events", Slot61And65And76To79Events},
    {"ThreadsAndTime", Slot80To86ThreadsAndTime},
};

class Slots : public testing::TestWithParam<Part> {
  protected:
    void SetUp() override { TolmRegistryLoad(nullptr, nullptr, 0); }
    void TearDown() override { TolmRegistryLoad(nullptr, nullptr, 0); }
};

TEST_P(Slots, DoWhatTheirNumbersSay)
{
    GetParam().run();
}

INSTANTIATE_TEST_SUITE_P(Platform, Slots, testing::ValuesIn(kParts),
                         [](const auto& part) { return std::string(part.param.name); });

TEST(AllSlots, AreCalledAndNoTwoAreTheSameCode)
{
    TolmRegistryLoad(nullptr, nullptr, 0);
    for (const Part& part : kParts)
        part.run();
    std::set<void*> entries;
    for (unsigned slot = 0; slot < kSlots; ++slot) {
        EXPECT_TRUE(g_called[slot]) << slot;
        entries.insert((*static_cast<void***>(Object()))[slot]);
    }
    EXPECT_EQ(kSlots, entries.size());
}

} // namespace
