// SPDX-License-Identifier: Apache-2.0
//
// Delete, move, copy, and the deleted entries that are kept.
#include "tests/contract/providers/filestore/fixture.h"

#include <cstring>

#include <sys/stat.h>

using namespace filestore_test;
namespace fs = std::filesystem;

namespace {

class FileStoreTrees : public FileStoreTest {
  protected:
    TALSTATUS Delete(std::string_view path)
    {
        Wstr wide(path);
        DAV_ERROR_ID id = 7;
        return Namespace()->Delete(session_, &wide, nullptr, &id);
    }
    TALSTATUS Move(std::string_view from, std::string_view to, bool overwrite = true)
    {
        Wstr source(from), destination(to);
        DAV_ERROR_ID id = 7;
        return Namespace()->Move(session_, overwrite, -1, &source, &destination, nullptr, &id);
    }
    TALSTATUS Copy(std::string_view from, std::string_view to, bool overwrite = true,
                   INT32 depth = -1)
    {
        Wstr source(from), destination(to);
        DAV_ERROR_ID id = 7;
        return Namespace()->Copy(session_, overwrite, depth, &source, &destination, nullptr, &id);
    }
    TALSTATUS SetProperty(std::string_view path, std::string_view name, const char* value)
    {
        Ref<IKestDAVCollection2> collection = OpenedCollection(path);
        Wstr wide(name);
        UINT32 length = 0;
        const auto bytes = static_cast<UINT32>(value ? strlen(value) : 0);
        char* const text = const_cast<char*>(value);
        if (collection)
            return collection->SetNamedPropertyEnh(&wide, bytes, text, &length, nullptr);
        return Opened(path, kAccessAttributesOnly)
            ->SetNamedPropertyEnh(&wide, bytes, text, &length, nullptr);
    }
    std::string GetProperty(std::string_view path, std::string_view name)
    {
        Ref<IKestDAVCollection2> collection = OpenedCollection(path);
        Wstr wide(name);
        char value[256];
        UINT32 length = sizeof value;
        const TALSTATUS status = collection ? collection->GetNamedProperty(&wide, &length, value)
                                            : Opened(path)->GetNamedProperty(&wide, &length, value);
        return Failed(status) ? "(none)" : std::string(value, length);
    }
    struct Deleted {
        UINT64 id;
        std::string name;
        std::string uri;
        DAV_TYPE type;
        UINT64 size;
        UINT64 time;
    };
    std::vector<Deleted> DeletedIn(std::string_view path)
    {
        std::vector<Deleted> out;
        Ref<IKestDAVCollection2> collection = OpenedCollection(path);
        alignas(DAV_DELETED_ENTRY) char buffer[1024];
        auto* const record = reinterpret_cast<DAV_DELETED_ENTRY*>(buffer);
        UINT32 code = kIoctlFirstDeletedChild;
        for (;;) {
            UINT32 size = sizeof buffer;
            const TALSTATUS status =
                collection->IoctlRequest(session_, code, 0, nullptr, &size, buffer);
            if (Failed(status)) {
                EXPECT_EQ(kCodeNoMoreEntries, Code(status));
                return out;
            }
            EXPECT_NE(0u, record->Enum.State);
            out.push_back({record->FileID,
                           Narrow(record->Enum.DisplayName, record->Enum.DisplayNameLength / 2),
                           Narrow(record->Enum.pURI, record->Enum.URILength / 2), record->Enum.Type,
                           record->Enum.ResourceSize, record->DeleteTime});
            code = kIoctlNextDeletedChild;
        }
    }
    // The deleted entry's provider path.
    static std::string PathOf(const Deleted& entry) { return entry.uri.substr(strlen("/Ferro")); }
};

} // namespace

TEST_F(FileStoreTrees, DeleteTakesFilesAndWholeTrees)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, MkCol("/docs/dir/sub"));
    ASSERT_EQ(0u, Put("/docs/dir/sub/b", "x"));
    EXPECT_EQ(0u, Delete("/docs/a"));
    EXPECT_EQ(0u, Delete("/docs/dir"));
    EXPECT_TRUE(Names("/docs").empty());
    EXPECT_EQ(kCodeNotFound, Code(Delete("/docs/a")));
    EXPECT_EQ(kCodeNotFound, Code(Delete("/docs/none/a")));
    EXPECT_EQ(kCodeAccessDenied, Code(Delete("/docs")));
    EXPECT_EQ(kCodeAccessDenied, Code(Delete("/")));
    EXPECT_EQ(kCodeNotFound, Code(Delete("/docs/.kest")));
}

