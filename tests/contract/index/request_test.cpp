// SPDX-License-Identifier: Apache-2.0
//
// From the request to the template: the client's kind, the arguments, the reply's head.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <unistd.h>

#include "site.h"

using harness::Reply;
using harness::Request;
using harness::Setup;
using site::Site;
using testing::HasSubstr;
using testing::Not;

namespace {

// A site whose page templates name themselves.
void NameTemplates(const Site& site)
{
    for (const char* name :
         {"index.xml", "ecmaindex.html", "nsindex.html", "txindex.html", "ceindex.html"})
        site.dir.Write(name, name);
}

std::string Served(Site& site, const Request& request)
{
    return site.world.Run(request).body;
}

Request Plain(const std::string& path = "/Ferro/vol")
{
    return Request(KestMethodGet, path);
}

// Twelve files a to l.
void AddTwelve(Site& site)
{
    for (char name = 'a'; name <= 'l'; ++name)
        site.world["vol"].AddFile(std::string("/vol/") + name);
}

} // namespace

TEST(IndexRequest, Page_HasItsHeadAndIsStreamed)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    EXPECT_EQ(site.Get().text, "200\n"
                               "Cache-Control: no-store\n"
                               "Transfer-Encoding: chunked\n"
                               "Content-Type: text/html; charset=\"utf-8\"\n"
                               "\n"
                               "[a]");
    site.world.ExpectAtRest();
}

