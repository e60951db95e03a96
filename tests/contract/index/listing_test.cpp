// SPDX-License-Identifier: Apache-2.0
//
// What is listed, in which order, and which part of it is on the page.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "site.h"

using harness::Reply;
using harness::Request;
using site::D;
using site::Deleted;
using site::Site;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr UINT64 kDay = 864000000000;

} // namespace

TEST(Listing, AscendingAndDescending_TurnTheGroupsToo)
{
    const std::vector<Deleted> deleted = {{.id = 1, .name = "p"}, {.id = 2, .name = "o"}};
    Site site;
    auto& vol = site.world["vol"];
    vol.AddCollection("/vol/x");
    vol.AddFile("/vol/b");
    vol.AddCollection("/vol/Y");
    vol.AddFile("/vol/A");
    site::KeepDeleted(vol, deleted);
    site.Preferences(0x01);
    EXPECT_EQ(site.Body(), "[x][Y][A][b][o][p]");
    site.Preferences(0x11);
    EXPECT_EQ(site.Body(), "[p][o][b][A][Y][x]");
    site.Preferences(0x10);
    EXPECT_EQ(site.Body(), "[b][A][Y][x]") << "deleted entries only when asked for";
    site.world.ExpectAtRest();
}

TEST(Listing, EveryKey_OrdersByItsChain)
{
    Site site;
    auto& vol = site.world["vol"];
    const auto add = [&](const char* name, size_t size, UINT64 days) {
        vol.AddFile(std::string("/vol/") + name, std::string(size, 'x')).modified += days * kDay;
    };
    add("c", 1, 2);
    add("b", 3, 0);
    add("a", 3, 1);
    add("d", 1, 2);
    const struct {
        const char* why;
        UINT32 flags;
        const char* order;
    } rows[] = {
        {"name", 0x00, "[a][b][c][d]"},
        {"name descending", 0x10, "[d][c][b][a]"},
        {"size, then name", 0x20, "[c][d][a][b]"},
        {"size descending", 0x30, "[b][a][d][c]"},
        {"time, then name", 0x40, "[b][a][c][d]"},
        {"time descending", 0x50, "[d][c][a][b]"},
        {"type is name", 0x60, "[a][b][c][d]"},
        {"type descending", 0x70, "[d][c][b][a]"},
        {"no key of its own", 0x80, "[a][b][c][d]"},
        {"nor here", 0xA0, "[a][b][c][d]"},
        {"nor there, descending", 0xF0, "[d][c][b][a]"},
    };
    for (const auto& row : rows) {
        site.Preferences(row.flags);
        EXPECT_EQ(site.Body(), row.order) << row.why;
    }
}

TEST(Listing, EqualEntries_KeepTheOrderOfTheEnumerationInBothDirections)
{
    Site site;
    auto& vol = site.world["vol"];
    for (const char* name : {"1", "2", "3"})
        vol.AddFile(std::string("/vol/") + name).displayName = u"same";
    site.Entry(D("FileURL") + D("FileSize") + ";");
    vol.Find("/vol/1")->content = "a";
    vol.Find("/vol/2")->content = "b";
    vol.Find("/vol/3")->content = "c";
    // Told apart by what does not take part in the order: the attribute of being reachable.
    vol.Find("/vol/2")->state = 1;
    vol.Find("/vol/2")->uri = u"/second";
    for (const UINT32 flags : {0x20U, 0x30U, 0x00U, 0x10U, 0x40U, 0x50U}) {
        site.Preferences(flags);
        EXPECT_EQ(site.Body(), "/Ferro/vol/same1;/second1;/Ferro/vol/same1;") << flags;
    }
}

