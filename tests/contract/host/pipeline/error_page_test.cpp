// SPDX-License-Identifier: Apache-2.0
//
// What a browser shows where something fails: a readable page with a way back, whoever refuses.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

const std::string kBrowser = "Accept: text/html,application/xhtml+xml,*/*;q=0.8\r\n";

// Does what the request's "X-Do" says: the handler does not change while a server runs.
TALSTATUS Obey(IKestIO_5& io)
{
    const std::string what = Header(io, "X-Do");
    if (what == "nothing")
        return TAL_STATUS_UNSUCCESSFUL;
    if (what == "report") {
        void* out = nullptr;
        (void)CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out);
        (void)static_cast<IKestCallContext*>(out)->ReportFailure(
            MakeStatus(kFacilityHost, kCodeInsufficientResources));
        return io.SendHeader(200);
    }
    if (what == "read") {
        TALSTATUS end = TAL_STATUS_SUCCESS;
        (void)ReadBody(io, end);
        EXPECT_NE(Code(end), kCodeEndOfFile);
        return io.SendHeader(400);
    }
    if (what == "own page")
        SetHeader(io, "Content-Type", "text/html; charset=\"utf-8\"");
    else
        SetHeader(io, "Content-Range", "bytes */7");
    SetHeader(io, "ETag", "\"of-the-file\"");
    SetHeader(io, "Allow", "GET");
    const bool hasBody = what == "own page" || what == "content";
    if (!hasBody)
        SetHeader(io, "Content-Length", "0");
    (void)io.SendHeader(what == "content" ? 200 : what == "own page" ? 404 : std::stoi(what));
    return hasBody ? Write(io, what) : TAL_STATUS_SUCCESS;
}

class ErrorPages : public ServerTest {
  protected:
    void SetUp() override
    {
        ServerSettings settings = QuietSettings();
        settings.dialect = Dialect::Standard;
        settings.limits.bodyBytes = 100;
        module.handler = [](IKestIO_5& io, UINT32) { return Obey(io); };
        door.judge = [](const Credentials& credentials) {
            AuthResult result;
            const bool isStranger = credentials.authorization == "Basic wrong";
            result.outcome =
                isStranger ? AuthResult::Outcome::Unauthorized : AuthResult::Outcome::Granted;
            result.challenge = "Basic realm=\"r\"";
            return result;
        };
        StartUntilTearDown(settings);
    }
    Answer AskFor(const std::string& line, const std::string& fields, bool isHead = false)
    {
        return Ask(line + " HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n", isHead);
    }
    static std::string Do(const std::string& what) { return "X-Do: " + what + "\r\n"; }
    // Of a browser: the page, whatever else the reply says.
    static void ExpectPage(const Answer& answer, int status, const std::string& what)
    {
        EXPECT_EQ(answer.status, status) << what;
        EXPECT_TRUE(answer.isWhole) << what;
        EXPECT_EQ(answer.Header("Content-Type"), "text/html; charset=utf-8") << what;
        EXPECT_EQ(answer.Header("Cache-Control"), "no-store") << what;
        EXPECT_NE(answer.body.find("<h1>"), std::string::npos) << what << answer.body;
        EXPECT_NE(answer.body.find("<a href=\"..\">"), std::string::npos) << what << answer.body;
        EXPECT_NE(answer.body.find("Status " + std::to_string(status)), std::string::npos) << what;
    }
};

} // namespace

TEST_F(ErrorPages, StandForEmptyRefusalsOfTheModule)
{
    for (const char* status : {"400", "403", "404", "405", "409", "412", "413", "416", "423", "500",
                               "501", "503", "507"}) {
        const Answer answer = AskFor("GET /Ferro/docs/a", kBrowser + Do(status));
        ExpectPage(answer, std::stoi(status), status);
        EXPECT_EQ(answer.Header("ETag"), "(none)") << "it is not the page's";
        EXPECT_EQ(answer.Header("Content-Range"), "bytes */7");
        EXPECT_EQ(answer.Header("Allow"), "GET");
    }
}

TEST_F(ErrorPages, StandWhereTheModuleSaysNothingAtAll)
{
    ExpectPage(AskFor("GET /Ferro/docs/a", kBrowser + Do("nothing")), 500, "no reply");
    const Answer busy = AskFor("GET /Ferro/docs/a", kBrowser + Do("report"));
    ExpectPage(busy, 503, "a reported failure");
    EXPECT_NE(busy.Header("Retry-After"), "(none)");
}

TEST_F(ErrorPages, StandForTheServersOwnRefusals)
{
    ExpectPage(AskFor("GET /elsewhere", kBrowser), 404, "nobody's path");
    ExpectPage(AskFor("POST /", kBrowser + "Content-Length: 0\r\n"), 405, "the root");
    ExpectPage(AskFor("POST /Ferro/docs/", kBrowser + "Content-Length: 101\r\n"), 413,
               "an upload that announces too much");
    EXPECT_EQ(module.calls, 0);
    const Answer stranger = AskFor("GET /Ferro/docs/", kBrowser + "Authorization: Basic wrong\r\n");
    ExpectPage(stranger, 401, "not signed in");
    EXPECT_EQ(stranger.Header("WWW-Authenticate"), "Basic realm=\"r\"");
}

