// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <kest/registry_truth.h>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

class RegistryRead : public RegistryTest {};

TEST_F(RegistryRead, EveryTypeHasItsForm)
{
    ASSERT_EQ("", Load(R"(# a comment
['Kest\Configuration\KestDav']
'Moniker' = '/Ferro'
Size = 262144
'Largest' = 4294967295
'Large' = 4294967296
'Huge' = 9223372036854775807
'Hex' = 0xFF
'Yes' = true
'No' = false
'Empty' = ''
'List' = ['a', "b\u00E9", '''c''']
'None' = []
'Many Lines' = """one
two"""
"quoted name" = "\U0001F600"
)"));
    const WCHAR* key = u"Kest\\Configuration\\KestDav";
    const struct {
        const WCHAR* name;
        const char* shown;
    } cases[] = {
        {u"Moniker", "SZ:/Ferro"},
        {u"Size", "UINT32:262144"},
        {u"Largest", "UINT32:4294967295"},
        {u"Large", "UINT64:4294967296"},
        {u"Huge", "UINT64:9223372036854775807"},
        {u"Hex", "UINT32:255"},
        {u"Yes", "UINT32:1"},
        {u"No", "UINT32:0"},
        {u"Empty", "SZ:"},
        {u"List", "MULTI_SZ:a|b\xC3\xA9|c|"},
        {u"None", "MULTI_SZ:"},
        {u"Many Lines", "SZ:one\ntwo"},
        {u"quoted name", "SZ:\xF0\x9F\x98\x80"},
        {u"MONIKER", "SZ:/Ferro"},
        {u"moniker", "SZ:/Ferro"},
        {u"Missing", "!11"},
        {u"", "!4"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.shown, Query(key, c.name)) << c.shown;
    EXPECT_EQ("UINT32:255", Query(u"KEST\\configuration\\KESTDAV", u"hex"));
    EXPECT_EQ("no key", Query(u"Kest\\Configuration\\Other", u"Hex"));
    EXPECT_EQ("Moniker,Size,Largest,Large,Huge,Hex,Yes,No,Empty,List,None,Many Lines,quoted name",
              ValueNames(key));
}

TEST_F(RegistryRead, SubkeysComeInTheFilesOrderAndParentsAreImplied)
{
    ASSERT_EQ("", Load(R"(
['Kest\Policies\Zeta\{2}']
['Kest\Policies\Zeta\{1}\Deep\Deeper']
'x' = 1
['Kest\Policies\Alpha']
['kest\POLICIES\zeta\{0}']
['Other']
)"));
    EXPECT_EQ("Zeta,Alpha", KeyNames(u"Kest\\Policies"));
    EXPECT_EQ("{2},{1},{0}", KeyNames(u"Kest\\Policies\\Zeta"));
    EXPECT_EQ("Deep", KeyNames(u"Kest\\Policies\\Zeta\\{1}"));
    EXPECT_EQ("Deeper", KeyNames(u"Kest\\Policies\\Zeta\\{1}\\Deep"));
    EXPECT_EQ("", KeyNames(u"Kest\\Policies\\Zeta\\{1}\\Deep\\Deeper"));
    EXPECT_EQ("", ValueNames(u"Kest\\Policies\\Zeta\\{1}"));
    EXPECT_EQ("Policies", KeyNames(u"Kest"));
}

TEST_F(RegistryRead, RecordsFitExactlyOrNotAtAll)
{
    ASSERT_EQ("", Load("['A\\Bcd']\n'Name' = 'text'\n'N' = 5\n'L' = 5000000000\n"));
    const struct {
        const WCHAR* name;
        UINT32 nameBytes, offset, length;
    } cases[] = {
        {u"Name", 8, 28, 10}, // texts follow the name at once
        {u"N", 2, 24, 4},     // numbers at their alignment
        {u"L", 2, 24, 8},
    };
    HANDLE key = Open(u"A\\Bcd");
    for (const auto& c : cases) {
        const UINT32 needed = c.offset + c.length;
        for (UINT32 size = 0; size < needed + 4; ++size) {
            std::vector<char> record(size, 'x');
            UINT32 used = 0;
            const TALSTATUS status =
                Platform().TalxQueryValueKey(key, c.name, record.data(), size, &used);
            EXPECT_EQ(size < needed ? Failure(kCodeBufferTooSmall) : 0u, status);
            EXPECT_EQ(needed, used);
            if (size < needed) {
                EXPECT_EQ(std::vector<char>(size, 'x'), record) << "nothing written";
                continue;
            }
            TALX_KEY_VALUE_INFORMATION info;
            std::memcpy(&info, record.data(), sizeof info);
            EXPECT_EQ(c.nameBytes, info.KeyValueNameLength);
            EXPECT_EQ(c.offset, info.ValueOffset);
            EXPECT_EQ(c.length, info.ValueLength);
            EXPECT_EQ('x', size > needed ? record[needed] : 'x');
        }
    }
    EXPECT_EQ(0u,
              Platform().TalxQueryValueKey(key, u"N", std::vector<char>(64).data(), 64, nullptr));
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));

    HANDLE parent = Open(u"A", TALX_KEY_READ);
    for (UINT32 size = 0; size < 26; ++size) {
        std::vector<char> record(size, 'x');
        UINT32 used = 0;
        EXPECT_EQ(size < 22 ? Failure(kCodeBufferTooSmall) : 0u,
                  Platform().TalxEnumerateKey(parent, 0, record.data(), size, &used));
        EXPECT_EQ(22u, used);
    }
    EXPECT_EQ(Failure(kCodeInvalidParameter),
              Platform().TalxEnumerateKey(parent, 0, nullptr, 8, nullptr));
    EXPECT_EQ(0u, Platform().TalxCloseKey(parent));
}

TEST_F(RegistryRead, TheTimeIsTheFiles)
{
    ASSERT_EQ("", Load("['A\\B']\n"));
    UINT64 now = 0;
    Platform().TalxGetSystemTime(&now);
    HANDLE key = Open(u"A", TALX_KEY_READ);
    alignas(8) char record[64];
    UINT32 used = 0;
    ASSERT_EQ(0u, Platform().TalxEnumerateKey(key, 0, record, sizeof record, &used));
    TALX_KEY_INFORMATION info;
    std::memcpy(&info, record, 16);
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(info.LastWriteTime), 6e8);
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
}

