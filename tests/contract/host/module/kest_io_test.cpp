// SPDX-License-Identifier: Apache-2.0
//
// The request object as a module uses it, and what reaches the client of it.
#include "tests/contract/host/harness.h"

#include <algorithm>
#include <numeric>

namespace kestd::test {

namespace {

using Io = ServerTest;

const std::string kGet = "GET /Ferro/a?x=%20y HTTP/1.1\r\nHost: h:81\r\nAccept: text/html\r\n"
                         "X-One: 1\r\nx-one: 2\r\nRange: bytes=0-1\r\n\r\n";

TEST_F(Io, RequestHeadersFollowTheLengthRules)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        char name[] = "RANGE";
        char small[9] = {};
        UINT32 length = 9;
        EXPECT_EQ(Code(io.GetRequestHeader(name, &length, small)), kCodeBufferTooSmall);
        EXPECT_EQ(length, 10u);
        EXPECT_EQ(std::string_view(small, sizeof small), "bytes=0-1") << "its first bytes";
        char exact[10];
        length = sizeof exact;
        EXPECT_EQ(io.GetRequestHeader(name, &length, exact), TAL_STATUS_SUCCESS);
        EXPECT_EQ(length, 9u);
        EXPECT_STREQ(exact, "bytes=0-1");
        char missing[] = "Missing";
        length = sizeof exact;
        EXPECT_EQ(Code(io.GetRequestHeader(missing, &length, exact)), kCodeNotFound);
        EXPECT_EQ(Header(io, "X-ONE"), "1, 2");
        char one[] = "x-One";
        char three[] = "three";
        EXPECT_EQ(io.SetRequestHeader(one, 5, three), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Header(io, "X-One"), "three");
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
}

TEST_F(Io, RequestIsDescribed)
{
    module.handler = [](IKestIO_5& io, UINT32 method) {
        EXPECT_EQ(method, 0u);
        UINT32 number = 99;
        EXPECT_EQ(io.GetRequestMethod(&number), TAL_STATUS_SUCCESS);
        EXPECT_EQ(number, 0u);
        UNICODE_STRING* arguments = nullptr;
        EXPECT_EQ(io.GetUrlArguments(nullptr, &arguments), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::u16string_view(arguments->Buffer, arguments->Length / 2), u"x=%20y");
        STRING* raw = nullptr;
        EXPECT_EQ(io.GetRawUrl(&raw), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::string_view(raw->Buffer, raw->Length), "/Ferro/a");
        WCHAR units[64];
        UNICODE_STRING address{0, sizeof units, units};
        EXPECT_EQ(io.GetRemoteAddress(&address), TAL_STATUS_SUCCESS);
        EXPECT_EQ(std::u16string_view(units, address.Length / 2), u"127.0.0.1");
        UNICODE_STRING tight{0, 4, units};
        EXPECT_EQ(Code(io.GetRemoteHost(&tight)), kCodeBufferTooSmall);
        UINT32 kind = 9;
        EXPECT_EQ(io.GetUserAgent(&kind), TAL_STATUS_SUCCESS);
        EXPECT_EQ(kind, 1u);
        UINT8* lines = nullptr;
        EXPECT_EQ(io.GetRawHeaders(&lines), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(reinterpret_cast<char*>(lines),
                     "Host: h:81\r\nAccept: text/html\r\nX-One: 1\r\nx-one: 2\r\n"
                     "Range: bytes=0-1\r\n");
        char realm[32];
        UINT32 length = sizeof realm;
        EXPECT_EQ(io.GetAuthRealm(&length, realm), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(realm, "Kest");
        EXPECT_FALSE(io.IsSecure());
        UINT32 available = 9;
        EXPECT_EQ(io.IsClientPayloadAvailable(&available), TAL_STATUS_SUCCESS);
        EXPECT_EQ(available, 0u);
        EXPECT_EQ(io.Working(), TAL_STATUS_SUCCESS);
        EXPECT_NE(io.AllocMemory(100000), nullptr);
        EXPECT_EQ(io.AllocMemory(0xFFFFFFFF), nullptr);
        BOOLEAN overwrite = 0;
        UNICODE_STRING* destination = nullptr;
        EXPECT_TRUE(Failed(io.GetMoveInfo(&overwrite, &destination)));
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
}

TEST_F(Io, NullArgumentsAreRefused)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        char name[] = "Host";
        EXPECT_TRUE(Failed(io.GetUrl(nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetUrlArguments(nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRawUrl(nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestHeader(nullptr, nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestHeader(name, nullptr, nullptr)));
        UINT32 length = 100;
        EXPECT_EQ(Code(io.GetRequestHeader(name, &length, nullptr)), kCodeBufferTooSmall);
        EXPECT_EQ(length, 5u);
        EXPECT_TRUE(Failed(io.GetReplyHeader(nullptr, &length, nullptr)));
        EXPECT_TRUE(Failed(io.SetReplyHeader(nullptr, 0, nullptr)));
        EXPECT_TRUE(Failed(io.SetReplyHeader(name, 3, nullptr)));
        EXPECT_TRUE(Failed(io.SetRequestHeader(nullptr, 0, nullptr)));
        EXPECT_TRUE(Failed(io.PutString(nullptr)));
        EXPECT_TRUE(Failed(io.Write(1, nullptr)));
        EXPECT_TRUE(Failed(io.ReadClientPayload(1, nullptr, nullptr)));
        EXPECT_TRUE(Failed(io.GetRawHeaders(nullptr)));
        EXPECT_TRUE(Failed(io.GetUserAgent(nullptr)));
        EXPECT_TRUE(Failed(io.GetRequestMethod(nullptr)));
        EXPECT_TRUE(Failed(io.IsClientPayloadAvailable(nullptr)));
        EXPECT_TRUE(Failed(io.GetRemoteAddress(nullptr)));
        EXPECT_TRUE(Failed(io.SetCustomError(404, nullptr)));
        EXPECT_TRUE(Failed(io.QueryInterface(&IID_KestIO_3, nullptr)));
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
}

TEST_F(Io, OlderInterfaceIsOffered)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        void* out = nullptr;
        EXPECT_EQ(io.QueryInterface(&IID_KestIO_3, &out), TAL_STATUS_SUCCESS);
        auto* older = static_cast<IKestIO_3*>(out);
        char name[8];
        UINT32 length = sizeof name;
        EXPECT_EQ(older->GetProtocolName(&length, name), TAL_STATUS_SUCCESS);
        EXPECT_STREQ(name, "http");
        EXPECT_EQ(older->Release(), 1u);
        EXPECT_EQ(Code(io.QueryInterface(&IID_IDirectory_1, &out)), kCodeNoInterface);
        EXPECT_EQ(out, nullptr);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
}

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
    const Answer answer = Ask(kGet);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.Header("X-Test"), "two");
    EXPECT_EQ(answer.Header("X-Evil"), "(none)");
}

// One reply of the module and what the client makes of it.
struct Response {
    const char* name;
    std::function<void(IKestIO_5&)> say;
    int status;
    const char* body;
    const char* length; // "Content-Length", or "(none)"
    const char* coding;
    bool keepsConnection;
    bool isWhole = true;
};

TEST_F(Io, RepliesAreFramed)
{
    static const std::string kLarge(100000, 'L');
    const Response rows[] = {
        {"no body, no length", [](IKestIO_5& io) { io.SendHeader(201); }, 201, "", "0", "(none)",
         true},
        {"an empty length",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "");
             io.SendHeader(201);
         },
         201, "", "0", "(none)", true},
        {"a body without a length",
         [](IKestIO_5& io) {
             io.SendHeader(200);
             Write(io, "hel");
             Write(io, "lo");
         },
         200, "hello", "5", "(none)", true},
        {"a body with its length",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "5");
             io.SendHeader(200);
             Write(io, "hello");
         },
         200, "hello", "5", "(none)", true},
        {"a large body without a length",
         [](IKestIO_5& io) {
             io.SendHeader(200);
             Write(io, kLarge);
         },
         200, kLarge.c_str(), "(none)", "chunked", true},
        {"small texts in chunks",
         [](IKestIO_5& io) {
             SetHeader(io, "Transfer-Encoding", "chunked");
             io.SendHeader(207);
             Write(io, "a");
             Write(io, "bc");
         },
         207, "abc", "(none)", "chunked", true},
        {"no texts in chunks",
         [](IKestIO_5& io) {
             SetHeader(io, "Transfer-Encoding", "chunked");
             io.SendHeader(200);
         },
         200, "", "(none)", "chunked", true},
        {"chunks and a length",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "77");
             SetHeader(io, "Transfer-Encoding", "chunked");
             io.SendHeader(200);
             Write(io, "x");
         },
         200, "x", "(none)", "chunked", true},
        {"a body that is too short",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "10");
             io.SendHeader(200);
             Write(io, "hello");
         },
         200, "hello", "10", "(none)", false, false},
        {"a body that is too long",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "3");
             io.SendHeader(200);
             Write(io, "hello");
         },
         200, "hel", "3", "(none)", false},
        {"a large body that is too long",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "3");
             io.SendHeader(200);
             Write(io, kLarge);
             Write(io, kLarge);
         },
         200, "LLL", "3", "(none)", false},
        {"204 with a body",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "0");
             io.SendHeader(204);
             Write(io, "x");
         },
         204, "", "(none)", "(none)", true},
        {"304 with a length",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "0");
             io.SendHeader(304);
         },
         304, "", "(none)", "(none)", true},
        {"416 with a body",
         [](IKestIO_5& io) {
             io.SendHeader(416);
             Write(io, "x");
         },
         416, "", "0", "(none)", true},
        {"416 with the length of what there is",
         [](IKestIO_5& io) {
             SetHeader(io, "Content-Length", "1000");
             io.SendHeader(416);
         },
         416, "", "0", "(none)", true},
        {"no reply at all", [](IKestIO_5&) {}, 500, "", "0", "(none)", true},
        {"a body before the head", [](IKestIO_5& io) { Write(io, "x"); }, 200, "x", "1", "(none)",
         true},
        {"a status that is none", [](IKestIO_5& io) { io.SendHeader(99999); }, 500, "", "0",
         "(none)", true},
        {"a custom error",
         [](IKestIO_5& io) {
             char text[] = "<p>gone</p>";
             SetHeader(io, "Content-Length", "0");
             io.SetCustomError(404, text);
             io.SendHeader(404);
         },
         404, "<p>gone</p>", "11", "(none)", true},
        {"a custom error for another status",
         [](IKestIO_5& io) {
             char text[] = "<p>gone</p>";
             io.SetCustomError(404, text);
             io.SendHeader(403);
         },
         403, "", "0", "(none)", true},
    };
    const Response* row = nullptr;
    module.handler = [&](IKestIO_5& io, UINT32) {
        row->say(io);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (const Response& each : rows) {
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
    const Answer answer = Ask(kGet);
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
        ASSERT_TRUE(client.Send(kGet));
        EXPECT_FALSE(client.Receive(true).head.empty());
    }
    server->Stop();
    EXPECT_TRUE(hasFailed);
}