TEST(IndexRequest, UserAgent_ChoosesTheTemplate)
{
    Site site;
    NameTemplates(site);
    const struct {
        const char* agent;
        const char* page;
    } rows[] = {
        {"Mozilla/4.0 (compatible; MSIE 6.0; Windows NT 5.1)", "ecmaindex.html"},
        {"Mozilla/4.0 (compatible; MSIE 6.0; Mac_PowerPC)", "ecmaindex.html"},
        {"Mozilla/2.0 (compatible; MSIE 4.01; Windows CE)", "ceindex.html"},
        {"Mozilla/4.0 (compatible; MSIE 4.0; Windows 98)", "txindex.html"},
        {"Mozilla/4.7 [en]", "nsindex.html"},
        {"Mozilla/4.6 [en]", "txindex.html"},
        {"Mozilla/5.0 (X11)", "ecmaindex.html"},
        {"", "txindex.html"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Served(site, Plain().Header("User-Agent", row.agent)), row.page) << row.agent;
    EXPECT_EQ(Served(site, Plain()), "txindex.html") << "no agent at all";
    EXPECT_EQ(Served(site, Plain().Header("User-Agent", std::string(2000, 'x') + "Mozilla/5.0")),
              "txindex.html")
        << "an agent that does not fit counts as none";
}

TEST(IndexRequest, TextModeCookie_WinsOverTheAgent)
{
    Site site;
    NameTemplates(site);
    EXPECT_EQ(Served(site, Site::Asks().Header("Cookie", "a=b; TextMode=1")), "txindex.html");
    EXPECT_EQ(Served(site, Site::Asks().Header("Cookie", "TextMode=0")), "ecmaindex.html");
    const auto calls = site.world.Calls({"io.GetRequestHeader"});
    EXPECT_EQ(std::ranges::count(calls, "io.GetRequestHeader(user-agent)"), 1)
        << "the agent is not looked at where the cookie decides";
}

TEST(IndexRequest, AcceptOfExactlyXml_WinsOverTheCookie)
{
    Site site;
    NameTemplates(site);
    const auto accept = [&](const std::string& value) {
        return Served(site, Site::Asks().Header("Cookie", "TextMode=1").Header("Accept", value));
    };
    EXPECT_EQ(accept("text/xml"), "index.xml");
    EXPECT_EQ(accept("TEXT/Xml"), "index.xml");
    EXPECT_EQ(accept("text/xml, */*"), "txindex.html");
    EXPECT_EQ(accept("text/html"), "txindex.html");
}

TEST(IndexRequest, IndexXmlSuffix_GivesTheXmlFormOfTheFolder)
{
    Site site;
    site.world["vol"].AddFile("/vol/dir/a");
    site.dir.Write("index.xml", "<!--OlmDAV:currentFolder-->|<!--OlmDAV:Files-->");
    site.dir.Write("fileentry.xml", "{<!--OlmDAV:FileURL-->}");
    const Reply reply = site.Get("/Ferro/vol/dir/.index_xml");
    EXPECT_THAT(reply.text, HasSubstr("Content-Type: text/html; charset=\"utf-8\"\n"));
    EXPECT_EQ(reply.body, "/Ferro/vol/dir|{/Ferro/vol/dir/a}");
    site.world.ExpectAtRest();
}

TEST(IndexRequest, IndexXmlSuffixOnTheRoot_ListsTheRoots)
{
    Site site;
    site.world["vol"].serveRoot = true;
    site.dir.Write("index.xml", "<!--OlmDAV:currentFolder-->|<!--OlmDAV:Files-->");
    site.dir.Write("fileentry.xml", "{<!--OlmDAV:DisplayName-->}");
    EXPECT_EQ(site.Body("/Ferro/.index_xml"), "/Ferro|{vol}");
}

TEST(IndexRequest, StartArgument_CountsFromOne)
{
    Site site;
    AddTwelve(site);
    site.Page("<!--OlmDAV:Files-->");
    const struct {
        const char* query;
        const char* shown;
    } rows[] = {
        {"start=1", "[a][b][c][d][e][f][g][h][i][j][k][l]"},
        {"start=0", "[a][b][c][d][e][f][g][h][i][j][k][l]"},
        {"start=11", "[k][l]"},
        {"x=1&start=12&y=2", "[l]"},
        {"start=", "[a][b][c][d][e][f][g][h][i][j][k][l]"},
        {"start=13", ""},
        {"start=-1", ""},
        {"start=4294967297", ""},
        {"start=%31%31", "[a][b][c][d][e][f][g][h][i][j][k][l]"}, // read before unescaping
    };
    for (const auto& row : rows)
        EXPECT_EQ(site.Body("/Ferro/vol", row.query), row.shown) << row.query;
}

TEST(IndexRequest, FilterArgument_IsUnescapedCheckedAndShownAsGiven)
{
    Site site;
    for (const char* name : {"alpha", "Bravo", "b c", "b\u00e4r"})
        site.world["vol"].AddFile(std::string("/vol/") + name);
    site.Page("<!--OlmDAV:Filter-->|<!--OlmDAV:Files-->");
    const std::string all = "[alpha][b c][Bravo][b\u00e4r]";
    const struct {
        const char* why;
        std::string query, page;
    } rows[] = {
        {"none", "", "*|" + all},
        {"everything", "filter=*", "*|" + all},
        {"empty", "filter=", "*|" + all},
        {"empty before another", "filter=&start=1", "*|" + all},
        {"either case", "filter=a*", "a*|[alpha]"},
        {"the beginning suffices", "filter=b", "b|[b c][Bravo][b\u00e4r]"},
        {"escaped", "filter=%62r", "br|[Bravo]"},
        {"a plus is a space", "filter=b+c", "b c|[b c]"},
        {"an escaped plus too", "filter=b%2Bc", "b c|[b c]"},
        {"beyond ASCII", "filter=B%C3%84R", "B\u00c4R|[b\u00e4r]"},
        {"one question mark", "filter=?", "?|" + all},
        {"markup is refused", "filter=%3Cb", "*|" + all},
        {"a reference is refused", "filter=%26%2365", "*|" + all}, // "&" ends the value
        {"literally this is refused", "filter=%3C(.*?)%3E", "*|" + all},
        {"not UTF-8", "filter=%FF", "*|" + all},
        {"a broken escape", "filter=br%4", "br%4|"},
        {"behind another argument", "x=y&filter=br", "br|[Bravo]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(site.Body("/Ferro/vol", row.query), row.page) << row.why;
}

TEST(IndexRequest, LongArguments_AreCutNotOverrun)
{
    Site site;
    site.world["vol"].AddFile("/vol/aaa");
    site.Page("<!--OlmDAV:Filter-->");
    const std::string filter = site.Body("/Ferro/vol", "filter=" + std::string(5000, 'a'));
    EXPECT_EQ(filter, std::string(1024 - 7, 'a'));
    EXPECT_EQ(site.Body("/Ferro/vol", std::string(5000, 'x') + "&filter=b"), "*");
    site.world.ExpectAtRest();
}

TEST(IndexRequest, HostsCookie_IsKeptFromScripts)
{
    Site site;
    const auto cookie = [&](Request request) {
        const std::string head = site.world.Run(request).text;
        const size_t at = head.find("Set-Cookie: ");
        return at == std::string::npos ? "none" : head.substr(at, head.find('\n', at) - at);
    };
    EXPECT_EQ(cookie(Site::Asks()), "none");
    EXPECT_EQ(cookie(Site::Asks().Protocol("https")), "none");
    EXPECT_EQ(cookie(Site::Asks().HostSets("Set-Cookie", "s=1; Path=/")),
              "Set-Cookie: s=1; Path=/; HttpOnly");
    EXPECT_EQ(cookie(Site::Asks().HostSets("Set-Cookie", "s=1").Protocol("https")),
              "Set-Cookie: s=1; HttpOnly; Secure");
    EXPECT_EQ(cookie(Site::Asks().HostSets("Set-Cookie", "s=1").Protocol("HTTPS/1.1")),
              "Set-Cookie: s=1; HttpOnly; Secure");
    const std::string longer = "s=" + std::string(3000, 'x');
    EXPECT_EQ(cookie(Site::Asks().HostSets("Set-Cookie", longer).Protocol("https")),
              "Set-Cookie: " + longer + "; HttpOnly; Secure");
    site.world.ExpectAtRest();
}

TEST(IndexRequest, SortPreference_ComesFromTheSession)
{
    Site site;
    site.world["vol"].AddFile("/vol/a");
    site.world["vol"].AddFile("/vol/b");
    site.Preferences(0x10);
    EXPECT_EQ(site.Body(), "[b][a]");
    site.world.recorder.FailAlways("sa.SAReference", MakeStatus(kFacilityHost, kCodeNotFound));
    EXPECT_EQ(site.Body(), "[a][b]") << "without the attribute: by name, ascending";
    site.world.ExpectAtRest();
}

TEST(IndexRequest, MissingPageTemplate_SendsNothing)
{
    Site site;
    site.dir.Remove("ecmaindex.html");
    const Reply reply = site.Get();
    EXPECT_EQ(reply.heads, 0);
    EXPECT_EQ(reply.body, "");
    EXPECT_EQ(reply.returned, TAL_STATUS_OPEN_FAILED);
    site.world.ExpectAtRest();
}

TEST(IndexRequest, RawUrlThatCannotBeHad_SendsNothing)
{
    Site site;
    site.world.Fail("io.GetRawUrl", MakeStatus(kFacilityHost, kCodeUnsuccessful));
    const Reply reply = site.Get();
    EXPECT_EQ(reply.heads, 0);
    EXPECT_EQ(reply.returned, TAL_STATUS_OPEN_FAILED);
    site.world.ExpectAtRest();
}

TEST(IndexRequest, TemplateDirectory_IsReadOnce)
{
    Site site;
    site.Page("first");
    EXPECT_EQ(site.Body(), "first");
    const site::TemplateDir other;
    other.Write("ecmaindex.html", "second");
    site.world.ChangeRegistry({.moduleValues = "'Template Directory' = '" + other.Path() + "'"});
    EXPECT_EQ(site.Body(), "first");
}

TEST(IndexRequest, EmptyTemplateDirectory_IsReadAgain)
{
    harness::World world({{.name = "vol"}}, {.moduleValues = "'Template Directory' = ''"});
    EXPECT_EQ(world.Run(Site::Asks()).heads, 0);
    const site::TemplateDir dir;
    dir.Write("ecmaindex.html", "found");
    world.ChangeRegistry({.moduleValues = "'Template Directory' = '" + dir.Path() + "'"});
    EXPECT_EQ(world.Run(Site::Asks()).body, "found");
}

TEST(IndexRequest, NoTemplateDirectory_LooksAtTheFileSystemsRoot)
{
    harness::World world({{.name = "vol"}});
    const Reply reply = world.Run(Site::Asks());
    EXPECT_EQ(reply.heads, 0);
    EXPECT_EQ(reply.returned, TAL_STATUS_OPEN_FAILED);
    world.ExpectAtRest();
}

TEST(IndexRequest, UnusableTemplateDirectory_LooksWhereNothingIs)
{
    std::string tooLong;
    for (int i = 0; i < 90; ++i)
        tooLong += "\u20ac";
    harness::InChild([&] {
        const site::TemplateDir dir;
        ASSERT_EQ(chdir(dir.Path().c_str()), 0);
        dir.Write("c:\\ecmaindex.html", "here");
        harness::World world({{.name = "vol"}},
                             {.moduleValues = "'Template Directory' = '" + tooLong + "/'"});
        EXPECT_EQ(world.Run(Site::Asks()).body, "here");
    });
}

TEST(IndexRequest, TemplateDirectory_MayBeLong)
{
    // The registry tells the value together with its name, in one buffer.
    for (const size_t length : {239U, 240U}) {
        harness::InChild([length] {
            const site::TemplateDir dir;
            // One more folder, whose name fills up what is left with the "/" at the end.
            const std::string name(length - dir.Path().size() - 1, 'x');
            ASSERT_TRUE(std::filesystem::create_directory(dir.Path() + name));
            dir.Write(name + "/ecmaindex.html", "here");
            harness::World world({{.name = "vol"}}, {.moduleValues = "'Template Directory' = '" +
                                                                     dir.Path() + name + "/'"});
            EXPECT_EQ(world.Run(Site::Asks()).body, length == 239 ? "here" : "");
        });
    }
}

TEST(IndexRequest, ManyThreads_RenderAtOnce)
{
    Site site;
    for (int i = 0; i < 20; ++i)
        site.world["vol"].AddFile("/vol/f" + std::to_string(100 + i));
    site.Page("<!--OlmDAV:SetFiletype:txt=t--><!--OlmDAV:Files-->");
    site.Entry("<!--OlmDAV:DisplayName-->;");
    std::string expected;
    for (int i = 0; i < 20; ++i)
        expected += "f" + std::to_string(100 + i) + ";";
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i)
                wrong += site.world.Run(Site::Asks().Session(t + 1)).body != expected;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    site.world.ExpectAtRest();
}