TEST_F(FileStoreTrees, DeletedEntriesAreListedReadAndRestored)
{
    ASSERT_EQ(0u, MkCol("/docs/keep"));
    ASSERT_EQ(0u, Put("/docs/keep/a b", "hello"));
    ASSERT_EQ(0u, MkCol("/docs/keep/tree"));
    ASSERT_EQ(0u, Put("/docs/keep/tree/leaf", "green"));
    ASSERT_EQ(0u, SetProperty("/docs/keep/a b", "color", "red"));
    ASSERT_EQ(0u, SetProperty("/docs/keep/tree/leaf", "color", "blue"));
    ASSERT_EQ(0u, Delete("/docs/keep/a b"));
    ASSERT_EQ(0u, Delete("/docs/keep/tree"));
    EXPECT_TRUE(Names("/docs/keep").empty());

    const std::vector<Deleted> entries = DeletedIn("/docs/keep");
    ASSERT_EQ(2u, entries.size());
    EXPECT_EQ("a b", entries[0].name);
    EXPECT_EQ("/Ferro/docs/.kest/deleted/" + std::to_string(entries[0].id) + "/a%20b",
              entries[0].uri);
    EXPECT_EQ(5u, entries[0].size);
    EXPECT_EQ(Collection, entries[1].type);
    EXPECT_NE(0u, entries[0].time);

    const std::string file = "/docs/.kest/deleted/" + std::to_string(entries[0].id) + "/a b";
    EXPECT_EQ("hello", Get(file));
    EXPECT_EQ("red", GetProperty(file, "color"));
    WCHAR shown[16];
    UNICODE_STRING name{0, sizeof shown, shown};
    EXPECT_EQ(0u, Opened(file)->GetDisplayName(&name));
    EXPECT_EQ("a b", Narrow(shown, name.Length / 2));
    EXPECT_EQ(std::vector<std::string>{"leaf"}, Names(PathOf(entries[1])));
    EXPECT_EQ("green", Get(PathOf(entries[1]) + "/leaf"));

    EXPECT_EQ(0u, Move(file, "/docs/keep/restored", false));
    EXPECT_EQ(0u, Move(PathOf(entries[1]), "/docs/keep/tree", false));
    EXPECT_EQ("hello", Get("/docs/keep/restored"));
    EXPECT_EQ("red", GetProperty("/docs/keep/restored", "color"));
    EXPECT_EQ("blue", GetProperty("/docs/keep/tree/leaf", "color"));
    EXPECT_TRUE(DeletedIn("/docs/keep").empty());
    EXPECT_EQ(kCodeNotFound, Code(Move(file, "/docs/keep/again", false)));
}

TEST_F(FileStoreTrees, WhatIsDeletedIsOnlyReadRestoredOrDropped)
{
    ASSERT_EQ(0u, MkCol("/docs/keep2"));
    ASSERT_EQ(0u, MkCol("/docs/keep2/tree"));
    ASSERT_EQ(0u, Put("/docs/keep2/tree/leaf", "x"));
    ASSERT_EQ(0u, Delete("/docs/keep2/tree"));
    const std::string tree = PathOf(DeletedIn("/docs/keep2").at(0));
    EXPECT_EQ(kCodeAccessDenied, Code(Put(tree + "/new", "x")));
    EXPECT_EQ(kCodeAccessDenied, Code(MkCol(tree + "/new")));
    EXPECT_EQ(kCodeAccessDenied, Code(SetProperty(tree + "/leaf", "p", "v")));
    EXPECT_EQ(kCodeAccessDenied, Code(Opened(tree + "/leaf")->SetLiveAttributes(1)));
    EXPECT_EQ(kCodeAccessDenied, Code(Delete(tree + "/leaf")));
    EXPECT_EQ(kCodeAccessDenied, Code(Move(tree + "/leaf", "/docs/leaf")));
    const std::string id = tree.substr(0, tree.rfind('/'));
    DAV_TYPE type = Resource;
    for (const std::string& wrong :
         {id, id + "/other", std::string("/docs/.kest/deleted"),
          std::string("/docs/.kest/deleted/x/tree"), tree + "/../../meta.db"})
        EXPECT_EQ(kCodeNotFound, Code(Type(wrong, &type))) << wrong;
    EXPECT_EQ(0u, Copy(tree, "/docs/keep2/copied"));
    EXPECT_EQ("x", Get("/docs/keep2/copied/leaf"));
    EXPECT_EQ(0u, Delete(tree));
    EXPECT_TRUE(DeletedIn("/docs/keep2").empty());
}