TEST_F(Io, BodyIsReadToItsEnd)
{
    std::string seen;
    module.handler = [&](IKestIO_5& io, UINT32) {
        UINT32 available = 0;
        io.IsClientPayloadAvailable(&available);
        EXPECT_EQ(available, 10u);
        UINT8 byte = 0;
        UINT32 read = 0;
        EXPECT_EQ(io.ReadClientPayload(1, &byte, &read), TAL_STATUS_SUCCESS);
        EXPECT_EQ(read, 1u);
        io.IsClientPayloadAvailable(&available);
        EXPECT_EQ(available, 9u);
        TALSTATUS status = 0;
        seen = ReadBody(io, status, 4);
        EXPECT_EQ(Code(status), kCodeEndOfFile);
        EXPECT_TRUE(Failed(status));
        read = 7;
        EXPECT_EQ(Code(io.ReadClientPayload(4, &byte, &read)), kCodeEndOfFile);
        EXPECT_EQ(read, 0u);
        io.IsClientPayloadAvailable(&available);
        EXPECT_EQ(available, 0u);
        return io.SendHeader(201);
    };
    const Running running = Start();
    EXPECT_EQ(
        Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n\r\n0123456789").status,
        201);
    EXPECT_EQ(seen, "123456789");
}

TEST_F(Io, XmlBodiesAreHereAtTheCallWithTheirLength)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        UINT32 available = 0;
        io.IsClientPayloadAvailable(&available);
        EXPECT_EQ(available, 11u);
        TALSTATUS status = 0;
        EXPECT_EQ(ReadBody(io, status), "<propfind/>");
        return io.SendHeader(207);
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send("PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: "
                            "chunked\r\n\r\n5\r\n<prop\r\n"));
    EXPECT_EQ(client.Receive(false, std::chrono::milliseconds(100)).status, 0);
    EXPECT_EQ(module.calls, 0);
    EXPECT_EQ(client.Ask("6\r\nfind/>\r\n0\r\n\r\n").status, 207);
    EXPECT_EQ(client
                  .Ask("PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 11\r\n\r\n"
                       "<propfind/>")
                  .status,
              207);
}

