// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/platform/support.h"

namespace talpl_test {
namespace {

class RegistryWrite : public RegistryTest {
  protected:
    TALSTATUS Set(const WCHAR* key, const WCHAR* name, UINT32 type, const void* data, UINT32 size)
    {
        HANDLE handle = nullptr;
        const TALSTATUS status = Platform().TalxOpenKey(key, TALX_KEY_WRITE, &handle);
        if (Failed(status))
            return status;
        const TALSTATUS result = Platform().TalxSetValueKey(handle, name, type, data, size);
        EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
        return result;
    }
    TALSTATUS Delete(const WCHAR* key, const WCHAR* name)
    {
        HANDLE handle = Open(key);
        const TALSTATUS result = Platform().TalxDeleteValue(handle, name);
        EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
        return result;
    }
    // The file reads back to what the process has.
    void Reload() { ASSERT_EQ("", Load(Text())); }
};

constexpr char kText[] = R"(# Head

['A\B']           # first
'number' = 5      # five
'text' = 'old'    # a comment stays
'list' = [
  'x', # one
  'y',
]
'long' = """one
two""" # after

# About C.
['C']
'last' = 1)";

TEST_F(RegistryWrite, AValueIsReplacedInItsPlace)
{
    ASSERT_EQ("", Load(kText));
    const UINT32 number = 4294967295u;
    EXPECT_EQ(0u, Set(u"a\\b", u"NUMBER", TALX_REG_UINT32, &number, 4));
    EXPECT_EQ(0u, SetText(u"A\\B", u"text", u"it's\tnew \u00E9"));
    EXPECT_EQ(0u, Set(u"A\\B", u"list", TALX_REG_MULTI_SZ, u"p\0q r\0", 14));
    EXPECT_EQ(0u, SetText(u"A\\B", u"long", u"short"));
    const UINT64 large = 0x7FFFFFFFFFFFFFFF;
    EXPECT_EQ(0u, Set(u"C", u"last", TALX_REG_UINT64, &large, 8));
    EXPECT_EQ(R"(# Head

['A\B']           # first
'number' = 4294967295      # five
'text' = "it's\u0009new )"
              "\xC3\xA9"
              R"("    # a comment stays
'list' = ['p', 'q r']
'long' = 'short' # after

# About C.
['C']
'last' = 9223372036854775807)",
              Text());
    Reload();
    EXPECT_EQ("UINT32:4294967295", Query(u"A\\B", u"number"));
    EXPECT_EQ("SZ:it's\tnew \xC3\xA9", Query(u"A\\B", u"text"));
    EXPECT_EQ("MULTI_SZ:p|q r|", Query(u"A\\B", u"list"));
    EXPECT_EQ("UINT64:9223372036854775807", Query(u"C", u"last"));
}

TEST_F(RegistryWrite, ANewValueGoesToTheEndOfItsKey)
{
    ASSERT_EQ("", Load(kText));
    EXPECT_EQ(0u, SetText(u"A\\B", u"new", u"1"));
    EXPECT_EQ(0u, SetText(u"C", u"odd 'name'", u""));
    EXPECT_NE(std::string::npos, Text().find("two\"\"\" # after\n'new' = '1'\n\n# About C.\n"));
    EXPECT_TRUE(Text().ends_with("'last' = 1\n\"odd 'name'\" = ''\n")) << Text();
    EXPECT_EQ("number,text,list,long,new", ValueNames(u"A\\B"));
    Reload();
    EXPECT_EQ("SZ:1", Query(u"A\\B", u"new"));
    EXPECT_EQ("SZ:", Query(u"C", u"odd 'name'"));
}

