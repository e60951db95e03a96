// SPDX-License-Identifier: Apache-2.0
//
// The reader of settings, over the registry of libtolm.so.
#include "kest/sdk/registry.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kest/com.h>

namespace {

constexpr const WCHAR* kKey = u"Kest\\Tests\\Reader";

class RegistryKeyTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_FALSE(Failed(Create(CLSID_HadranTalpl, platform_))); }
    void TearDown() override
    {
        for (const auto& name : names_)
            (void)TolmRegistrySetOverride(kKey, name.c_str(), 0, nullptr, 0);
    }

    void SetText(const std::u16string& name, std::u16string_view text, UINT32 type = TALX_REG_SZ)
    {
        const std::u16string terminated = std::u16string(text) + u'\0';
        Set(name, type, terminated.data(), terminated.size() * sizeof(WCHAR));
    }
    void SetNumber(const std::u16string& name, UINT32 number)
    {
        Set(name, TALX_REG_UINT32, &number, sizeof number);
    }
    void Set(const std::u16string& name, UINT32 type, const void* data, size_t size)
    {
        ASSERT_FALSE(Failed(
            TolmRegistrySetOverride(kKey, name.c_str(), type, data, static_cast<UINT32>(size))));
        names_.push_back(name);
    }

    Ref<ITalpl> platform_;
    std::vector<std::u16string> names_;
};

using kest::ReadResult;

TEST_F(RegistryKeyTest, ReadsEachType)
{
    SetText(u"Text", u"a\u20ac\U0001F600");
    SetText(u"List", std::u16string_view(u"one\0zw\u00f6\0", 8), TALX_REG_MULTI_SZ);
    SetNumber(u"Number", 70000);
    const UINT64 large = UINT64{1} << 40;
    Set(u"Large", TALX_REG_UINT64, &large, sizeof large);
    SetNumber(u"Yes", 1);
    SetNumber(u"No", 0);

    kest::RegistryKey key(*platform_.Get(), kKey);
    ASSERT_TRUE(key);
    std::string text;
    EXPECT_EQ(key.Text(u"Text", text), ReadResult::Read);
    EXPECT_EQ(text, "a\u20ac\U0001F600");
    std::vector<std::string> list;
    EXPECT_EQ(key.Texts(u"List", list), ReadResult::Read);
    EXPECT_EQ(list, (std::vector<std::string>{"one", "zw\u00f6"}));
    UINT32 number = 0;
    EXPECT_EQ(key.Number(u"Number", number), ReadResult::Read);
    EXPECT_EQ(number, 70000U);
    EXPECT_EQ(key.Number(u"Large", number), ReadResult::OtherType);
    EXPECT_EQ(number, 70000U);
    UINT64 wide = 0;
    EXPECT_EQ(key.Number(u"Large", wide), ReadResult::Read);
    EXPECT_EQ(wide, large);
    bool flag = false;
    EXPECT_EQ(key.Flag(u"Yes", flag), ReadResult::Read);
    EXPECT_TRUE(flag);
    EXPECT_EQ(key.Flag(u"No", flag), ReadResult::Read);
    EXPECT_FALSE(flag);
    EXPECT_EQ(key.Flag(u"Number", flag), ReadResult::OtherType);
}

TEST_F(RegistryKeyTest, WhatIsNotReadStaysAsItIs)
{
    SetNumber(u"Number", 1);
    SetText(u"Text", u"x");
    kest::RegistryKey key(*platform_.Get(), kKey);
    std::string text = "kept";
    EXPECT_EQ(key.Text(u"Number", text), ReadResult::OtherType);
    EXPECT_EQ(key.Text(u"None", text), ReadResult::Missing);
    EXPECT_EQ(text, "kept");
    UINT64 number = 7;
    EXPECT_EQ(key.Number(u"Text", number), ReadResult::OtherType);
    EXPECT_EQ(number, 7U);
    std::vector<std::string> list = {"kept"};
    EXPECT_EQ(key.Texts(u"Text", list), ReadResult::OtherType);
    EXPECT_EQ(list.size(), 1U);
}

TEST_F(RegistryKeyTest, MissingKeyHasNoValues)
{
    kest::RegistryKey key(*platform_.Get(), u"Kest\\Tests\\None");
    EXPECT_FALSE(key);
    std::u16string name;
    EXPECT_EQ(key.NameAt(0, name), ReadResult::Missing);
    EXPECT_EQ(key.Find(u"Text"), ReadResult::Missing);
}

TEST_F(RegistryKeyTest, LongTextsAreReadWhole)
{
    const std::u16string longText(300'000, u'\u20ac');
    SetText(u"Long", longText);
    kest::RegistryKey key(*platform_.Get(), kKey);
    std::string text;
    ASSERT_EQ(key.Text(u"Long", text), ReadResult::Read);
    EXPECT_EQ(text.size(), 900'000U);
    EXPECT_EQ(text.substr(899'997), "\u20ac");
}

TEST_F(RegistryKeyTest, ValuesAreNamedInOrder)
{
    SetText(u"B", u"1");
    SetNumber(u"A", 2);
    kest::RegistryKey key(*platform_.Get(), kKey);
    std::vector<std::u16string> names;
    std::u16string name;
    while (key.NameAt(static_cast<UINT32>(names.size()), name) == ReadResult::Read)
        names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"B", u"A"}));
}

TEST_F(RegistryKeyTest, KeysBelowAreNamedInOrder)
{
    for (const WCHAR* const below : {u"Kest\\Tests\\Below\\B", u"Kest\\Tests\\Below\\A"}) {
        const UINT32 one = 1;
        ASSERT_FALSE(
            Failed(TolmRegistrySetOverride(below, u"X", TALX_REG_UINT32, &one, sizeof one)));
    }
    kest::RegistryKey key(*platform_.Get(), u"Kest\\Tests\\Below");
    std::vector<std::u16string> names;
    std::u16string name;
    while (key.KeyAt(static_cast<UINT32>(names.size()), name) == ReadResult::Read)
        names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"B", u"A"}));
    EXPECT_EQ(key.KeyAt(2, name), ReadResult::Missing);
    for (const WCHAR* const below : {u"Kest\\Tests\\Below\\B", u"Kest\\Tests\\Below\\A"})
        (void)TolmRegistrySetOverride(below, u"X", 0, nullptr, 0);
}

TEST_F(RegistryKeyTest, BytesAreThoseOfEachType)
{
    SetNumber(u"Number", 0x01020304);
    kest::RegistryKey key(*platform_.Get(), kKey);
    UINT32 type = 0;
    std::string bytes;
    EXPECT_EQ(key.Bytes(u"Number", type, bytes), ReadResult::Read);
    EXPECT_EQ(type, TALX_REG_UINT32);
    EXPECT_EQ(bytes, "\x04\x03\x02\x01");
    EXPECT_EQ(key.Bytes(u"None", type, bytes), ReadResult::Missing);
    EXPECT_EQ(bytes.size(), 4U);
}

// A table that cannot be opened is not taken for one that is not there: what it says may keep
// somebody out.
TEST_F(RegistryKeyTest, KeyThatCannotBeOpenedIsUnreadable)
{
    kest::RegistryKey key(*platform_.Get(), u"\\");
    EXPECT_FALSE(key);
    std::u16string name;
    EXPECT_EQ(key.NameAt(0, name), ReadResult::Unreadable);
    EXPECT_EQ(key.KeyAt(0, name), ReadResult::Unreadable);
    EXPECT_EQ(key.Find(u"Text"), ReadResult::Unreadable);
}

} // namespace
