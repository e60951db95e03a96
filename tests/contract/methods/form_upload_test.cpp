// SPDX-License-Identifier: Apache-2.0
//
// Files uploaded by a form: what is stored, and with which calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "form.h"

using form::Body;
using form::Bytes;
using form::kBoundary;
using form::kError;
using form::kSuccess;
using form::MakeWorld;
using form::Pieces;
using form::Upload;
using harness::Reply;
using harness::Request;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(FormUpload, Files_AreStoredAndTheWindowCloses)
{
    const auto world = MakeWorld();
    world->Remember("/Ferro/vol/dir");
    const Reply reply = world->Run(
        Upload(Body({{.content = "hello", .file = "a.txt"}, {.content = "", .file = "b c"}})));
    EXPECT_EQ(reply.text, kSuccess);
    EXPECT_FALSE(Failed(reply.returned));
    EXPECT_THAT(world->Calls({"vol."}),
                ElementsAre("vol.Create(IKestDAVResource2)",
                            "vol.res.Associate(/vol/dir/a.txt, create=1, access=7, share=1, "
                            "flags=0, token=null)",
                            "vol.res.Write(0, 5)", "vol.Create(IKestDAVResource2)",
                            "vol.res.Associate(/vol/dir/b c, create=1, access=7, share=1, "
                            "flags=0, token=null)"));
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a.txt"), "hello");
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/b c"), "");
    world->ExpectAtRest();
}

TEST(FormUpload, FirstGeneration_StoresToo)
{
    const auto world = MakeWorld(1);
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "hello", .file = "a"}}))
                            .Header("If", "(<opaquelocktoken:abc>)"))
                  .text,
              kSuccess);
    EXPECT_THAT(world->Calls({"vol.res.Associate"}),
                ElementsAre("vol.res.Associate(/vol/dir/a, create=1, access=7, share=1, flags=0)"));
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "hello");
    world->ExpectAtRest();
}

TEST(FormUpload, PathThatTheBrowserSent_LeavesItsLastComponent)
{
    const char* const names[] = {"C:\\docs\\a.txt", "/home/u/a.txt", "C:\\docs/b\\a.txt",
                                 "docs\\x/a.txt", "a.txt"};
    for (const char* name : names) {
        const auto world = MakeWorld();
        EXPECT_EQ(world->Run(Upload(Body({{.content = "x", .file = name}}))).text, kSuccess);
        EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/a.txt"))
            << name;
    }
}

TEST(FormUpload, EmptyFileFieldsAndTextFields_AreSkipped)
{
    const auto world = MakeWorld();
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "text"},
                                     {.content = "", .file = ""},
                                     {.content = "filename=\"no\"", .file = nullptr},
                                     {.content = "kept", .file = "a"},
                                     {.content = "more text"}})))
                  .text,
              kSuccess);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/a"));
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "kept");
}

TEST(FormUpload, BodyCutAtEveryByte_StoresTheSameFiles)
{
    const std::string first =
        "line\r\n--almost\r\n" + std::string("--") + kBoundary[0] + "\r\n\r\n";
    const std::string body = "preamble\r\n" +
                             Body({{.content = first, .file = "a"},
                                   {.content = "field"},
                                   {.content = "\r\n-", .file = "dir\\b"},
                                   {.content = "", .file = "c"}}) +
                             "epilogue";
    const auto world = MakeWorld();
    auto& vol = (*world)["vol"];
    for (size_t cut = 1; cut < body.size(); ++cut) {
        for (const char* name : {"a", "b", "c"})
            vol.AddFile(std::string("/vol/dir/") + name, "old");
        Request request = Upload("");
        request.Body({body.substr(0, cut), body.substr(cut)});
        ASSERT_EQ(world->Run(request).text, kSuccess) << cut;
        ASSERT_EQ(vol.Content("/vol/dir/a"), first) << cut;
        ASSERT_EQ(vol.Content("/vol/dir/b"), "\r\n-") << cut;
        ASSERT_EQ(vol.Content("/vol/dir/c"), "") << cut;
    }
    for (const size_t size : {1U, 2U, 3U, 7U, 31U}) {
        Request request = Upload("");
        request.Body(Pieces(body, size));
        ASSERT_EQ(world->Run(request).text, kSuccess) << size;
        ASSERT_EQ(vol.Content("/vol/dir/a"), first) << size;
        ASSERT_EQ(vol.Content("/vol/dir/b"), "\r\n-") << size;
    }
    world->ExpectAtRest();
}