TEST_F(RegistryWrite, KeysAreMadeAndRemovedWithWhatIsBelow)
{
    ASSERT_EQ("", Load(kText));
    HANDLE key = nullptr;
    EXPECT_EQ(0u, Platform().TalxCreateKey(u"A\\B\\{x}\\Deep", TALX_KEY_ALL_ACCESS, &key));
    const UINT32 one = 1;
    EXPECT_EQ(0u, Platform().TalxSetValueKey(key, u"v", TALX_REG_UINT32, &one, 4));
    EXPECT_TRUE(Text().ends_with("'last' = 1\n\n['A\\B\\{x}\\Deep']\n'v' = 1\n")) << Text();
    EXPECT_EQ("Deep", KeyNames(u"A\\B\\{x}"));
    HANDLE again = nullptr;
    EXPECT_EQ(0u, Platform().TalxCreateKey(u"a\\b\\{X}", TALX_KEY_READ, &again)) << "implied";
    EXPECT_EQ(0u, Platform().TalxCloseKey(again));
    Reload();
    EXPECT_EQ("UINT32:1", Query(u"A\\B\\{x}\\Deep", u"v"));
    EXPECT_EQ(0u, Platform().TalxDeleteKey(u"a\\B"));
    EXPECT_EQ("no key", Query(u"A\\B", u"number"));
    EXPECT_EQ("no key", Query(u"A\\B\\{x}\\Deep", u"v"));
    EXPECT_EQ(Failure(kCodeNotFound),
              Platform().TalxSetValueKey(key, u"v", TALX_REG_UINT32, &one, 4))
        << "the key was deleted since it was opened";
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
    EXPECT_TRUE(Text().starts_with("# Head\n\n\n# About C.\n['C']\n'last' = 1\n")) << Text();
    EXPECT_EQ(Failure(kCodeNotFound), Platform().TalxDeleteKey(u"A\\B"));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Platform().TalxDeleteKey(u""));
    Reload();
    EXPECT_EQ("UINT32:1", Query(u"C", u"last"));
}

TEST_F(RegistryWrite, AValueIsRemovedWithItsLines)
{
    ASSERT_EQ("", Load(kText));
    EXPECT_EQ(0u, Delete(u"A\\B", u"LIST"));
    EXPECT_EQ(0u, Delete(u"A\\B", u"long"));
    EXPECT_EQ(0u, Delete(u"C", u"last"));
    EXPECT_EQ(Failure(kCodeNotFound), Delete(u"C", u"last"));
    EXPECT_EQ("# Head\n\n['A\\B']           # first\n'number' = 5      # five\n"
              "'text' = 'old'    # a comment stays\n\n# About C.\n['C']\n",
              Text());
    Reload();
    EXPECT_EQ("number,text", ValueNames(u"A\\B"));
}

TEST_F(RegistryWrite, LineEndsMarksAndWideNamesDoNotShiftPlaces)
{
    ASSERT_EQ("", Load("\xEF\xBB\xBF['\xC3\x84\\\xF0\x9F\x98\x80']\r\n\"\xE2\x82\xAC \\u00E9\" = "
                       "'\xF0\x9F\x98\x80' # \xC3\xA9\r\n'z' = 1\r\n"));
    EXPECT_EQ(0u, SetText(u"\u00E4\\\U0001F600", u"\u20AC \u00C9", u"\u00DF"));
    EXPECT_EQ("\xEF\xBB\xBF['\xC3\x84\\\xF0\x9F\x98\x80']\r\n\"\xE2\x82\xAC \\u00E9\" = "
              "'\xC3\x9F' # \xC3\xA9\r\n'z' = 1\r\n",
              Text());
    Reload();
    EXPECT_EQ("SZ:\xC3\x9F", Query(u"\u00C4\\\U0001F600", u"\u20AC \u00E9"));
}

TEST_F(RegistryWrite, EveryTextComesBack)
{
    ASSERT_EQ("", Load("['A']\n"));
    const std::u16string texts[] = {
        u"",
        u"'",
        u"\"",
        u"'\"\\",
        u"\\u0041",
        u"a\nb\r\n\tc",
        u"\u0001\u001F\u007F\u0080",
        u"'''",
        u"# no comment",
        u"\u2028",
        u"\U0010FFFF",
        u"C:\\path\\",
        u"]",
        u"=",
    };
    for (const std::u16string& text : texts) {
        ASSERT_EQ(0u, SetText(u"A", u"v", text)) << testing::PrintToString(text);
        const std::string now = Query(u"A", u"v");
        Reload();
        EXPECT_EQ(now, Query(u"A", u"v"));
    }
}