TEST(Listing, Page_IsARangeOfTheWholeOrder)
{
    const std::vector<Deleted> deleted = {{.id = 1, .name = "gone1"}, {.id = 2, .name = "gone2"}};
    Site site;
    auto& vol = site.world["vol"];
    for (const char* name : {"d1", "d2"})
        vol.AddCollection(std::string("/vol/") + name);
    for (const char* name : {"f1", "f2", "f3"})
        vol.AddFile(std::string("/vol/") + name);
    site::KeepDeleted(vol, deleted);
    site.Preferences(0x01);
    site.Page(D("SetMaxFiles:3") + ":" + D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro/vol", "start=1"), "3:[d1][d2][f1]7");
    EXPECT_EQ(site.Body("/Ferro/vol", "start=4"), "3:[f2][f3][gone1]7");
    EXPECT_EQ(site.Body("/Ferro/vol", "start=7"), "3:[gone2]7");
    EXPECT_EQ(site.Body("/Ferro/vol", "start=8"), "3:7");
}

TEST(Listing, SecondHundred_IsTheSecondPage)
{
    Site site;
    std::string expected;
    for (int i = 1; i <= 250; ++i) {
        const std::string name = std::to_string(1000 + i);
        site.world["vol"].AddFile("/vol/" + name);
        if (i > 100 && i <= 200)
            expected += "[" + name + "]";
    }
    site.Page(D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro/vol", "start=101"), expected + "250");
}

TEST(Listing, AnyOrderOfTheProvider_GivesTheSamePage)
{
    Site site;
    std::vector<std::string> names;
    for (int i = 0; i < 60; ++i) {
        names.push_back("n" + std::to_string(100 + i));
        site.world["vol"].AddFile("/vol/" + names.back());
    }
    const std::string ascending = site.Body();
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        if (round == 0)
            std::ranges::reverse(names);
        else
            std::ranges::shuffle(names, random);
        site.world["vol"].SetOrder("/vol", names);
        ASSERT_EQ(site.Body(), ascending) << round;
    }
    site.Preferences(0x10);
    const std::string descending = site.Body();
    EXPECT_EQ(descending.substr(0, 6), "[n159]");
    std::ranges::sort(names);
    site.world["vol"].SetOrder("/vol", names);
    EXPECT_EQ(site.Body(), descending);
}

TEST(Listing, DeletedFoldersAndFilesMixed_AreAllListed)
{
    const std::vector<Deleted> deleted = {
        {.id = 1, .name = "a", .type = Collection}, {.id = 2, .name = "c"},
        {.id = 3, .name = "b", .type = Collection}, {.id = 4, .name = "e"},
        {.id = 5, .name = "d", .type = Collection}, {.id = 6, .name = "a"},
    };
    Site site;
    site::KeepDeleted(site.world["vol"], deleted);
    for (const UINT32 flags : {0x01U, 0x11U, 0x21U, 0x41U}) {
        site.Preferences(flags);
        const std::string page = site.Render(D("Files") + D("NumberOfFiles"));
        EXPECT_EQ(page, flags == 0x11 ? "[e][d][c][b][a][a]6" : "[a][a][b][c][d][e]6") << flags;
    }
}

TEST(Listing, DeletedEntryWithoutIdentifier_StandsAmongTheDeleted)
{
    const std::vector<Deleted> deleted = {{.id = 0, .name = "a", .type = Collection},
                                          {.id = 1, .name = "c"}};
    Site site;
    site.world["vol"].AddFile("/vol/b");
    site::KeepDeleted(site.world["vol"], deleted);
    site.Preferences(0x01);
    EXPECT_EQ(site.Body(), "[b][a][c]");
}

TEST(Listing, DeletedEntries_PassTheFilterToo)
{
    const std::vector<Deleted> deleted = {{.id = 1, .name = "alpha"}, {.id = 2, .name = "beta"}};
    Site site;
    site::KeepDeleted(site.world["vol"], deleted);
    site.Preferences(0x01);
    site.Page(D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro/vol", "filter=b"), "[beta]1");
}

TEST(Listing, ProviderWithoutDeletedEntries_EndsTheListQuietly)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    site.Preferences(0x01);
    EXPECT_EQ(site.Render(D("Files") + D("NumberOfFiles")), "[a]1");
    EXPECT_THAT(site.world.Calls({"vol.col.IoctlRequest"}),
                ElementsAre("vol.col.IoctlRequest(07b90002)"));
    site.world.ExpectAtRest();
}

TEST(Listing, FirstGeneration_IsListedWithoutDeletedEntries)
{
    Site site({{.name = "vol", .generations = 1}});
    site.world["vol"].AddFile("/vol/a");
    site.world["vol"].AddCollection("/vol/d");
    site.Preferences(0x01);
    EXPECT_EQ(site.Render(D("Files") + D("NumberOfFiles") + D("DevicePath")), "[d][a]2");
    EXPECT_THAT(site.world.Calls({"vol.Create"}), ElementsAre("vol.Create(IKestDAVCollection)"));
    EXPECT_THAT(site.world.Calls({"vol.col.Ioctl"}), ElementsAre());
    site.world.ExpectAtRest();
}

TEST(Listing, Collection_IsAskedOneRecordAtATime)
{
    Site site;
    site.world["vol"].AddFile("/vol/dir/a b");
    site.world.Remember("/Ferro/vol/dir");
    EXPECT_EQ(site.Body("/Ferro/vol/dir/"), "[a b]");
    EXPECT_THAT(site.world.Calls({"vol."}),
                ElementsAre("vol.GetType(/vol/dir)", "vol.GetType(/vol/dir)",
                            "vol.Create(IKestDAVCollection2)",
                            "vol.col.Associate(/vol/dir, token=null)",
                            "vol.col.GetFirstChild(1024)", "vol.col.GetNextChild(1024)"));
    site.world.ExpectAtRest();
}

TEST(Listing, EmptyCollection_IsAnEmptyList)
{
    Site site;
    site.dir.Write("error.html", "error");
    EXPECT_EQ(site.Render("<" + D("Files") + ">" + D("NumberOfFiles")), "<>0");
}

TEST(Listing, EscapedPath_IsDecodedForTheProvider)
{
    Site site;
    site.world["vol"].AddFile("/vol/a&b/c");
    // Clients without scripts follow links that carry one layer of escapes too many.
    site.Page("<" + D("Files") + ">");
    site.dir.Write("index.xml", "<" + D("Files") + ">");
    site.dir.Write("fileentry.xml", D("DisplayName"));
    EXPECT_EQ(site.Body("/Ferro/vol/a%26b/.index_xml"), "<c>");
}

TEST(ListingOfRoots, EveryProvidersRootIsListed)
{
    Site site({{.name = "one"}, {.name = "two"}, {.name = "old", .generations = 1}});
    for (const char* name : {"one", "two", "old"})
        site.world[name].serveRoot = true;
    site.Page(D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro"), "[one][two]2") << "second-generation providers only";
    EXPECT_EQ(site.Body("/Ferro/"), "[one][two]2");
    EXPECT_THAT(site.world.Calls({"one.col.Associate"}),
                Contains("one.col.Associate(/, token=null)"));
    EXPECT_EQ(site.Body("/Ferro", "filter=t"), "[two]1");
    site.world.ExpectAtRest();
}

TEST(ListingOfRoots, ProviderThatCannotBeOpened_IsSkipped)
{
    for (const char* call : {"one.Create", "one.col.Associate"}) {
        Site site({{.name = "one"}, {.name = "two"}});
        site.world["one"].serveRoot = site.world["two"].serveRoot = true;
        site.Page(D("Files") + D("NumberOfFiles"));
        site.world.Fail(call, harness::ProviderFailure(kCodeAccessDenied));
        EXPECT_EQ(site.Body("/Ferro"), "[two]1") << call;
        site.world.ExpectAtRest();
    }
}

TEST(ListingOfRoots, DeletedEntries_AreNotAskedFor)
{
    Site site;
    site.world["vol"].serveRoot = true;
    site.Preferences(0x01);
    EXPECT_EQ(site.Body("/Ferro"), "[vol]");
    EXPECT_THAT(site.world.Calls({"vol.col.Ioctl"}), ElementsAre());
}

// The page is cut out of the whole order, of which no more is kept than can stand on it.
TEST(Listing, PageOfManyEntries_IsASliceOfTheWholeList)
{
    constexpr int kEntries = 1300; // more than one batch of what is kept
    const std::vector<Deleted> deleted = {{.id = 1, .name = "gone1"}, {.id = 2, .name = "gone2"}};
    Site site;
    auto& vol = site.world["vol"];
    site::KeepDeleted(vol, deleted);
    std::mt19937 random(11);
    std::vector<std::string> names;
    for (int i = 0; i < kEntries; ++i) {
        names.push_back("n" + std::to_string(100000 + i));
        const std::string path = "/vol/" + names.back();
        auto& node = i % 16 == 0 ? vol.AddCollection(path) : vol.AddFile(path);
        node.sizeShown = random() % 5; // many are equal
        node.modified += random() % 5;
    }
    const auto pages = [&](const std::string& range, const std::string& start) {
        site.Page(D("SetMaxFiles:" + range) + ":" + D("Files") + D("NumberOfFiles"));
        return site.Body("/Ferro/vol", "start=" + start);
    };
    for (const char* order : {"ascending", "descending", "shuffled"}) {
        std::ranges::sort(names);
        if (*order == 'd')
            std::ranges::reverse(names);
        if (*order == 's')
            std::ranges::shuffle(names, random);
        vol.SetOrder("/vol", names);
        for (UINT32 flags = 0x01; flags < 0x80; flags += 0x10) {
            site.Preferences(flags);
            const std::string whole = pages("100000", "1").substr(7);
            for (const char* start : {"1", "78", "1299"}) {
                const std::string page = pages("9", start);
                // An entry is its name in brackets.
                size_t begin = 0;
                for (int skip = std::stoi(start) - 1; skip > 0 && whole[begin] == '['; --skip)
                    begin = whole.find(']', begin) + 1;
                size_t end = begin;
                for (int taken = 0; taken < 9 && whole[end] == '['; ++taken)
                    end = whole.find(']', end) + 1;
                ASSERT_EQ(page, "9:" + whole.substr(begin, end - begin) + "1302")
                    << order << " " << flags << " " << start;
            }
        }
    }
}

TEST(Listing, EntriesThatCannotBeOnThePage_AreNotKept)
{
    for (const UINT32 flags : {0x00U, 0x10U, 0x20U}) {
        Site site;
        for (int i = 0; i < 3000; ++i)
            site.world["vol"].AddFile("/vol/" + std::to_string(100000 + i)).sizeShown = 7;
        site.Preferences(flags);
        site.Page(D("Files") + D("NumberOfFiles"));
        int most = 0;
        site.world.recorder.onCall = [&](std::string_view) {
            most = std::max(most, site.world.platform.LiveAllocations());
        };
        EXPECT_THAT(site.Body("/Ferro/vol", "start=101"), testing::EndsWith("3000"));
        site.world.recorder.onCall = nullptr;
        // Two pages and a batch, beside the buffers of a request.
        EXPECT_LT(most, 1024 + 2 * 200 + 50) << flags;
        site.world.ExpectAtRest();
    }
}

TEST(Listing, TenThousandEntries_InShuffledOrder_AreSortedAndFreed)
{
    Site site;
    std::vector<std::string> names;
    for (int i = 0; i < 10000; ++i) {
        names.push_back(std::to_string(100000 + i));
        site.world["vol"].AddFile("/vol/" + names.back());
    }
    std::ranges::shuffle(names, std::mt19937(3));
    site.world["vol"].SetOrder("/vol", names);
    site.Page(D("SetMaxFiles:2") + D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro/vol", "start=9999"), "2[109998][109999]10000");
    site.world.ExpectAtRest();
}
