// SPDX-License-Identifier: Apache-2.0
//
// Collections: listings and MkCol.
#include "tests/contract/providers/filestore/fixture.h"

#include <sys/stat.h>

#include <kest/talpl.h>

using namespace filestore_test;
namespace fs = std::filesystem;

using FileStoreListing = FileStoreTest;
using Strings = std::vector<std::string>;

TEST_F(FileStoreListing, TheRootListsTheVolumesInNameOrder)
{
    const std::vector<Child> children = Children("/");
    ASSERT_EQ(2u, children.size());
    EXPECT_EQ("docs", children[0].name);
    EXPECT_EQ("Other", children[1].name);
    EXPECT_EQ(Collection, children[0].type);
}

TEST_F(FileStoreListing, TheRootCannotBeChanged)
{
    EXPECT_EQ(kCodeAccessDenied, Code(MkCol("/new")));
    EXPECT_EQ(kCodeAccessDenied, Code(MkCol("/")));
    EXPECT_EQ(kCodeAccessDenied, Code(OpenedCollection("/")->SetModificationDate(1)));
    EXPECT_EQ(kCodeAccessDenied, Code(OpenedCollection("/")->SetLiveAttributes(0)));
}

TEST_F(FileStoreListing, ChildrenComeInCaselessNameOrder)
{
    for (const char* name : {"b", "A", "a1", "a10", "a2", "Z", "z", "_", "é", "Éa", "ß", "日本"})
        WriteFile(Docs() / name, "");
    // Code units after upper-casing: "_" stands behind "Z", "É" (00C9) behind "ß" (00DF) does not.
    EXPECT_EQ((Strings{"A", "a1", "a10", "a2", "b", "Z", "z", "_", "é", "Éa", "ß", "日本"}),
              Names("/docs"));
}

TEST_F(FileStoreListing, TheOrderIsThePlatformLayers)
{
    for (int i = 0; i < 500; ++i) {
        std::string name = "common-" + std::to_string(i * 7919 % 1000);
        if (i % 3 == 0)
            name[0] = 'C';
        if (i % 7 == 0)
            name += "ä";
        WriteFile(Docs() / name, "");
    }
    Ref<ITalpl> talpl;
    ASSERT_EQ(0u, Create(CLSID_HadranTalpl, talpl));
    const Strings names = Names("/docs");
    ASSERT_EQ(500u, names.size());
    for (size_t i = 1; i < names.size(); ++i) {
        Wstr a(names[i - 1]), b(names[i]);
        EXPECT_LE(talpl->TalxCompareUnicodeString(&a, &b, TRUE), 0) << names[i - 1] << names[i];
    }
}

TEST_F(FileStoreListing, ARecordHoldsTheChildsVitals)
{
    WriteFile(Docs() / "file", "12345");
    fs::create_directory(Docs() / "folder");
    ASSERT_EQ(0, chmod((Docs() / "file").c_str(), 0444));
    const std::vector<Child> children = Children("/docs");
    ASSERT_EQ(2u, children.size());
    EXPECT_EQ(Resource, children[0].type);
    EXPECT_EQ(5u, children[0].size);
    EXPECT_EQ(kAttributeReadOnly, children[0].attributes);
    EXPECT_EQ(Collection, children[1].type);
    EXPECT_EQ(0u, children[1].size);
    EXPECT_EQ(0u, children[1].attributes);
    UINT64 modified = 0;
    EXPECT_EQ(0u, Opened("/docs/file")->GetModificationDate(&modified));
    EXPECT_EQ(modified, children[0].modified / 10'000'000 * 10'000'000) << "whole seconds";
}

TEST_F(FileStoreListing, NamesThatCannotBeSentAreLeftOut)
{
    WriteFile(Docs() / "good", "");
    WriteFile(Docs() / "bad\x01", "");
    WriteFile(Docs() / "bad\xff", "");
    EXPECT_EQ(Strings{"good"}, Names("/docs"));
}

TEST_F(FileStoreListing, TheLongestNameFitsTheSmallestBuffer)
{
    const std::string name(255, 'x');
    WriteFile(Docs() / name, "");
    Ref<IKestDAVCollection2> collection = OpenedCollection("/docs");
    alignas(DAV_COMMON_ENUM) char buffer[1024];
    auto* const record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer);
    UINT32 size = 100;
    EXPECT_EQ(kCodeBufferTooSmall, Code(collection->GetFirstChild(&size, record)));
    EXPECT_EQ(60u + 510, size);
    size = sizeof buffer;
    EXPECT_EQ(0u, collection->GetNextChild(&size, record)); // nothing was lost
    EXPECT_EQ(510u, record->DisplayNameLength);
    EXPECT_EQ(0u, record->State);
    EXPECT_EQ(nullptr, record->pURI);
}