TEST_F(FileStoreTrees, DeletedEntriesFollowTheirCollection)
{
    ASSERT_EQ(0u, MkCol("/docs/from"));
    ASSERT_EQ(0u, Put("/docs/from/a", "x"));
    ASSERT_EQ(0u, Delete("/docs/from/a"));
    ASSERT_EQ(0u, Move("/docs/from", "/docs/to"));
    EXPECT_EQ(1u, DeletedIn("/docs/to").size());
    EXPECT_EQ(0u, Delete(PathOf(DeletedIn("/docs/to")[0])));
}

TEST_F(FileStoreTrees, MoveRenamesFilesAndTreesWithTheirProperties)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, Put("/docs/dir/a", "x"));
    ASSERT_EQ(0u, Put("/docs/dirt", "x")); // shares the name's beginning only
    ASSERT_EQ(0u, SetProperty("/docs/dir", "p", "dir"));
    ASSERT_EQ(0u, SetProperty("/docs/dir/a", "p", "a"));
    ASSERT_EQ(0u, SetProperty("/docs/dirt", "p", "dirt"));
    ASSERT_EQ(0u, Opened("/docs/dir/a")->SetLiveAttributes(kAttributeHidden));
    EXPECT_EQ(0u, Move("/docs/dir", "/docs/moved", false));
    EXPECT_EQ("dir", GetProperty("/docs/moved", "p"));
    EXPECT_EQ("a", GetProperty("/docs/moved/a", "p"));
    EXPECT_EQ("dirt", GetProperty("/docs/dirt", "p"));
    EXPECT_EQ(kAttributeHidden, Children("/docs/moved").at(0).attributes);
    EXPECT_EQ((std::vector<std::string>{"dirt", "moved"}), Names("/docs"));
    ASSERT_EQ(0u, Put("/docs/again", "y"));
    EXPECT_EQ("(none)", GetProperty("/docs/again", "p"));
}

TEST_F(FileStoreTrees, MoveReplacesOnlyWhenAsked)
{
    ASSERT_EQ(0u, Put("/docs/a", "new"));
    ASSERT_EQ(0u, Put("/docs/b", "old"));
    ASSERT_EQ(0u, SetProperty("/docs/b", "p", "old"));
    EXPECT_EQ(kCodeObjectExists, Code(Move("/docs/a", "/docs/b", false)));
    EXPECT_EQ("old", Get("/docs/b"));
    EXPECT_EQ(0u, Move("/docs/a", "/docs/b", true));
    EXPECT_EQ("new", Get("/docs/b"));
    EXPECT_EQ("(none)", GetProperty("/docs/b", "p"));
}

TEST_F(FileStoreTrees, ACollectionThatIsReplacedIsKept)
{
    ASSERT_EQ(0u, MkCol("/docs/p"));
    ASSERT_EQ(0u, MkCol("/docs/p/old"));
    ASSERT_EQ(0u, Put("/docs/p/old/in", "x"));
    ASSERT_EQ(0u, Put("/docs/p/file", "y"));
    EXPECT_EQ(0u, Move("/docs/p/file", "/docs/p/old", true));
    EXPECT_EQ("y", Get("/docs/p/old"));
    const std::vector<Deleted> kept = DeletedIn("/docs/p");
    ASSERT_EQ(1u, kept.size());
    EXPECT_EQ("old", kept[0].name);
    EXPECT_EQ("x", Get(PathOf(kept[0]) + "/in"));
    EXPECT_EQ(0u, Delete(PathOf(kept[0])));
}

TEST_F(FileStoreTrees, MoveIsRefusedWhereItMakesNoSense)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, MkCol("/docs/dir/sub"));
    ASSERT_EQ(0u, Put("/docs/ro", "x"));
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    ASSERT_EQ(0u, Opened("/docs/ro")->SetLiveAttributes(kAttributeReadOnly));
    const struct {
        const char* from;
        const char* to;
        UINT16 code;
    } rows[] = {{"/docs/dir", "/docs/dir/sub/x", kCodeAccessDenied},
                {"/docs/dir/sub", "/docs/dir", kCodeAccessDenied},
                {"/docs/none", "/docs/x", kCodeNotFound},
                {"/docs/dir", "/docs/none/x", kCodeConflict},
                {"/docs", "/docs/x", kCodeAccessDenied},
                {"/docs/dir", "/new", kCodeAccessDenied},
                {"/docs/a", "/docs/ro", kCodeAccessDenied},
                {"/docs/dir", "/docs/.kest/x", kCodeInvalidRequest},
                {"/docs/dir", "/docs/x\x01", kCodeInvalidRequest}};
    for (const auto& row : rows)
        EXPECT_EQ(row.code, Code(Move(row.from, row.to))) << row.from << " " << row.to;
    EXPECT_EQ(0u, Move("/docs/a", "/docs/a", true));
    EXPECT_EQ((std::vector<std::string>{"a", "dir", "ro"}), Names("/docs"));
}

