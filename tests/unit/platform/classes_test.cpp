// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

// A class that nobody else uses.
GUID Class(UINT32 number)
{
    return {number, 0x7465, 0x7374, {1, 2, 3, 4, 5, 6, 7, 8}};
}

std::string KeyOf(UINT32 number)
{
    char text[64];
    std::snprintf(text, sizeof text, "Tolm\\Classes\\{%08X-7465-7374-0102-030405060708}", number);
    return text;
}

class Factory final : public IClassFactory {
  public:
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid == IID_IUnknown)
            *out = this;
        return *out ? 0 : MakeStatus(kFacilityHost, kCodeNoInterface);
    }
    UINT32 AddRef() override { return ++references; }
    UINT32 Release() override { return --references; }
    TALSTATUS CreateInstance(IUnknown* outer, const GUID* iid, void** out) override
    {
        EXPECT_EQ(nullptr, outer);
        ++created;
        if (result != 0) {
            *out = this; // a failing factory's leftovers must not get out
            return result;
        }
        return leavesNull ? 0 : QueryInterface(iid, out);
    }
    TALSTATUS LockServer(BOOLEAN) override { return 0; }

    std::atomic<UINT32> references{0};
    std::atomic<UINT32> created{0};
    TALSTATUS result = 0;
    bool leavesNull = false;
};

TALSTATUS CreateObject(const GUID& clazz, void** out, const GUID& iid = IID_IUnknown)
{
    return TolmCreateInstance(&clazz, nullptr, &iid, out);
}

int g_here = 0;

class Classes : public RegistryTest {
  protected:
    void* out = &g_here;
};

TEST_F(Classes, ARegisteredFactoryMakesObjectsUntilItIsReplacedOrRemoved)
{
    static Factory first;
    static Factory second;
    const GUID clazz = Class(1);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &first));
    EXPECT_EQ(1u, first.references);
    EXPECT_EQ(0u, CreateObject(clazz, &out));
    EXPECT_EQ(static_cast<IClassFactory*>(&first), out);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &second));
    EXPECT_EQ(0u, CreateObject(clazz, &out));
    EXPECT_EQ(static_cast<IClassFactory*>(&second), out);
    EXPECT_EQ(1u, first.created);
    EXPECT_EQ(1u, first.references) << "a creation may still be using it";
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, nullptr));
    CapturedLog log;
    EXPECT_EQ(Failure(kCodeNotFound), CreateObject(clazz, &out));
    EXPECT_EQ(nullptr, out);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &second));
    EXPECT_EQ(0u, CreateObject(clazz, &out));
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter), TolmRegisterClassObject(nullptr, &first));
}

TEST_F(Classes, FailuresOfAFactoryAreHandedOn)
{
    static Factory factory;
    const GUID clazz = Class(2);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &factory));
    EXPECT_EQ(MakeStatus(kFacilityHost, kCodeNoInterface),
              CreateObject(clazz, &out, IID_IHadranTalpl_1));
    EXPECT_EQ(nullptr, out);
    factory.result = MakeStatus(kFacilityHost, kCodeInsufficientResources);
    EXPECT_EQ(factory.result, CreateObject(clazz, &out));
    EXPECT_EQ(nullptr, out);
    factory.result = 0;
    factory.leavesNull = true;
    EXPECT_EQ(Failure(kCodeNoInterface), CreateObject(clazz, &out)) << "success without an object";
    TolmRegisterClassObject(&clazz, nullptr);
}

TEST_F(Classes, NullArgumentsAndAggregationAreRefused)
{
    const GUID clazz = CLSID_HadranTalpl;
    const TALSTATUS refused = Failure(kCodeInvalidParameter);
    EXPECT_EQ(refused, TolmCreateInstance(nullptr, nullptr, &IID_IUnknown, &out));
    EXPECT_EQ(nullptr, out);
    out = &g_here;
    EXPECT_EQ(refused, TolmCreateInstance(&clazz, nullptr, nullptr, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(refused, TolmCreateInstance(&clazz, nullptr, &IID_IUnknown, nullptr));
    EXPECT_EQ(refused, TolmCreateInstance(&clazz, &Platform(), &IID_IUnknown, &out));
}

TEST_F(Classes, ALibraryIsLoadedAtTheFirstUse)
{
    ASSERT_EQ("", Load("['" + KeyOf(10) + "']\n'Library' = '" + COMPONENT_GOOD + "'\n"));
    ASSERT_EQ(0u, CreateObject(Class(10), &out));
    auto* thing = static_cast<IUnknown*>(out);
    const UINT32 made = thing->AddRef();
    EXPECT_EQ(MakeStatus(kFacilityFileStore, kCodeNoInterface),
              CreateObject(Class(10), &out, IID_IHadranTalpl_1));
    EXPECT_EQ(made + 1, thing->AddRef());
    ASSERT_EQ("", Load(""));
    EXPECT_EQ(0u, CreateObject(Class(10), &out)) << "the factory is kept";
}

TEST_F(Classes, ANameIsLookedForBesideThePlatformsLibrary)
{
    const std::string path = COMPONENT_GOOD;
    ASSERT_EQ("", Load("['" + KeyOf(11) + "']\n'Library' = '" + path.substr(path.rfind('/') + 1) +
                       "'\n"));
    EXPECT_EQ(0u, CreateObject(Class(11), &out));
}

TEST_F(Classes, AProcessClassWinsOverALibrarys)
{
    static Factory factory;
    const GUID clazz = Class(10);
    ASSERT_EQ("", Load("['" + KeyOf(10) + "']\n'Library' = '" + COMPONENT_GOOD + "'\n"));
    ASSERT_EQ(0u, CreateObject(clazz, &out));
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &factory));
    ASSERT_EQ(0u, CreateObject(clazz, &out));
    EXPECT_EQ(static_cast<IClassFactory*>(&factory), out);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, nullptr));
    ASSERT_EQ(0u, CreateObject(clazz, &out));
    EXPECT_NE(static_cast<IClassFactory*>(&factory), out);
}

