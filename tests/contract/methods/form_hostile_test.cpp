// SPDX-License-Identifier: Apache-2.0
//
// Bodies that no browser sends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "form.h"

using form::Body;
using form::kBoundary;
using form::kError;
using form::kSuccess;
using form::MakeWorld;
using form::Pieces;
using form::Upload;
using harness::Reply;
using harness::Request;
using harness::World;
using testing::ElementsAre;

namespace {

const std::string kDelimiter = std::string("--") + kBoundary;

std::string FileHead(const std::string& name)
{
    return kDelimiter + "\r\nContent-Disposition: form-data; name=\"f\"; filename=\"" + name +
           "\"\r\n\r\n";
}

} // namespace

TEST(HostileForm, WithoutItsLastDelimiter_KeepsWhatWasCompleteAndTells)
{
    const auto world = MakeWorld();
    const Reply reply =
        world->Run(Upload(FileHead("a") + "whole\r\n" + FileHead("b") + "cut off her"));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_END_OF_FILE);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "whole");
    world->ExpectAtRest();
}

TEST(HostileForm, EndingAnywhere_TellsUnlessAllPartsAreWhole)
{
    const std::string body =
        Body({{.content = "one", .file = "a"}, {.content = "two", .file = "b"}});
    const auto world = MakeWorld();
    for (size_t size = 0; size <= body.size(); ++size) {
        Request request = Upload("");
        if (size > 0)
            request.Body({body.substr(0, size)});
        const Reply reply = world->Run(request);
        const std::string rest = body.substr(size);
        // Nothing sent, or nothing missing but line breaks and dashes behind a delimiter.
        const std::string first = FileHead("a");
        const size_t afterFirst = kDelimiter.size();
        const size_t afterSecond = body.find(kDelimiter, 1) + kDelimiter.size();
        const size_t afterLast = body.rfind(kDelimiter) + kDelimiter.size();
        const bool whole = size == 0 || size == afterFirst || size == afterFirst + 2 ||
                           size == afterSecond || size == afterSecond + 2 ||
                           (size >= afterLast && size != afterLast + 1);
        EXPECT_EQ(reply.text, whole ? kSuccess : kError) << size;
        world->ExpectAtRest();
    }
}

TEST(HostileForm, ClientThatGoesAway_EndsTheUpload)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(
        Upload(FileHead("a") + "half").BodyEndsWith(MakeStatus(kFacilityHost, kCodeUnsuccessful)));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(Code(reply.returned), kCodeUnsuccessful);
    world->ExpectAtRest();
}

// A status that neither fails nor brings bytes ends the body as well.
TEST(HostileForm, BodyThatEndsWithAnInformationalStatus_IsNotTakenForWhole)
{
    for (const TALSTATUS status : {TALSTATUS{TAL_STATUS_INFO_END_OF_FILE}, TALSTATUS{0x47BE0006}}) {
        const auto world = MakeWorld();
        const Reply reply = world->Run(Upload(FileHead("a") + "half").BodyEndsWith(status));
        EXPECT_EQ(reply.text, kError) << status;
        EXPECT_EQ(reply.returned, TAL_STATUS_END_OF_FILE) << status;
        EXPECT_EQ(
            world->Run(Upload(Body({{.content = "x", .file = "b"}})).BodyEndsWith(status)).text,
            kSuccess)
            << "all parts were there";
    }
}

TEST(HostileForm, BodyWithoutAnyDelimiter_StoresNothingAndTells)
{
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    Request request = Upload("");
    request.Body(Pieces(std::string(100000, '-'), 999));
    EXPECT_EQ(world->Run(request).text, kError);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/"));
    world->ExpectAtRest();
}

TEST(HostileForm, HeaderLineOfTenMegabytes_IsReadThroughTheBuffer)
{
    const std::string line = "X-Long: " + std::string(10 * 1024 * 1024, 'x') + "\r\n";
    const std::string body = kDelimiter + "\r\n" + line +
                             "Content-Disposition: form-data; name=\"f\"; filename=\"a\"\r\n" +
                             line + "\r\ncontent\r\n" + kDelimiter + "--\r\n";
    const auto world = MakeWorld();
    Request request = Upload("");
    request.Body(Pieces(body, 65536));
    EXPECT_EQ(world->Run(request).text, kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "content");
    world->ExpectAtRest();
}

TEST(HostileForm, NameOfTenMegabytes_FailsThatPartOnly)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(Upload(FileHead(std::string(10 * 1024 * 1024, 'n')) + "x\r\n" +
                                          FileHead("b") + "y\r\n" + kDelimiter + "--\r\n"));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_REQUEST);
    EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/", "/vol/dir/b"));
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/b"), "y");
    world->ExpectAtRest();
}

