// SPDX-License-Identifier: Apache-2.0
//
// What the server decides before and around the module.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Rules = ServerTest;

TEST_F(Rules, HostileRequestsAreRefusedAndTheConnectionCloses)
{
    static constexpr struct {
        const char* text;
        int status;
    } kRows[] = {
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab",
         400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: x\r\n\r\n", 400},
        {"PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\nTransfer-Encoding: "
         "chunked\r\n\r\n"
         "0\r\n\r\n",
         400},
        {"PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: gzip\r\n\r\n", 501},
        {"PUT /Ferro/a HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nX: a\r\n b\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost : h\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/2.0\r\nHost: h\r\n\r\n", 505},
        {"NONSENSE\r\n\r\n", 400},
    };
    const Running running = Start();
    for (const auto& row : kRows) {
        Client client(port);
        const Answer answer = client.Ask(row.text);
        EXPECT_EQ(answer.status, row.status) << row.text;
        EXPECT_EQ(answer.Header("Connection"), "close") << row.text;
        EXPECT_TRUE(answer.isWhole);
        EXPECT_FALSE(answer.body.empty());
        EXPECT_TRUE(client.IsClosed()) << row.text;
    }
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Rules, RefusalsThatLeaveTheFramingClearKeepTheConnection)
{
    static constexpr struct {
        const char* text;
        int status;
    } kRows[] = {
        {"GET /Ferro/a HTTP/1.1\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: \r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: u@h\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h h\r\n\r\n", 400},
        {"GET /Ferro/a HTTP/1.1\r\nHost: \"><script>\r\n\r\n", 400},
        {"GET /Ferro/a%2Fb HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"GET /Ferro/%zz HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"GET /Ferro/%00 HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"GET /Ferro/%FF HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"DELETE /Ferro/a#b HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"GET Ferro HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"GET * HTTP/1.1\r\nHost: h\r\n\r\n", 400},
        {"PATCH /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n", 501},
        {"get /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n", 501},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nExpect: magic\r\n\r\n", 417},
        {"PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Range: bytes 0-0/2\r\nContent-Length: "
         "1\r\n\r\na",
         400},
        {"GET /elsewhere HTTP/1.1\r\nHost: h\r\n\r\n", 404},
        {"GET /Ferrous HTTP/1.1\r\nHost: h\r\n\r\n", 404},
        {"GET /Ferro/../x HTTP/1.1\r\nHost: h\r\n\r\n", 404},
        {"GET /Wharf/common.js HTTP/1.1\r\nHost: h\r\n\r\n", 404},
        {"PUT /new HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\n\r\nab", 404},
        {"DELETE / HTTP/1.1\r\nHost: h\r\n\r\n", 405},
    };
    const Running running = Start();
    Client client(port);
    for (const auto& row : kRows) {
        const Answer answer = client.Ask(row.text);
        EXPECT_EQ(answer.status, row.status) << row.text;
        EXPECT_EQ(answer.Header("Connection"), "(none)") << row.text;
        EXPECT_EQ(answer.Header("Content-Length"), std::to_string(answer.body.size()));
        EXPECT_NE(answer.Header("Date"), "(none)");
    }
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Rules, ModuleSeesDecodedPathsUnderItsLocation)
{
    std::mutex mutex;
    std::u16string seen;
    module.handler = [&](IKestIO_5& io, UINT32) {
        const std::lock_guard lock(mutex);
        seen = Url(io);
        UNICODE_STRING* url = nullptr;
        EXPECT_EQ(io.GetUrl(nullptr, &url), TAL_STATUS_SUCCESS);
        EXPECT_GE(url->MaximumLength - url->Length, 2048);
        return io.SendHeader(200);
    };
    const Running running = Start();
    Client client(port);
    static constexpr struct {
        const char* target;
        const char16_t* path;
    } kRows[] = {
        {"/Ferro", u"/Ferro"},
        {"/Ferro/", u"/Ferro/"},
        {"/x/../Ferro/a", u"/Ferro/a"},
        {"/Ferro/a%20b%C3%A9", u"/Ferro/a b\u00e9"},
        {"/Ferro/%2520", u"/Ferro/%20"},
        {"/Ferro/%F0%9F%98%80", u"/Ferro/\U0001F600"},
        {"/Ferro/a/../../Ferro/b", u"/Ferro/b"},
        {"http://other/Ferro/c?q", u"/Ferro/c"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(client.Ask(RequestText(std::string("GET ") + row.target)).status, 200)
            << row.target;
        EXPECT_EQ(seen, row.path) << row.target;
    }
}

TEST_F(Rules, EmptyLinesBeforeARequestAreIgnored)
{
    const Running running = Start();
    const std::string text = "\r\n\r\n" + RequestText("GET /Ferro/a");
    for (size_t cut = 0; cut < text.size(); ++cut) {
        Client client(port);
        ASSERT_TRUE(client.Send(std::string_view(text).substr(0, cut)));
        EXPECT_EQ(client.Ask(std::string_view(text).substr(cut)).status, 200) << cut;
    }
}

TEST_F(Rules, OptionsAboveTheModuleTellWhatIsBelow)
{
    const Running running = Start();
    for (const char* target : {"*", "/"}) {
        const Answer answer = Ask(RequestText(std::string("OPTIONS ") + target));
        EXPECT_EQ(answer.status, 200) << target;
        EXPECT_EQ(answer.Header("DAV"), "1, 2");
        EXPECT_EQ(answer.Header("MS-Author-Via"), "DAV");
        EXPECT_NE(answer.Header("Allow").find("PROPFIND"), std::string::npos);
        EXPECT_EQ(answer.Header("Content-Length"), "0");
    }
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Rules, RootLeadsToTheModule)
{
    const Running running = Start();
    const Answer get = Ask(RequestText("GET /"));
    EXPECT_EQ(get.status, 302);
    EXPECT_EQ(get.Header("Location"), "/Ferro/");
    const Answer none = Ask(RequestText("PROPFIND /", "Depth: 0\r\n"));
    EXPECT_EQ(none.status, 207);
    EXPECT_NE(none.body.find("<D:href>/</D:href>"), std::string::npos);
    EXPECT_EQ(none.body.find("Ferro"), std::string::npos);
    const Answer one = Ask(RequestText("PROPFIND /", "Depth: 1\r\nContent-Length: 3\r\n") + "<a>");
    EXPECT_EQ(one.status, 207);
    EXPECT_NE(one.body.find("<D:href>/Ferro/</D:href>"), std::string::npos);
    EXPECT_EQ(one.Header("Content-Type"), "application/xml; charset=\"utf-8\"");
    const Answer deep = Ask(RequestText("PROPFIND /"));
    EXPECT_NE(deep.body.find("<D:href>/Ferro/</D:href>"), std::string::npos)
        << "no depth is the greatest one";
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Rules, AncestorsOfADeeperLocationAreCollections)
{
    const Running running = Start(QuietSettings(), "/dav/deep");
    EXPECT_NE(Ask(RequestText("PROPFIND /", "Depth: 1\r\n")).body.find("<D:href>/dav/</D:href>"),
              std::string::npos);
    EXPECT_NE(
        Ask(RequestText("PROPFIND /dav/", "Depth: 1\r\n")).body.find("<D:href>/dav/deep/</D:href>"),
        std::string::npos);
    EXPECT_EQ(Ask(RequestText("GET /dav")).Header("Location"), "/dav/deep/");
    EXPECT_EQ(module.calls, 0);
}

// In the standard dialect what is asked is answered, each property by its value or by 404.
TEST_F(Rules, AncestorsTellWhatTheyHave)
{
    ServerSettings settings = QuietSettings();
    settings.dialect = Dialect::Standard;
    const Running running = Start(settings, "/dav/a&b/deep");
    const auto find = [this](const std::string& path, const std::string& depth,
                             const std::string& body) {
        return Ask(RequestText("PROPFIND " + path,
                               depth + "Content-Length: " + std::to_string(body.size()) + "\r\n") +
                   body);
    };
    const Answer named = find(
        "/dav", "Depth: 1\r\n",
        "<p:propfind xmlns:p=\"DAV:\"><p:prop><p:displayname/><p:getetag/><x xmlns=\"urn:&amp;\"/>"
        "<p:resourcetype/></p:prop></p:propfind>");
    EXPECT_EQ(named.status, 207);
    const std::string missing =
        "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>"
        "<D:propstat><D:prop><D:getetag/><n:x xmlns:n=\"urn:&amp;\"/></D:prop>"
        "<D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>"
        "</D:response>\n";
    EXPECT_EQ(named.body,
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:multistatus xmlns:D=\"DAV:\">\n"
              "<D:response><D:href>/dav/</D:href><D:propstat><D:prop>"
              "<D:displayname>dav</D:displayname>"
              "<D:resourcetype><D:collection/></D:resourcetype>" +
                  missing +
                  "<D:response><D:href>/dav/a%26b/</D:href><D:propstat><D:prop>"
                  "<D:displayname>a&amp;b</D:displayname>"
                  "<D:resourcetype><D:collection/></D:resourcetype>" +
                  missing + "</D:multistatus>\n");
    EXPECT_EQ(find("/dav", "", "").status, 403) << "of all depths";
    EXPECT_NE(find("/", "Depth: Infinity\r\n", "").body.find("propfind-finite-depth"),
              std::string::npos);
    EXPECT_EQ(find("/", "Depth: 2\r\n", "").status, 400);
    EXPECT_EQ(find("/", "Depth: 0\r\n", "<a>").status, 400);
    EXPECT_EQ(find("/", "Depth: 0\r\n", std::string(100'000, ' ')).status, 413);
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Rules, AccessControlDecidesBeforeTheModule)
{
    door.judge = [](const Credentials& credentials) {
        EXPECT_EQ(credentials.remoteAddress, "127.0.0.1");
        EXPECT_FALSE(credentials.isSecure);
        AuthResult admission;
        if (credentials.authorization == "Basic good") {
            EXPECT_EQ(credentials.cookie, "a=1; b=2");
            EXPECT_TRUE(credentials.wantsCookie);
            admission.outcome = AuthResult::Outcome::Granted;
            admission.setCookie = "kest=1; Path=/";
        } else if (credentials.authorization == "Basic bad") {
            admission.outcome = AuthResult::Outcome::Forbidden;
        } else if (credentials.authorization == "Basic busy") {
            admission.outcome = AuthResult::Outcome::Unavailable;
        } else {
            admission.outcome = AuthResult::Outcome::Unauthorized;
            admission.challenge = "Basic realm=\"Kest\"";
        }
        return admission;
    };
    const Running running = Start();
    const Answer none = Ask(RequestText("GET /Ferro/a"));
    EXPECT_EQ(none.status, 401);
    EXPECT_EQ(none.Header("WWW-Authenticate"), "Basic realm=\"Kest\"");
    EXPECT_EQ(Ask(RequestText("GET /Ferro/a", "Authorization: Basic bad\r\n")).status, 403);
    const Answer busy = Ask(RequestText("GET /Ferro/a", "Authorization: Basic busy\r\n"));
    EXPECT_EQ(busy.status, 503);
    EXPECT_NE(busy.Header("Retry-After"), "(none)");
    EXPECT_EQ(module.calls, 0);
    const Answer good =
        Ask(RequestText("GET /Ferro/a", "Cookie: a=1\r\nAuthorization: Basic good\r\n"
                                        "Cookie: b=2\r\nAccept: text/html,*/*\r\n"));
    EXPECT_EQ(good.status, 200);
    EXPECT_EQ(good.Header("Set-Cookie"), "kest=1; Path=/; HttpOnly");
    EXPECT_EQ(module.calls, 1);
}

TEST_F(Rules, UnauthorizedUploadIsRefusedBeforeItsBody)
{
    door.judge = [](const Credentials&) {
        AuthResult admission;
        admission.outcome = AuthResult::Outcome::Unauthorized;
        admission.challenge = "Basic realm=\"Kest\"";
        return admission;
    };
    const Running running = Start();
    Client client(port);
    const Answer answer = client.Ask(
        RequestText("PUT /Ferro/big", "Content-Length: 1000000000\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(answer.status, 401);
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_TRUE(client.Send(std::string(300000, 'x'))); // some of it is listened to
    client.EndSending();
    EXPECT_TRUE(client.IsClosed());
}

// The end may arrive with the last request, and is not told again.
TEST_F(Rules, EndOfAClientThatHasSaidAllIsSeen)
{
    const Running running = Start();
    for (int i = 0; i < 20; ++i) {
        Client client(port);
        ASSERT_TRUE(client.Send(RequestText("GET /Ferro/a") + RequestText("GET /Ferro/b")));
        client.EndSending();
        EXPECT_EQ(client.Receive().status, 200);
        EXPECT_EQ(client.Receive().status, 200);
        EXPECT_TRUE(client.IsClosed());
    }
}

TEST_F(Rules, LongPipelineIsAnsweredInOrder)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        STRING* url = nullptr;
        EXPECT_EQ(io.GetRawUrl(&url), TAL_STATUS_SUCCESS);
        io.SendHeader(200);
        return io.PutString(url->Buffer);
    };
    const Running running = Start();
    constexpr int kRequests = 300; // several turns of one connection
    std::string all;
    for (int i = 0; i < kRequests; ++i)
        all.append(RequestText("GET /Ferro/" + std::to_string(i)));
    Client client(port);
    ASSERT_TRUE(client.Send(all));
    for (int i = 0; i < kRequests; ++i)
        EXPECT_EQ(client.Receive().body, "/Ferro/" + std::to_string(i));
}

TEST_F(Rules, KeepAliveFollowsVersionAndWish)
{
    static constexpr struct {
        const char* text;
        const char* connection;
        bool closes;
    } kRows[] = {
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n", "(none)", false},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n", "close", true},
        {"GET /Ferro/a HTTP/1.1\r\nHost: h\r\nConnection: x, Close\r\n\r\n", "close", true},
        {"GET /Ferro/a HTTP/1.0\r\n\r\n", "close", true},
        {"GET /Ferro/a HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", "keep-alive", false},
    };
    const Running running = Start();
    for (const auto& row : kRows) {
        Client client(port);
        const Answer answer = client.Ask(row.text);
        EXPECT_EQ(answer.status, 200);
        EXPECT_EQ(answer.Header("Connection"), row.connection) << row.text;
        if (row.closes)
            EXPECT_TRUE(client.IsClosed()) << row.text;
        else
            EXPECT_EQ(client.Ask(RequestText("GET /Ferro/b")).status, 200) << row.text;
    }
}

TEST_F(Rules, HostNamesComeFromTheClientUnlessThePublicUrlIsKnown)
{
    std::string seen;
    module.handler = [&](IKestIO_5& io, UINT32) {
        char text[3][300];
        UINT32 lengths[3] = {300, 300, 300};
        EXPECT_EQ(io.GetHostname(&lengths[0], text[0]), TAL_STATUS_SUCCESS);
        EXPECT_EQ(io.GetPort(&lengths[1], text[1]), TAL_STATUS_SUCCESS);
        EXPECT_EQ(io.GetProtocolName(&lengths[2], text[2]), TAL_STATUS_SUCCESS);
        seen = std::string(text[2]) + "://" + text[0] + ":" + text[1];
        return io.SendHeader(200);
    };
    ServerSettings settings = QuietSettings();
    const Running running = Start(settings);
    Ask("GET /Ferro/a HTTP/1.1\r\nHost: Example.org:81\r\n\r\n");
    EXPECT_EQ(seen, "http://Example.org:81");
    Ask("GET /Ferro/a HTTP/1.1\r\nHost: [::1]\r\n\r\n");
    EXPECT_EQ(seen, "http://[::1]:80");
    Ask("GET http://abs:82/Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(seen, "http://abs:82");
    settings.publicUrl = "https://files.example.org";
    EXPECT_EQ(server->Apply(settings), "");
    Ask("GET /Ferro/a HTTP/1.1\r\nHost: inner:8080\r\n\r\n");
    EXPECT_EQ(seen, "https://files.example.org:443");
}

TEST_F(Rules, PostsFromPagesOfOtherSitesAreRefused)
{
    static constexpr struct {
        const char* why;
        const char* fields;
        int status;
    } kRows[] = {
        {"a program", "", 200},
        {"our page", "Sec-Fetch-Site: same-origin\r\nOrigin: http://h\r\n", 200},
        {"typed by the user", "Sec-Fetch-Site: none\r\n", 200},
        {"another site", "Sec-Fetch-Site: cross-site\r\nOrigin: http://h\r\n", 403},
        {"another host of our site", "Sec-Fetch-Site: same-site\r\n", 403},
        {"our origin", "Origin: http://h\r\n", 200},
        {"our origin behind a proxy with TLS", "Origin: https://h\r\n", 200},
        {"our origin, port written out", "Origin: http://h:80\r\n", 200},
        {"another origin", "Origin: http://evil.example\r\n", 403},
        {"another port", "Origin: http://h:81\r\n", 403},
        {"a hidden origin", "Origin: null\r\n", 403},
        {"our origin as a prefix", "Origin: http://h.evil.example\r\n", 403},
        {"our page by its referrer", "Referer: http://h/Ferro/docs/?start=1\r\n", 200},
        {"another page by its referrer", "Referer: http://evil.example/http://h/\r\n", 403},
        {"a broken referrer", "Referer: h\r\n", 403},
    };
    const Running running = Start();
    for (const auto& row : kRows)
        EXPECT_EQ(Ask(RequestText("POST /Ferro/docs", row.fields)).status, row.status) << row.why;
    EXPECT_EQ(Ask(RequestText("PUT /Ferro/docs/a", "Origin: http://evil.example\r\n")).status, 200)
        << "browsers ask before they send this one";
}

TEST_F(Rules, EachRequestLeavesOneLineInTheLog)
{
    char name[] = "/tmp/kest-log-XXXXXX";
    const int file = mkstemp(name);
    ASSERT_GE(file, 0);
    const int before = dup(STDERR_FILENO); // where the log goes
    ASSERT_EQ(dup2(file, STDERR_FILENO), STDERR_FILENO);
    ServerSettings settings = QuietSettings();
    settings.accessLog = true;
    const Running running = Start(settings);
    Client client(port);
    EXPECT_EQ(client.Ask(RequestText("GET /Ferro/a%20b?q=\"x")).status, 200);
    EXPECT_EQ(client.Ask(RequestText("GET /nowhere")).status, 404);
    EXPECT_EQ(client.Ask("NONSENSE\r\n\r\n").status, 400);
    server->Stop();
    dup2(before, STDERR_FILENO);
    close(before);
    close(file);
    std::ifstream log(name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);)
        lines.push_back(line);
    std::filesystem::remove(name);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].find("127.0.0.1 - someone ["), 0u) << lines[0];
    EXPECT_NE(lines[0].find("] \"GET /Ferro/a%20b?q=\\x22x HTTP/1.1\" 200 0 "), std::string::npos)
        << lines[0];
    EXPECT_NE(lines[1].find("- - ["), std::string::npos) << lines[1];
    EXPECT_NE(lines[1].find("\"GET /nowhere HTTP/1.1\" 404 14 "), std::string::npos) << lines[1];
    EXPECT_NE(lines[2].find("\" 400 16 "), std::string::npos) << lines[2];
}

class Wharf : public ServerTest {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/kest-wharf-XXXXXX";
        directory = mkdtemp(name);
        std::ofstream(directory + "/common.js") << "alert(1)";
        std::filesystem::create_directory(directory + "/img");
        std::ofstream(directory + "/img/big.png") << std::string(200000, 'p');
        std::filesystem::create_symlink("/etc/passwd", directory + "/leak");
        std::filesystem::create_symlink("common.js", directory + "/link.js");
    }
    void TearDown() override
    {
        ServerTest::TearDown();
        std::filesystem::remove_all(directory);
    }
    std::string directory;
};