TEST_F(RegistryRead, AccessIsHeldTo)
{
    ASSERT_EQ("", Load("['A']\n'v' = 1\n"));
    char record[64];
    UINT32 used = 0;
    HANDLE writer = Open(u"A", TALX_KEY_WRITE);
    EXPECT_EQ(Failure(kCodeAccessDenied),
              Platform().TalxQueryValueKey(writer, u"v", record, 64, &used));
    EXPECT_EQ(Failure(kCodeAccessDenied),
              Platform().TalxEnumerateKey(writer, 0, record, 64, &used));
    EXPECT_EQ(0u, Platform().TalxCloseKey(writer));
    HANDLE reader = Open(u"A", TALX_KEY_READ);
    const UINT32 one = 1;
    EXPECT_EQ(Failure(kCodeAccessDenied),
              Platform().TalxSetValueKey(reader, u"v", TALX_REG_UINT32, &one, 4));
    EXPECT_EQ(Failure(kCodeAccessDenied), Platform().TalxDeleteValue(reader, u"v"));
    EXPECT_EQ(0u, Platform().TalxCloseKey(reader));
    HANDLE none = nullptr;
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxOpenKey(u"A", 3, &none));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxOpenKey(u"A", 0, nullptr));
    EXPECT_EQ(Failure(kCodeNotFound), Platform().TalxOpenKey(u"B", 0, &none));
    for (const WCHAR* bad : {u"", u"\\A", u"A\\", u"A\\\\B"})
        EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxOpenKey(bad, 0, &none));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxOpenKey(nullptr, 0, &none));
    EXPECT_EQ(nullptr, none);
}

