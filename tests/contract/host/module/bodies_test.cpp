// SPDX-License-Identifier: Apache-2.0
//
// Request bodies as a module reads them.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Io = ServerTest;

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

} // namespace

} // namespace kestd::test
