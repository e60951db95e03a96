// SPDX-License-Identifier: Apache-2.0
//
// A lock that was granted and whose client never heard of it.
#include <future>

#include "host/pipeline/granted_lock.h"
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

constexpr char kGranted[] = "<a:href>opaquelocktoken:abc-1</a:href>\n</a:locktoken>\n"
                            "</a:activelock></a:lockdiscovery></a:prop>";

constexpr std::chrono::seconds kPatience{60};

void Report(TALSTATUS failure)
{
    void* out = nullptr;
    EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
              TAL_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<IKestCallContext*>(out)->ReportFailure(failure), TAL_STATUS_SUCCESS);
}

class GrantedLocks : public ServerTest {
  protected:
    void SetUp() override
    {
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            if (method != KestMethodUnlock) {
                TALSTATUS end = TAL_STATUS_SUCCESS;
                (void)ReadBody(io, end); // a refresh has none
                return answer(io);
            }
            ++unlocked;
            token = Header(io, "Lock-Token");
            path = Url(io);
            EXPECT_EQ(Header(io, "If"), "(none)");
            UINT32 told = 0;
            void* out = nullptr;
            (void)CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out);
            EXPECT_EQ(static_cast<IKestCallContext*>(out)->GetMethod(&told), TAL_STATUS_SUCCESS);
            EXPECT_EQ(told, UINT32{KestMethodUnlock});
            const TALSTATUS status = io.SendHeader(200);
            done.set_value();
            return status;
        };
        StartUntilTearDown();
    }
    int Status(std::string_view body = "<x/>")
    {
        done = {};
        return Ask("LOCK /Ferro/docs/a%20b HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + std::string(body))
            .status;
    }
    static TALSTATUS Grant(IKestIO_5& io, int status = 200)
    {
        SetHeader(io, "Transfer-Encoding", "chunked");
        const TALSTATUS begun = io.SendHeader(status);
        (void)Write(io, kGranted);
        return begun;
    }

    std::function<TALSTATUS(IKestIO_5&)> answer = [](IKestIO_5& io) { return Grant(io); };
    std::atomic<int> unlocked{0};
    std::promise<void> done;
    std::string token;
    std::u16string path;
};

} // namespace

TEST_F(GrantedLocks, AreKeptByWhoHearsOfThem)
{
    EXPECT_EQ(Status(), 200);
    answer = [](IKestIO_5& io) { return Grant(io, 423); }; // somebody else's
    EXPECT_EQ(Status(), 423);
    server->Stop(); // nothing comes later
    EXPECT_EQ(unlocked, 0);
}

TEST_F(GrantedLocks, AreTakenBackWhenTheClientIsToldOfAFailure)
{
    const std::function<TALSTATUS(IKestIO_5&)> answers[] = {
        [](IKestIO_5& io) {
            Report(MakeStatus(kFacilityHost, kCodeUnsuccessful));
            return Grant(io);
        },
        [](IKestIO_5& io) {
            const TALSTATUS status = Grant(io);
            Report(MakeStatus(kFacilityHost, kCodeUnsuccessful));
            return status;
        }};
    for (const auto& each : answers) {
        answer = each;
        EXPECT_EQ(Status(), 500);
        EXPECT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
        EXPECT_EQ(token, "<opaquelocktoken:abc-1>");
        EXPECT_EQ(path, u"/Ferro/docs/a b");
        EXPECT_EQ(Status(""), 500); // a refresh: the client has the token
    }
    server->Stop();
    EXPECT_EQ(unlocked, 2);
}

TEST_F(GrantedLocks, AreTakenBackWhenTheClientHasLeft)
{
    std::promise<void> asked;
    std::promise<void> hasLeft;
    answer = [&](IKestIO_5& io) {
        asked.set_value();
        hasLeft.get_future().wait();
        const TALSTATUS status = io.SendHeader(200);
        const std::string much(1 << 20, 'x');
        for (int i = 0; i < 100 && !Failed(Write(io, much)); ++i) {
        }
        (void)Write(io, kGranted);
        return status;
    };
    {
        Client client(port);
        ASSERT_TRUE(client.Send("LOCK /Ferro/docs/a HTTP/1.1\r\nHost: h\r\nContent-Length: 4"
                                "\r\n\r\n<x/>"));
        asked.get_future().wait();
        const linger reset{1, 0};
        setsockopt(client.Fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    hasLeft.set_value();
    EXPECT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(token, "<opaquelocktoken:abc-1>");
}

TEST(LockReply, HoldsTheEndOfWhatWasSaid)
{
    LockReply answer;
    std::string all;
    for (int i = 0; i < 200; ++i) {
        const std::string piece(static_cast<size_t>(i) * 7 % 40, static_cast<char>('a' + i % 26));
        answer.NoteBody(piece);
        all += piece;
        const std::string_view tail = answer.Tail();
        EXPECT_EQ(tail, std::string_view(all).substr(all.size() - tail.size()));
        EXPECT_EQ(tail.size(), std::min<size_t>(all.size(), 512));
    }
    answer.NoteBody(std::string(2000, 'z') + "end");
    EXPECT_TRUE(answer.Tail().ends_with("zend"));
    EXPECT_EQ(answer.Tail().size(), 512u);
}

} // namespace kestd::test