TEST_F(RegistryRead, MistakesAreNamedWithTheirLine)
{
    const struct {
        const char* text;
        const char* begins;
        const char* names;
    } cases[] = {
        {"['A']\n'v' = \n", "registry.toml:2: ", ""},
        {"['A'\n", "registry.toml:1: ", ""},
        {"\n\n['A']\n'v' = 'unclosed\n", "registry.toml:4: ", ""},
        {"['A']\n'v' = 1\n'v' = 2\n", "registry.toml:3: ", ""},
        {"['A']\n['A']\n", "registry.toml:2: ", ""},
        {"['A']\n'v' = \"\xFF\"\n", "registry.toml:2: ", ""},
        {"['A']\n'v' = \"\\ud800\"\n", "registry.toml:2: ", ""},
        {"['A']\n'v' = 99999999999999999999\n", "registry.toml:2: ", ""},
        {"['A']\n[\xC3\xA9\n", "registry.toml:2: ", ""},
        {"['A']\n\xC3\xA9 = 1\n", "registry.toml:2: ", ""},
        {"'v' = 1\n", "registry.toml:1: 'v' stands outside of a key", "header"},
        {"\n'A' = { x = 1 }\n", "registry.toml:2: 'A' stands outside", ""},
        {"[['A']]\n", "registry.toml:1: 'A' stands outside", ""},
        {"['A']\n'v' = 1.5\n", "registry.toml:2: the value 'v' has a type", "a number"},
        {"['A']\n'v' = 2024-01-01\n", "registry.toml:2: the value 'v' has a type", ""},
        {"['A']\n\n'v' = -1\n", "registry.toml:3: the value 'v' is negative", "from 0"},
        {"['A']\n'v' = { x = 1 }\n", "registry.toml:2: the value 'v' is a table", ""},
        {"['A']\na.b = 1\n", "registry.toml:2: the value 'a' is a table", "header of its own"},
        {"[A.B]\nx = 1\n", "registry.toml:1: the value 'B' is a table", ""},
        {"['A']\n'v' = [1]\n", "registry.toml:2: the value 'v' is a list", "list of texts"},
        {"['A']\n'v' = ['a', 1]\n", "registry.toml:2: the value 'v' is a list", ""},
        {"['A']\n'v' = ['a', '']\n", "registry.toml:2: the value 'v' is a list", "empty text"},
        {"['A']\n'v' = \"a\\u0000b\"\n", "registry.toml:2: the value 'v' holds a NUL", ""},
        {"['A']\n\"a\\u0000b\" = 1\n", "registry.toml:2: ", "NUL"},
        {"['A\\']\n", "registry.toml:1: 'A\\' is no key", "single backslashes"},
        {"\n['A\\\\B']\n", "registry.toml:2: ", "is no key"},
        {"['']\n", "registry.toml:1: ", "is no key"},
        {"['A\\B']\n\n['a\\b']\n", "registry.toml:3: the key 'a\\b' was given before, in line 1",
         ""},
        {"['A']\n'v' = 1\n\n'V' = 2\n",
         "registry.toml:4: the value 'V' was given before, in line 2", "without case"},
        {"['Tolm\\Classes\\{nonsense}']\n'Library' = 'x'\n",
         "registry.toml:1: '{nonsense}' is no class", "xxxxxxxx"},
        {"['Tolm\\Classes\\{00000000-0000-0000-0000-000000000001}']\n",
         "registry.toml:1: a class needs", "'Library'"},
        {"['Tolm\\Classes\\{00000000-0000-0000-0000-000000000001}']\n'Library' = 5\n",
         "registry.toml:2: a class needs", ""},
    };
    ASSERT_EQ("", Load("['Before']\n'kept' = 'yes'\n"));
    for (const auto& c : cases) {
        const std::string error = Load(c.text);
        EXPECT_TRUE(error.starts_with(c.begins)) << c.text << "gave " << error;
        EXPECT_NE(std::string::npos, error.find(c.names)) << error;
        EXPECT_EQ(std::string::npos, error.find('\n'));
        EXPECT_EQ("SZ:yes", Query(u"Before", u"kept")) << "the old registry stays";
    }
}