// The smallest transfer buffer moves its window over the delimiter at every offset.
TEST(FormUpload, DelimiterAtEveryOffsetOfTheBuffer_EndsTheFileExactly)
{
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    auto& vol = (*world)["vol"];
    for (size_t size = 700; size < 2200; ++size) {
        std::string content = Bytes(size, static_cast<unsigned>(size));
        if (size % 3 == 0)
            content.replace(content.size() - 20, 20, "\r\n--" + std::string(kBoundary, 16));
        ASSERT_EQ(world
                      ->Run(Upload(
                          Body({{.content = content, .file = "a"}, {.content = "z", .file = "b"}})))
                      .text,
                  kSuccess)
            << size;
        ASSERT_EQ(vol.Content("/vol/dir/a"), content) << size;
        ASSERT_EQ(vol.Content("/vol/dir/b"), "z") << size;
        vol.Find("/vol/dir/a")->content.clear();
        vol.Find("/vol/dir/b")->content.clear();
    }
    world->ExpectAtRest();
}

// The same for the first delimiter behind a preamble, and for the end of a part's headers.
TEST(FormUpload, EveryMarkAtEveryOffsetOfTheBuffer_IsFound)
{
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    auto& vol = (*world)["vol"];
    const std::string form = Body({{.content = "hello", .file = "a"}});
    for (size_t size = 900; size < 1100; ++size) {
        const std::string filler(size, 'x');
        for (const std::string& body :
             {filler + "\r\n" + form,
              Body({{.content = "hello", .file = "a", .moreHeaders = "X: " + filler + "\r\n"}}),
              Body({{.content = "field", .moreHeaders = "X: " + filler + "\r\n"},
                    {.content = "hello", .file = "a"}})}) {
            ASSERT_EQ(world->Run(Upload(body)).text, kSuccess) << size;
            ASSERT_EQ(vol.Content("/vol/dir/a"), "hello") << size;
            vol.Find("/vol/dir/a")->content.clear();
        }
    }
    world->ExpectAtRest();
}

TEST(FormUpload, LargeFile_IsStreamedThroughOneBuffer)
{
    const auto world = MakeWorld();
    const std::string content = Bytes(3000000, 5);
    Request request = Upload("");
    request.Body(Pieces(Body({{.content = content, .file = "big"}}), 65536));
    EXPECT_EQ(world->Run(request).text, kSuccess);
    EXPECT_TRUE((*world)["vol"].Content("/vol/dir/big") == content);
    const auto writes = world->Calls({"vol.res.Write"});
    EXPECT_LE(writes.size(), 13U) << "a buffer at a time";
    for (const std::string& write : writes) {
        unsigned long long offset = 1;
        ASSERT_EQ(std::sscanf(write.c_str(), "vol.res.Write(%llu, ", &offset), 1) << write;
        EXPECT_EQ(offset % 4096, 0U) << "whole pages up to the last: " << write;
    }
    EXPECT_EQ(writes.front().substr(0, 17), "vol.res.Write(0, ");
    world->ExpectAtRest();
}

TEST(FormUpload, ProviderThatTakesLess_GetsTheRestAgain)
{
    const auto world = MakeWorld();
    (*world)["vol"].writeLimit = 7;
    EXPECT_EQ(world->Run(Upload(Body({{.content = "twenty bytes, or so!", .file = "a"}}))).text,
              kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "twenty bytes, or so!");
}

TEST(FormUpload, LockTokenOfThePage_ReachesTheProvider)
{
    const struct {
        const char* query;
        const char* header;
    } rows[] = {
        {"token=xxopaquelocktoken:abc", "(<opaquelocktoken:abc>)"},
        {"a=b&token=XYopaquelocktoken:abc&overwrite=1", "(<opaquelocktoken:abc>)"},
        {"token=&&opaquelocktoken:abc", "(<opaquelocktoken:abc>)"},
        {"token=ab", "(<>)"},
    };
    for (const auto& row : rows) {
        const auto world = MakeWorld();
        EXPECT_EQ(world->Run(Upload(Body({{.content = "x", .file = "a"}})).Query(row.query)).text,
                  kSuccess);
        EXPECT_THAT(world->Calls({"io.SetRequestHeader"}),
                    ElementsAre("io.SetRequestHeader(If, \"" + std::string(row.header) + "\")"))
            << row.query;
        EXPECT_THAT(world->Calls({"vol.res.Associate"}),
                    ElementsAre("vol.res.Associate(/vol/dir/a, create=1, access=7, share=1, "
                                "flags=0, token=" +
                                std::string(row.header == std::string("(<>)") ? "null" : "abc") +
                                ")"))
            << row.query;
    }
    for (const char* query : {"", "token=", "token=x", "tok=xxabc"}) {
        const auto world = MakeWorld();
        world->Run(Upload(Body({{.content = "x", .file = "a"}})).Query(query));
        EXPECT_THAT(world->Calls({"io.SetRequestHeader"}), IsEmpty()) << query;
    }
}

