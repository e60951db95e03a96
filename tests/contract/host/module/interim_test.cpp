// SPDX-License-Identifier: Apache-2.0
//
// Interim replies of the module's own (RFC 9110 section 15.2), over the wire.
#include <atomic>
#include <string>
#include <vector>

#include "tests/contract/host/harness.h"
#include <kest/com.h>
#include <kest/host/interim_reply.h>

namespace kestd::test {

namespace {

struct Line {
    std::string name;
    std::string value;
};

// Asks `io` for the face, and for an interim reply with these lines.
TALSTATUS Send(IKestIO_5& io, HTTPSTATUS status, std::vector<Line> lines = {})
{
    Ref<IKestInterimReply> interim;
    EXPECT_EQ(Query(&io, interim), TAL_STATUS_SUCCESS);
    const auto counted = [](std::string& text) {
        const auto size = static_cast<UINT16>(text.size());
        return STRING{size, size, text.data()};
    };
    std::vector<KEST_HEADER_LINE> raw;
    for (Line& line : lines)
        raw.push_back({counted(line.name), counted(line.value)});
    return interim->SendInterim(status, static_cast<UINT32>(raw.size()), raw.data());
}

using Interim = ServerTest;

TEST_F(Interim, LeavesAtOnceWithItsOwnLinesAndNoOthers)
{
    std::atomic<bool> mayEnd{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "X-Reply", "final");
        EXPECT_EQ(Send(io, 104, {{"Location", "/here"}, {"X-Empty", ""}}), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Send(io, 103), TAL_STATUS_SUCCESS) << "as often as it likes";
        mayEnd.wait(false);
        return io.SendHeader(204);
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    const Answer first = client.Receive();
    EXPECT_EQ(first.status, 104);
    EXPECT_EQ(first.head.substr(first.head.find("\r\n")), "\r\nLocation: /here\r\nX-Empty: \r\n");
    const Answer second = client.Receive();
    EXPECT_EQ(second.head.substr(second.head.find("\r\n")), "\r\n");
    EXPECT_EQ(second.status, 103);
    EXPECT_EQ(client.Held(), "") << "the reply itself waits for the handler";
    mayEnd = true;
    mayEnd.notify_all();
    const Answer last = client.Receive();
    EXPECT_EQ(last.status, 204);
    EXPECT_EQ(last.Header("X-Reply"), "final");
    EXPECT_EQ(last.Header("Location"), "(none)");
}

TEST_F(Interim, ComesBeforeTheBodyIsRead)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        EXPECT_EQ(Send(io, 104), TAL_STATUS_SUCCESS);
        TALSTATUS end = 0;
        const std::string body = ReadBody(io, end);
        SetHeader(io, "X-Body", std::to_string(body.size()));
        return io.SendHeader(200);
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 200000\r\n\r\n"));
    // The host takes the first part of a body before it calls the module.
    ASSERT_TRUE(client.Send(std::string(100'000, 'x')));
    EXPECT_EQ(client.Receive().status, 104) << "half of the body has not been sent";
    ASSERT_TRUE(client.Send(std::string(100'000, 'x')));
    EXPECT_EQ(client.Receive().Header("X-Body"), "200000");
}

TEST_F(Interim, IsNotForHttp10)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        EXPECT_EQ(Code(Send(io, 104)), kCodeNotImplemented);
        return io.SendHeader(204);
    };
    const Running running = Start();
    const Answer answer = Ask("GET /Ferro/a HTTP/1.0\r\nHost: h\r\n\r\n");
    EXPECT_EQ(answer.status, 204) << answer.head;
}

TEST_F(Interim, AfterTheHeadIsRefused)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "4");
        io.SendHeader(200);
        EXPECT_EQ(Code(Send(io, 104)), kCodeInvalidRequest) << "the head has not left yet";
        Write(io, "bo");
        EXPECT_EQ(Code(Send(io, 104)), kCodeInvalidRequest);
        return Write(io, "dy");
    };
    const Running running = Start();
    const Answer answer = Ask(kGet);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "body");
}

TEST_F(Interim, ThatNoHeaderCanBe_IsRefusedWhole)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        for (const HTTPSTATUS status : {0, 100, 101, 200, 404, 1104, -1})
            EXPECT_EQ(Code(Send(io, status)), kCodeInvalidParameter) << status;
        const std::vector<Line> wrong[] = {
            {{"X-Good", "1"}, {"X-Bad", "1\r\nSet-Cookie: x"}},
            {{"X-Good", "1"}, {"X Bad", "1"}},
            {{"X-Good", "1"}, {"", "1"}},
            {{"X-Good", "1"}, {"X:", "1"}},
            {{"X-Good", "1"}, {"X-Bad", std::string("a\0b", 3)}},
        };
        for (const std::vector<Line>& lines : wrong)
            EXPECT_EQ(Code(Send(io, 104, lines)), kCodeInvalidParameter) << lines[1].name;
        const std::vector<Line> many(kMostInterimLines + 1, {"X", "1"});
        EXPECT_EQ(Code(Send(io, 104, many)), kCodeInvalidParameter);
        Ref<IKestInterimReply> interim;
        EXPECT_EQ(Query(&io, interim), TAL_STATUS_SUCCESS);
        EXPECT_EQ(Code(interim->SendInterim(104, 1, nullptr)), kCodeInvalidParameter);
        EXPECT_EQ(interim->SendInterim(104, 0, nullptr), TAL_STATUS_SUCCESS);
        return io.SendHeader(204);
    };
    const Running running = Start();
    Client client(port);
    const Answer only = client.Ask(kGet);
    EXPECT_EQ(only.status, 104);
    EXPECT_EQ(only.head.substr(only.head.find("\r\n")), "\r\n");
    EXPECT_EQ(client.Receive().status, 204);
}

TEST_F(Interim, ToAClientThatHasLeft_IsToldAsSuch)
{
    std::atomic<bool> hasLeft{false};
    std::atomic<bool> isDone{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        if (module.calls > 1)
            return io.SendHeader(200);
        hasLeft.wait(false);
        TALSTATUS status = TAL_STATUS_SUCCESS;
        for (int i = 0; i < 1000 && !Failed(status); ++i)
            status = Send(io, 104, {{"X-Long", std::string(8000, 'x')}});
        EXPECT_EQ(Code(status), kCodeUnsuccessful);
        isDone = true;
        isDone.notify_all();
        return io.SendHeader(204);
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    client.Close();
    hasLeft = true;
    hasLeft.notify_all();
    isDone.wait(false);
    EXPECT_EQ(Ask(kGet).status, 200) << "the server goes on";
}

// The connection's own replies keep their order: those before it have left when it does.
TEST_F(Interim, InAPipeline_FollowsTheReplyBefore)
{
    module.handler = [this](IKestIO_5& io, UINT32) {
        if (module.calls == 2) {
            EXPECT_EQ(Send(io, 104), TAL_STATUS_SUCCESS);
        }
        SetHeader(io, "X-Call", std::to_string(module.calls));
        SetHeader(io, "Content-Length", "2");
        io.SendHeader(200);
        return Write(io, "ok");
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send(std::string(kGet) + kGet));
    EXPECT_EQ(client.Receive().Header("X-Call"), "1");
    EXPECT_EQ(client.Receive().status, 104);
    EXPECT_EQ(client.Receive().Header("X-Call"), "2");
}

} // namespace

} // namespace kestd::test
