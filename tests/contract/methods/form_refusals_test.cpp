// SPDX-License-Identifier: Apache-2.0
//
// Forms that fail in part or wholly: providers, bodies, paths and names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "form.h"

using form::Body;
using form::kBoundary;
using form::kError;
using form::kSuccess;
using form::MakeWorld;
using form::Upload;
using harness::ProviderFailure;
using harness::Reply;
using harness::Request;
using testing::ElementsAre;

TEST(FormUpload, OverwriteOfZero_OtherFailureThanNotFound_FailsThePart)
{
    const auto world = MakeWorld();
    world->Fail("vol.res.Associate", ProviderFailure(kCodeLocked));
    const Reply reply =
        world->Run(Upload(Body({{.content = "x", .file = "a"}, {.content = "y", .file = "b"}}))
                       .Query("overwrite=0"));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(Code(reply.returned), kCodeLocked);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "(missing)");
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "y");
    world->ExpectAtRest();
}

TEST(FormUpload, PartThatCannotBeWritten_DoesNotStopTheOthers_FirstFailureDecides)
{
    const struct {
        const char* call;
        UINT16 code;
    } rows[] = {
        {"vol.Create", kCodeInsufficientResources},
        {"vol.res.Associate", kCodeLocked},
        {"vol.res.Write", kCodeStorageFull},
    };
    for (const auto& row : rows) {
        const auto world = MakeWorld();
        world->Fail(row.call, ProviderFailure(row.code), 1);
        world->Fail(row.call, ProviderFailure(kCodeConflict), 2); // of those that did not fail
        const Reply reply = world->Run(Upload(Body({{.content = "1", .file = "a"},
                                                    {.content = "2", .file = "b"},
                                                    {.content = "3", .file = "c"},
                                                    {.content = "4", .file = "d"}})));
        EXPECT_EQ(reply.text, kError) << row.call;
        EXPECT_EQ(Code(reply.returned), row.code) << row.call;
        EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "2") << row.call;
        EXPECT_EQ((*world)["vol"].Content("/vol/dir/d"), "4") << row.call;
        world->ExpectAtRest();
    }
}

TEST(FormUpload, WriteFailureInTheMiddle_DropsTheRestOfThatFileOnly)
{
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    world->Fail("vol.res.Write", ProviderFailure(kCodeStorageFull), 2);
    const Reply reply = world->Run(Upload(Body(
        {{.content = std::string(5000, 'x'), .file = "a"}, {.content = "fits", .file = "b"}})));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(Code(reply.returned), kCodeStorageFull);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "fits");
    EXPECT_EQ(world->Calls({"vol.res.Write"}).size(), 3U);
    world->ExpectAtRest();
}

TEST(FormUpload, ProviderThatWritesNothing_FailsThePart)
{
    const auto world = MakeWorld();
    world->Fail("vol.res.Write", TAL_STATUS_SUCCESS); // and takes no byte
    const Reply reply = world->Run(Upload(Body({{.content = "x", .file = "a"}})));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_UNSUCCESSFUL);
}

TEST(FormUpload, WithoutBoundary_StoresNothingAndSucceeds)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(Request(KestMethodPost, "/Ferro/vol/dir")
                                       .Header("Content-Type", "multipart/form-data")
                                       .Body({Body({{.content = "x", .file = "a"}})}));
    EXPECT_EQ(reply.text, kSuccess);
    EXPECT_EQ(reply.bodyReads, 0U);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/"));
    world->ExpectAtRest();
}

TEST(FormUpload, AnyOtherType_IsAnUploadWhenItNamesABoundary)
{
    const auto world = MakeWorld();
    EXPECT_EQ(
        world
            ->Run(Request(KestMethodPost, "/Ferro/vol/dir")
                      .Header("Content-Type", std::string("something/else; boundary=") + kBoundary)
                      .Body({Body({{.content = "x", .file = "a"}})}))
            .text,
        kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "x");
}

TEST(FormUpload, IntoTheModulesRoot_IsRefused)
{
    const auto world = MakeWorld();
    for (const char* path : {"/Ferro", "/Ferro/"}) {
        const Reply reply = world->Run(Upload(Body({{.content = "x", .file = "a"}}), path));
        EXPECT_EQ(reply.text, kError) << path;
        EXPECT_EQ(reply.returned, TAL_STATUS_ACCESS_DENIED);
        EXPECT_EQ(reply.bodyReads, 0U);
    }
    world->ExpectAtRest();
}

TEST(FormUpload, TrailingSlashAndEscapesOfThePath_ReachTheSameCollection)
{
    const auto world = MakeWorld();
    (*world)["vol"].AddCollection("/vol/a&b");
    EXPECT_EQ(world->Run(Upload(Body({{.content = "1", .file = "x"}}), "/Ferro/vol/dir/")).text,
              kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/x"), "1");
    EXPECT_EQ(world->Run(Upload(Body({{.content = "2", .file = "x"}}), "/Ferro/vol/a%26b")).text,
              kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/a&b/x"), "2");
}

TEST(FormUpload, PathThatNoProviderKnows_ShowsTheError)
{
    const auto world = MakeWorld();
    const Reply reply =
        world->Run(Upload(Body({{.content = "x", .file = "a"}}), "/Ferro/none/dir"));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(Code(reply.returned), kCodeNotFound);
    world->ExpectAtRest();
}

TEST(FormUpload, MissingContentType_IsNotAnsweredHere)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(Request(KestMethodPost, "/Ferro/vol/dir").Body({"x"}));
    EXPECT_EQ(reply.heads, 0);
    EXPECT_EQ(Code(reply.returned), kCodeNotFound);
    world->ExpectAtRest();
}

TEST(FormUpload, ContentTypeThatDoesNotFit_ShowsTheError)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(
        Request(KestMethodPost, "/Ferro/vol/dir")
            .Header("Content-Type", "multipart/form-data; boundary=" + std::string(1000, 'b')));
    EXPECT_EQ(reply.text, kError);
    world->ExpectAtRest();
}

