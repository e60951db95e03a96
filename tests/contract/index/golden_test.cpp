// SPDX-License-Identifier: Apache-2.0
//
// One whole page of each kind of client, and what the shipped templates make of a hostile folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <expat.h>
#include <fstream>
#include <set>
#include <sstream>

#include "site.h"

using harness::Node;
using harness::Reply;
using harness::Request;
using site::Deleted;
using site::Site;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kPage[] =
    "<!--OlmDAV:SetFiletype:folder=dir.svg--><!--OlmDAV:SetFiletype:default=file.svg-->\n"
    "<!--OlmDAV:SetFiletype:txt=text.svg-->\n"
    "<h1><!--OlmDAV:currentFolder--></h1>\n"
    "<a href=\"<!--OlmDAV:ParentURL-->\">up</a> size <!--OlmDAV:SetMaxFiles:3-->\n"
    "filter <!--OlmDAV:Filter--> root <!--OlmDAV:WharfRoot--> "
    "deleted <!--OlmDAV:ShowingDeleted-->\n"
    "agent <!--OlmDAV:UserAgent-->\n"
    "<ul>\n"
    "<!--OlmDAV:Files-->\n"
    "</ul>\n"
    "<!--OlmDAV:NumberOfFiles--> entries\n";

constexpr char kEntry[] =
    "<li id=\"<!--OlmDAV:FileIndex-->\"<!--OlmDAV:if:odd--> class=\"odd\"<!--OlmDAV:endIf-->>\n"
    "<a href=\"<!--OlmDAV:FileURL-->\"><!--OlmDAV:ShortName12--></a> <!--OlmDAV:Filetype-->\n"
    "<!--OlmDAV:if:isFile--><!--OlmDAV:FileSize--><!--OlmDAV:endIf-->"
    "<!--OlmDAV:if:isFolder-->folder<!--OlmDAV:endIf-->\n"
    "<!--OlmDAV:ModifyTime%Y-%m-%d--> <!--OlmDAV:IsFolder--> <!--OlmDAV:IsDeleted-->\n"
    "</li>\n";

std::string Expected(const std::string& mark, const std::string& agent, const std::string& folder)
{
    return mark +
           "\n"
           "\n"
           "<h1>" +
           folder +
           "</h1>\n"
           "<a href=\"/Ferro/vol/\">up</a> size 3\n"
           "filter * root /Ferro deleted 0\n"
           "agent " +
           agent +
           "\n"
           "<ul>\n"
           "<li id=\"file1\">\n"
           "<a href=\"/Ferro/vol/dir/sub\">sub</a> dir.svg\n"
           "folder\n"
           "2026-01-31 true 0\n"
           "</li>\n"
           "<li id=\"file2\" class=\"odd\">\n"
           "<a href=\"/Ferro/vol/dir/a%20%26%20b.TXT\">a & b.TXT</a> text.svg\n"
           "5\n"
           "2026-01-31 false 0\n"
           "</li>\n"
           "<li id=\"file3\">\n"
           "<a href=\"/Ferro/vol/dir/long%20name%20of%20a%20file\">long name of...</a> file.svg\n"
           "2K\n"
           "2026-01-31 false 0\n"
           "</li>\n"
           "\n"
           "</ul>\n"
           "4 entries\n";
}

struct Mode {
    const char* why;
    const char* page;
    const char* entry;
    const char* agent;
    const char* accept;
    const char* path;
};
constexpr Mode kModes[] = {
    {"XML by the path", "index.xml", "fileentry.xml", site::kModern, "*/*",
     "/Ferro/vol/dir/.index_xml"},
    {"XML by the header", "index.xml", "fileentry.xml", site::kModern, "text/xml",
     "/Ferro/vol/dir"},
    {"script-capable", "ecmaindex.html", "ecmaentry.html", "Mozilla/4.0 (compatible; MSIE 6.0)",
     "*/*", "/Ferro/vol/dir"},
    {"layer-capable", "nsindex.html", "nsentry.html", "Mozilla/4.7 [en]", "*/*", "/Ferro/vol/dir"},
    {"text", "txindex.html", "txentry.html", "w3m/0.5.3", "*/*", "/Ferro/vol/dir"},
    {"small device", "ceindex.html", "ceentry.html",
     "Mozilla/2.0 (compatible; MSIE 4.01; Windows CE)", "*/*", "/Ferro/vol/dir"},
    {"newer", "ecmaindex.html", "ecmaentry.html", site::kModern, "*/*", "/Ferro/vol/dir"},
};