TEST_F(Io, ContinueIsSentWhenTheBodyIsWanted)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        EXPECT_EQ(ReadBody(io, status).size(), 100000u);
        return io.SendHeader(201);
    };
    const Running running = Start();
    for (const char* framing : {"Content-Length: 100000", "Transfer-Encoding: chunked"}) {
        Client client(port);
        const Answer first = client.Ask(std::string("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\n") +
                                        framing + "\r\nExpect: 100-continue\r\n\r\n");
        EXPECT_EQ(first.status, 100) << framing;
        const std::string body(100000, 'x');
        const Answer last =
            client.Ask(framing[0] == 'C' ? body : "186a0\r\n" + body + "\r\n0\r\n\r\n");
        EXPECT_EQ(last.status, 201) << framing;
        EXPECT_EQ(last.Header("Connection"), "(none)");
    }
}

TEST_F(Io, UnwantedBodyIsNotAskedFor)
{
    module.handler = [](IKestIO_5& io, UINT32) { return io.SendHeader(403); };
    const Running running = Start();
    Client client(port);
    const Answer answer = client.Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: "
                                     "10000000\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_EQ(answer.status, 403);
    EXPECT_EQ(answer.Header("Connection"), "close");
}

TEST_F(Io, UnreadBodyIsSkippedWhenSmallAndClosesWhenLarge)
{
    module.handler = [](IKestIO_5& io, UINT32) { return io.SendHeader(403); };
    const Running running = Start();
    Client client(port);
    for (const size_t size : {1u, 1000u, 65536u}) {
        EXPECT_EQ(client
                      .Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                           std::to_string(size) + "\r\n\r\n" + std::string(size, 'x'))
                      .status,
                  403)
            << size;
    }
    const Answer large = client.Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: "
                                    "100000000\r\n\r\n" +
                                    std::string(10000, 'x'));
    EXPECT_EQ(large.status, 403);
    EXPECT_EQ(large.Header("Connection"), "close");
}