TEST_F(Classes, WhatCannotBeLoadedIsLoggedOnceWithClassLibraryAndReason)
{
    const std::string missing = (File().parent_path() / "none.so").string();
    const std::string text = (File().parent_path() / "text.so").string();
    WriteFile(text, "no library");
    const struct {
        UINT32 number;
        std::string file;
        UINT16 code;
        std::string logged;
    } cases[] = {
        {20, missing, kCodeOpenFailed, "library '" + missing + "': "},
        {21, text, kCodeOpenFailed, "library '" + text + "': "},
        {22, "no-such-library-anywhere.so", kCodeOpenFailed, "no-such-library-anywhere.so'"},
        {23, COMPONENT_DECLINES, kCodeOpenFailed, "offers no factory for the class"},
        {24, COMPONENT_EMPTY, kCodeOpenFailed, "the library has no DllGetClassObject"},
        {25, "", kCodeNotFound, "neither registered nor in the registry"},
    };
    std::string registry;
    for (const auto& c : cases)
        if (!c.file.empty())
            registry += "['" + KeyOf(c.number) + "']\n'Library' = '" + c.file + "'\n";
    ASSERT_EQ("", Load(registry));
    for (const auto& c : cases) {
        CapturedLog log;
        for (int i = 0; i < 3; ++i) {
            out = &g_here;
            EXPECT_EQ(Failure(c.code), CreateObject(Class(c.number), &out)) << c.file;
            EXPECT_EQ(nullptr, out);
        }
        const std::string lines = log.Text();
        EXPECT_EQ(1, std::count(lines.begin(), lines.end(), '\n')) << lines;
        EXPECT_NE(std::string::npos, lines.find(c.logged)) << lines;
        char guid[64];
        std::snprintf(guid, sizeof guid, "{%08x-7465-7374-0102-030405060708}", c.number);
        EXPECT_NE(std::string::npos, lines.find(guid)) << lines;
    }
}

// In a process of its own: this one's log of classes would stay full.
TEST_F(Classes, MadeUpClassesFillNoLog)
{
    const auto ask = [&] {
        CapturedLog log;
        for (UINT32 number = 5000; number < 5400; ++number)
            if (CreateObject(Class(number), &out) != Failure(kCodeNotFound))
                return false;
        const std::string lines = log.Text();
        return std::count(lines.begin(), lines.end(), '\n') <= 256;
    };
    EXPECT_EXIT(_exit(ask() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(Classes, AFailedClassWorksOnceTheRegistryIsRight)
{
    CapturedLog log;
    EXPECT_EQ(Failure(kCodeNotFound), CreateObject(Class(30), &out));
    ASSERT_EQ("", Load("['" + KeyOf(30) + "']\n'Library' = '" + COMPONENT_GOOD + "'\n"));
    EXPECT_EQ(0u, CreateObject(Class(30), &out));
}

TEST_F(Classes, AreFoundWhileOthersAreRegistered)
{
    constexpr UINT32 kClasses = 300; // the table grows several times
    static std::vector<Factory> factories(kClasses);
    static Factory stable;
    const GUID known = Class(1000);
    ASSERT_EQ(0u, TolmRegisterClassObject(&known, &stable));
    std::atomic<UINT32> registered{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            UINT32 seen = 0;
            do {
                void* made = nullptr;
                ASSERT_EQ(0u, CreateObject(known, &made));
                ASSERT_EQ(static_cast<IClassFactory*>(&stable), made);
                seen = registered;
                for (UINT32 i = seen > 5 ? seen - 5 : 0; i < seen; ++i) {
                    ASSERT_EQ(0u, CreateObject(Class(2000 + i), &made));
                    ASSERT_EQ(static_cast<IClassFactory*>(&factories[i]), made);
                }
            } while (seen < kClasses);
        });
    for (UINT32 i = 0; i < kClasses; ++i) {
        const GUID clazz = Class(2000 + i);
        ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &factories[i]));
        registered = i + 1;
    }
    for (std::thread& t : readers)
        t.join();
    for (UINT32 i = 0; i < kClasses; ++i) {
        ASSERT_EQ(0u, CreateObject(Class(2000 + i), &out));
        EXPECT_EQ(static_cast<IClassFactory*>(&factories[i]), out);
    }
}

