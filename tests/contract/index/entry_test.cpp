// SPDX-License-Identifier: Apache-2.0
//
// The entry template: its directives and its conditional blocks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "site.h"

using harness::Node;
using harness::Reply;
using site::D;
using site::Deleted;
using site::Site;
using testing::MatchesRegex;

namespace {

// What an entry template makes of the site's files.
std::string Entries(Site& site, const std::string& entry, const std::string& path = "/Ferro/vol")
{
    site.Entry(entry);
    return site.Body(path);
}

} // namespace

TEST(EntryDirective, FileSize_Truncates)
{
    const struct {
        UINT64 size;
        const char* shown;
    } rows[] = {
        {1, "1"},
        {1024, "1024"},
        {1025, "1K"},
        {2047, "1K"},
        {2048, "2K"},
        {1048576, "1024K"},
        {1048577, "1M"},
        {2097151, "1M"},
        {UINT64{3} << 30, "3072M"},
        {~UINT64{0}, "17592186044415M"},
    };
    for (const auto& row : rows) {
        Site site;
        site.world["vol"].AddFile("/vol/a").sizeShown = row.size;
        EXPECT_EQ(Entries(site, D("FileSize")), row.shown) << row.size;
    }
    Site site;
    site.world["vol"].AddFile("/vol/empty");
    EXPECT_EQ(Entries(site, D("FileSize")), "0");
}

TEST(EntryDirective, DisplayName_IsNotEscaped)
{
    Site site;
    site.world["vol"].AddFile("/vol/a <b> & \"c\"");
    EXPECT_EQ(Entries(site, D("DisplayName")), "a <b> & \"c\"");
}

TEST(EntryDirective, LongDisplayName_IsCutBehindAWholeCharacter)
{
    Site site;
    std::string name;
    for (int i = 0; i < 480; ++i)
        name += "\u20ac"; // 1440 bytes in all
    site.world["vol"].AddFile("/vol/" + name);
    EXPECT_EQ(Entries(site, D("DisplayName")), name.substr(0, 1023));
}

TEST(EntryDirective, FileIndex_DiffersForEveryEntry)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    site.world["vol"].AddFile("/vol/b");
    EXPECT_EQ(Entries(site, D("FileIndex") + ";"), "file1;file2;");
    EXPECT_EQ(site.Body(), "file3;file4;") << "never reset";
}

TEST(EntryDirective, Filetype_ComesFromTheExtension)
{
    Site site;
    site.world["vol"].AddCollection("/vol/dir.txt");
    site.world["vol"].AddFile("/vol/a.TXT");
    site.world["vol"].AddFile("/vol/b.tar.gz");
    site.world["vol"].AddFile("/vol/c");
    site.world["vol"].AddFile("/vol/d.other");
    site.Entry(D("Filetype") + ";");
    EXPECT_EQ(site.Body(), "icon_folder.gif;unknown.png;unknown.png;unknown.png;unknown.png;");
    EXPECT_EQ(site.Render(D("SetFiletype:txt=first") + D("SetFiletype:Txt=text") +
                          D("SetFiletype:gz=zip") + D("SetFiletype:Folder=dir") +
                          D("SetFiletype:DEFAULT=any=thing") + D("Files")),
              "dir;text;zip;any=thing;any=thing;")
        << "the last setting wins, the first equals sign separates";
}

TEST(EntryDirective, FileUrl_IsFolderAndNameEscaped)
{
    Site site;
    site.world["vol"].AddFile("/vol/a b&c:d");
    EXPECT_EQ(Entries(site, D("FileURL")), "/Ferro/vol/a%20b%26c%3ad");
    EXPECT_EQ(site.world.Run(Site::Asks("/Ferro/vol/").Raw("/Ferro/vol/")).body,
              "/Ferro/vol/a%20b%26c%3ad")
        << "no second slash";
}

TEST(EntryDirective, FileUrlOfAnEntryWithState_IsItsOwnUri)
{
    Site site;
    Node& node = site.world["vol"].AddFile("/vol/a");
    node.state = 1;
    node.uri = u"/else/where & \u00e4";
    EXPECT_EQ(Entries(site, D("FileURL")), "/else/where & \u00e4");
    site.world.ExpectAtRest();
}

TEST(EntryDirective, IsFolder_SaysSo)
{
    Site site;
    site.world["vol"].AddCollection("/vol/d");
    site.world["vol"].AddFile("/vol/f");
    EXPECT_EQ(Entries(site, D("IsFolder") + ";"), "true;false;");
}

TEST(EntryDirective, IsDeleted_ShowsTheIdentifierAndOneCharacterOfTheUri)
{
    const std::vector<Deleted> deleted = {
        {.id = 17, .name = "plain"},
        {.id = ~UINT64{0}, .name = "reachable", .state = 1, .uri = u"/kept/17"},
        {.id = 5, .name = "wide", .state = 1, .uri = u"\u4142\u4344"},
    };
    Site site;
    site.world["vol"].AddFile("/vol/a");
    site::KeepDeleted(site.world["vol"], deleted);
    site.Preferences(0x01);
    EXPECT_EQ(Entries(site, D("DisplayName") + "=" + D("IsDeleted") + ";"),
              "a=0;plain=17;reachable=18446744073709551615:/;wide=5:BADC;");
    site.world.ExpectAtRest();
}

