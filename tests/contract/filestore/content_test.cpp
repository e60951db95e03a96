// SPDX-License-Identifier: Apache-2.0
//
// Files: types, reading, writing, dates and attributes.
#include "tests/contract/filestore/fixture.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

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

TEST_F(FileStoreContent, PutMakesAndReplaces)
{
    EXPECT_EQ(0u, Put("/docs/a.txt", "one"));
    EXPECT_EQ("one", ReadFile(Docs() / "a.txt"));
    EXPECT_EQ(0u, Put("/docs/a.txt", "2"));
    EXPECT_EQ("2", ReadFile(Docs() / "a.txt"));
    EXPECT_EQ(0u, Put("/docs/empty", ""));
    EXPECT_EQ("", Get("/docs/empty"));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreContent, PutIsRefusedWhereNothingCanBeStored)
{
    WriteFile(Docs() / "file", "x");
    fs::create_directory(Docs() / "dir");
    const std::string longName(256, 'n');
    const struct {
        std::string path;
        UINT16 code;
    } rows[] = {{"/", kCodeAccessDenied},
                {"/new", kCodeAccessDenied},
                {"/none/new", kCodeAccessDenied},
                {"/docs", kCodeMethodNotAllowed},
                {"/docs/dir", kCodeMethodNotAllowed},
                {"/docs/none/new", kCodeConflict},
                {"/docs/file/new", kCodeConflict},
                {"/docs/.Kest/new", kCodeInvalidRequest},
                {"/docs/new\x07", kCodeInvalidRequest},
                {"/docs/\x7f", kCodeInvalidRequest},
                {"/docs/..", kCodeInvalidRequest},
                {"/docs/" + longName, kCodeNameTooLong}};
    for (const auto& row : rows)
        EXPECT_EQ(row.code, Code(Put(row.path, "x"))) << row.path;
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreContent, PutReplacesALinkAndNotWhatItPointsTo)
{
    WriteFile(Other() / "victim", "old");
    fs::create_symlink("../other/victim", Docs() / "link");
    EXPECT_EQ(0u, Put("/docs/link", "new"));
    EXPECT_EQ("old", ReadFile(Other() / "victim"));
    EXPECT_EQ("new", ReadFile(Docs() / "link"));
}

TEST_F(FileStoreContent, ABodyThatBreaksOffLeavesTheOldContentAndIsReported)
{
    ASSERT_EQ(0u, Put("/docs/a", "old"));
    ScriptedRequest request;
    request.method = KestMethodPut;
    request.path = "/Ferro/docs/a";
    request.bodyComplete = false;
    {
        const RunningRequest running(request);
        EXPECT_EQ(kCodeInvalidRequest, Code(Put("/docs/a", "half of the new con")));
    }
    EXPECT_EQ(1u, request.failures.size());
    EXPECT_EQ("old", ReadFile(Docs() / "a"));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreContent, AFormsPartIsKeptWhileMoreOfTheBodyIsToCome)
{
    ScriptedRequest request;
    request.method = KestMethodPost;
    request.path = "/Ferro/docs";
    request.bodyComplete = false;
    request.bodyLeft = 10;
    const RunningRequest running(request);
    EXPECT_EQ(0u, Put("/docs/part", "content"));
    EXPECT_EQ("content", ReadFile(Docs() / "part"));
    request.bodyLeft = 0; // the client went away
    EXPECT_TRUE(Failed(Put("/docs/other", "conte")));
    EXPECT_FALSE(fs::exists(Docs() / "other"));
}

TEST_F(FileStoreContent, ACommitThatFailsIsReported)
{
    fs::create_directory(Docs() / "dir");
    ScriptedRequest request;
    request.method = KestMethodPut;
    const RunningRequest running(request);
    {
        Ref<IKestDAVResource2> resource = NewResource();
        Wstr path("/docs/dir/a");
        ASSERT_EQ(0u, resource->Associate(session_, TRUE, 7, 1, 0, &path, nullptr));
        fs::create_directory(Docs() / "dir/a");
    }
    ASSERT_EQ(1u, request.failures.size());
    EXPECT_EQ(kCodeConflict, Code(request.failures[0]));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
}