TEST_F(Classes, ManyThreadsMayBeTheFirstToUseALibrary)
{
    ASSERT_EQ("", Load("['" + KeyOf(40) + "']\n'Library' = '" + COMPONENT_GOOD + "'\n"));
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            while (!go)
                std::this_thread::yield();
            void* made = nullptr;
            EXPECT_EQ(0u, CreateObject(Class(40), &made));
        });
    go = true;
    for (std::thread& t : threads)
        t.join();
}

TEST_F(Classes, FactoriesChangeUnderTheirUsers)
{
    static Factory one;
    static Factory two;
    const GUID clazz = Class(50);
    ASSERT_EQ(0u, TolmRegisterClassObject(&clazz, &one));
    std::atomic<bool> stop{false};
    std::thread user([&] {
        while (!stop) {
            void* made = nullptr;
            EXPECT_EQ(0u, CreateObject(clazz, &made));
            EXPECT_TRUE(made == static_cast<IClassFactory*>(&one) ||
                        made == static_cast<IClassFactory*>(&two));
        }
    });
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(0u, TolmRegisterClassObject(&clazz, i % 2 ? &one : &two));
    stop = true;
    user.join();
}

TEST(Log, OneLinePerCallWithEscapes)
{
    CapturedLog log;
    TolmLog(kLogInfo, "part", "plain \xC3\xA9");
    TolmLog(kLogWarning, "part", "two\nlines\r\x1B[31m\x7F");
    TolmLog(kLogError, "part", "\xFF\xC3 \xC2\x85");
    TolmLog(77, nullptr, nullptr);
    const std::string text = log.Text();
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
        lines.push_back(text.substr(at, text.find('\n', at) - at));
    ASSERT_EQ(4u, lines.size()) << text;
    const std::size_t stamp = std::string("2026-01-01T00:00:00.000Z ").size();
    EXPECT_EQ("info part: plain \xC3\xA9", lines[0].substr(stamp));
    EXPECT_EQ("warning part: two\\nlines\\x0D\\x1B[31m\\x7F", lines[1].substr(stamp));
    EXPECT_EQ("error part: \\xFF\\xC3 \\xC2\\x85", lines[2].substr(stamp));
    EXPECT_EQ("error : ", lines[3].substr(stamp));
    EXPECT_EQ('Z', lines[0][stamp - 2]);
    EXPECT_EQ('T', lines[0][10]);
}

TEST(Log, LongTextsAreCut)
{
    CapturedLog log;
    TolmLog(kLogInfo, "part", std::string(100000, 'x').c_str());
    const std::string text = log.Text();
    EXPECT_LE(text.size(), 4110u);
    EXPECT_TRUE(text.ends_with("x...\n"));
}

TEST(Log, LinesOfSeveralThreadsDoNotMix)
{
    CapturedLog log;
    std::vector<std::thread> threads;
    for (char c = 'a'; c < 'e'; ++c)
        threads.emplace_back([c] {
            for (int i = 0; i < 100; ++i)
                TolmLog(kLogInfo, "t", std::string(50, c).c_str());
        });
    for (std::thread& t : threads)
        t.join();
    const std::string text = log.Text();
    EXPECT_EQ(400, std::count(text.begin(), text.end(), '\n'));
    for (std::size_t at = text.find("t: "); at != std::string::npos; at = text.find("t: ", at + 1))
        EXPECT_EQ(std::string(50, text[at + 3]) + '\n', text.substr(at + 3, 51));
}

TEST(Debug, PrintsUnderTheModulesName)
{
    CapturedLog log;
    EXPECT_EQ(0u, Platform().TalxDebugPrintf("value %d of %s\n", 5, "x"));
    EXPECT_NE(std::string::npos, log.Text().find("unit_platform"));
    EXPECT_EQ(0u, Platform().TalxRegisterModuleName("TEST-PART"));
    EXPECT_EQ(0u, Platform().TalxDebugPrintf("%s", std::string(5000, 'y').c_str()));
    EXPECT_NE(std::string::npos, log.Text().find(": value 5 of x\n"));
    EXPECT_NE(std::string::npos, log.Text().find("info TEST-PART: yyyy"));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxDebugPrintf(nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxRegisterModuleName(nullptr));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxRegisterModuleName(""));
    EXPECT_EQ(Failure(kCodeNameTooLong),
              Platform().TalxRegisterModuleName(std::string(64, 'n').c_str()));
    EXPECT_EQ(Failure(kCodeNotSupported), Platform().TalxDebugBreakPoint())
        << "without a debugger the process goes on";
}

} // namespace
} // namespace talpl_test
