// SPDX-License-Identifier: Apache-2.0
//
// The URL-encoded form: index preferences, answered with the page itself.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../index/site.h"
#include "form.h"

using form::kError;
using harness::Reply;
using harness::Request;
using site::Site;
using testing::HasSubstr;

namespace {

UINT32 Flags(Site& site)
{
    return static_cast<UINT32*>(site.world.attributes.Data(1))[1];
}

Reply Post(Site& site, const std::string& body)
{
    Request request(KestMethodPost, "/Ferro/vol");
    request.Header("Content-Type", "application/x-www-form-urlencoded; charset=utf-8")
        .Header("User-Agent", site::kModern);
    if (!body.empty())
        request.Body({body});
    return site.world.Run(request);
}

} // namespace

TEST(Preferences, SortAskedForTwice_TurnsTheDirection)
{
    Site site;
    site.world["vol"].AddFile("/vol/a", "22");
    site.world["vol"].AddFile("/vol/b", "1");
    Reply reply = Post(site, "Sort=2");
    EXPECT_EQ(reply.text, "200\n"
                          "Cache-Control: no-store\n"
                          "Transfer-Encoding: chunked\n"
                          "Content-Type: text/html; charset=\"utf-8\"\n"
                          "\n"
                          "[b][a]");
    EXPECT_EQ(Flags(site), 0x20U);
    EXPECT_THAT(Post(site, "Sort=2").text, HasSubstr("[a][b]"));
    EXPECT_EQ(Flags(site), 0x30U);
    EXPECT_THAT(Post(site, "Sort=2").text, HasSubstr("[b][a]"));
    EXPECT_EQ(Flags(site), 0x20U);
    site.world.ExpectAtRest();
}

TEST(Preferences, SortKeys_ComeFromOneCharacter)
{
    const struct {
        const char* body;
        UINT32 before, after;
    } rows[] = {
        {"Sort=0", 0x21, 0x01},  {"Sort=0", 0x00, 0x10},
        {"Sort=2", 0x00, 0x20},  {"Sort=4", 0x20, 0x40},
        {"Sort=6", 0x40, 0x60},  {"sort=4", 0x01, 0x41},
        {"SORT=4x", 0x00, 0x40}, {"Sort=?", 0xF0, 0x00},
        {"Sort=a", 0x00, 0x10},  {"Sort=2&ShowDeleted=1", 0x00, 0x20},
        {"Sort=", 0x20, 0x20},   {"xSort=4", 0x20, 0x20},
        {"nothing", 0x33, 0x33},
    };
    Site site;
    for (const auto& row : rows) {
        site.Preferences(row.before);
        EXPECT_THAT(Post(site, row.body).text, testing::StartsWith("200\nCache-Control"))
            << row.body;
        EXPECT_EQ(Flags(site), row.after) << row.body;
    }
    site.world.ExpectAtRest();
}

TEST(Preferences, ShowDeleted_SetsAndClearsOneBit)
{
    const std::vector<site::Deleted> deleted = {{.id = 1, .name = "gone"}};
    Site site;
    site::KeepDeleted(site.world["vol"], deleted);
    const struct {
        const char* body;
        UINT32 before, after;
        const char* page;
    } rows[] = {
        {"ShowDeleted=1", 0x20, 0x21, "[gone]"},        {"ShowDeleted=0", 0x21, 0x20, "\n\n"},
        {"showdeleted=1&Sort=2", 0x00, 0x01, "[gone]"}, {"ShowDeleted=2", 0x01, 0x00, "\n\n"},
        {"ShowDeleted=", 0x01, 0x01, "[gone]"},
    };
    for (const auto& row : rows) {
        site.Preferences(row.before);
        EXPECT_THAT(Post(site, row.body).text, testing::EndsWith(row.page)) << row.body;
        EXPECT_EQ(Flags(site), row.after) << row.body;
    }
    site.world.ExpectAtRest();
}

// How often requests so far have referenced the attribute for writing. The page reads it.
long References(Site& site)
{
    const auto calls = site.world.Calls({"sa.SAReference"});
    return std::count(calls.begin(), calls.end(),
                      "sa.SAReference(" + std::to_string(kAttributeExclusive) + ")");
}

TEST(Preferences, AttributeIsReferenced_ForWritingWhenThereIsSomethingToSet)
{
    Site site;
    Post(site, "Sort=2");
    EXPECT_EQ(References(site), 1);
    EXPECT_THAT(site.world.Calls({"io.ReadClientPayload"}),
                testing::ElementsAre("io.ReadClientPayload(262144)"))
        << "read once";
    Post(site, "ShowDeleted=1");
    EXPECT_EQ(References(site), 2);
    for (const char* body : {"nothing", "Sort=", "ShowDeleted=", "xSort=2"})
        EXPECT_THAT(Post(site, body).text, testing::StartsWith("200\nCache-Control")) << body;
    EXPECT_EQ(References(site), 2);
    site.world.ExpectAtRest();
}

TEST(Preferences, BodyOrAttributeThatCannotBeHad_ShowsTheError)
{
    {
        Site site;
        const Reply reply = Post(site, "");
        EXPECT_EQ(reply.text, kError) << "no body";
        EXPECT_EQ(Code(reply.returned), kCodeEndOfFile);
        site.world.ExpectAtRest();
    }
    {
        Site site;
        site.world.Fail("io.ReadClientPayload", TAL_STATUS_INFO_END_OF_FILE);
        const Reply reply = Post(site, "Sort=2");
        EXPECT_EQ(reply.text, kError) << "a status that does not fail has brought no body either";
        EXPECT_EQ(reply.returned, TAL_STATUS_END_OF_FILE);
        EXPECT_EQ(Flags(site), 0U);
    }
    {
        Site site;
        site.world.Fail("sa.SAReference", MakeStatus(kFacilityHost, kCodeNotFound));
        EXPECT_EQ(Post(site, "Sort=2").text, kError);
        EXPECT_EQ(Flags(site), 0U);
        site.world.ExpectAtRest();
    }
    {
        Site site;
        site.world.Remember("/Ferro/vol");
        // The dispatcher's path, the text buffer and the target come first.
        site.world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, 4);
        const Reply reply = Post(site, "Sort=2");
        EXPECT_EQ(reply.text, kError);
        EXPECT_EQ(reply.returned, TAL_STATUS_ACCESS_DENIED);
        site.world.ExpectAtRest();
    }
}

TEST(Preferences, BuffersThatCannotBeHad_ShowTheError)
{
    for (const int nth : {2, 3}) {
        Site site;
        site.world.Remember("/Ferro/vol");
        site.world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, nth);
        const Reply reply = Post(site, "Sort=2");
        EXPECT_EQ(reply.text, kError) << nth;
        EXPECT_EQ(reply.returned, TAL_STATUS_INSUFFICIENT_RESOURCES);
        site.world.ExpectAtRest();
    }
}

TEST(Preferences, OnTheModulesRoot_AreTakenToo)
{
    Site site;
    site.world["vol"].serveRoot = true;
    Request request(KestMethodPost, "/Ferro");
    request.Header("Content-Type", "application/x-www-form-urlencoded")
        .Header("User-Agent", site::kModern)
        .Body({"Sort=4"});
    EXPECT_EQ(site.world.Run(request).body, "[vol]");
    EXPECT_EQ(Flags(site), 0x40U);
}