TEST_F(FileStoreContent, ReadersSeeOneVersionWhileAnotherIsPut)
{
    ASSERT_EQ(0u, Put("/docs/a", "first"));
    Ref<IKestDAVResource2> reader = Opened("/docs/a", kAccessReadContent);
    ASSERT_EQ(0u, Put("/docs/a", "the second"));
    UINT64 size = 0;
    char buffer[16];
    UINT32 read = 0;
    EXPECT_EQ(0u, reader->GetResourceSize(&size));
    EXPECT_EQ(5u, size);
    EXPECT_EQ(0u, reader->Read(0, 16, buffer, &read));
    EXPECT_EQ("first", std::string(buffer, read));
    EXPECT_EQ(0u, reader->Read(5, 16, buffer, &read));
    EXPECT_EQ(0u, read);
}

TEST_F(FileStoreContent, AReplacedFileKeepsModeAndCreationDate)
{
    WriteFile(Docs() / "a", "old");
    ASSERT_EQ(0, chmod((Docs() / "a").c_str(), 0640));
    const UINT64 created = 130000000000000000;
    ASSERT_EQ(0u, Opened("/docs/a")->SetCreationDate(created));
    ASSERT_EQ(0u, Put("/docs/a", "new"));
    struct stat s;
    ASSERT_EQ(0, stat((Docs() / "a").c_str(), &s));
    EXPECT_EQ(0640u, s.st_mode & 07777);
    UINT64 now = 0;
    EXPECT_EQ(0u, Opened("/docs/a")->GetCreationDate(&now));
    EXPECT_EQ(created, now);
    EXPECT_EQ(created, Children("/docs")[0].created);
}

TEST_F(FileStoreContent, DatesAndAttributesOfACopysDestinationHoldAfterItsRelease)
{
    const UINT64 created = 131000000000000000, modified = 131500000000000000;
    {
        Ref<IKestDAVResource2> resource = NewResource();
        Wstr path("/docs/copy");
        EXPECT_EQ(kCodeNotFound,
                  Code(resource->Associate(session_, FALSE, 6, 0, 0, &path, nullptr)));
        ASSERT_EQ(0u, resource->Associate(session_, TRUE, 6, 1, 0, &path, nullptr));
        char text[] = "content";
        UINT32 written = 0;
        ASSERT_EQ(0u, resource->Write(0, 7, text, &written));
        EXPECT_EQ(7u, written);
        EXPECT_EQ(0u, resource->SetLiveAttributes(kAttributeReadOnly));
        EXPECT_EQ(0u, resource->SetModificationDate(modified));
        EXPECT_EQ(0u, resource->SetCreationDate(created));
    }
    const std::vector<Child> children = Children("/docs");
    ASSERT_EQ(1u, children.size());
    EXPECT_EQ(created, children[0].created);
    EXPECT_EQ(modified, children[0].modified);
    EXPECT_EQ(kAttributeReadOnly, children[0].attributes);
    EXPECT_EQ(7u, children[0].size);
}

TEST_F(FileStoreContent, ACopysCreationDateIsKeptOnlyWhereItsContentDoesNotTellIt)
{
    constexpr UINT64 kDate = 120'000'000'000'000'000, kSecond = 10'000'000;
    constexpr UINT64 kFuture = 160'000'000'000'000'000; // in the year 2108
    const struct {
        std::string name;
        UINT64 modified, created, told;
        bool isKept;
    } cases[] = {
        {"same", kDate, kDate, kDate, false},
        {"same-second", kDate, kDate + kSecond - 1, kDate, false},
        {"older", kDate, kDate - 1, kDate - 1, true},
        {"younger", kDate, kDate + kSecond, kDate + kSecond, true},
        {"future", kFuture, kFuture, kFuture, true},
    };
    for (const auto& c : cases) {
        Ref<IKestDAVResource2> copy = NewResource();
        Wstr path("/docs/" + c.name);
        ASSERT_EQ(0u, copy->Associate(session_, TRUE, kAccessWriteContent, 1, 0, &path, nullptr));
        EXPECT_EQ(0u, copy->SetModificationDate(c.modified));
        EXPECT_EQ(0u, copy->SetCreationDate(c.created));
    }
    std::map<std::string, UINT64> listed;
    for (const Child& child : Children("/docs"))
        listed[child.name] = child.created;
    for (const auto& c : cases) {
        UINT64 opened = 0;
        EXPECT_EQ(0u, Opened("/docs/" + c.name)->GetCreationDate(&opened));
        EXPECT_EQ(c.told, opened) << c.name;
        EXPECT_EQ(c.told, listed[c.name]) << c.name;
        EXPECT_EQ(c.isKept,
                  getxattr((Docs() / c.name).c_str(), "user.kest.created", nullptr, 0) >= 0)
            << c.name;
    }
}

