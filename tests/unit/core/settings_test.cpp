// SPDX-License-Identifier: Apache-2.0
//
// Settings from records that a registry file could not give: odd lengths, types and statuses.
#include <gmock/gmock.h>

#include "core/config.h"
#include "frame.h"

using harness::kInjected;
using harness::Narrow;
using testing::ElementsAre;

namespace {

class Settings : public Frame {
  protected:
    // A value record whose data stands behind it.
    void Store(UINT32 type, const void* data, UINT32 length,
               UINT32 offset = sizeof(TALX_KEY_VALUE_INFORMATION))
    {
        TALX_KEY_VALUE_INFORMATION info{};
        info.ValueType = type;
        info.ValueOffset = offset;
        info.ValueLength = length;
        platform->record.assign(reinterpret_cast<const char*>(&info), sizeof info);
        platform->record.append(static_cast<const char*>(data), length);
    }
    void StoreText(const std::u16string& text)
    {
        Store(TALX_REG_SZ, text.c_str(), static_cast<UINT32>((text.size() + 1) * sizeof(WCHAR)));
    }
    void StoreNumber(UINT32 number) { Store(TALX_REG_UINT32, &number, sizeof number); }

    std::string Wide() const { return Narrow(&g_MonikerU); }
    std::string Bytes() const { return {g_MonikerS.Buffer, g_MonikerS.Length}; }
    void ExpectMoniker(const std::string& text)
    {
        EXPECT_EQ(GetTopLevelMoniker(), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Wide(), text);
        EXPECT_EQ(Bytes(), text);
        EXPECT_EQ(g_MonikerU.Buffer[g_MonikerU.Length / sizeof(WCHAR)], 0);
        EXPECT_EQ(g_MonikerS.Buffer[g_MonikerS.Length], 0);
        EXPECT_EQ(g_MonikerU.MaximumLength, 510) << "a later reading may need it all";
    }
};

TEST_F(Settings, MonikerWithItsTerminator_FillsTheBuffer)
{
    const std::u16string longest = u"/" + std::u16string(252, u'm'); // 508 bytes with the NUL
    StoreText(longest);
    ExpectMoniker("/" + std::string(252, 'm'));
    EXPECT_THAT(platform->queries, ElementsAre("Moniker 534"));
}

TEST_F(Settings, MonikerPastTheBuffer_IsNotCopied)
{
    StoreText(u"/before");
    ExpectMoniker("/before");
    StoreText(u"/" + std::u16string(253, u'm'));
    ExpectMoniker("/Ferro");
}

TEST_F(Settings, MonikerAfterTheDefault_GoesIntoTheDefaultsBuffer)
{
    platform->queryStatus = kInjected;
    ExpectMoniker("/Ferro");
    const WCHAR* const buffer = g_MonikerU.Buffer;
    platform->queryStatus = TAL_STATUS_SUCCESS;
    StoreText(u"/" + std::u16string(252, u'n'));
    ExpectMoniker("/" + std::string(252, 'n'));
    EXPECT_EQ(g_MonikerU.Buffer, buffer);
    platform->queryStatus = kInjected;
    ExpectMoniker("/Ferro");
}

TEST_F(Settings, MonikerWithoutItsTerminator_IsNone)
{
    for (const UINT32 length : {0U, 1U}) {
        Store(TALX_REG_SZ, u"/x", length);
        ExpectMoniker("/Ferro");
    }
    StoreText(u"");
    ExpectMoniker("");
}

TEST_F(Settings, MonikerOutsideItsRecord_IsNone)
{
    Store(TALX_REG_SZ, u"/x", 6, 530);
    ExpectMoniker("/Ferro");
    Store(TALX_REG_SZ, u"/x", 6, 0xFFFFFFFE);
    ExpectMoniker("/Ferro");
}

TEST_F(Settings, MonikerReadWithACode_IsNone)
{
    StoreText(u"/elsewhere");
    platform->queryStatus = TAL_STATUS_INFO_END_OF_FILE;
    ExpectMoniker("/Ferro");
}

TEST_F(Settings, KeyOpenedWithACode_IsRead)
{
    StoreText(u"/elsewhere");
    platform->openStatus = TAL_STATUS_INFO_END_OF_FILE;
    ExpectMoniker("/elsewhere");
}

TEST_F(Settings, BlockSize_IsTheNumberAtTheValuesOffset)
{
    StoreNumber(4096);
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_RWBlockSize, 4096U);
    EXPECT_THAT(platform->queries, ElementsAre("Read-Write Block Size 90"));

