// SPDX-License-Identifier: Apache-2.0
//
// In the classic dialect a client gets what the module says when nobody stands between: every reply
// is compared with the module's own to the same request over the same tree, and what the module did
// at its provider with what it does alone.
#include <algorithm>
#include <set>

#include "tests/contract/harness/text.h"
#include "tests/contract/harness/world.h"
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

// A request as both get it.
struct Sent {
    const char* why;
    const char* method;
    UINT32 number;
    std::string path = "/Ferro/gen2/f"; // needs no escapes
    Headers headers{};
    std::string body{};
};

// What the server may add: to every reply, and to the ones that a browser may show.
const std::set<std::string> kAdded = {"Date", "Server"};
const std::set<std::string> kSecurity = {"X-Content-Type-Options", "Content-Security-Policy",
                                         "X-Frame-Options", "Referrer-Policy"};
// And what says where a body ends, which is checked on its own.
const std::set<std::string> kFraming = {"Content-Length", "Transfer-Encoding", "Connection"};

struct Said {
    int status = 0;
    Headers headers; // without those of the framing, sorted
    std::string length, encoding;
    std::string body;
    std::vector<std::string> calls; // of the provider
};

void TakeHeaders(std::string_view lines, std::string_view lineEnd, Said& said)
{
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find(lineEnd));
        lines.remove_prefix(std::min(lines.size(), line.size() + lineEnd.size()));
        const size_t colon = line.find(": ");
        const std::string name(line.substr(0, colon));
        const std::string value(colon == line.npos ? "" : line.substr(colon + 2));
        if (name == "Content-Length")
            said.length = value;
        else if (name == "Transfer-Encoding")
            said.encoding = value;
        else if (!kFraming.count(name))
            said.headers.emplace_back(name, value);
    }
    std::sort(said.headers.begin(), said.headers.end());
}