TEST_F(FileStoreContent, AFileIsNoYoungerThanWhatIsInIt)
{
    const UINT64 modified = 120'000'000'000'000'000;
    ASSERT_EQ(0u, Put("/docs/a", "old"));
    ASSERT_EQ(0u, Opened("/docs/a", kAccessWrite)->SetModificationDate(modified));
    UINT64 created = 0;
    EXPECT_EQ(0u, Opened("/docs/a")->GetCreationDate(&created));
    EXPECT_EQ(modified, created);
    EXPECT_EQ(modified, Children("/docs")[0].created);
}

TEST_F(FileStoreContent, AReadOnlyFileIsNotReplacedUntilItIsWritableAgain)
{
    ASSERT_EQ(0u, Put("/docs/a", "old"));
    ASSERT_EQ(0u, Opened("/docs/a", kAccessWrite)->SetLiveAttributes(kAttributeReadOnly));
    UINT32 attributes = 0;
    EXPECT_EQ(0u, Opened("/docs/a")->GetLiveAttributes(&attributes));
    EXPECT_EQ(kAttributeReadOnly, attributes);
    EXPECT_EQ(kCodeAccessDenied, Code(Put("/docs/a", "new")));
    ASSERT_EQ(0u, Opened("/docs/a", kAccessWrite)->SetLiveAttributes(0));
    EXPECT_EQ(0u, Put("/docs/a", "new"));
    EXPECT_EQ("new", Get("/docs/a"));
}

TEST_F(FileStoreContent, WritingIntoAnExistingFileKeepsTheRest)
{
    ASSERT_EQ(0u, Put("/docs/a", "0123456789"));
    {
        Ref<IKestDAVResource2> resource = Opened("/docs/a", kAccessWriteContent);
        ASSERT_TRUE(resource);
        char text[] = "XY";
        UINT32 written = 0;
        EXPECT_EQ(0u, resource->Write(4, 2, text, &written));
        EXPECT_EQ("0123456789", ReadFile(Docs() / "a")); // not before it is complete
    }
    EXPECT_EQ("0123XY6789", ReadFile(Docs() / "a"));
}

TEST_F(FileStoreContent, ETagsChangeWithTheContent)
{
    ASSERT_EQ(0u, Put("/docs/a", "one"));
    DAV_ETAG first{}, again{}, second{};
    EXPECT_EQ(0u, Opened("/docs/a")->GetETag(&first));
    EXPECT_EQ(0u, Opened("/docs/a")->GetETag(&again));
    ASSERT_EQ(0u, Put("/docs/a", "two"));
    EXPECT_EQ(0u, Opened("/docs/a")->GetETag(&second));
    EXPECT_EQ(0, memcmp(&first, &again, sizeof first));
    EXPECT_NE(0, memcmp(&first, &second, sizeof first));
}

TEST_F(FileStoreContent, AnObjectThatIsNotAssociatedRefusesEverything)
{
    Ref<IKestDAVResource2> resource = NewResource();
    UINT64 number = 0;
    UINT32 small = 0;
    char byte = 0;
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->GetResourceSize(&number)));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->GetCreationDate(&number)));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->Read(0, 1, &byte, &small)));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->Write(0, 1, &byte, &small)));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->SetLiveAttributes(0)));
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
