// SPDX-License-Identifier: Apache-2.0
//
// Dead properties and the hidden mark.
#include "tests/contract/providers/filestore/fixture.h"

#include <cstring>

using namespace filestore_test;

namespace {

class FileStoreProperties : public FileStoreTest {
  protected:
    TALSTATUS Set(std::string_view path, std::string_view name, const std::string* value)
    {
        Wstr wide(name);
        UINT32 length = 1000;
        char result[1000];
        const TALSTATUS status =
            Opened(path, kAccessAttributesOnly)
                ->SetNamedPropertyEnh(&wide, static_cast<UINT32>(value ? value->size() : 0),
                                      value ? const_cast<char*>(value->data()) : nullptr, &length,
                                      result);
        if (!Failed(status)) {
            EXPECT_EQ(0u, length);
        }
        return status;
    }
    TALSTATUS Set(std::string_view path, std::string_view name, const std::string& value)
    {
        return Set(path, name, &value);
    }
    std::string Find(std::string_view path, std::string_view name)
    {
        Wstr wide(name);
        char value[64];
        UINT32 length = sizeof value;
        if (Failed(Opened(path)->GetNamedProperty(&wide, &length, value)))
            return "(none)";
        return std::string(value, length);
    }
    // "name=value" of all, in their order.
    std::vector<std::string> All(std::string_view path)
    {
        std::vector<std::string> out;
        Ref<IKestDAVResource2> resource = Opened(path);
        alignas(DAV_NAMED_PROPERTY) char buffer[4096];
        auto* const record = reinterpret_cast<DAV_NAMED_PROPERTY*>(buffer);
        UINT32 size = sizeof buffer;
        TALSTATUS status = resource->GetFirstProperty(&size, record);
        while (!Failed(status)) {
            const auto* const name = reinterpret_cast<const WCHAR*>(buffer + record->NameOffset);
            out.push_back(
                Narrow(name, record->NameLength / 2) + "=" +
                std::string(buffer + offsetof(DAV_NAMED_PROPERTY, Value), record->ValueLength));
            EXPECT_LE(record->NameOffset + record->NameLength, size);
            size = sizeof buffer;
            status = resource->GetNextProperty(&size, record);
        }
        EXPECT_EQ(kCodeNoMoreEntries, Code(status));
        return out;
    }
};

using Strings = std::vector<std::string>;

} // namespace

TEST_F(FileStoreProperties, AreKeptAsGivenAndInOrder)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    EXPECT_TRUE(All("/docs/a").empty());
    EXPECT_EQ(0u, Set("/docs/a", "Z:color", "<b>red</b>"));
    EXPECT_EQ(0u, Set("/docs/a", "author", ""));
    EXPECT_EQ(0u, Set("/docs/a", "größe", "odd"));
    EXPECT_EQ(0u, Set("/docs/a", "Z:color", "blue"));
    EXPECT_EQ((Strings{"Z:color=blue", "author=", "größe=odd"}), All("/docs/a"));
    EXPECT_EQ(0u, Set("/docs/a", "author", nullptr));
    EXPECT_EQ(0u, Set("/docs/a", "never there", nullptr));
    EXPECT_EQ((Strings{"Z:color=blue", "größe=odd"}), All("/docs/a"));
}

TEST_F(FileStoreProperties, ANameWithoutPrefixFindsTheOneStoredWithIt)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    ASSERT_EQ(0u, Set("/docs/a", "Z:color", "prefixed"));
    EXPECT_EQ("prefixed", Find("/docs/a", "color"));
    EXPECT_EQ("prefixed", Find("/docs/a", "Z:color"));
    EXPECT_EQ("(none)", Find("/docs/a", "Y:color"));
    ASSERT_EQ(0u, Set("/docs/a", "Y:color", "later"));
    EXPECT_EQ("prefixed", Find("/docs/a", "color")) << "the one that was set first";
    EXPECT_EQ("(none)", Find("/docs/a", "olor"));
    ASSERT_EQ(0u, Set("/docs/a", "color", "plain"));
    EXPECT_EQ("plain", Find("/docs/a", "color"));
}

TEST_F(FileStoreProperties, ShortBuffersAreToldTheSizeAndLoseNothing)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    ASSERT_EQ(0u, Set("/docs/a", "name", std::string(100, 'v')));
    Ref<IKestDAVResource2> resource = Opened("/docs/a");
    Wstr name("name");
    char value[100];
    UINT32 length = 99;
    EXPECT_EQ(kCodeBufferTooSmall, Code(resource->GetNamedProperty(&name, &length, value)));
    EXPECT_EQ(100u, length);
    EXPECT_EQ(0u, resource->GetNamedProperty(&name, &length, value));
    alignas(DAV_NAMED_PROPERTY) char buffer[128];
    auto* const record = reinterpret_cast<DAV_NAMED_PROPERTY*>(buffer);
    length = 64;
    EXPECT_EQ(kCodeBufferTooSmall, Code(resource->GetFirstProperty(&length, record)));
    EXPECT_EQ(16u + 100 + 8, length);
    length = sizeof buffer;
    EXPECT_EQ(0u, resource->GetNextProperty(&length, record));
    length = sizeof buffer;
    EXPECT_EQ(kCodeNoMoreEntries, Code(resource->GetNextProperty(&length, record)));
    EXPECT_EQ(0u, resource->GetFirstProperty(&length, record)) << "from the beginning";
}

