// SPDX-License-Identifier: Apache-2.0
//
// Dead and live properties through the third generation.
#include <cstring>

#include "tests/contract/providers/filestore/third.h"

using namespace filestore_test;

namespace {

constexpr UINT64 kUnitsPerSecond = 10'000'000; // of dates

class FileStoreProperties3 : public ThirdTest {
  protected:
    void SetUp() override
    {
        ThirdTest::SetUp();
        ASSERT_EQ(0u, Store("/docs/a", "content"));
    }
    TALSTATUS SetClassic(const char* name, std::string value)
    {
        Wstr wide(name);
        UINT32 length = 1000;
        char result[1000];
        return Opened("/docs/a", kAccessAttributesOnly)
            ->SetNamedPropertyEnh(&wide, static_cast<UINT32>(value.size()), value.data(), &length,
                                  result);
    }
    std::string GetClassic(const char* name)
    {
        Wstr wide(name);
        char value[256];
        UINT32 length = sizeof value;
        return Failed(Opened("/docs/a")->GetNamedProperty(&wide, &length, value))
                   ? "(none)"
                   : std::string(value, length);
    }
};

using Strings = std::vector<std::string>;

} // namespace

TEST_F(FileStoreProperties3, AreKeptWholeByNamespaceAndName)
{
    const std::string value = "<x:p xmlns:x=\"urn:x\" xml:lang=\"de\" y='1'>a<b/>&amp;</x:p>";
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p", value));
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:y", "p", "<p xmlns=\"urn:y\"/>"));
    ASSERT_EQ(0u, SetOne("/docs/a", "", "p", "<p>none</p>"));
    EXPECT_EQ((Strings{"{urn:x}p=" + value, "{urn:y}p=<p xmlns=\"urn:y\"/>", "{}p=<p>none</p>"}),
              Properties("/docs/a"));
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p", "<x:p xmlns:x=\"urn:x\"/>"));
    EXPECT_EQ("{urn:x}p=<x:p xmlns:x=\"urn:x\"/>", Properties("/docs/a")[0]) << "in its place";
    EXPECT_TRUE(Properties("/docs/none").empty());
    EXPECT_TRUE(Properties("/").empty());
}

TEST_F(FileStoreProperties3, AreHandedOutAsManyAsFit)
{
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p" + std::to_string(i),
                             std::string(size_t(i) * 40, 'v')));
    const Strings all = Properties("/docs/a", 65536);
    EXPECT_EQ(20u, all.size());
    EXPECT_EQ(all, Properties("/docs/a", 1024));
    Wstr path("/docs/a");
    UINT64 place = 0;
    alignas(8) char buffer[32];
    UINT32 size = 16;
    EXPECT_EQ(kCodeBufferTooSmall,
              Code(third_->GetProperties(session_, &path, &place, &size,
                                         reinterpret_cast<DAV_PROPERTY*>(buffer))));
    EXPECT_EQ(24u, size) << "16 for the head, 7 for the text, a multiple of 8";
    EXPECT_EQ(0u, place);
}

