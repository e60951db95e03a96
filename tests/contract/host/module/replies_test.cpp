// SPDX-License-Identifier: Apache-2.0
//
// What reaches the client of what a module says.
#include <numeric>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Io = ServerTest;

TEST_F(Io, ReplyHeadersAreReplacedAndNeverSplit)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "X-Test", "one");
        SetHeader(io, "x-test", "two");
        char name[] = "X-TEST";
        char text[16];
        UINT32 length = sizeof text;
        EXPECT_EQ(io.GetReplyHeader(name, &length, text), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(text, "two");
        char evil[] = "a\r\nX-Evil: 1";
        EXPECT_TRUE(Failed(io.SetReplyHeader(name, sizeof evil - 1, evil)));
        EXPECT_TRUE(Failed(io.SetReplyHeader(evil, 1, text)));
        EXPECT_EQ(io.SendHeader(200), TAL_STATUS_SUCCESS);
        EXPECT_TRUE(Failed(io.SetReplyHeader(name, 1, text)));
        EXPECT_TRUE(Failed(io.SendHeader(500)));
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    const Answer answer = Ask(kGetWithFields);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.Header("X-Test"), "two");
    EXPECT_EQ(answer.Header("X-Evil"), "(none)");
}

// What the module says: headers, the status (0: no head), texts of the body.
struct Said {
    std::vector<std::pair<const char*, const char*>> headers = {};
    UINT32 status = 0;
    std::vector<std::string> texts = {};
    const char* errorPage = nullptr; // for status 404
};

// What the client makes of it.
struct Response {
    const char* name;
    Said said;
    int status;
    std::string body;
    const char* length; // "Content-Length", or "(none)"
    const char* coding;
    bool keepsConnection;
    bool isWhole = true;
};

constexpr char kNone[] = "(none)";
constexpr char kLength[] = "Content-Length";
constexpr char kCoding[] = "Transfer-Encoding";
const std::string kLarge(100000, 'L');

const Response kResponses[] = {
    {"no body, no length", {.status = 201}, 201, "", "0", kNone, true},
    {"an empty length", {{{kLength, ""}}, 201}, 201, "", "0", kNone, true},
    {"a body without a length", {{}, 200, {"hel", "lo"}}, 200, "hello", "5", kNone, true},
    {"a body with its length", {{{kLength, "5"}}, 200, {"hello"}}, 200, "hello", "5", kNone, true},
    {"a large body without a length", {{}, 200, {kLarge}}, 200, kLarge, kNone, "chunked", true},
    {"small texts in chunks",
     {{{kCoding, "chunked"}}, 207, {"a", "bc"}},
     207,
     "abc",
     kNone,
     "chunked",
     true},
    {"no texts in chunks", {{{kCoding, "chunked"}}, 200}, 200, "", kNone, "chunked", true},
    {"chunks and a length",
     {{{kLength, "77"}, {kCoding, "chunked"}}, 200, {"x"}},
     200,
     "x",
     kNone,
     "chunked",
     true},
    {"a body that is too short",
     {{{kLength, "10"}}, 200, {"hello"}},
     200,
     "hello",
     "10",
     kNone,
     false,
     false},
    {"a body that is too long", {{{kLength, "3"}}, 200, {"hello"}}, 200, "hel", "3", kNone, false},
    {"a large body that is too long",
     {{{kLength, "3"}}, 200, {kLarge, kLarge}},
     200,
     "LLL",
     "3",
     kNone,
     false},
    {"204 with a body", {{{kLength, "0"}}, 204, {"x"}}, 204, "", kNone, kNone, true},
    {"304 with a length", {{{kLength, "0"}}, 304}, 304, "", kNone, kNone, true},
    {"416 with a body", {{}, 416, {"x"}}, 416, "", "0", kNone, true},
    {"416 with the length of what there is", {{{kLength, "1000"}}, 416}, 416, "", "0", kNone, true},
    {"no reply at all", {}, 500, "", "0", kNone, true},
    {"a body before the head", {.texts = {"x"}}, 200, "x", "1", kNone, true},
    {"a status that is none", {.status = 99999}, 500, "", "0", kNone, true},
    {"a custom error",
     {{{kLength, "0"}}, 404, {}, "<p>gone</p>"},
     404,
     "<p>gone</p>",
     "11",
     kNone,
     true},
    {"a custom error for another status", {{}, 403, {}, "<p>gone</p>"}, 403, "", "0", kNone, true},
};

void Say(IKestIO_5& io, const Said& said)
{
    for (const auto& [name, value] : said.headers)
        SetHeader(io, name, value);
    if (said.errorPage) {
        std::string page = said.errorPage;
        io.SetCustomError(404, page.data());
    }
    if (said.status != 0)
        io.SendHeader(said.status);
    for (const std::string& text : said.texts)
        Write(io, text);
}