TEST_F(RegistryRead, WhatIsTooLargeIsRefused)
{
    EXPECT_EQ("", Load("['A']\n'v' = '" + std::string(1024 * 512 - 2, 'x') + "'\n"));
    EXPECT_EQ("registry.toml:2: the value 'v' is larger than 1 MiB",
              Load("['A']\n'v' = '" + std::string(1024 * 512, 'x') + "'\n"));
    EXPECT_EQ("", Load("['" + std::string(1024, 'k') + "']\n"));
    EXPECT_NE("", Load("['" + std::string(1025, 'k') + "']\n"));
    EXPECT_EQ("", Load("['A']\n'" + std::string(1024, 'n') + "' = 1\n"));
    EXPECT_NE("", Load("['A']\n'" + std::string(1025, 'n') + "' = 1\n"));
    const std::string file = Load(std::string(16 * 1024 * 1024 + 1, '#'));
    EXPECT_TRUE(file.starts_with("registry.toml: cannot be read: ")) << file;
    std::string deep = "a";
    for (int i = 0; i < 200000; ++i)
        deep += ".a";
    EXPECT_EQ("registry.toml:2: a name with too many dots in it", Load("\n[" + deep + "]\n"));
    EXPECT_EQ("registry.toml:2: a name with too many dots in it",
              Load("['A']\n" + deep + " = 1\n"));
    EXPECT_EQ("", Load("['A']\n'v' = '" + std::string(5000, '.') + "'\n"));
    EXPECT_NE("", Load("['A']\n'v' = " + std::string(100000, '[') + "\n"));
}

TEST_F(RegistryRead, FilesThatAreNoneAreRefused)
{
    ASSERT_EQ("", Load("['Before']\n'kept' = 'yes'\n"));
    char error[512];
    const auto load = [&](const std::string& path) {
        error[0] = 0;
        return TolmRegistryLoad(path.c_str(), error, sizeof error);
    };
    const std::string missing = File().string() + ".none";
    EXPECT_EQ(Failure(kCodeNotFound), load(missing));
    EXPECT_EQ(missing + ": cannot be read: No such file or directory", error);
    EXPECT_EQ(Failure(kCodeOpenFailed), load(File().parent_path().string()));
    EXPECT_EQ(Failure(kCodeOpenFailed), load("/dev/null"));
    char small[10];
    EXPECT_EQ(Failure(kCodeNotFound), TolmRegistryLoad(missing.c_str(), small, sizeof small));
    EXPECT_EQ(missing.substr(0, 9), small) << "cut, with its terminator";
    EXPECT_EQ(Failure(kCodeNotFound), TolmRegistryLoad(missing.c_str(), nullptr, 0));
    EXPECT_EQ("SZ:yes", Query(u"Before", u"kept"));
    EXPECT_EQ(0u, TolmRegistryLoad(nullptr, error, sizeof error));
    EXPECT_STREQ("", error);
    EXPECT_EQ("no key", Query(u"Before", u"kept"));
}

TEST_F(RegistryRead, OverridesWinSurviveALoadAndGoAway)
{
    ASSERT_EQ("", Load("['A']\n'x' = 'file'\n'y' = 1\n"));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"a", u"X", TALX_REG_SZ, u"line", 10));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"New\\Key", u"z", TALX_REG_MULTI_SZ, u"p\0q\0", 10));
    EXPECT_EQ("SZ:line", Query(u"A", u"x"));
    EXPECT_EQ("MULTI_SZ:p|q|", Query(u"New\\Key", u"z"));
    EXPECT_EQ("X,y", ValueNames(u"A"));
    ASSERT_EQ("", Load("['A']\n'x' = 'again'\n"));
    EXPECT_EQ("SZ:line", Query(u"A", u"x"));
    const UINT64 number = 7;
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"A", u"x", TALX_REG_UINT64, &number, 8));
    EXPECT_EQ("UINT64:7", Query(u"A", u"x"));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"A", u"x", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ("SZ:again", Query(u"A", u"x"));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"A", u"x", TALX_REG_SZ, nullptr, 0)) << "none is there";
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"New\\Key", u"z", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ("no key", Query(u"New\\Key", u"z"));
}