TEST_F(FileStoreProperties3, ArePatchedInOrderAllOrNone)
{
    std::vector changes = {Set("urn:x", "p", "1"), Remove("urn:x", "p"), Set("urn:x", "p", "2"),
                           Set("urn:x", "q", "3"), Remove("urn:x", "never there")};
    changes[4] = Remove("urn:x", "neverthere");
    ASSERT_EQ(0u, Patch("/docs/a", changes));
    EXPECT_EQ((Strings{"{urn:x}p=2", "{urn:x}q=3"}), Properties("/docs/a"));
    std::vector bad = {Set("urn:x", "p", "new"), Set("urn:x", "1p", "x"), Remove("urn:x", "q"),
                       Live(kPropertyModified, 12'900'000'000 * kUnitsPerSecond), Live(77, 1)};
    const std::string tag = Tag("/docs/a");
    EXPECT_EQ(kCodeInvalidParameter, Code(Patch("/docs/a", bad)));
    EXPECT_EQ(0u, bad[0].Status);
    EXPECT_EQ(kCodeInvalidParameter, Code(bad[1].Status));
    EXPECT_EQ(0u, bad[2].Status);
    EXPECT_EQ(0u, bad[3].Status);
    EXPECT_EQ(kCodeNotImplemented, Code(bad[4].Status));
    EXPECT_EQ((Strings{"{urn:x}p=2", "{urn:x}q=3"}), Properties("/docs/a"));
    EXPECT_EQ(tag, Tag("/docs/a"));
    EXPECT_EQ(kCodeNotFound, Code(SetOne("/docs/none", "", "p", "v")));
    EXPECT_EQ(kCodeAccessDenied, Code(SetOne("/", "", "p", "v")));
}

TEST_F(FileStoreProperties3, RefuseWhatXmlCannotHold)
{
    for (const auto& [space, name, value] :
         std::vector<std::array<std::string, 3>>{{"urn:\x01", "p", "v"},
                                                 {"", "a:b", "v"},
                                                 {"", "", "v"},
                                                 {"", "p", "a\xFF"},
                                                 {"", "p", std::string("a\0", 2)},
                                                 {"", "p<", "v"}})
        EXPECT_EQ(kCodeInvalidParameter, Code(SetOne("/docs/a", space, name, value))) << name;
    EXPECT_EQ(kCodeStorageFull, Code(SetOne("/docs/a", "", "p", std::string((1 << 20) + 1, 'x'))));
    EXPECT_EQ(0u, SetOne("/docs/a", "", "p", std::string(1 << 20, 'x')));
    EXPECT_TRUE(Failed(SetOne("/docs/a", std::string(5000, 'x'), "p", "v")));
    EXPECT_EQ(1u, Properties("/docs/a", 2 << 20).size());
}

TEST_F(FileStoreProperties3, ThatAreTooLongLeaveTheDeletedEntriesAlone)
{
    ASSERT_EQ(0u, Store("/docs/gone", "x"));
    ASSERT_EQ(0u, Delete("/docs/gone"));
    const auto kept = Entries(Docs() / ".kest/deleted");
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(kCodeStorageFull, Code(SetOne("/docs/a", "", "p", std::string((1 << 20) + 1, 'x'))));
    Wstr folder("/docs/d");
    const std::string value((1 << 20) + 1, 'x');
    std::vector changes = {Set("", "p", value)};
    EXPECT_EQ(kCodeStorageFull, Code(third_->MakeCollection(session_, &folder, nullptr, 1,
                                                            changes.data(), nullptr, nullptr)));
    EXPECT_EQ(kept, Entries(Docs() / ".kest/deleted"));
}

TEST_F(FileStoreProperties3, AreChangedTogetherWithDatesAndAttributes)
{
    std::vector changes = {Set("urn:x", "p", "1"),
                           Live(kPropertyModified, 12'900'000'000 * kUnitsPerSecond),
                           Live(kPropertyCreated, 12'800'000'000 * kUnitsPerSecond),
                           Live(kPropertyAttributes, kAttributeReadOnly | kAttributeHidden)};
    ASSERT_EQ(0u, Patch("/docs/a", changes));
    DAV_OBJECT_INFO info;
    ASSERT_EQ(0u, Info("/docs/a", &info));
    EXPECT_EQ(12'900'000'000u, info.ModificationDate / kUnitsPerSecond);
    EXPECT_EQ(12'800'000'000u, info.CreationDate / kUnitsPerSecond);
    EXPECT_EQ(kAttributeReadOnly | kAttributeHidden, info.Attributes);
    EXPECT_EQ('"', TagOf(info).front());
    EXPECT_EQ(info.Attributes, Members("/docs").at("a").Attributes);
    changes = {Live(kPropertyAttributes, 0)};
    ASSERT_EQ(0u, Patch("/docs/a", changes));
    ASSERT_EQ(0u, Info("/docs/a", &info));
    EXPECT_EQ(0u, info.Attributes);
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    changes = {Live(kPropertyModified, 12'900'000'000 * kUnitsPerSecond)};
    ASSERT_EQ(0u, Patch("/docs/d", changes));
    ASSERT_EQ(0u, Info("/docs/d", &info));
    EXPECT_EQ(12'900'000'000u, info.ModificationDate / kUnitsPerSecond);
}

TEST_F(FileStoreProperties3, AreChangedUnderPreconditions)
{
    const std::string tag = Tag("/docs/a");
    EXPECT_EQ(kCodePreconditionFailed,
              Code(SetOne("/docs/a", "", "p", "v", Given().Match("\"other\""))));
    EXPECT_TRUE(Properties("/docs/a").empty());
    EXPECT_EQ(0u, SetOne("/docs/a", "", "p", "v", Given().Match(tag)));
    EXPECT_EQ(tag, Tag("/docs/a")) << "the content is the same";
}

TEST_F(FileStoreProperties3, OfEarlierGenerationsAreSeenAndChanged)
{
    ASSERT_EQ(0u, SetClassic("Z:color", "<b>"));
    ASSERT_EQ(0u, SetClassic("plain", "text"));
    ASSERT_EQ(0u, SetClassic("not a name", "hidden"));
    EXPECT_EQ((Strings{"{urn:kest:prefix:Z}color=<color xmlns=\"urn:kest:prefix:Z\">&lt;b&gt;"
                       "</color>",
                       "{}plain=<plain xmlns=\"\">text</plain>"}),
              Properties("/docs/a"));
    ASSERT_EQ(0u, SetOne("/docs/a", "", "plain", "<plain>new</plain>"));
    std::vector changes = {Remove("urn:kest:prefix:Z", "color")};
    ASSERT_EQ(0u, Patch("/docs/a", changes));
    EXPECT_EQ((Strings{"{}plain=<plain>new</plain>"}), Properties("/docs/a"));
    EXPECT_EQ("new", GetClassic("plain"));
    EXPECT_EQ("(none)", GetClassic("Z:color"));
}

TEST_F(FileStoreProperties3, AreSeenByEarlierGenerationsByTheirLocalNames)
{
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p", "<x:p xmlns:x=\"urn:x\">a<b/></x:p>"));
    EXPECT_EQ("a<b/>", GetClassic("p"));
    ASSERT_EQ(0u, SetClassic("p", "own"));
    EXPECT_EQ("own", GetClassic("p"));
    EXPECT_EQ(2u, Properties("/docs/a").size());
}

TEST_F(FileStoreProperties3, GoWithTheirObject)
{
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p", "v"));
    ASSERT_EQ(0u, Delete("/docs/a"));
    EXPECT_TRUE(Properties("/docs/a").empty());
    ASSERT_EQ(0u, Store("/docs/a", "again"));
    EXPECT_TRUE(Properties("/docs/a").empty());
    ASSERT_EQ(0u, SetOne("/docs/a", "urn:x", "p", "v"));
    ASSERT_EQ(0u, Store("/docs/a", "new content"));
    EXPECT_EQ(1u, Properties("/docs/a").size()) << "what is replaced keeps its own";
}