TEST_F(Wharf, StaticFilesAreServedAndRevalidated)
{
    ServerSettings settings = QuietSettings();
    settings.wharfDirectory = directory;
    const Running running = Start(settings);
    Client client(port);
    const Answer answer = client.Ask(RequestText("GET /Wharf/common.js"));
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "alert(1)");
    EXPECT_EQ(answer.Header("Content-Type"), "text/javascript; charset=utf-8");
    EXPECT_NE(answer.Header("Cache-Control").find("max-age"), std::string::npos);
    const Answer again = client.Ask(
        RequestText("GET /Wharf/common.js", "If-None-Match: " + answer.Header("ETag") + "\r\n"));
    EXPECT_EQ(again.status, 304);
    const std::string other = "If-None-Match: \"x\"\r\n";
    const std::string since = "If-Modified-Since: " + answer.Header("Last-Modified") + "\r\n";
    EXPECT_EQ(client.Ask(RequestText("GET /Wharf/common.js", since)).status, 304);
    EXPECT_EQ(client.Ask(RequestText("GET /Wharf/common.js", other)).status, 200);
    EXPECT_EQ(client.Ask(RequestText("GET /Wharf/common.js", other + since)).status, 200)
        << "a date counts for nothing where there is a tag";
    const Answer head = client.Ask(RequestText("HEAD /Wharf/img/big.png"), true);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.Header("Content-Length"), "200000");
    EXPECT_EQ(client.Ask(RequestText("GET /Wharf/img/big.png")).body, std::string(200000, 'p'));
    EXPECT_EQ(client.Ask(RequestText("DELETE /Wharf/common.js")).status, 405);
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Wharf, NothingElseIsReachable)
{
    ServerSettings settings = QuietSettings();
    settings.wharfDirectory = directory;
    const Running running = Start(settings);
    for (const char* target :
         {"/Wharf/", "/Wharf/img", "/Wharf/img/", "/Wharf/leak", "/Wharf/link.js",
          "/Wharf/../../etc/passwd", "/Wharf//etc/passwd", "/Wharf/missing"})
        EXPECT_EQ(Ask(RequestText(std::string("GET ") + target)).status, 404) << target;
}

} // namespace

} // namespace kestd::test