TEST(EntryDirective, ShortName_CountsBytes)
{
    Site site;
    site.world["vol"].AddFile("/vol/abc\u00e4f");
    EXPECT_EQ(Entries(site, D("ShortName6")), "abc\u00e4f");
    EXPECT_EQ(Entries(site, D("ShortName5")), "abc\u00e4...");
    EXPECT_EQ(Entries(site, D("ShortName4")), "abc\xc3...") << "kept: a character may be cut";
    EXPECT_EQ(Entries(site, D("ShortName0")), "...");
    EXPECT_EQ(Entries(site, D("ShortName")), "...");
    EXPECT_EQ(Entries(site, D("ShortName-3")), "...");
    EXPECT_EQ(Entries(site, D("ShortName999999999999")), "abc\u00e4f");
}

TEST(EntryDirective, ModifyTime_TakesAFormat)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    EXPECT_EQ(Entries(site, D("ModifyTime%Y-%m-%dT%H:%M:%SZ %a %Z")),
              "2026-01-31T12:00:00Z Sat UTC");
    EXPECT_EQ(Entries(site, "<" + D("ModifyTime") + ">"), "<>");
    std::string wide = "ModifyTime";
    for (int i = 0; i < 200; ++i)
        wide += "%A"; // 200 weekdays do not fit
    EXPECT_EQ(Entries(site, "<" + D(wide) + ">"), "<>");
}

TEST(EntryDirective, ModifyTimeOf1601_IsFarOff)
{
    Site site;
    site.world["vol"].AddFile("/vol/a").modified = 0;
    EXPECT_THAT(Entries(site, D("ModifyTime%Y")), MatchesRegex("[0-9][0-9][0-9][0-9][0-9]"));
}

TEST(EntryBlock, Conditions_DecideAboutTheirContent)
{
    const std::vector<Deleted> deleted = {{.id = 9, .name = "gone"}};
    Site site;
    site.world["vol"].AddCollection("/vol/dir");
    site.world["vol"].AddFile("/vol/file");
    site::KeepDeleted(site.world["vol"], deleted);
    site.Preferences(0x01);
    const auto shown = [&](const std::string& condition) {
        return Entries(site, D("if:" + condition) + D("DisplayName") + D("endIf") + ";");
    };
    EXPECT_EQ(shown("isFolder"), "dir;;;");
    EXPECT_EQ(shown("ISFILE"), ";file;gone;");
    EXPECT_EQ(shown("isDeleted"), ";;gone;");
    EXPECT_EQ(shown("isNotDeleted"), "dir;file;;");
    EXPECT_EQ(shown("odd"), ";file;;");
    EXPECT_EQ(shown("something"), ";;;");
    EXPECT_EQ(shown(""), ";;;");
    EXPECT_EQ(shown("odd "), ";;;");
}

TEST(EntryBlock, FalseBlock_IsSkippedOverLinesUpToTheFirstEnd)
{
    Site site;
    site.world["vol"].AddFile("/vol/f");
    EXPECT_EQ(Entries(site, "a" + D("if:isFolder") + "b\nc" + D("DisplayName") + "\nd" +
                                D("ENDIF") + "e\nf"),
              "ae\nf");
    EXPECT_EQ(Entries(site, D("if:isFolder") + "1" + D("if:isFile") + "2" + D("endIf") + "3" +
                                D("endIf") + "4"),
              "34")
        << "blocks do not nest";
    EXPECT_EQ(Entries(site, D("if:isFile") + "1" + D("if:isFolder") + "2" + D("endIf") + "3" +
                                D("endIf") + "4"),
              "134");
    EXPECT_EQ(Entries(site, "a" + D("if:isFolder") + "b\nc"), "a") << "without an end";
    EXPECT_EQ(Entries(site, "a" + D("if:isFolder") + "b<!--OlmDAV:endIf\nc"), "ac")
        << "an end without its end drops the rest of its line";
}

TEST(EntryTemplate, Lines_AreReadAsThePagesAre)
{
    Site site;
    site.world["vol"].AddFile("/vol/f");
    EXPECT_EQ(Entries(site, "a<!--OlmDAV:Display\nName-->b"), "aName-->b");
    const std::string name = D("DisplayName");
    const std::string before(1023 - name.size(), 'x');
    EXPECT_EQ(Entries(site, before + name + "y"), before + "fy");
    EXPECT_EQ(Entries(site, "x" + before + name + "y"), "x" + before + "-->"[2] + "y")
        << "the last byte of the directive alone is text";
}

TEST(EntryTemplate, Missing_LeavesEntriesOutAndThePageGoesOn)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    site.dir.Remove("ecmaentry.html");
    EXPECT_EQ(site.Render("<" + D("Files") + ">" + D("NumberOfFiles")), "<>1");
    site.world.ExpectAtRest();
}