    const UINT64 wide = 8192;
    Store(TALX_REG_UINT64, &wide, sizeof wide);
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_RWBlockSize, 8192U) << "the type is not looked at";
    const UINT32 spread[] = {1, 2, 16384};
    Store(TALX_REG_BINARY, spread, sizeof spread, sizeof(TALX_KEY_VALUE_INFORMATION) + 8);
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_RWBlockSize, 16384U);
}

TEST_F(Settings, BlockSizeShorterThanANumber_IsTheDefault)
{
    const UINT32 number = 4096;
    Store(TALX_REG_UINT32, &number, 3);
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_RWBlockSize, kDefaultBlockSize);
    Store(TALX_REG_UINT32, &number, 4, 87); // would end behind the room
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_RWBlockSize, kDefaultBlockSize);
}

TEST_F(Settings, BlockSize_ReturnsTheReadingsStatus)
{
    StoreNumber(4096);
    platform->queryStatus = TAL_STATUS_INFO_END_OF_FILE;
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_INFO_END_OF_FILE);
    EXPECT_EQ(g_RWBlockSize, 4096U) << "informational is no failure";
    platform->queryStatus = kInjected;
    EXPECT_EQ(GetReadWriteBlockSize(), kInjected);
    EXPECT_EQ(g_RWBlockSize, kDefaultBlockSize);
    recorder.Fail("platform.TalxAllocPagedMemory", kInjected);
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_INSUFFICIENT_RESOURCES);
    platform->openStatus = TAL_STATUS_NOT_FOUND;
    EXPECT_EQ(GetReadWriteBlockSize(), TAL_STATUS_NOT_FOUND);
}

TEST_F(Settings, DebugLevel_IsReadAndDiscarded)
{
    g_RWBlockSize = kDefaultBlockSize;
    StoreNumber(2048);
    EXPECT_EQ(GetDebugLevel(), TAL_STATUS_SUCCESS);
    EXPECT_THAT(platform->queries, ElementsAre("Debug Level 90"));
    EXPECT_EQ(g_RWBlockSize, kDefaultBlockSize);
    platform->queryStatus = kInjected;
    EXPECT_EQ(GetDebugLevel(), kInjected);
}

} // namespace

TEST_F(Settings, Dialect_IsStandardOnlyByItsName)
{
    struct Row {
        const char* why;
        std::u16string text;
        Dialect expected;
        TALSTATUS status;
    };
    for (const Row& row :
         {Row{"its name", u"standard", Dialect::Standard, TAL_STATUS_SUCCESS},
          Row{"the other's", u"classic", Dialect::Classic, TAL_STATUS_SUCCESS},
          Row{"another case", u"Standard", Dialect::Classic, TAL_STATUS_INVALID_REQUEST},
          Row{"no name", u"", Dialect::Classic, TAL_STATUS_INVALID_REQUEST},
          Row{"longer", u"standards", Dialect::Classic, TAL_STATUS_INVALID_REQUEST},
          Row{"beyond the record", std::u16string(100, u's'), Dialect::Classic,
              TAL_STATUS_INVALID_REQUEST}}) {
        g_Dialect = Dialect::Standard;
        StoreText(row.text);
        EXPECT_EQ(GetDialect(), row.status) << row.why;
        EXPECT_EQ(g_Dialect, row.expected) << row.why;
    }
}

TEST_F(Settings, DialectThatCannotBeRead_IsTheClassicOne)
{
    StoreText(u"standard");
    platform->queryStatus = kInjected;
    g_Dialect = Dialect::Standard;
    EXPECT_EQ(GetDialect(), kInjected);
    EXPECT_EQ(g_Dialect, Dialect::Classic);
    platform->queryStatus = TAL_STATUS_SUCCESS;
    platform->openStatus = kInjected;
    g_Dialect = Dialect::Standard;
    EXPECT_EQ(GetDialect(), kInjected);
    EXPECT_EQ(g_Dialect, Dialect::Classic);
}

TEST_F(Settings, InfinityEntries_AreTheNumberThatIsSet)
{
    StoreNumber(7);
    EXPECT_EQ(GetInfinityEntries(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_InfinityEntries, 7U);
    platform->queryStatus = kInjected;
    EXPECT_EQ(GetInfinityEntries(), kInjected);
    EXPECT_EQ(g_InfinityEntries, kDefaultInfinityEntries);
}
