// SPDX-License-Identifier: Apache-2.0
//
// Contents of files through the second generation of the provider interface.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "tests/contract/providers/filestore/fixture.h"

using namespace filestore_test;
namespace fs = std::filesystem;

using FileStoreContent = FileStoreTest;

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