TEST(FormUpload, NamesThatAreNotUtf8_AreTakenAsLatin1)
{
    const auto world = MakeWorld();
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "1", .file = "caf\xe9"},
                                     {.content = "2", .file = "caf\xc3\xa9 2"}})))
                  .text,
              kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/caf\u00e9"), "1");
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/caf\u00e9 2"), "2");
}

TEST(FormUpload, NameWithoutRoom_FailsThatPartOnly)
{
    const auto world = MakeWorld();
    const std::string longName(1100, 'n');
    const Reply reply = world->Run(Upload(
        Body({{.content = "1", .file = longName.c_str()}, {.content = "2", .file = "short"}})));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/short"));
    world->ExpectAtRest();
}

// The host's room is the URL's 14 units and 1024 more, the dispatcher adds one: 2078 bytes, of
// which the collection's path takes 16. A name is counted twice, with "/" before it.
TEST(FormUpload, LongestNameThatFits_IsStored)
{
    const auto world = MakeWorld();
    const std::string name(1030, 'n');
    EXPECT_EQ(world->Run(Upload(Body({{.content = "1", .file = name.c_str()}}))).text, kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/" + name), "1");
    const Reply reply = world->Run(Upload(Body({{.content = "2", .file = (name + "x").c_str()}})));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
}

// The last "/" of the path goes, and one that is left stands before the name already.
TEST(FormUpload, PathThatEndsWithASlash_GetsNoSecondOne)
{
    const auto world = MakeWorld();
    (*world)["vol"].serveRoot = true;
    world->Run(Upload(Body({{.content = "x", .file = "a"}}), "/Ferro//"));
    EXPECT_THAT(world->Calls({"vol.res.Associate"}),
                ElementsAre("vol.res.Associate(/a, create=1, access=7, share=1, flags=0, "
                            "token=null)"));
}

TEST(FormUpload, DotNames_DoNotLeaveTheCollection)
{
    for (const char* name : {"..", ".", "a\\..", "x/."}) {
        const auto world = MakeWorld();
        const Reply reply = world->Run(
            Upload(Body({{.content = "x", .file = name}, {.content = "y", .file = "b"}})));
        EXPECT_EQ(reply.text, kError) << name;
        EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_REQUEST) << name;
        EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/b"))
            << name;
    }
}

// Nothing is left of such a name, as of that of a field in which no file was chosen.
TEST(FormUpload, NameThatIsOnlyAPath_IsSkippedWithoutAnError)
{
    for (const char* name : {"dir/", "/", "C:\\temp\\", "a/b\\"}) {
        const auto world = MakeWorld();
        const Reply reply = world->Run(
            Upload(Body({{.content = "x", .file = name}, {.content = "y", .file = "b"}})));
        EXPECT_EQ(reply.text, kSuccess) << name;
        EXPECT_EQ(reply.returned, TAL_STATUS_SUCCESS) << name;
        EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/b"))
            << name;
        world->ExpectAtRest();
    }
}

TEST(FormUpload, LengthOfAPart_IsNotTrusted)
{
    const auto world = MakeWorld();
    EXPECT_EQ(
        world
            ->Run(Upload(Body(
                {{.content = "hello", .file = "a", .moreHeaders = "Content-Length: 2\r\n"},
                 {.content = "x", .file = "b", .moreHeaders = "Content-Length: 99999999999\r\n"}})))
            .text,
        kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "hello");
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "x");
}

TEST(FormUpload, ShortMemory_ShrinksTheBufferDownTo1024)
{
    const auto run = [](int failures) {
        const auto world = MakeWorld();
        world->Remember("/Ferro/vol/dir");
        // The dispatcher's path, the text buffer and the target come first.
        for (int i = 0; i < failures; ++i)
            world->Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 4);
        const Reply reply = world->Run(Upload(Body({{.content = "hello", .file = "a"}})));
        world->ExpectAtRest();
        return reply;
    };
    for (int failures = 0; failures <= 8; ++failures)
        EXPECT_EQ(run(failures).text, kSuccess) << failures;
    const Reply reply = run(9); // 262144 halved eight times is 1024
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
}

TEST(FormUpload, EveryCall_MayFail)
{
    bool whole = false;
    int stored = 0;
    for (int n = 1; n < 500 && !whole; ++n) {
        const auto world = MakeWorld();
        world->recorder.FailCall(n);
        const Reply reply = world->Run(
            Upload(Body({{.content = "hello", .file = "a"}, {.content = "b", .file = "b"}}))
                .Query("token=xxopaquelocktoken:abc&overwrite=0"));
        whole = !world->recorder.FailureHappened();
        SCOPED_TRACE("call " + std::to_string(n) + ": " + world->recorder.FailedCall());
        EXPECT_LE(reply.heads, 1);
        if (reply.heads == 0) {
            EXPECT_EQ(world->recorder.FailedCall(), "io.GetRequestHeader") << "the content type";
        }
        if (reply.text == kSuccess) {
            ++stored;
            EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "hello");
            EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "b");
        }
        world->ExpectAtRest();
        if (testing::Test::HasFailure())
            return;
    }
    EXPECT_TRUE(whole);
    EXPECT_GE(stored, 1);
}
