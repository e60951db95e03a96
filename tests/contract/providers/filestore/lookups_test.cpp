// SPDX-License-Identifier: Apache-2.0
//
// What is found at a path: kinds, capabilities, links, escaped names, and what a HEAD keeps for a
// GET.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "tests/contract/providers/filestore/fixture.h"

using namespace filestore_test;
namespace fs = std::filesystem;

using FileStoreContent = FileStoreTest;

TEST_F(FileStoreContent, FactoryMakesOnlyTheStoresInterfaces)
{
    EXPECT_TRUE(Namespace());
    EXPECT_TRUE(NewResource());
    EXPECT_TRUE(NewCollection());
}

TEST_F(FileStoreContent, CapabilitiesAreTreesAndNamedProperties)
{
    UINT32 caps = 0;
    EXPECT_EQ(0u, Namespace()->GetDAVSupport(&caps));
    EXPECT_EQ(kCapsDeletesTrees | kCapsNamedProperties, caps);
}

TEST_F(FileStoreContent, TypeTellsFilesAndCollectionsApart)
{
    WriteFile(Docs() / "a.txt", "x");
    fs::create_directory(Docs() / "dir");
    const struct {
        const char* path;
        DAV_TYPE type;
    } rows[] = {{"/", Collection},         {"", Collection},          {"/docs", Collection},
                {"/docs/a.txt", Resource}, {"/docs/dir", Collection}, {"/docs//a.txt", Resource}};
    for (const auto& row : rows) {
        DAV_TYPE type = Resource;
        EXPECT_EQ(0u, Type(row.path, &type)) << row.path;
        EXPECT_EQ(row.type, type) << row.path;
    }
}

TEST_F(FileStoreContent, WhatDoesNotExistIsNotFound)
{
    WriteFile(Docs() / "a.txt", "x");
    mkfifo((Docs() / "pipe").c_str(), 0666);
    for (const char* path :
         {"/none", "/none/a.txt", "/docs/b.txt", "/docs/a.txt/b", "/docs/.kest", "/docs/.KEST/tmp",
          "/docs/pipe", "/docs/a\x01", "/docs/../docs/a.txt"}) {
        DAV_TYPE type = Resource;
        EXPECT_EQ(kCodeNotFound, Code(Type(path, &type))) << path;
    }
}

TEST_F(FileStoreContent, LinksInsideAreFollowedAndLinksOutsideAreNotFound)
{
    WriteFile(Docs() / "a.txt", "inside");
    fs::create_symlink("a.txt", Docs() / "in");
    fs::create_symlink("/etc/passwd", Docs() / "absolute");
    fs::create_symlink("../other", Docs() / "relative");
    fs::create_symlink("loop", Docs() / "loop");
    EXPECT_EQ("inside", Get("/docs/in"));
    for (const char* path : {"/docs/absolute", "/docs/relative", "/docs/loop"}) {
        DAV_TYPE type = Resource;
        EXPECT_EQ(kCodeNotFound, Code(Type(path, &type))) << path;
    }
    EXPECT_EQ((std::vector<std::string>{"a.txt", "in"}), Names("/docs"));
}

TEST_F(FileStoreContent, WhatARequestIsAboutToMakeCountsAsAResource)
{
    const struct {
        UINT32 method;
        const char* path;
        const char* destination;
        const char* asked;
        bool found;
    } rows[] = {
        {KestMethodPut, "/Ferro/docs/new", "", "/docs/new", true},
        {KestMethodMkCol, "/Ferro/docs/new/", "", "/docs/new", true},
        {KestMethodLock, "/Ferro/docs/new", "", "/docs/new", true},
        {KestMethodPost, "/Ferro/docs", "", "/docs/new", true},
        {KestMethodCopy, "/Ferro/docs/a", "http://h/Ferro/docs/n%20w", "/docs/n w", true},
        {KestMethodMove, "/Ferro/docs/a", "/Ferro/docs/new", "/docs/new", true},
        {KestMethodMove, "/Ferro/docs/new", "/Ferro/docs/other", "/docs/new", false},
        {KestMethodGet, "/Ferro/docs/new", "", "/docs/new", false},
        {KestMethodPut, "/Ferro/docs/new", "", "/docs/newer", false},
        {KestMethodPut, "/Ferro/none/new", "", "/none/new", false},
        {KestMethodPut, "/Ferro/docs/.kest/x", "", "/docs/.kest/x", false},
    };
    for (const auto& row : rows) {
        ScriptedRequest request;
        request.method = row.method;
        request.path = row.path;
        request.destination = row.destination;
        const RunningRequest running(request);
        DAV_TYPE type = Collection;
        const TALSTATUS status = Type(row.asked, &type);
        EXPECT_EQ(row.found, !Failed(status)) << row.method << " " << row.asked;
        if (row.found) {
            EXPECT_EQ(Resource, type);
        }
    }
}

namespace {

// As long as it lives nothing more can be opened.
class NoDescriptors {
  public:
    NoDescriptors()
    {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before_));
        rlimit none = before_;
        none.rlim_cur = 0;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    }
    ~NoDescriptors() { (void)setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit before_{};
};

} // namespace