TEST_F(RegistryRead, OverridesThatAreMalformedAreRefused)
{
    const TALSTATUS refused = Failure(kCodeInvalidParameter);
    const UINT32 number = 1;
    EXPECT_EQ(refused, TolmRegistrySetOverride(nullptr, u"x", TALX_REG_UINT32, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A\\", u"x", TALX_REG_UINT32, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", nullptr, TALX_REG_UINT32, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"", TALX_REG_UINT32, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", 5, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", TALX_REG_UINT32, &number, 3));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", TALX_REG_UINT64, &number, 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", TALX_REG_SZ, u"ab", 4));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", TALX_REG_SZ, u"ab", 5));
    EXPECT_EQ(refused, TolmRegistrySetOverride(u"A", u"x", TALX_REG_MULTI_SZ, u"ab", 6));
    EXPECT_EQ("no key", Query(u"A", u"x"));
}

TEST_F(RegistryRead, TruthIsToldFromNumbers)
{
    ASSERT_EQ("", Load("['A']\n'yes' = true\n'no' = false\n'one' = 1\n'text' = 'true'\n"));
    EXPECT_EQ(TolmRegistryIsTruth(u"a", u"YES"), 1u);
    EXPECT_EQ(TolmRegistryIsTruth(u"A", u"no"), 1u);
    for (const char16_t* const name : {u"one", u"text", u"none"})
        EXPECT_EQ(TolmRegistryIsTruth(u"A", name), 0u);
    EXPECT_EQ(TolmRegistryIsTruth(u"B", u"yes"), 0u);
    EXPECT_EQ(TolmRegistryIsTruth(nullptr, nullptr), 0u);
}

TEST_F(RegistryRead, WhereNamesFileAndLine)
{
    ASSERT_EQ("", Load("['A']\n'x' = 'file'\n\n'y' = 1\n"));
    char text[512];
    UINT32 length = sizeof text;
    EXPECT_EQ(0u, TolmRegistryWhere(u"a", u"Y", text, &length));
    EXPECT_EQ(File().string() + ":4", std::string(text, length));
    EXPECT_EQ(0, text[length]);
    const UINT32 exact = length;
    length = exact - 1;
    EXPECT_EQ(Failure(kCodeBufferTooSmall), TolmRegistryWhere(u"A", u"y", text, &length));
    EXPECT_EQ(exact, length);
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"A", u"y", TALX_REG_SZ, u"", 2));
    length = sizeof text;
    EXPECT_EQ(0u, TolmRegistryWhere(u"A", u"y", text, &length));
    EXPECT_STREQ("the command line", text);
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"A", u"y", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ(Failure(kCodeNotFound), TolmRegistryWhere(u"A", u"z", text, &length));
    EXPECT_EQ(Failure(kCodeNotFound), TolmRegistryWhere(u"B", u"y", text, &length));
    EXPECT_EQ(Failure(kCodeInvalidParameter), TolmRegistryWhere(u"A", u"y", text, nullptr));
}

std::vector<std::string> Unread()
{
    std::vector<std::string> lines;
    TolmRegistryReportUnread(
        [](const char* line, void* context) {
            const std::string text = line;
            static_cast<std::vector<std::string>*>(context)->push_back(
                text.substr(text.rfind('/') + 1));
        },
        &lines);
    return lines;
}