TEST_F(RegistryWrite, WhatTheFileCannotHoldIsRefused)
{
    ASSERT_EQ("", Load(kText));
    const UINT64 tooLarge = 0x8000000000000000;
    const WCHAR lone[] = {0xD800, 0};
    const TALSTATUS refused = Failure(kCodeInvalidRequest);
    EXPECT_EQ(Failure(kCodeNotSupported), Set(u"C", u"v", TALX_REG_BINARY, "abcd", 4));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_UINT64, &tooLarge, 8));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_UINT32, &tooLarge, 8));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_SZ, u"abc", 6)) << "no terminator";
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_SZ, u"abc", 7));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_SZ, u"a\0b", 8));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_SZ, u"", 0));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_SZ, lone, 4));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_MULTI_SZ, u"a", 4)) << "one terminator";
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_MULTI_SZ, u"\0a\0", 8));
    EXPECT_EQ(refused, Set(u"C", u"v", TALX_REG_MULTI_SZ, u"a\0\0b\0", 12));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Set(u"C", u"v", 5, "abcd", 4));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Set(u"C", u"", TALX_REG_SZ, u"", 2));
    EXPECT_EQ(Failure(kCodeInvalidParameter), Set(u"C", u"v", TALX_REG_SZ, nullptr, 2));
    EXPECT_EQ(0u, Set(u"C", u"none", TALX_REG_MULTI_SZ, u"", 2));
    EXPECT_EQ("MULTI_SZ:", Query(u"C", u"none"));
    CapturedLog log;
    HANDLE key = nullptr;
    EXPECT_EQ(Failure(kCodeInvalidRequest),
              Platform().TalxCreateKey(u"Tolm\\Classes\\{x}", TALX_KEY_READ, &key))
        << "a change that the file could not be loaded with";
    EXPECT_EQ(nullptr, key);
    EXPECT_NE(std::string::npos, log.Text().find("a change was refused"));
}

TEST_F(RegistryWrite, OverridesAreNeverWrittenBack)
{
    ASSERT_EQ("", Load(kText));
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"C", u"last", TALX_REG_SZ, u"line", 10));
    ASSERT_EQ(0u, TolmRegistrySetOverride(u"Only\\Here", u"v", TALX_REG_SZ, u"line", 10));
    EXPECT_EQ(0u, SetText(u"C", u"last", u"file"));
    EXPECT_EQ("SZ:line", Query(u"C", u"last")) << "the override stays in force";
    EXPECT_EQ(std::string::npos, Text().find("line"));
    EXPECT_EQ(Failure(kCodeAccessDenied), Delete(u"Only\\Here", u"v"));
    EXPECT_EQ(Failure(kCodeAccessDenied), Platform().TalxDeleteKey(u"Only\\Here"));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"C", u"last", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ(0u, TolmRegistrySetOverride(u"Only\\Here", u"v", TALX_REG_SZ, nullptr, 0));
    EXPECT_EQ("SZ:file", Query(u"C", u"last"));
}

TEST_F(RegistryWrite, TheFileIsReplacedWholeAndKeepsItsMode)
{
    ASSERT_EQ("", Load(kText));
    ASSERT_EQ(0, chmod(File().c_str(), 0640));
    const std::filesystem::path hard = File().parent_path() / "old";
    std::filesystem::create_hard_link(File(), hard);
    EXPECT_EQ(0u, SetText(u"C", u"v", u"1"));
    EXPECT_EQ(kText, ReadFile(hard)) << "the old file was not written into";
    struct stat now {};
    ASSERT_EQ(0, stat(File().c_str(), &now));
    EXPECT_EQ(0640u, now.st_mode & 07777);
    EXPECT_EQ(2, FileCount()) << "no temporary file is left";
}