std::unique_ptr<harness::World> MakeWorld()
{
    harness::Setup setup;
    setup.moduleValues = "'Template Directory' = '" TEMPLATE_DIRECTORY "'";
    setup.start = false;
    auto world = std::make_unique<harness::World>(
        std::vector<harness::ProviderSpec>{{.name = "gen2"}}, std::move(setup));
    world->platform.fixedTime = harness::Ticks(1769860800); // the root's dates are the start's
    world->Start();
    harness::Provider& provider = (*world)["gen2"];
    provider.AddFile("/gen2/f", std::string(1000, 'f'));
    provider.AddFile("/gen2/g", "other");
    provider.AddFile("/gen2/c/a", "aa");
    provider.AddFile("/gen2/c/d/b", "bbb");
    provider.AddFile("/gen2/locked", "x")
        .locks.push_back({.timeout = 6'000'000'000, .owner = "somebody", .token = "held"});
    world->Remember("/Ferro/gen2");
    return world;
}

Said Alone(const Sent& sent)
{
    const auto world = MakeWorld();
    harness::Request request(sent.number, sent.path);
    request.headers = sent.headers;
    request.userAgent = 0;
    for (const auto& [name, value] : sent.headers) {
        if (name == "Accept")
            request.userAgent = value.find("text/html") != value.npos;
        if (name == "Destination")
            request.destination =
                (sent.number == KestMethodCopy ? "http://server.example:8080" : "") + value;
        if (name == "Overwrite")
            request.overwrite = value == "T";
        if (name == "Depth" && value == "0")
            request.depth = 0;
    }
    if (!sent.body.empty())
        request.Body({sent.body});
    const harness::Reply reply = world->Run(request);
    EXPECT_EQ(reply.heads, 1);
    Said said;
    said.status = std::stoi(reply.text);
    const size_t head = reply.text.find('\n') + 1;
    TakeHeaders(std::string_view(reply.text).substr(head, reply.text.find("\n\n") + 1 - head), "\n",
                said);
    said.body = reply.body;
    said.calls = world->Calls({"gen2."});
    return said;
}

std::string OnTheWire(const Sent& sent)
{
    std::string text =
        std::string(sent.method) + " " + sent.path + " HTTP/1.1\r\nHost: server.example:8080\r\n";
    for (const auto& [name, value] : sent.headers)
        text.append(name).append(": ").append(value).append("\r\n");
    if (!sent.body.empty())
        text.append("Content-Length: ").append(std::to_string(sent.body.size())).append("\r\n");
    return text + "\r\n" + sent.body;
}

Said Served(const Sent& sent)
{
    const auto world = MakeWorld();
    ScriptedDoor door;
    door.judge = [](const Credentials&) {
        AuthResult granted;
        granted.outcome = AuthResult::Outcome::Granted;
        granted.session = harness::SessionHandle(1);
        return granted;
    };
    ServerSettings settings = QuietSettings();
    settings.limits.workerThreads = 1;
    Server server(settings, door, world->module, "/Ferro");
    EXPECT_EQ(server.Start(), "");
    Client client(server.Addresses()[0].port);
    const Answer answer = client.Ask(OnTheWire(sent), sent.number == KestMethodHead);
    client.EndSending();
    EXPECT_TRUE(client.IsClosed());
    EXPECT_TRUE(server.Stop());
    Said said;
    said.status = answer.status;
    const size_t first = answer.head.find("\r\n") + 2;
    TakeHeaders(std::string_view(answer.head).substr(first), "\r\n", said);
    said.body = answer.body;
    said.calls = world->Calls({"gen2."});
    return said;
}

// Takes away what the server may have added; the module's own stays.
void Forget(const std::set<std::string>& added, const Headers& modules, Headers& headers)
{
    std::erase_if(headers, [&](const auto& field) {
        return added.count(field.first) &&
               std::find(modules.begin(), modules.end(), field) == modules.end();
    });
}

void ExpectTheModulesReply(const Sent& sent)
{
    SCOPED_TRACE(sent.why);
    const Said alone = Alone(sent);
    Said served = Served(sent);
    EXPECT_EQ(served.status, alone.status);
    for (const std::string& name : kAdded)
        EXPECT_EQ(std::count_if(served.headers.begin(), served.headers.end(),
                                [&](const auto& field) { return field.first == name; }),
                  1)
            << name;
    Forget(kAdded, alone.headers, served.headers);
    if (sent.number == KestMethodGet || sent.number == KestMethodPost)
        Forget(kSecurity, alone.headers, served.headers);
    EXPECT_EQ(served.headers, alone.headers);
    EXPECT_EQ(served.body, alone.body);
    EXPECT_EQ(served.calls, alone.calls);
    if (alone.status == 204 || alone.status == 304) { // no body, and nothing that describes one
        EXPECT_EQ(served.length + served.encoding, "");
    } else if (!alone.length.empty()) {
        EXPECT_EQ(served.length, alone.length);
        EXPECT_EQ(served.encoding, "");
    } else if (!alone.encoding.empty()) {
        EXPECT_EQ(served.encoding, "chunked");
        EXPECT_EQ(served.length, "");
    } else if (sent.number != KestMethodHead) {
        EXPECT_EQ(served.length, std::to_string(alone.body.size()));
    }
}

const Headers kConditions[] = {{{"If-None-Match", "*"}},
                               {{"If-Match", "\"none\""}},
                               {{"If-Unmodified-Since", "Sun, 06 Nov 1994 08:49:37 GMT"}}};

constexpr char kLockInfo[] =
    "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/>"
    "</D:locktype><D:owner>me</D:owner></D:lockinfo>";
constexpr char kPatch[] = "<D:propertyupdate xmlns:D=\"DAV:\"><D:set><D:prop><p>v</p></D:prop>"
                          "</D:set></D:propertyupdate>";

} // namespace

TEST(ClassicReplies, ToReading)
{
    const std::string date = "Sat, 31 Jan 2026 12:00:00 GMT";
    const Sent requests[] = {
        {"OPTIONS", "OPTIONS", KestMethodOptions},
        {"GET", "GET", KestMethodGet},
        {"GET of nothing", "GET", KestMethodGet, "/Ferro/gen2/no"},
        {"GET, unchanged", "GET", KestMethodGet, "/Ferro/gen2/f", {{"If-Modified-Since", date}}},
        {"GET, known tag", "GET", KestMethodGet, "/Ferro/gen2/f", {{"If-None-Match", "*"}}},
        {"HEAD", "HEAD", KestMethodHead},
        {"HEAD of nothing", "HEAD", KestMethodHead, "/Ferro/gen2/no"},
        {"HEAD of a folder", "HEAD", KestMethodHead, "/Ferro/gen2/c"},
        {"HEAD of a part", "HEAD", KestMethodHead, "/Ferro/gen2/f", {{"Range", "bytes=0-9"}}},
        {"a page", "GET", KestMethodGet, "/Ferro/gen2/c/", {{"Accept", "text/html"}}},
        {"a page's data", "GET", KestMethodGet, "/Ferro/gen2/c/.index_xml"},
        {"PROPFIND", "PROPFIND", KestMethodPropFind, "/Ferro/gen2/f", {{"Depth", "0"}}},
        {"PROPFIND of members", "PROPFIND", KestMethodPropFind, "/Ferro/gen2/c", {{"Depth", "1"}}},
        {"PROPFIND of all",
         "PROPFIND",
         KestMethodPropFind,
         "/Ferro/gen2/c",
         {{"Depth", "infinity"}}},
        {"PROPFIND of the root", "PROPFIND", KestMethodPropFind, "/Ferro", {{"Depth", "1"}}},
        {"PROPFIND of nothing", "PROPFIND", KestMethodPropFind, "/Ferro/gen2/no"},
        {"PROPFIND by names",
         "PROPFIND",
         KestMethodPropFind,
         "/Ferro/gen2/locked",
         {},
         "<D:propfind "
         "xmlns:D=\"DAV:\"><D:prop><D:lockdiscovery/><D:getetag/></D:prop></D:propfind>"},
        {"TRACE", "TRACE", KestMethodTrace},
    };
    for (const Sent& sent : requests)
        ExpectTheModulesReply(sent);
}

TEST(ClassicReplies, ToRanges)
{
    for (const char* range :
         {"bytes=0-99", "bytes=500-", "bytes=-500", "bytes=0-99,200-299", "bytes=1000-1001",
          "bytes=5-3", "lines=0-1", "bytes=2147483648-2147483649", "bytes=3000000000-"}) {
        ExpectTheModulesReply({range, "GET", KestMethodGet, "/Ferro/gen2/f", {{"Range", range}}});
        ExpectTheModulesReply({range,
                               "GET",
                               KestMethodGet,
                               "/Ferro/gen2/f",
                               {{"Range", range}, {"If-Range", "\"other\""}}});
    }
}

TEST(ClassicReplies, ToChanges)
{
    const std::string form = "--b\r\nContent-Disposition: form-data; name=\"f\"; "
                             "filename=\"new\"\r\n\r\nnew\r\n--b--\r\n";
    const Sent requests[] = {
        {"PUT of a new name", "PUT", KestMethodPut, "/Ferro/gen2/new", {}, "new"},
        {"PUT over", "PUT", KestMethodPut, "/Ferro/gen2/f", {}, "new"},
        {"PUT without a parent", "PUT", KestMethodPut, "/Ferro/gen2/no/new", {}, "new"},
        {"PUT to a folder", "PUT", KestMethodPut, "/Ferro/gen2/c", {}, "new"},
        {"PUT under a condition",
         "PUT",
         KestMethodPut,
         "/Ferro/gen2/f",
         {{"If", "(<opaquelocktoken:none>)"}},
         "new"},
        {"POST",
         "POST",
         KestMethodPost,
         "/Ferro/gen2/c",
         {{"Content-Type", "multipart/form-data; boundary=b"}, {"Accept", "text/html"}},
         form},
        {"DELETE", "DELETE", KestMethodDelete},
        {"DELETE of a folder", "DELETE", KestMethodDelete, "/Ferro/gen2/c"},
        {"DELETE of nothing", "DELETE", KestMethodDelete, "/Ferro/gen2/no"},
        {"MKCOL", "MKCOL", KestMethodMkCol, "/Ferro/gen2/new"},
        {"MKCOL of what is there", "MKCOL", KestMethodMkCol, "/Ferro/gen2/c"},
        {"MKCOL with a body", "MKCOL", KestMethodMkCol, "/Ferro/gen2/new", {}, "<x/>"},
        {"PROPPATCH", "PROPPATCH", KestMethodPropPatch, "/Ferro/gen2/f", {}, kPatch},
        {"PROPPATCH of nothing", "PROPPATCH", KestMethodPropPatch, "/Ferro/gen2/no", {}, kPatch},
        {"LOCK", "LOCK", KestMethodLock, "/Ferro/gen2/f", {{"Timeout", "Second-600"}}, kLockInfo},
        {"LOCK of a new name", "LOCK", KestMethodLock, "/Ferro/gen2/new", {}, kLockInfo},
        {"LOCK of what is locked", "LOCK", KestMethodLock, "/Ferro/gen2/locked", {}, kLockInfo},
        {"LOCK again",
         "LOCK",
         KestMethodLock,
         "/Ferro/gen2/locked",
         {{"If", "(<opaquelocktoken:held>)"}}},
        {"UNLOCK",
         "UNLOCK",
         KestMethodUnlock,
         "/Ferro/gen2/locked",
         {{"Lock-Token", "<opaquelocktoken:held>"}}},
        {"UNLOCK of another",
         "UNLOCK",
         KestMethodUnlock,
         "/Ferro/gen2/locked",
         {{"Lock-Token", "<opaquelocktoken:other>"}}},
    };
    for (const Sent& sent : requests)
        ExpectTheModulesReply(sent);
}

TEST(ClassicReplies, ToConditionsThatTheModuleDoesNotKnow)
{
    for (const Headers& conditions : kConditions) {
        ExpectTheModulesReply({"PUT", "PUT", KestMethodPut, "/Ferro/gen2/f", conditions, "new"});
        ExpectTheModulesReply({"DELETE", "DELETE", KestMethodDelete, "/Ferro/gen2/f", conditions});
        ExpectTheModulesReply({"MKCOL", "MKCOL", KestMethodMkCol, "/Ferro/gen2/n", conditions});
        ExpectTheModulesReply(
            {"LOCK", "LOCK", KestMethodLock, "/Ferro/gen2/new", conditions, kLockInfo});
        ExpectTheModulesReply(
            {"PROPPATCH", "PROPPATCH", KestMethodPropPatch, "/Ferro/gen2/f", conditions, kPatch});
    }
}

TEST(ClassicReplies, ToCopiesAndMoves)
{
    for (const char* source : {"/Ferro/gen2/f", "/Ferro/gen2/c", "/Ferro/gen2/no"}) {
        for (const char* target : {"/Ferro/gen2/new", "/Ferro/gen2/g", "/Ferro/gen2/locked"}) {
            for (const char* overwrite : {"", "T", "F"}) {
                Headers headers = {{"Destination", target}};
                if (*overwrite)
                    headers.emplace_back("Overwrite", overwrite);
                const std::string why = std::string(source) + " to " + target + " " + overwrite;
                ExpectTheModulesReply({why.c_str(), "COPY", KestMethodCopy, source, headers});
                ExpectTheModulesReply({why.c_str(), "MOVE", KestMethodMove, source, headers});
                headers.emplace_back("Depth", "0");
                ExpectTheModulesReply({why.c_str(), "COPY", KestMethodCopy, source, headers});
            }
        }
    }
}

} // namespace kestd::test