TEST_F(FileStoreProperties, AMebibyteIsTheMost)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    EXPECT_EQ(0u, Set("/docs/a", "small", "kept"));
    EXPECT_EQ(0u, Set("/docs/a", "big", std::string(1 << 20, 'x')));
    EXPECT_TRUE(Failed(Set("/docs/a", "big", std::string((1 << 20) + 1, 'y'))));
    EXPECT_EQ("kept", Find("/docs/a", "small"));
    Wstr name("big");
    std::string value(1 << 20, '\0');
    auto length = static_cast<UINT32>(value.size());
    EXPECT_EQ(0u, Opened("/docs/a")->GetNamedProperty(&name, &length, value.data()));
    EXPECT_EQ(std::string(1 << 20, 'x'), value);
}

TEST_F(FileStoreProperties, StayWhenContentIsReplacedAndGoWithTheFile)
{
    ASSERT_EQ(0u, Put("/docs/a", "one"));
    ASSERT_EQ(0u, Set("/docs/a", "p", "v"));
    ASSERT_EQ(0u, Opened("/docs/a")->SetLiveAttributes(kAttributeHidden));
    ASSERT_EQ(0u, Put("/docs/a", "two"));
    EXPECT_EQ("v", Find("/docs/a", "p"));
    UINT32 attributes = 0;
    EXPECT_EQ(0u, Opened("/docs/a")->GetLiveAttributes(&attributes));
    EXPECT_EQ(kAttributeHidden, attributes);
    // Removed behind the store's back: a new file of the name starts without.
    std::filesystem::remove(Docs() / "a");
    ASSERT_EQ(0u, Put("/docs/a", "three"));
    EXPECT_TRUE(All("/docs/a").empty());
    EXPECT_EQ(0u, Opened("/docs/a")->GetLiveAttributes(&attributes));
    EXPECT_EQ(0u, attributes);
    // Nor does one that a lock makes.
    ASSERT_EQ(0u, Set("/docs/a", "p", "v"));
    std::filesystem::remove(Docs() / "a");
    Wstr path("/docs/a");
    char token[64];
    DAV_LOCK_TOKEN out{0, sizeof token, token};
    ASSERT_EQ(0u,
              Namespace()->Lock(session_, 0, -1, Exclusive, Write, &path, nullptr, &out, nullptr));
    EXPECT_TRUE(All("/docs/a").empty());
    EXPECT_EQ(0u, Namespace()->Unlock(session_, &path, &out));
}

TEST_F(FileStoreProperties, TheHiddenMarkIsSetListedAndCleared)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, Opened("/docs/a")->SetLiveAttributes(kAttributeHidden | kAttributeReadOnly));
    ASSERT_EQ(0u, OpenedCollection("/docs/dir")->SetLiveAttributes(kAttributeHidden));
    const std::vector<Child> children = Children("/docs");
    ASSERT_EQ(2u, children.size());
    EXPECT_EQ(kAttributeHidden | kAttributeReadOnly, children[0].attributes);
    EXPECT_EQ(kAttributeHidden, children[1].attributes);
    ASSERT_EQ(0u, Opened("/docs/a")->SetLiveAttributes(0));
    EXPECT_EQ(0u, Children("/docs")[0].attributes);
}

TEST_F(FileStoreProperties, BadNamesAreRefused)
{
    ASSERT_EQ(0u, Put("/docs/a", ""));
    EXPECT_TRUE(Failed(Set("/docs/a", "", "v")));
    EXPECT_TRUE(Failed(Set("/docs/a", std::string(5000, 'n'), "v")));
    Ref<IKestDAVResource2> resource = Opened("/docs/a");
    WCHAR lone[] = {0xD800, 'x'};
    UNICODE_STRING name{4, 4, lone};
    char value[] = "v";
    UINT32 length = 0;
    EXPECT_TRUE(Failed(resource->SetNamedPropertyEnh(&name, 1, value, &length, nullptr)));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->GetNamedProperty(nullptr, &length, value)));
}

TEST_F(FileStoreProperties, TheRootKeepsNone)
{
    Wstr name("p");
    char value[] = "v";
    UINT32 length = 0;
    EXPECT_EQ(kCodeAccessDenied,
              Code(OpenedCollection("/")->SetNamedPropertyEnh(&name, 1, value, &length, nullptr)));
    EXPECT_EQ(kCodeNotFound, Code(OpenedCollection("/")->GetNamedProperty(&name, &length, value)));
}