TEST_F(Io, RepliesAreFramed)
{
    const Response* row = nullptr;
    module.handler = [&](IKestIO_5& io, UINT32) {
        Say(io, row->said);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (const Response& each : kResponses) {
        row = &each;
        Client client(port);
        const Answer answer = client.Ask("GET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n");
        EXPECT_EQ(answer.status, each.status) << each.name;
        EXPECT_TRUE(answer.body == each.body) << each.name;
        EXPECT_EQ(answer.isWhole, each.isWhole) << each.name;
        EXPECT_EQ(answer.Header("Content-Length"), each.length) << each.name;
        EXPECT_EQ(answer.Header("Transfer-Encoding"), each.coding) << each.name;
        if (each.keepsConnection) {
            EXPECT_EQ(client.Ask("GET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n").status, each.status)
                << each.name;
        } else {
            EXPECT_TRUE(client.IsClosed()) << each.name;
            EXPECT_TRUE(client.Held().empty()) << each.name << client.Held().size();
        }
    }
}

// The first bytes come early, and few chunks carry the rest.
TEST_F(Io, SmallTextsLeaveInGrowingChunks)
{
    constexpr size_t kPieces = 1000;
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Transfer-Encoding", "chunked");
        io.SendHeader(207);
        for (size_t i = 0; i < kPieces; ++i)
            EXPECT_EQ(Write(io, std::string(1000, 'x')), TAL_STATUS_SUCCESS);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send("PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n"));
    ASSERT_TRUE(client.IsClosed());
    std::string_view rest = client.Held();
    rest.remove_prefix(rest.find("\r\n\r\n") + 4);
    std::vector<size_t> sizes;
    for (size_t size = 1; size != 0; sizes.push_back(size)) {
        size = std::stoul(std::string(rest.substr(0, rest.find('\r'))), nullptr, 16);
        rest.remove_prefix(rest.find('\n') + 1 + size + 2);
    }
    EXPECT_EQ(std::accumulate(sizes.begin(), sizes.end(), size_t{0}), kPieces * 1000);
    EXPECT_LE(sizes.front(), 16384u);
    EXPECT_TRUE(std::is_sorted(sizes.begin(), sizes.end() - 2)) << "the end is what was left";
    EXPECT_LE(sizes.size(), 16u);
    EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), 131072u) << "memory of one reply";
}

TEST_F(Io, Http10ClientsGetNoChunks)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Transfer-Encoding", "chunked");
        io.SendHeader(200);
        return Write(io, std::string(50000, 'x'));
    };
    const Running running = Start();
    Client client(port);
    const Answer answer = client.Ask("GET /Ferro/a HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    EXPECT_EQ(answer.Header("Transfer-Encoding"), "(none)");
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_EQ(answer.body, std::string(50000, 'x'));
}

TEST_F(Io, HeadKeepsTheLengthAndSendsNoBody)
{
    module.handler = [](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, static_cast<UINT32>(KestMethodHead));
        SetHeader(io, "Content-Length", "12345");
        io.SendHeader(200);
        return Write(io, "body");
    };
    const Running running = Start();
    Client client(port);
    for (int i = 0; i < 2; ++i) {
        const Answer answer = client.Ask("HEAD /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n", true);
        EXPECT_EQ(answer.Header("Content-Length"), "12345");
    }
    EXPECT_TRUE(client.Held().empty());
}

TEST_F(Io, LargeWritesArriveWhole)
{
    const std::string block(512 * 1024, 'b');
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", std::to_string(20 * block.size()));
        io.SendHeader(200);
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(Write(io, block), TAL_STATUS_SUCCESS);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    const Answer answer = Ask(kGetWithFields);
    EXPECT_EQ(answer.body.size(), 20 * block.size());
    EXPECT_TRUE(answer.isWhole);
}

TEST_F(Io, ClientThatLeavesFailsTheWrite)
{
    std::atomic<bool> hasFailed{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "1000000000");
        io.SendHeader(200);
        TALSTATUS status = 0;
        for (int i = 0; i < 4000 && !Failed(status); ++i)
            status = Write(io, std::string(262144, 'x'));
        hasFailed = Failed(status);
        return status;
    };
    const Running running = Start();
    {
        Client client(port);
        ASSERT_TRUE(client.Send(kGetWithFields));
        EXPECT_FALSE(client.Receive(true).head.empty());
    }
    server->Stop();
    EXPECT_TRUE(hasFailed);
}

} // namespace

} // namespace kestd::test