TEST_F(FileStoreListing, ChildrenThatVanishWhileListingAreSkipped)
{
    for (const char* name : {"a", "b", "c"})
        WriteFile(Docs() / name, "");
    Ref<IKestDAVCollection2> collection = OpenedCollection("/docs");
    alignas(DAV_COMMON_ENUM) char buffer[1024];
    auto* const record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer);
    UINT32 size = sizeof buffer;
    ASSERT_EQ(0u, collection->GetFirstChild(&size, record));
    fs::remove(Docs() / "b");
    size = sizeof buffer;
    ASSERT_EQ(0u, collection->GetNextChild(&size, record));
    EXPECT_EQ(u'c', record->DisplayName[0]);
    size = sizeof buffer;
    EXPECT_EQ(kCodeNoMoreEntries, Code(collection->GetNextChild(&size, record)));
}

TEST_F(FileStoreListing, MkColMakesOneLevel)
{
    EXPECT_EQ(0u, MkCol("/docs/new"));
    EXPECT_TRUE(fs::is_directory(Docs() / "new"));
    WriteFile(Docs() / "file", "");
    const struct {
        const char* path;
        UINT16 code;
    } rows[] = {{"/docs/new", kCodeObjectExists},    {"/docs/file", kCodeObjectExists},
                {"/docs", kCodeObjectExists},        {"/docs/none/new", kCodeConflict},
                {"/docs/file/new", kCodeConflict},   {"/docs/.kest", kCodeInvalidRequest},
                {"/docs/a\x1f", kCodeInvalidRequest}};
    for (const auto& row : rows)
        EXPECT_EQ(row.code, Code(MkCol(row.path))) << row.path;
}

TEST_F(FileStoreListing, ACollectionKeepsItsDatesAndName)
{
    ASSERT_EQ(0u, MkCol("/docs/new"));
    const UINT64 created = 131000000000000000, modified = 131500000000000000;
    Ref<IKestDAVCollection2> collection = OpenedCollection("/docs/new");
    EXPECT_EQ(0u, collection->SetModificationDate(modified));
    EXPECT_EQ(0u, collection->SetCreationDate(created));
    UINT64 date = 0;
    collection = OpenedCollection("/docs/new");
    EXPECT_EQ(0u, collection->GetCreationDate(&date));
    EXPECT_EQ(created, date);
    EXPECT_EQ(0u, collection->GetModificationDate(&date));
    EXPECT_EQ(modified, date);
    WCHAR buffer[8];
    UNICODE_STRING name{0, sizeof buffer, buffer};
    EXPECT_EQ(0u, collection->GetDisplayName(&name));
    EXPECT_EQ("new", Narrow(name.Buffer, name.Length / 2));
    name.MaximumLength = 4;
    EXPECT_EQ(kCodeBufferTooSmall, Code(collection->GetDisplayName(&name)));
    WriteFile(Docs() / "file", "");
    EXPECT_FALSE(OpenedCollection("/docs/file"));
}

TEST_F(FileStoreListing, AListingWhoseClientHasLeftEndsAtTheNextStep)
{
    for (int i = 0; i < 100; ++i)
        WriteFile(Docs() / ("f" + std::to_string(i)), "");
    const auto collection = OpenedCollection("/docs");
    ASSERT_TRUE(collection);
    alignas(DAV_COMMON_ENUM) char buffer[1024];
    auto* const record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer);
    bool gone = false;
    int asked = 0;
    ScriptedRequest request;
    request.isCancelled = [&] {
        ++asked;
        return gone;
    };
    const RunningRequest running(request);
    UINT32 size = sizeof buffer;
    ASSERT_EQ(0u, collection->GetFirstChild(&size, record));
    EXPECT_GE(asked, 100 / 16) << "also while the names are read, every few of them";
    gone = true;
    size = sizeof buffer;
    EXPECT_EQ(kCodeTimeout, Code(collection->GetNextChild(&size, record)));
    size = sizeof buffer;
    EXPECT_EQ(kCodeTimeout, Code(collection->GetFirstChild(&size, record)));
    size = sizeof buffer;
    EXPECT_TRUE(Failed(
        collection->IoctlRequest(session_, kIoctlFirstDeletedChild, 0, nullptr, &size, buffer)));
}