TEST(HostileForm, ThousandsOfParts_AreAllStored)
{
    std::string body;
    constexpr int kParts = 5000;
    for (int i = 0; i < kParts; ++i)
        body += FileHead("f" + std::to_string(i % 100)) + std::to_string(i) + "\r\n";
    const auto world = MakeWorld();
    EXPECT_EQ(world->Run(Upload(body + kDelimiter + "--")).text, kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/f99"), std::to_string(kParts - 1));
    EXPECT_EQ((*world)["vol"].Paths().size(), 102U);
    world->ExpectAtRest();
}

TEST(HostileForm, NestedQuotes_NeverStoreUnderAGuessedName)
{
    const struct {
        const char* name;
        const char* stored; // null: the part fails
    } rows[] = {
        {"a\\\"b.txt", nullptr}, // ends at the inner quote; what is left is only a path
        {"a\"b\"c", "a"},        // ends at the first quote
        {"%22a%22", "%22a%22"},  // how browsers send quotes today
        {"\r\nX: \"a", nullptr}, // names do not span lines
    };
    for (const auto& row : rows) {
        const auto world = MakeWorld();
        const Reply reply = world->Run(
            Upload(FileHead(row.name) + "x\r\n" + FileHead("z") + "z\r\n" + kDelimiter + "--"));
        EXPECT_EQ(reply.text, row.stored != nullptr ? kSuccess : kError) << row.name;
        EXPECT_EQ((*world)["vol"].Content("/vol/dir/z"), "z") << row.name;
        EXPECT_EQ((*world)["vol"].Paths().size(), row.stored != nullptr ? 4U : 3U) << row.name;
        if (row.stored != nullptr) {
            EXPECT_TRUE((*world)["vol"].Has(std::string("/vol/dir/") + row.stored)) << row.name;
        }
    }
}

TEST(HostileForm, NamesInOtherForms_FailThePart)
{
    for (const char* form : {"filename=plain.txt", "filename*=UTF-8''a.txt", "filename=\"open"}) {
        const auto world = MakeWorld();
        const Reply reply = world->Run(Upload(kDelimiter + "\r\nContent-Disposition: form-data; " +
                                              form + "\r\n\r\nx\r\n" + kDelimiter + "--"));
        EXPECT_EQ(reply.text, kError) << form;
        EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_REQUEST) << form;
        EXPECT_THAT((*world)["vol"].Paths(), ElementsAre("/vol/", "/vol/dir/")) << form;
        world->ExpectAtRest();
    }
}

TEST(HostileForm, BareLineFeedsBeforeTheDelimiter_EndTheContentToo)
{
    const auto world = MakeWorld();
    EXPECT_EQ(world->Run(Upload(FileHead("a") + "text\n" + kDelimiter + "--")).text, kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "text");
}

TEST(HostileForm, DelimiterRightBehindTheHeaders_IsAnEmptyFile)
{
    const auto world = MakeWorld();
    EXPECT_EQ(world->Run(Upload(FileHead("a") + kDelimiter + "--")).text, kSuccess);
    EXPECT_EQ((*world)["vol"].Content("/vol/dir/a"), "");
}

TEST(HostileForm, Boundaries_OfEveryLength)
{
    const auto run = [](const std::string& boundary, const std::string& values) {
        const auto world = MakeWorld(2, {.moduleValues = values});
        std::string content(3000, 'x');
        const std::string body = "--" + boundary +
                                 "\r\nContent-Disposition: form-data; filename=\"a\"\r\n\r\n" +
                                 content + "\r\n--" + boundary + "--\r\n";
        const Reply reply = world->Run(Request(KestMethodPost, "/Ferro/vol/dir")
                                           .Header("Content-Type", "m; boundary=" + boundary)
                                           .Body({body}));
        world->ExpectAtRest();
        return reply.text == kSuccess && (*world)["vol"].Content("/vol/dir/a") == content;
    };
    for (const size_t length : {1U, 2U, 70U, 500U, 1000U, 1009U})
        EXPECT_TRUE(run(std::string(length, 'B'), "'Read-Write Block Size' = 1024")) << length;
    EXPECT_TRUE(run("with blanks and \"quotes\"", {})) << "taken as it stands";
}

TEST(HostileForm, EmptyBoundary_IsRefused)
{
    const auto world = MakeWorld();
    const Reply reply = world->Run(Request(KestMethodPost, "/Ferro/vol/dir")
                                       .Header("Content-Type", "multipart/form-data; boundary=")
                                       .Body({std::string(1000, 'x')}));
    EXPECT_EQ(reply.text, kError);
    EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_REQUEST);
    world->ExpectAtRest();
}

TEST(HostileForm, RandomBodies_LeaveTheProcessHealthy)
{
    const std::string pieces[] = {"\r\n",        "\r",
                                  "\n",          "--",
                                  kDelimiter,    kBoundary,
                                  "filename=\"", "\"",
                                  "filename",    "\r\n\r\n",
                                  "=",           "a/b\\c",
                                  "..",          std::string(1, '\0'),
                                  "\xff\xfe",    "Content-Length: 5"};
    std::mt19937 random(20261120);
    const auto world = MakeWorld(2, {.moduleValues = "'Read-Write Block Size' = 1024"});
    for (int round = 0; round < 1000; ++round) {
        std::string body;
        for (unsigned long i = random() % 60; i > 0; --i)
            body += random() % 8 == 0 ? std::string(random() % 600, 'x')
                                      : pieces[random() % std::size(pieces)];
        Request request = Upload("");
        request.Body(Pieces(body, 1 + random() % 700));
        const Reply reply = world->Run(request);
        ASSERT_EQ(reply.heads, 1) << "round " << round;
        ASSERT_TRUE(reply.text == kSuccess || reply.text == kError) << "round " << round;
        world->ExpectAtRest();
        for (const std::string& path : (*world)["vol"].Paths())
            ASSERT_TRUE(path.starts_with("/vol/")) << path;
    }
}