TEST_F(Io, DiscardedBodyIsOver)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        EXPECT_EQ(io.DiscardClientPayload(), TAL_STATUS_SUCCESS);
        UINT8 byte = 0;
        UINT32 read = 1;
        EXPECT_EQ(Code(io.ReadClientPayload(1, &byte, &read)), kCodeEndOfFile);
        UINT32 available = 1;
        io.IsClientPayloadAvailable(&available);
        EXPECT_EQ(available, 0u);
        return io.SendHeader(200);
    };
    const Running running = Start();
    Client client(port);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(
            client.Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nabc").status,
            200);
}

TEST_F(Io, ClientThatLeavesInItsBodyIsAFailure)
{
    std::atomic<UINT32> code{0};
    std::atomic<int> isComplete{2};
    module.handler = [&](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        EXPECT_EQ(ReadBody(io, status).size(), 10000u);
        code = Code(status);
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        BOOLEAN complete = 1;
        EXPECT_EQ(static_cast<IKestCallContext*>(out)->IsBodyComplete(&complete),
                  TAL_STATUS_SUCCESS);
        isComplete = complete;
        return io.SendHeader(400);
    };
    const Running running = Start();
    {
        Client client(port);
        ASSERT_TRUE(client.Send("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: "
                                "1000000\r\n\r\n" +
                                std::string(10000, 'x')));
        client.EndSending();
        EXPECT_EQ(client.Receive().status, 400);
    }
    EXPECT_EQ(code, kCodeUnsuccessful);
    EXPECT_EQ(isComplete, 0);
}