std::string Shipped(const std::string& name)
{
    std::ifstream file(std::string(SHIPPED_TEMPLATES) + "/" + name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The page without what stands in elements of one name.
std::string WithoutElements(std::string page, const std::string& element)
{
    const std::string end = "</" + element + ">";
    for (size_t at = page.find("<" + element); at != std::string::npos;
         at = page.find("<" + element, at)) {
        const size_t stop = page.find(end, at);
        EXPECT_NE(stop, std::string::npos) << "an element that does not end";
        if (stop == std::string::npos)
            return page;
        page.erase(at, stop + end.size() - at);
    }
    return page;
}

const char* const kHostileNames[] = {
    "<img src=x onerror=alert(1)>",
    "\" onmouseover=\"alert(1)",
    "' onmouseover='alert(1)",
    "--><script>alert(1)<!--",
    "]]><b>",
    "&lt;script&gt;",
    "<!--<script>",
    "a\\b;c=d",
    "\u202egnp.exe",
    "%3Cb%3E",
};

} // namespace

TEST(IndexPages, EveryKindOfClient_GetsItsWholePage)
{
    const std::vector<Deleted> deleted = {{.id = 7, .name = "gone.txt"}};
    for (const Mode& mode : kModes) {
        Site site;
        auto& vol = site.world["vol"];
        vol.AddCollection("/vol/dir/sub");
        vol.AddFile("/vol/dir/a & b.TXT", "hello");
        vol.AddFile("/vol/dir/long name of a file", std::string(2100, 'x'));
        site::KeepDeleted(vol, deleted);
        site.Preferences(0x01);
        site.dir.Write(mode.page, std::string(mode.page) + kPage);
        site.dir.Write(mode.entry, kEntry);
        const Reply reply = site.world.Run(Request(KestMethodGet, mode.path)
                                               .Header("User-Agent", mode.agent)
                                               .Header("Accept", mode.accept));
        EXPECT_EQ(reply.body, Expected(mode.page, mode.agent, "/Ferro/vol/dir")) << mode.why;
        site.world.ExpectAtRest();
    }
}

TEST(ShippedTemplates, Directives_AreAllKnownAndWhole)
{
    const std::set<std::string> known = {
        "currentFolder", "ParentURL",      "DevicePath",  "SetFiletype",
        "SetMaxFiles",   "SetFirstFile",   "Filter",      "WharfRoot",
        "NumberOfFiles", "ShowingDeleted", "Files",       "UserAgent",
        "EmailAddress",  "UserName",       "DisplayName", "FileSize",
        "FileIndex",     "Filetype",       "FileURL",     "IsFolder",
        "IsDeleted",     "ShortName",      "ModifyTime",  "if",
        "endIf",         "ErrorCode"};
    std::set<std::string> names = {"error.html"};
    for (const Mode& mode : kModes)
        names.insert({mode.page, mode.entry});
    for (const std::string& name : names) {
        std::istringstream text(Shipped(name));
        for (std::string line; std::getline(text, line);) {
            EXPECT_LT(line.size(), 1023U) << name << ": a longer line may split a directive";
            const std::string mark = "<!--OlmDAV:";
            for (size_t at = line.find(mark); at != std::string::npos; at = line.find(mark, at)) {
                at += mark.size();
                size_t end = at;
                while (end < line.size() && std::isalpha(static_cast<unsigned char>(line[end])))
                    ++end;
                EXPECT_EQ(known.count(line.substr(at, end - at)), 1U) << name << ": " << line;
                EXPECT_NE(line.find("-->", at), std::string::npos) << name << ": " << line;
            }
        }
    }
}

TEST(ShippedTemplates, HostileNames_StayInsideTheirElements)
{
    for (const Mode& mode : kModes) {
        Site site;
        auto& vol = site.world["vol"];
        for (const char* name : kHostileNames)
            vol.AddFile(std::string("/vol/dir/") + name, "x");
        for (const char* file : {mode.page, mode.entry})
            site.dir.Write(file, Shipped(file));
        const Reply reply = site.world.Run(Request(KestMethodGet, mode.path)
                                               .Header("User-Agent", mode.agent)
                                               .Header("Accept", mode.accept));
        EXPECT_THAT(reply.body, Not(HasSubstr("OlmDAV"))) << mode.why;
        // What is left of the page without the elements whose content no parser looks into.
        const std::string rest = WithoutElements(reply.body, "xmp");
        EXPECT_THAT(rest, Not(HasSubstr("alert(1)>"))) << mode.why;
        EXPECT_THAT(rest, Not(HasSubstr("\" onmouseover"))) << mode.why;
        EXPECT_THAT(rest, Not(HasSubstr("' onmouseover"))) << mode.why;
        EXPECT_THAT(rest, Not(HasSubstr("<img"))) << mode.why;
        EXPECT_THAT(rest, Not(HasSubstr("<b>"))) << mode.why;
    }
}

TEST(ShippedTemplates, XmlSet_IsWellFormedWithEveryEntry)
{
    Site site;
    auto& vol = site.world["vol"];
    for (const char* name : kHostileNames)
        vol.AddFile(std::string("/vol/dir/") + name, "x");
    vol.AddCollection("/vol/dir/sub");
    for (const char* file : {"index.xml", "fileentry.xml", "error.html"})
        site.dir.Write(file, Shipped(file));
    const std::string body = site.Body("/Ferro/vol/dir/.index_xml");

    XML_Parser parser = XML_ParserCreate(nullptr);
    int entries = 0;
    XML_SetUserData(parser, &entries);
    XML_SetStartElementHandler(parser, [](void* count, const XML_Char* name, const XML_Char**) {
        *static_cast<int*>(count) += std::string(name) == "entry";
    });
    EXPECT_EQ(XML_Parse(parser, body.data(), static_cast<int>(body.size()), 1), XML_STATUS_OK)
        << XML_ErrorString(XML_GetErrorCode(parser)) << " in\n"
        << body;
    XML_ParserFree(parser);
    EXPECT_EQ(entries, static_cast<int>(std::size(kHostileNames)) + 1);
}