TEST_F(FileStoreContent, WhatCannotBeLookedAtIsNotSaidToBeMissing)
{
    WriteFile(Docs() / "file", "content");
    fs::create_directory(Docs() / "dir");
    for (const char* path : {"/docs/file", "/docs/dir"}) {
        SCOPED_TRACE(path);
        ScriptedRequest request;
        request.path = std::string("/Ferro") + path;
        const RunningRequest running(request);
        Wstr name(path);
        const Ref<IKestDAVResource2> resource = NewResource();
        const Ref<IKestDAVCollection2> collection = NewCollection();
        DAV_TYPE type = Collection;
        const auto look = [&] {
            const NoDescriptors none;
            EXPECT_EQ(0u, Type(path, &type));
            DAV_TYPE other = Collection;
            EXPECT_EQ(kCodeNotFound, Code(Type("/no volume/file", &other)));
            EXPECT_EQ(0u, Type(path, &type));
        };
        // What is opened next would be taken for what `type` says, even if it can be by now.
        look();
        EXPECT_EQ(Resource, type);
        EXPECT_EQ(kCodeInsufficientResources,
                  Code(resource->Associate(session_, FALSE, kAccessRead, 1, 0, &name, nullptr)));
        look();
        EXPECT_EQ(kCodeInsufficientResources,
                  Code(collection->Associate(session_, &name, nullptr)));
        // Once: the next look tells.
        EXPECT_EQ(0u, resource->Associate(session_, FALSE, kAccessRead, 1, 0, &name, nullptr));
        look();
        EXPECT_EQ(0u, Type(path, &type));
        EXPECT_EQ(std::string_view(path) == "/docs/dir" ? Collection : Resource, type);
        EXPECT_EQ(0u, resource->Associate(session_, FALSE, kAccessRead, 1, 0, &name, nullptr));
        // Of another path nothing is known.
        look();
        EXPECT_EQ(std::nullopt, Get("/docs/nothing"));
    }
}

TEST_F(FileStoreContent, AnEscapedNameIsFoundForPagesWhenNothingBearsItLiterally)
{
    fs::create_directory(Docs() / "a b");
    WriteFile(Docs() / "a b" / "100%.txt", "x");
    ScriptedRequest request;
    DAV_TYPE type = Resource;
    {
        const RunningRequest running(request);
        EXPECT_EQ(0u, Type("/docs/a%20b", &type));
        EXPECT_EQ(Collection, type);
        EXPECT_EQ("x", Get("/docs/a%20b/100%25.txt"));
        EXPECT_EQ("x", Get("/docs/a b/100%.txt"));
        EXPECT_EQ("x", Get("/docs/a%20b/100%.txt")) << "each name by itself";
        EXPECT_EQ(kCodeNotFound, Code(Type("/docs/%2Ekest", &type)));
        EXPECT_EQ(kCodeNotFound, Code(Type("/docs/a b/..%2F..%2Fother", &type)));
    }
    request.method = KestMethodDelete;
    const RunningRequest running(request);
    EXPECT_EQ(kCodeNotFound, Code(Type("/docs/a%20b", &type)));
}

TEST_F(FileStoreContent, AHeadFindsWhatAGetFinds)
{
    WriteFile(Docs() / "a.txt", "inside");
    WriteFile(Docs() / "plain name", "x");
    fs::create_directory(Docs() / "dir");
    WriteFile(Docs() / "dir" / "b", "four");
    fs::create_symlink("a.txt", Docs() / "in");
    fs::create_symlink("dir", Docs() / "indir");
    fs::create_symlink("/etc/passwd", Docs() / "absolute");
    fs::create_symlink("../other", Docs() / "relative");
    mkfifo((Docs() / "pipe").c_str(), 0666);
    const struct {
        const char* path;
        UINT64 size;
    } files[] = {{"/docs/a.txt", 6},
                 {"/docs/in", 6},
                 {"/docs/dir/b", 4},
                 {"/docs/indir/b", 4},
                 {"/docs/plain%20name", 1}};
    for (const UINT32 method : {KestMethodGet, KestMethodHead}) {
        ScriptedRequest request;
        request.method = method;
        const RunningRequest running(request);
        for (const auto& file : files) {
            DAV_TYPE type = Collection;
            EXPECT_EQ(0u, Type(file.path, &type)) << file.path;
            EXPECT_EQ(Resource, type) << file.path;
            const auto resource = Opened(file.path);
            UINT64 size = 0;
            ASSERT_TRUE(resource) << file.path;
            EXPECT_EQ(0u, resource->GetResourceSize(&size));
            EXPECT_EQ(file.size, size) << file.path;
        }
        for (const char* path : {"/docs", "/docs/dir", "/docs/indir"}) {
            DAV_TYPE type = Resource;
            EXPECT_EQ(0u, Type(path, &type)) << path;
            EXPECT_EQ(Collection, type) << path;
        }
        for (const char* path : {"/docs/absolute", "/docs/relative", "/docs/pipe", "/docs/none"}) {
            DAV_TYPE type = Resource;
            EXPECT_EQ(kCodeNotFound, Code(Type(path, &type))) << path;
        }
    }
}