TEST_F(ErrorPages, StandForAnUploadThatTurnsOutTooLong)
{
    const std::string body = "80\r\n" + std::string(128, 'x') + "\r\n0\r\n\r\n";
    ExpectPage(Ask("POST /Ferro/docs/ HTTP/1.1\r\nHost: h\r\n" + (kBrowser + Do("read")) +
                   "Transfer-Encoding: chunked\r\n\r\n" + body),
               413, "chunked");
}

TEST_F(ErrorPages, AreOnlyForWhoLooksAtThem)
{
    const std::string line = "There is nothing under this name.\n";
    EXPECT_EQ(AskFor("GET /Ferro/docs/a", Do("404")).body, line) << "a program";
    EXPECT_EQ(AskFor("PROPFIND /Ferro/docs/a", kBrowser + Do("404")).body, line)
        << "no method of a browser";
    const Answer head = AskFor("HEAD /Ferro/docs/a", kBrowser + Do("404"), true);
    EXPECT_EQ(head.status, 404);
    EXPECT_EQ(head.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(AskFor("GET /Ferro/docs/a", kBrowser + Do("own page")).body, "own page");
    EXPECT_EQ(AskFor("GET /Ferro/docs/a", kBrowser + Do("content")).body, "content");
}

// Whoever refuses, with whatever method: a client that shows what it was told shows a sentence.
TEST_F(ErrorPages, ProgramsAreToldInALine)
{
    for (const char* method : {"GET", "PUT", "DELETE", "PROPFIND", "LOCK", "MKCOL", "UNLOCK"}) {
        for (const char* what : {"403", "405", "409", "423", "500", "503", "507", "nothing"}) {
            const Answer answer =
                AskFor(std::string(method) + " /Ferro/docs/a", Do(what) + "Content-Length: 0\r\n");
            EXPECT_TRUE(answer.isWhole) << method << what;
            EXPECT_EQ(answer.Header("Content-Type"), "text/plain; charset=utf-8") << method << what;
            EXPECT_EQ(answer.body.back(), '\n') << method << what;
            EXPECT_EQ(answer.Header("Content-Length"), std::to_string(answer.body.size()));
        }
    }
    const Answer busy = AskFor("PUT /Ferro/docs/a", Do("report") + "Content-Length: 0\r\n");
    EXPECT_EQ(busy.status, 503);
    EXPECT_EQ(busy.body, "The server is busy. Try again in a moment.\n");
    EXPECT_NE(busy.Header("Retry-After"), "(none)");
}

TEST_F(ErrorPages, ProgramsGetNoneForHeadNorBehindADownload)
{
    const Answer head = AskFor("HEAD /Ferro/docs/a", Do("404"), true);
    EXPECT_EQ(head.status, 404);
    EXPECT_TRUE(head.isWhole);
    EXPECT_EQ(head.body, "");
    const Answer behind = AskFor("GET /Ferro/docs/a", Do("416"));
    EXPECT_EQ(behind.status, 416);
    EXPECT_EQ(behind.body, "");
    EXPECT_EQ(behind.Header("Content-Range"), "bytes */7");
}

TEST_F(ErrorPages, LeaveTheConnectionToTheNextRequest)
{
    Client client(port);
    const std::string request =
        "GET /Ferro/docs/a HTTP/1.1\r\nHost: h\r\n" + (kBrowser + Do("404")) + "\r\n";
    ExpectPage(client.Ask(request), 404, "the first");
    ExpectPage(client.Ask(request), 404, "the second");
}

// RFC 9110 section 9.3.7: of no resource, what the server has at all; of one, what that has.
TEST_F(ErrorPages, OptionsPromiseWhatIsThere)
{
    const Answer all = AskFor("OPTIONS *", "");
    EXPECT_EQ(all.status, 200);
    EXPECT_EQ(all.Header("Allow"), "OPTIONS, GET, HEAD, POST, PUT, PATCH, DELETE, PROPFIND, "
                                   "PROPPATCH, MKCOL, COPY, MOVE, LOCK, UNLOCK");
    EXPECT_EQ(all.Header("DAV"), "1, 2, 3");
    const Answer root = AskFor("OPTIONS /", "");
    EXPECT_EQ(root.status, 200);
    EXPECT_EQ(root.Header("Allow"), "OPTIONS, GET, HEAD, PROPFIND");
    for (const char* method : {"OPTIONS", "GET", "HEAD", "PROPFIND"})
        EXPECT_LT(AskFor(std::string(method) + " /", "Depth: 0\r\n", method[0] == 'H').status, 400)
            << method;
    for (const char* method : {"PUT", "DELETE", "PROPPATCH", "MKCOL", "LOCK"})
        EXPECT_EQ(AskFor(std::string(method) + " /", "Content-Length: 0\r\n").status, 405)
            << method;
}

} // namespace kestd::test
