// SPDX-License-Identifier: Apache-2.0
//
// The page template: how its lines are read, and what its directives write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "site.h"

using harness::Reply;
using harness::Request;
using site::D;
using site::Site;

namespace {

// The page of a page template, for a request with a raw URL.
std::string AtRawUrl(Site& site, const std::string& raw, const std::string& page)
{
    site.Page(page);
    return site.world.Run(Site::Asks().Raw(raw)).body;
}

} // namespace

TEST(PageTemplate, TextAroundDirectives_IsWrittenAsItIs)
{
    Site site;
    EXPECT_EQ(site.Render("<p>\nno directive\n<!-- a comment -->\n"),
              "<p>\nno directive\n<!-- a comment -->\n");
    EXPECT_EQ(site.Render("a" + D("Filter") + "b" + D("Filter") + "c\nd"), "a*b*c\nd");
    EXPECT_EQ(site.Render(""), "");
}

TEST(PageTemplate, Keywords_AreComparedWithoutCaseOverTheirPrefix)
{
    Site site;
    EXPECT_EQ(site.Render(D("filter") + D("FILTER") + D("Filtered")), "***");
    EXPECT_EQ(site.Render(D("Showi") + D("ShowingWhatever")), "11");
    EXPECT_EQ(site.Render(D("currentFolderAndMore")), "/Ferro/vol");
    EXPECT_EQ(site.Render("<" + D("nothing known") + ">" + D("") + D("File")), "<>")
        << "an unknown keyword, also a prefix that is too short, writes nothing";
    EXPECT_EQ(site.Render("<!--olmdav:Filter-->"), "<!--olmdav:Filter-->")
        << "the mark itself has its case";
}

TEST(PageTemplate, Keywords_ActFromTheirShortestSpellingOn)
{
    Site site;
    site.world["vol"].AddFile("/vol/f");
    // A directive acts when it writes something, or at least asks for it.
    const auto acts = [&site](const std::string& keyword) {
        site.world.recorder.Clear();
        return site.Render(D(keyword)) != "" ||
               !site.world.Calls({"create.KestSrv", "vol.Create"}).empty();
    };
    for (const std::string shortest :
         {"currentFolder", "ParentURL", "DevicePath", "Filter", "WharfRoot", "NumberOfFiles",
          "Showi", "Files", "UserAge", "EmailAddress", "UserName"}) {
        EXPECT_TRUE(acts(shortest)) << shortest;
        EXPECT_FALSE(acts(shortest.substr(0, shortest.size() - 1))) << shortest;
    }
    EXPECT_EQ(site.Render(D("SetFirstFil:1") + D("Files")), "[f]");
    EXPECT_EQ(site.Render(D("SetFirstFile 1") + D("Files")), "");
    EXPECT_EQ(site.Render(D("SetMaxFile:0") + D("Files")), "[f]");
    EXPECT_EQ(site.Render(D("SetMaxFiles 0") + D("Files")), "0");
    EXPECT_EQ(site.Render(D("SetFiletyp:default=x") + D("SetFiletype default=y")), "");
}

TEST(PageTemplate, DirectiveOverTwoLines_IsNeverExecuted)
{
    Site site;
    EXPECT_EQ(site.Render("a<!--OlmDAV:Fil\nter-->b\nc"), "ater-->b\nc");
    EXPECT_EQ(site.Render("a<!--OlmDAV:Filter\n-->b"), "a-->b");
    EXPECT_EQ(site.Render("a<!--OlmDAV:SetMaxFiles:1\n-->" + D("NumberOfFiles")), "a-->0");
    EXPECT_EQ(site.Render("a<!--OlmDAV:Filter"), "a");
}

TEST(PageTemplate, LineOf1023Bytes_IsOneLine)
{
    Site site;
    const std::string directive = D("Filter");
    // With its line break the line has 1023 bytes.
    const std::string fits(1022 - directive.size(), 'x');
    EXPECT_EQ(site.Render(fits + directive + "\ny"), fits + "*\ny");
    // One byte more: the break alone comes as a line of its own.
    EXPECT_EQ(site.Render("x" + fits + directive + "\ny"), "x" + fits + "*\ny");
}

TEST(PageTemplate, DirectiveAcrossThe1023rdByte_IsSplit)
{
    Site site;
    const std::string directive = D("Filter"); // 20 bytes
    const size_t mark = std::string("<!--OlmDAV:").size();
    for (size_t inFirst = 1; inFirst <= directive.size(); ++inFirst) {
        const std::string before(1023 - inFirst, 'x');
        std::string expected = before;
        if (inFirst == directive.size())
            expected += "*"; // ends with the last byte of the line
        else if (inFirst < mark)
            expected += directive; // the mark itself is split: plain text
        else
            expected += directive.substr(inFirst); // the first part is dropped
        EXPECT_EQ(site.Render(before + directive + "y"), expected + "y") << inFirst;
    }
}

TEST(PageTemplate, LongLines_GoOutInPieces)
{
    Site site;
    const std::string text(5000, 'x');
    EXPECT_EQ(site.Render(text + "\n" + D("Filter")), text + "\n*");
}

TEST(PageDirective, CurrentFolder_IsTheRawUrlEscapedOnce)
{
    Site site;
    EXPECT_EQ(AtRawUrl(site, "/Ferro/vol/", D("currentFolder")), "/Ferro/vol/");
    EXPECT_EQ(AtRawUrl(site, "/Ferro/a%20b&'\"<x>", D("currentFolder")),
              "/Ferro/a%2520b%26%27%22%3cx%3e");
    const std::string longUrl = "/" + std::string(7000, ':');
    std::string escaped = "/";
    for (int i = 0; i < 7000; ++i)
        escaped += "%3a";
    EXPECT_EQ(AtRawUrl(site, longUrl, D("currentFolder")), escaped);
}