TEST(FormUpload, TokenBehindLongArguments_IsCutNotOverrun)
{
    const auto world = MakeWorld();
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "x", .file = "a"}}))
                            .Query("token=xx" + std::string(5000, 'y')))
                  .text,
              kSuccess);
    EXPECT_THAT(world->Calls({"io.SetRequestHeader"}),
                ElementsAre("io.SetRequestHeader(If, \"(<" + std::string(1012, 'y') + ">)\")"));
    world->ExpectAtRest();
}

TEST(FormUpload, OverwriteOfZero_KeepsAnExistingFileAndStoresTheOthers)
{
    for (const int generation : {1, 2}) {
        const auto world = MakeWorld(generation);
        auto& vol = (*world)["vol"];
        vol.AddFile("/vol/dir/a", "old");
        const Reply reply = world->Run(
            Upload(Body({{.content = "new a", .file = "a"}, {.content = "b", .file = "b"}}))
                .Query("x=1&overwrite=0"));
        EXPECT_EQ(reply.text, kError);
        EXPECT_EQ(reply.returned, TAL_STATUS_OBJECT_EXISTS);
        EXPECT_EQ(vol.Content("/vol/dir/a"), "old");
        EXPECT_EQ(vol.Content("/vol/dir/b"), "b");
        const std::string token = generation == 2 ? ", token=null)" : ")";
        EXPECT_THAT(
            world->Calls({"vol.res.Associate"}),
            ElementsAre(
                "vol.res.Associate(/vol/dir/a, create=0, access=6, share=0, flags=0" + token,
                "vol.res.Associate(/vol/dir/b, create=0, access=6, share=0, flags=0" + token,
                "vol.res.Associate(/vol/dir/b, create=1, access=7, share=1, flags=0" + token));
        world->ExpectAtRest();
    }
}

TEST(FormUpload, OverwriteOfZero_LooksAndCreatesWithOneObject)
{
    const auto world = MakeWorld();
    world->Remember("/Ferro/vol/dir");
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "x", .file = "a"}}))
                            .Query("token=xxopaquelocktoken:abc&overwrite=0"))
                  .text,
              kSuccess);
    EXPECT_THAT(
        world->Calls({"vol.", "io.GetRequestHeader"}),
        ElementsAre(
            "io.GetRequestHeader(Content-Type)", "vol.Create(IKestDAVResource2)",
            "io.GetRequestHeader(If)",
            "vol.res.Associate(/vol/dir/a, create=0, access=6, share=0, flags=0, token=abc)",
            "vol.res.Associate(/vol/dir/a, create=1, access=7, share=1, flags=0, token=abc)",
            "vol.res.Write(0, 1)"));
}

TEST(FormUpload, ExistingFileThatIsKept_IsNotHeldWhileItsContentIsPassedOver)
{
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    (*world)["vol"].AddFile("/vol/dir/a", "old");
    int readsAfterwards = 0;
    world->recorder.onCall = [&](std::string_view name) {
        if (name == "io.ReadClientPayload" && world->recorder.Count("vol.res.Associate") > 0) {
            ++readsAfterwards;
            EXPECT_EQ((*world)["vol"].LiveObjects(), 0);
        }
    };
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = std::string(5000, 'x'), .file = "a"}}))
                            .Query("overwrite=0"))
                  .text,
              kError);
    EXPECT_GT(readsAfterwards, 3);
}

TEST(FormUpload, FieldThatIsCalledFilename_IsNoFileName)
{
    const std::string body =
        std::string("--") + kBoundary +
        "\r\nContent-Disposition: form-data; name=\"filename\"; "
        "filename=\"a\"\r\n\r\nx\r\n--" +
        kBoundary + "\r\nContent-Disposition: form-data; name=\"filename\"\r\n\r\ny\r\n--" +
        kBoundary + "--\r\n";
    const auto world = MakeWorld();
    EXPECT_EQ(world->Run(Upload(body)).text, kSuccess);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/a"));
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "x");
}

TEST(FormUpload, OverwriteOfZeroBehindLongArguments_StillCounts)
{
    const auto world = MakeWorld();
    (*world)["vol"].AddFile("/vol/dir/a", "old");
    EXPECT_EQ(world
                  ->Run(Upload(Body({{.content = "new", .file = "a"}}))
                            .Query(std::string(3000, 'x') + "&overwrite=0"))
                  .text,
              kError);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "old");
}