TEST_F(FileStoreTrees, CopyTakesContentDatesAttributesAndProperties)
{
    const UINT64 created = 131000000000000000, modified = 131500000000000000;
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, Put("/docs/dir/a", "content"));
    ASSERT_EQ(0u, SetProperty("/docs/dir", "p", "dir"));
    ASSERT_EQ(0u, SetProperty("/docs/dir/a", "p", "a"));
    ASSERT_EQ(0u, Opened("/docs/dir/a")->SetCreationDate(created));
    ASSERT_EQ(0u, Opened("/docs/dir/a")->SetModificationDate(modified));
    ASSERT_EQ(0u, Opened("/docs/dir/a")->SetLiveAttributes(kAttributeHidden | kAttributeReadOnly));
    for (const char* to : {"/docs/copy", "/Other/copy"}) {
        EXPECT_EQ(0u, Copy("/docs/dir", to, false)) << to;
        const std::vector<Child> children = Children(to);
        ASSERT_EQ(1u, children.size()) << to;
        EXPECT_EQ(created, children[0].created) << to;
        EXPECT_EQ(modified, children[0].modified) << to;
        EXPECT_EQ(kAttributeHidden | kAttributeReadOnly, children[0].attributes) << to;
        EXPECT_EQ("dir", GetProperty(to, "p")) << to;
        EXPECT_EQ("a", GetProperty(std::string(to) + "/a", "p")) << to;
        EXPECT_EQ("content", Get(std::string(to) + "/a")) << to;
        EXPECT_EQ(kCodeObjectExists, Code(Copy("/docs/dir", to, false))) << to;
        EXPECT_EQ(0u, Copy("/docs/dir", to, true)) << to;
        EXPECT_EQ("a", GetProperty(std::string(to) + "/a", "p")) << to;
    }
    EXPECT_EQ(0u, Copy("/docs/dir", "/docs/shallow", false, 0));
    EXPECT_TRUE(Names("/docs/shallow").empty());
    EXPECT_EQ("dir", GetProperty("/docs/shallow", "p"));
    EXPECT_EQ("content", Get("/docs/dir/a"));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreTrees, CopyFollowsLinksToFilesOnly)
{
    fs::create_directories(Docs() / "dir/sub");
    WriteFile(Docs() / "dir/a", "x");
    fs::create_symlink("a", Docs() / "dir/link");
    fs::create_symlink("..", Docs() / "dir/sub/up");
    fs::create_symlink("/etc/passwd", Docs() / "dir/out");
    EXPECT_EQ(0u, Copy("/docs/dir", "/docs/copy", false));
    EXPECT_EQ((std::vector<std::string>{"a", "link", "sub"}), Entries(Docs() / "copy"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Docs() / "copy/link")));
    EXPECT_TRUE(Entries(Docs() / "copy/sub").empty());
}

TEST_F(FileStoreTrees, CopyIsRefusedIntoItself)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    EXPECT_EQ(kCodeAccessDenied, Code(Copy("/docs/dir", "/docs/dir/sub")));
    EXPECT_EQ(0u, Copy("/docs/dir", "/docs/dir"));
    EXPECT_EQ(kCodeConflict, Code(Copy("/docs/dir", "/docs/none/x")));
    EXPECT_EQ(kCodeNotFound, Code(Copy("/docs/none", "/docs/x")));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreTrees, ReverseLookupGivesAddressAndPath)
{
    ASSERT_EQ(0u, MkCol("/docs/a"));
    alignas(DAV_REVERSE_LOOKUP) char buffer[1024];
    auto* const record = reinterpret_cast<DAV_REVERSE_LOOKUP*>(buffer);
    UINT32 size = sizeof buffer;
    Ref<IKestDAVCollection2> collection = OpenedCollection("/docs/a");
    ASSERT_EQ(0u,
              collection->IoctlRequest(session_, kIoctlReverseLookup, 0, nullptr, &size, buffer));
    const UINT8 expected[] = {127, 0, 0, 1};
    EXPECT_EQ(0, memcmp(expected, record->Sockaddr + 4, 4));
    EXPECT_EQ(u"docs\\a", std::u16string(record->DirPath));
    size = 60;
    EXPECT_EQ(kCodeBufferTooSmall, Code(collection->IoctlRequest(session_, kIoctlReverseLookup, 0,
                                                                 nullptr, &size, buffer)));
    EXPECT_EQ(52u + 14, size);
    size = sizeof buffer;
    EXPECT_EQ(kCodeNotImplemented,
              Code(collection->IoctlRequest(session_, 1, 0, nullptr, &size, buffer)));
}