TEST(PageDirective, ParentUrl_IsOneLevelUp)
{
    Site site;
    const struct {
        const char* raw;
        const char* parent;
    } rows[] = {
        {"/", ""},
        {"x", "x"},
        {"/Ferro", "/"},
        {"/Ferro/", "/"},
        {"/Ferro/a", "/Ferro/"},
        {"/Ferro/a/", "/Ferro/"},
        {"/Ferro/a b/c", "/Ferro/a%20b/"},
        {"ab", "a"},
        {"//", "/"},
        {"/a//", "/a/"},
        {"//a", "//"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(AtRawUrl(site, row.raw, D("ParentURL")), row.parent) << row.raw;
}

TEST(PageDirective, SetMaxFiles_LimitsThePageAndIsEchoed)
{
    Site site;
    for (int i = 0; i < 30; ++i)
        site.world["vol"].AddFile("/vol/" + std::to_string(100 + i));
    site.Entry("x");
    EXPECT_EQ(site.Render("<" + D("SetMaxFiles:20") + ">" + D("Files")),
              "<20>" + std::string(20, 'x'));
    EXPECT_EQ(site.Render(D("setmaxfiles:0") + D("Files")), "0");
    EXPECT_EQ(site.Render(D("SetMaxFiles:") + D("Files")), "");
    EXPECT_EQ(site.Render(D("SetMaxFiles:5 ") + D("Files")), "5 xxxxx");
    EXPECT_EQ(site.Render(D("SetMaxFiles:4294967295") + D("SetFirstFile:29") + D("Files")),
              "4294967295x")
        << "the end of the range does not wrap";
}

TEST(PageDirective, SetFirstFile_CountsFromZeroAndOverridesTheArgument)
{
    Site site;
    for (const char* name : {"a", "b", "c"})
        site.world["vol"].AddFile(std::string("/vol/") + name);
    site.Page(D("SetFirstFile:1") + D("Files"));
    EXPECT_EQ(site.Body("/Ferro/vol", "start=3"), "[b][c]");
    EXPECT_EQ(site.Render(D("SetFirstFile:3") + D("Files")), "");
}

TEST(PageDirective, SetFiletype_WithoutEqualsSign_IsWritten)
{
    Site site;
    EXPECT_EQ(site.Render("a" + D("SetFiletype:txt") + "b"), "a!--OlmDAV:SetFiletype:txt-->b");
    EXPECT_EQ(site.Render("a<!--OlmDAV:SetFiletype:txt\nb"), "a!--OlmDAV:SetFiletype:txt\nb");
    EXPECT_EQ(site.Render("a" + D("SetFiletype:txt") + "<a href=\"b\">"),
              "a!--OlmDAV:SetFiletype:txt--><a href=\"b\">")
        << "an equals sign behind the directive is not its own";
}

TEST(PageDirective, SetFiletype_WithoutEnd_StoresNothingAndWritesTheText)
{
    Site site;
    site.world["vol"].AddFile("/vol/a.txt");
    site.Entry("[" + D("Filetype") + "]");
    EXPECT_EQ(site.Render("a<!--OlmDAV:SetFiletype:txt=text.gif\n" + D("Files")),
              "atext.gif\n[unknown.png]");
}

TEST(PageDirective, WharfRoot_IsLocationAndMoniker)
{
    {
        Site site;
        EXPECT_EQ(site.Render(D("WharfRoot")), "/Ferro");
    }
    Site site({{.name = "vol"}}, {.moniker = "/Other"});
    site.Page(D("wharfroot"));
    EXPECT_EQ(site.Body("/Other/vol"), "/Other");
}

TEST(PageDirective, NumberOfFiles_IsKnownBehindTheList)
{
    Site site;
    for (const char* name : {"a", "b", "c"})
        site.world["vol"].AddFile(std::string("/vol/") + name);
    site.Entry("x");
    EXPECT_EQ(
        site.Render(D("NumberOfFiles") + D("SetMaxFiles:2") + D("Files") + D("NumberOfFiles")),
        "02xx3");
    site.Page(D("Files") + D("NumberOfFiles"));
    EXPECT_EQ(site.Body("/Ferro/vol", "filter=b"), "x1") << "only what passed the filter counts";
}

TEST(PageDirective, ShowingDeleted_IsTheOtherState)
{
    Site site;
    EXPECT_EQ(site.Render(D("ShowingDeleted")), "1");
    site.Preferences(0x01);
    EXPECT_EQ(site.Render(D("ShowingDeleted")), "0");
}

TEST(PageDirective, UserAgent_IsTheTextAsReceived)
{
    Site site;
    site.Page(D("UserAgent"));
    EXPECT_EQ(
        site.world.Run(Request(KestMethodGet, "/Ferro/vol").Header("User-Agent", "Mozilla/5.0 <b>"))
            .body,
        "Mozilla/5.0 <b>");
    site.dir.Write("txindex.html", "<" + D("UserAgent") + ">");
    EXPECT_EQ(site.world.Run(Site::Asks().Header("Cookie", "TextMode=1")).body, "<>");
}

TEST(PageDirective, FilterAndFiles_AreToldApart)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    EXPECT_EQ(site.Render(D("Filter") + D("Files") + D("Fil") + D("FilesAgain")), "*[a][a]");
}
