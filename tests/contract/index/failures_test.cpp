// SPDX-License-Identifier: Apache-2.0
//
// Everything that can fail while a page is made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "site.h"

using harness::ProviderFailure;
using harness::Reply;
using site::D;
using site::Deleted;
using site::Site;
using testing::HasSubstr;

namespace {

// A page that uses everything.
std::unique_ptr<Site> FullSite(const std::vector<Deleted>& deleted)
{
    auto site = std::make_unique<Site>();
    auto& vol = site->world["vol"];
    vol.AddFile("/vol/dir/a.txt", "hello");
    vol.AddCollection("/vol/dir/sub");
    site::KeepDeleted(vol, deleted);
    site->dir.Write("error.html", "E" + D("ErrorCode"));
    site->Page(D("SetFiletype:txt=text") + D("currentFolder") + D("ParentURL") + D("DevicePath") +
               D("Files") + D("NumberOfFiles") + D("UserName") + D("EmailAddress") + "end");
    site->Entry(D("FileURL") + D("Filetype") + D("ModifyTime%Y") + D("IsDeleted") + ";");
    site->Preferences(0x01);
    return site;
}

} // namespace

TEST(IndexFailure, CollectionThatCannotBeOpened_ShowsTheErrorTemplate)
{
    const struct {
        const char* call;
        int nth;
    } rows[] = {
        {"vol.GetType", 3}, // GET itself asks twice before
        {"vol.Create", 1},
        {"vol.col.Associate", 1},
    };
    for (const auto& row : rows) {
        Site site;
        site.world["vol"].AddFile("/vol/a");
        site.Page("<" + D("Files") + ">" + D("NumberOfFiles"));
        site.dir.Write("error.html", "code " + D("errorCODE") + D("Filter") + D("UserName") + "!");
        site.world.Fail(row.call, ProviderFailure(kCodeAccessDenied), row.nth);
        EXPECT_EQ(site.Body(), "<code C7AD0006!>0") << row.call;
        site.world.ExpectAtRest();
    }
}

TEST(IndexFailure, PathThatNoProviderKnows_ShowsTheErrorTemplate)
{
    Site site;
    site.dir.Write("index.xml", "<" + D("Files") + ">");
    site.dir.Write("error.html", D("ErrorCode"));
    EXPECT_EQ(site.Body("/Ferro/nowhere/.index_xml"), "<C7BE000B>");
    site.world.ExpectAtRest();
}

TEST(IndexFailure, WithoutAnErrorTemplate_ThePageGoesOn)
{
    Site site;
    site.Page("<" + D("Files") + ">");
    site.world.Fail("vol.col.Associate", ProviderFailure(kCodeAccessDenied));
    EXPECT_EQ(site.Body(), "<>");
    site.world.ExpectAtRest();
}

TEST(IndexFailure, EnumerationThatFailsInTheMiddle_ListsWhatCame)
{
    Site site;
    for (const char* name : {"a", "b", "c"})
        site.world["vol"].AddFile(std::string("/vol/") + name);
    site.Page(D("Files") + D("NumberOfFiles"));
    site.world.Fail("vol.col.GetNextChild", ProviderFailure(kCodeUnsuccessful), 2);
    EXPECT_EQ(site.Body(), "[a][b]2");
    site.world.ExpectAtRest();
}

TEST(IndexFailure, EveryAllocation_MayFail)
{
    const std::vector<Deleted> deleted = {{.id = 3, .name = "gone", .state = 1, .uri = u"/x"}};
    bool whole = false;
    int missingReplies = 0;
    for (int n = 1; n < 200 && !whole; ++n) {
        const auto site = FullSite(deleted);
        site->world.Remember("/Ferro/vol/dir");
        site->world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, n);
        const Reply reply = site->Get("/Ferro/vol/dir", "filter=*a");
        whole = !site->world.recorder.FailureHappened();
        SCOPED_TRACE(n);
        EXPECT_LE(reply.heads, 1);
        if (reply.heads == 0) {
            ++missingReplies;
            EXPECT_EQ(reply.body, "");
            EXPECT_TRUE(Failed(reply.returned));
        } else if (reply.text.starts_with("200\n")) {
            EXPECT_THAT(reply.body, testing::EndsWith("end"));
        }
        site->world.ExpectAtRest();
    }
    EXPECT_TRUE(whole);
    EXPECT_GE(missingReplies, 3) << "the request block, the URL, the line buffer, the cookie";
}

TEST(IndexFailure, EntryWithoutMemory_IsLeftOutButCounted)
{
    // The allocations for entries are those that grow with their number.
    const auto page = [](int nth) {
        Site site;
        for (const char* name : {"a", "b", "c"})
            site.world["vol"].AddFile(std::string("/vol/") + name);
        site.Page(D("Files") + D("NumberOfFiles"));
        site.world.Remember("/Ferro/vol");
        site.world.Fail("platform.TalxAllocPagedMemory", TAL_STATUS_INSUFFICIENT_RESOURCES, nth);
        return site.Get().body;
    };
    std::vector<std::string> pages;
    for (int n = 1; n < 20; ++n)
        pages.push_back(page(n));
    EXPECT_THAT(pages, testing::Contains("[b][c]3"));
    EXPECT_THAT(pages, testing::Contains("[a][c]3"));
    EXPECT_THAT(pages, testing::Contains("[a][b]3"));
    EXPECT_THAT(pages, testing::Contains("0")) << "no enumeration buffer: nothing is listed";
}

TEST(IndexFailure, EveryCall_MayFail)
{
    const std::vector<Deleted> deleted = {{.id = 3, .name = "gone"}};
    bool whole = false;
    for (int n = 1; n < 1000 && !whole; ++n) {
        const auto site = FullSite(deleted);
        site->world.recorder.FailCall(n);
        const Reply reply = site->world.Run(
            Site::Asks("/Ferro/vol/dir").Query("filter=*a&start=1").HostSets("Set-Cookie", "a=b"));
        whole = !site->world.recorder.FailureHappened();
        SCOPED_TRACE("call " + std::to_string(n) + ": " + site->world.recorder.FailedCall());
        EXPECT_LE(reply.heads, 1);
        if (reply.heads == 0) {
            EXPECT_TRUE(Failed(reply.returned));
        }
        site->world.ExpectAtRest();
        if (testing::Test::HasFailure())
            return;
    }
    EXPECT_TRUE(whole);
}