TEST_F(RegistryWrite, ALinkStaysALink)
{
    ASSERT_EQ("", Load(kText));
    const std::filesystem::path link = File().parent_path() / "link.toml";
    std::filesystem::create_symlink(File(), link);
    char error[512] = "";
    ASSERT_EQ(0u, TolmRegistryLoad(link.c_str(), error, sizeof error)) << error;
    EXPECT_EQ(0u, SetText(u"C", u"v", u"1"));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_NE(std::string::npos, Text().find("'v' = '1'"));
}

TEST_F(RegistryWrite, AnEditThatWasNotLoadedIsNotLost)
{
    ASSERT_EQ("", Load(kText));
    const std::string edited = std::string(kText) + "\n'edited' = 1\n";
    WriteFile(File(), edited);
    CapturedLog log;
    EXPECT_EQ(Failure(kCodeConflict), SetText(u"C", u"v", u"1"));
    EXPECT_EQ(edited, Text());
    EXPECT_EQ("!11", Query(u"C", u"v"));
    EXPECT_NE(std::string::npos, log.Text().find("was edited since it was read"));
    Reload();
    EXPECT_EQ(0u, SetText(u"C", u"v", u"1"));
    EXPECT_EQ("UINT32:1", Query(u"C", u"edited"));
}

TEST_F(RegistryWrite, WhenTheFileCannotBeReplacedNothingChanges)
{
    ASSERT_EQ("", Load(kText));
    CapturedLog log;
    std::filesystem::remove(File());
    EXPECT_TRUE(Failed(SetText(u"C", u"v", u"1")));
    EXPECT_EQ("!11", Query(u"C", u"v"));
    EXPECT_EQ("UINT32:1", Query(u"C", u"last"));
    EXPECT_NE(std::string::npos, log.Text().find("cannot be written: No such file"));
    EXPECT_EQ(0, FileCount());
}

TEST_F(RegistryWrite, WhatWouldMakeTheFileTooLargeIsRefused)
{
    constexpr size_t kLargest = 16 * 1024 * 1024;
    std::string text = "['A']\n'v' = 'x'\n";
    while (text.size() < kLargest - 300)
        text +=
            '#' + std::string(std::min<size_t>(60000, kLargest - 200 - text.size()), 'c') + '\n';
    ASSERT_EQ("", Load(text));
    EXPECT_EQ(Failure(kCodeStorageFull), SetText(u"A", u"v", std::u16string(300, u'y')));
    EXPECT_EQ("SZ:x", Query(u"A", u"v"));
    EXPECT_EQ(0u, SetText(u"A", u"v", u"zz")) << "what fits is written";
    EXPECT_EQ("SZ:zz", Query(u"A", u"v"));
}

TEST_F(RegistryWrite, WithoutAFileChangesStayInMemory)
{
    ASSERT_EQ(0u, TolmRegistryLoad(nullptr, nullptr, 0));
    HANDLE key = nullptr;
    ASSERT_EQ(0u, Platform().TalxCreateKey(u"M\\N", TALX_KEY_ALL_ACCESS, &key));
    EXPECT_EQ(0u, Platform().TalxSetValueKey(key, u"v", TALX_REG_SZ, u"x", 4));
    EXPECT_EQ("SZ:x", Query(u"m\\n", u"V"));
    EXPECT_EQ(0u, Platform().TalxDeleteValue(key, u"v"));
    EXPECT_EQ("!11", Query(u"M\\N", u"v"));
    EXPECT_EQ(0u, Platform().TalxCloseKey(key));
    EXPECT_EQ(0u, Platform().TalxDeleteKey(u"M"));
    EXPECT_EQ("no key", Query(u"M\\N", u"v"));
}

} // namespace
} // namespace talpl_test