TEST_F(RegistryRead, WhatNobodyReadsIsReported)
{
    ASSERT_EQ("", Load("['A']\n'read' = 1\n'Misspelt' = 2\n['Nobody\\Opens']\n'v' = 1\n"
                       "['Tolm\\Classes\\{00000000-0000-0000-0000-000000000001}']\n"
                       "'Library' = 'later.so'\n'Libary' = 'typo'\n"));
    EXPECT_EQ((std::vector<std::string>{"registry.toml:1: nobody reads the key 'A'",
                                        "registry.toml:4: nobody reads the key 'Nobody\\Opens'",
                                        "registry.toml:8: nobody reads the value 'Libary' of "
                                        "'Tolm\\Classes\\{00000000-0000-0000-0000-000000000001}'"}),
              Unread());
    Query(u"a", u"READ");
    EXPECT_EQ((std::vector<std::string>{"registry.toml:3: nobody reads the value 'Misspelt' of 'A'",
                                        "registry.toml:4: nobody reads the key 'Nobody\\Opens'",
                                        "registry.toml:8: nobody reads the value 'Libary' of "
                                        "'Tolm\\Classes\\{00000000-0000-0000-0000-000000000001}'"}),
              Unread());
    ASSERT_EQ(0u, SetText(u"A", u"other", u"new")); // a change keeps what is known
    EXPECT_EQ(4u, Unread().size());
    ASSERT_EQ("", Load("['A']\n'read' = 1\n"));
    EXPECT_EQ(1u, Unread().size()) << "a load starts over";
    TolmRegistryReportUnread(nullptr, nullptr);
}

TEST_F(RegistryRead, AValueThatWasReadUnderAnOverrideCountsAsRead)
{
    ASSERT_EQ("", Load("['A']\n'v' = 'file'\n"));
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"A", u"v", TALX_REG_SZ, u"set", 8));
    EXPECT_EQ("SZ:set", Query(u"A", u"v"));
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"A", u"v", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ(std::vector<std::string>{}, Unread());
    EXPECT_EQ("SZ:file", Query(u"A", u"v"));
}

TEST_F(RegistryRead, DataStandsAtItsTypesAlignment)
{
    ASSERT_EQ("", Load("['A']\n'num' = 5\n'wide' = 4294967296\n'str' = 'x'\n"));
    const UINT64 bytes = 0x0102030405060708;
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"A", u"bin", TALX_REG_BINARY, &bytes, sizeof bytes));
    HANDLE key = Open(u"A");
    const struct {
        const WCHAR* name;
        UINT32 offset; // behind 20 bytes of record and the name
    } cases[] = {{u"num", 28}, {u"wide", 32}, {u"str", 26}, {u"bin", 32}};
    for (const auto& c : cases) {
        char record[64];
        UINT32 used = 0;
        ASSERT_EQ(0u, Platform().TalxQueryValueKey(key, c.name, record, sizeof record, &used));
        TALX_KEY_VALUE_INFORMATION info;
        std::memcpy(&info, record, sizeof info);
        EXPECT_EQ(c.offset, info.ValueOffset) << static_cast<int>(info.ValueType);
        EXPECT_EQ(used, info.ValueOffset + info.ValueLength);
    }
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"A", u"bin", TALX_REG_BINARY, nullptr, 0));
}

TEST_F(RegistryRead, ReadersSeeOneRegistryWhileItIsLoadedAgain)
{
    ASSERT_EQ("", Load("['A']\n'x' = 0\n'y' = 0\n"));
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t)
        readers.emplace_back([&] {
            while (!stop) {
                HANDLE key = nullptr;
                ASSERT_EQ(0u, Platform().TalxOpenKey(u"a", TALX_KEY_READ, &key));
                char record[64];
                UINT32 used = 0;
                ASSERT_EQ(0u, Platform().TalxQueryValueKey(key, u"X", record, 64, &used));
                ASSERT_EQ(0u, Platform().TalxEnumerateValueKey(key, 1, record, 64, &used));
                ASSERT_EQ(0u, Platform().TalxCloseKey(key));
            }
        });
    for (int i = 1; i <= 50; ++i) {
        ASSERT_EQ("", Load("['A']\n'x' = " + std::to_string(i) + "\n'y' = 0\n"));
        ASSERT_EQ(0u, SetText(u"A", u"y", u"text"));
        ASSERT_EQ("UINT32:" + std::to_string(i), Query(u"A", u"x"));
    }
    stop = true;
    for (std::thread& t : readers)
        t.join();
}

} // namespace
} // namespace talpl_test