TEST_F(Io, MalformedChunksAreAFailure)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        TALSTATUS status = 0;
        (void)ReadBody(io, status); // what came before may or may not be handed out
        EXPECT_EQ(Code(status), kCodeInvalidRequest);
        return io.SendHeader(static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(status)));
    };
    const Running running = Start();
    Client client(port);
    const Answer answer = client.Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: "
                                     "chunked\r\n\r\n3\r\nabc\r\nzz\r\n");
    EXPECT_EQ(answer.status, 400);
    EXPECT_EQ(answer.Header("Connection"), "close");
}

class Context : public ServerTest {
  protected:
    static IKestCallContext* Get()
    {
        void* out = nullptr;
        EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
                  TAL_STATUS_SUCCESS);
        return static_cast<IKestCallContext*>(out);
    }
};

TEST_F(Context, NamesTheRunningCallAndNoOther)
{
    IKestIO_5* request = nullptr;
    UINT32 method = 0;
    BOOLEAN complete = 0;
    EXPECT_EQ(Code(Get()->GetRequest(&request)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->GetMethod(&method)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->IsBodyComplete(&complete)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->ReportFailure(TAL_STATUS_UNSUCCESSFUL)), kCodeNotFound);
    module.handler = [](IKestIO_5& io, UINT32 number) {
        IKestIO_5* current = nullptr;
        UINT32 itsMethod = 99;
        BOOLEAN isComplete = 0;
        EXPECT_EQ(Get()->GetRequest(&current), TAL_STATUS_SUCCESS);
        EXPECT_EQ(current, &io);
        EXPECT_EQ(Get()->GetMethod(&itsMethod), TAL_STATUS_SUCCESS);
        EXPECT_EQ(itsMethod, number);
        EXPECT_EQ(Get()->IsBodyComplete(&isComplete), TAL_STATUS_SUCCESS);
        EXPECT_TRUE(isComplete);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
}

// Counts its references; whoever made it owns one.
class Counted final : public IUnknown {
  public:
    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = nullptr;
        return TAL_STATUS_NOT_SUPPORTED;
    }
    UINT32 AddRef() override { return ++references; }
    UINT32 Release() override { return --references; }
    std::atomic<UINT32> references{1};
};