TEST_F(FileStoreContent, AFileThatAHeadLookedAtIsOpenedWhenItIsUsed)
{
    ASSERT_EQ(0u, Put("/docs/a", "content"));
    ScriptedRequest request;
    request.method = KestMethodHead;
    const RunningRequest running(request);
    DAV_TYPE type = Collection;
    UINT64 date = 0;
    UINT64 size = 0;
    UINT32 read = 0;
    char buffer[16];

    ASSERT_EQ(0u, Type("/docs/a", &type));
    const auto used = Opened("/docs/a", kAccessReadContent);
    ASSERT_TRUE(used);
    EXPECT_EQ(0u, used->Read(0, sizeof buffer, buffer, &read));
    EXPECT_EQ("content", std::string_view(buffer, read));
    EXPECT_EQ(0u, used->GetCreationDate(&date));
    EXPECT_NE(0u, date);

    ASSERT_EQ(0u, Type("/docs/a", &type));
    const auto gone = Opened("/docs/a", kAccessReadContent);
    ASSERT_TRUE(gone);
    fs::remove(Docs() / "a");
    EXPECT_EQ(0u, gone->GetResourceSize(&size));
    EXPECT_EQ(7u, size);
    EXPECT_TRUE(Failed(gone->Read(0, sizeof buffer, buffer, &read)));
    EXPECT_EQ(0u, read);
    EXPECT_TRUE(Failed(gone->GetCreationDate(&date)));
    EXPECT_TRUE(Failed(gone->SetModificationDate(date)));
}

TEST_F(FileStoreContent, AFileOpenedForItsTypeIsNotServedToALaterRequest)
{
    ASSERT_EQ(0u, Put("/docs/a", "old"));
    ScriptedRequest request;
    const RunningRequest running(request);
    DAV_TYPE type = Collection;
    ASSERT_EQ(0u, Type("/docs/a", &type));
    ASSERT_EQ(0u, Put("/docs/a", "new")); // another operation on this thread
    EXPECT_EQ("new", Get("/docs/a"));
}

// What the store keeps for itself is not served by way of a link either, whatever the method.
TEST_F(FileStoreContent, LinksToTheStoresOwnDirectoryLeadNowhere)
{
    ASSERT_EQ(0u, Put("/docs/a.txt", "x"));
    fs::create_directories(Docs() / "sub/nested/.kest");
    WriteFile(Docs() / "sub/nested/.kest/meta.db", "of a volume that lies in this one");
    fs::create_symlink(".kest", Docs() / "own");
    fs::create_symlink("../.kest/tmp", Docs() / "sub/tmp");
    fs::create_symlink(".kest/meta.db", Docs() / "database");
    fs::create_symlink(".", Docs() / "self");
    fs::create_symlink("sub/nested/.kest", Docs() / "nested");
    const std::vector<std::string> before = Entries(Docs() / ".kest");
    for (const std::string path :
         {"/docs/own", "/docs/own/meta.db", "/docs/own/tmp", "/docs/OWN/.kest", "/docs/sub/tmp",
          "/docs/database", "/docs/self/own", "/docs/self/.kest", "/docs/self/.KEST/meta.db",
          "/docs/self/self/own/meta.db", "/docs/nested", "/docs/nested/meta.db"}) {
        SCOPED_TRACE(path);
        DAV_TYPE type{};
        EXPECT_EQ(kCodeNotFound, Code(Type(path, &type)));
        EXPECT_FALSE(Get(path));
        EXPECT_FALSE(OpenedCollection(path));
        EXPECT_TRUE(Failed(Put(path + "/new", "x")));
        EXPECT_TRUE(Failed(MkCol(path + "/made")));
        Wstr inside(path + "/meta.db"), out("/docs/stolen"), from("/docs/a.txt"), into(path + "/b");
        DAV_ERROR_ID error = 0;
        EXPECT_TRUE(Failed(Namespace()->Copy(session_, TRUE, -1, &inside, &out, nullptr, &error)));
        EXPECT_TRUE(Failed(Namespace()->Move(session_, TRUE, -1, &inside, &out, nullptr, &error)));
        EXPECT_TRUE(Failed(Namespace()->Delete(session_, &inside, nullptr, &error)));
        EXPECT_TRUE(Failed(Namespace()->Copy(session_, TRUE, -1, &from, &into, nullptr, &error)));
        EXPECT_TRUE(Failed(Namespace()->Move(session_, TRUE, -1, &from, &into, nullptr, &error)));
    }
    EXPECT_EQ((std::vector<std::string>{"a.txt", "self", "sub"}), Names("/docs"));
    EXPECT_EQ(before, Entries(Docs() / ".kest"));
    EXPECT_EQ("x", Get("/docs/self/a.txt"));
    EXPECT_EQ("of a volume that lies in this one", ReadFile(Docs() / "sub/nested/.kest/meta.db"));
}