TEST_F(Context, AttachedObjectsBelongToTheRequestAndGoWithIt)
{
    constexpr GUID kFirst{1, 2, 3, {4}};
    constexpr GUID kSecond{5, 6, 7, {8}};
    Counted first;
    Counted second;
    module.handler = [&](IKestIO_5& io, UINT32) {
        IUnknown* found = &second;
        EXPECT_EQ(Get()->GetAttachment(&kFirst, &found), TAL_STATUS_SUCCESS);
        EXPECT_EQ(found, nullptr) << "left by the request before";
        EXPECT_EQ(Get()->SetAttachment(&kFirst, &first), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Get()->SetAttachment(&kSecond, &second), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Get()->GetAttachment(&kFirst, &found), TAL_STATUS_SUCCESS);
        EXPECT_EQ(found, &first);
        EXPECT_EQ(Get()->SetAttachment(&kFirst, &second), TAL_STATUS_SUCCESS) << "in its place";
        EXPECT_EQ(first.references, 1u);
        EXPECT_EQ(second.references, 3u);
        EXPECT_EQ(Get()->SetAttachment(&kFirst, nullptr), TAL_STATUS_SUCCESS);
        EXPECT_EQ(second.references, 2u);
        return io.SendHeader(200);
    };
    for (int i = 0; i < 2; ++i) {
        const Running running = Start();
        EXPECT_EQ(Ask(kGet).status, 200);
        Stop(); // the handler releases them after its reply
        EXPECT_EQ(first.references, 1u);
        EXPECT_EQ(second.references, 1u);
    }
}

TEST_F(Context, AttachmentsAreBoundedAndCheckTheirArguments)
{
    Counted object;
    module.handler = [&](IKestIO_5& io, UINT32) {
        GUID key{};
        for (key.Data1 = 1; key.Data1 <= 8; ++key.Data1)
            EXPECT_EQ(Get()->SetAttachment(&key, &object), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Code(Get()->SetAttachment(&key, &object)), kCodeInsufficientResources);
        EXPECT_EQ(object.references, 9u);
        IUnknown* found = nullptr;
        EXPECT_EQ(Code(Get()->SetAttachment(nullptr, &object)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->GetAttachment(nullptr, &found)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->GetAttachment(&key, nullptr)), kCodeInvalidParameter);
        EXPECT_EQ(Code(Get()->IsCancelled(nullptr)), kCodeInvalidParameter);
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(kGet).status, 200);
    GUID key{};
    IUnknown* found = nullptr;
    BOOLEAN cancelled = TRUE;
    EXPECT_EQ(Code(Get()->SetAttachment(&key, &object)), kCodeNotFound) << "no request runs here";
    EXPECT_EQ(Code(Get()->GetAttachment(&key, &found)), kCodeNotFound);
    EXPECT_EQ(Code(Get()->IsCancelled(&cancelled)), kCodeNotFound);
    EXPECT_FALSE(cancelled);
    server->Stop(); // the handler releases the object after its reply
    EXPECT_EQ(object.references, 1u);
}

TEST_F(Context, LateFailureTakesThePlaceOfASuccess)
{
    int moment = 0;
    module.handler = [&](IKestIO_5& io, UINT32) {
        const TALSTATUS full = MakeStatus(kFacilityFileStore, kCodeStorageFull);
        SetHeader(io, "ETag", "\"1\"");
        if (moment == 0)
            Get()->ReportFailure(full);
        io.SendHeader(moment == 3 ? 404 : 201);
        if (moment == 1)
            Get()->ReportFailure(full);
        Write(io, "done");
        if (moment == 2 || moment == 3)
            Get()->ReportFailure(full);
        if (moment == 4)
            Get()->ReportFailure(TAL_STATUS_INFO_END_OF_FILE); // no failure
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (; moment < 3; ++moment) {
        const Answer answer = Ask(kGet);
        EXPECT_EQ(answer.status, 507) << moment;
        EXPECT_EQ(answer.Header("ETag"), "(none)");
        EXPECT_EQ(answer.body, "507 Insufficient Storage\n");
    }
    EXPECT_EQ(Ask(kGet).status, 507); // what could not be looked at is not missing
    ++moment;
    EXPECT_EQ(Ask(kGet).status, 201);
}

} // namespace

} // namespace kestd::test
