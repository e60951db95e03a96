// SPDX-License-Identifier: Apache-2.0
//
// A lock that was granted and whose client never heard of it.
#include <future>

#include "host/pipeline/lock_reply.h"
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

// As the module says it in each dialect. The owner's text is the client's; the root of a lock may
// be longer than what is kept of the body.
constexpr char kClassic[] = "<a:owner><a:href>opaquelocktoken:forged</a:href></a:owner>"
                            "<a:href>opaquelocktoken:abc-1</a:href>\n</a:locktoken>\n"
                            "</a:activelock></a:lockdiscovery></a:prop>";
const std::string kStandard = "<D:href>opaquelocktoken:abc-1</D:href></D:locktoken><D:lockroot>"
                              "<D:href>/Ferro/docs/" +
                              std::string(2000, 'x') + "</D:href></D:lockroot>";

constexpr std::chrono::seconds kPatience{60};

void Report(TALSTATUS failure)
{
    void* out = nullptr;
    EXPECT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &out),
              TAL_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<IKestCallContext*>(out)->ReportFailure(failure), TAL_STATUS_SUCCESS);
}

class GrantedLocks : public ServerTest, public testing::WithParamInterface<Dialect> {
  protected:
    static bool IsStandard() { return GetParam() == Dialect::Standard; }
    static std::string Granted() { return IsStandard() ? kStandard : kClassic; }
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
            EXPECT_EQ(told, UINT32{KestMethodLock}) << "on behalf of which it is unlocked";
            const TALSTATUS status = io.SendHeader(200);
            done.set_value();
            return status;
        };
        ServerSettings settings = QuietSettings();
        settings.dialect = GetParam();
        StartUntilTearDown(settings);
    }
    int Status(std::string_view body = "<x/>")
    {
        done = {};
        return Ask("LOCK /Ferro/docs/a%20b HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + std::string(body))
            .status;
    }
    static void Begin(IKestIO_5& io, int status = 200)
    {
        SetHeader(io, "Transfer-Encoding", "chunked");
        if (IsStandard() && status < 300)
            SetHeader(io, "Lock-Token", "<opaquelocktoken:abc-1>");
        EXPECT_EQ(io.SendHeader(status), TAL_STATUS_SUCCESS);
    }
    static TALSTATUS Grant(IKestIO_5& io, int status = 200)
    {
        Begin(io, status);
        (void)Write(io, Granted());
        return TAL_STATUS_SUCCESS;
    }

    std::function<TALSTATUS(IKestIO_5&)> answer = [](IKestIO_5& io) { return Grant(io); };
    std::atomic<int> unlocked{0};
    std::promise<void> done;
    std::string token;
    std::u16string path;
};

} // namespace

TEST_P(GrantedLocks, AreKeptByWhoHearsOfThem)
{
    EXPECT_EQ(Status(), 200);
    answer = [](IKestIO_5& io) { return Grant(io, 423); }; // somebody else's
    EXPECT_EQ(Status(), 423);
    server->Stop(); // nothing comes later
    EXPECT_EQ(unlocked, 0);
}

TEST_P(GrantedLocks, AreTakenBackWhenTheClientIsToldOfAFailure)
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
        },
        [](IKestIO_5& io) { // of a name that was new
            const TALSTATUS status = Grant(io, 201);
            Report(MakeStatus(kFacilityHost, kCodeUnsuccessful));
            return status;
        },
        [](IKestIO_5& io) { // there was no memory for the header
            Report(MakeStatus(kFacilityHost, kCodeUnsuccessful));
            EXPECT_EQ(io.SendHeader(200), TAL_STATUS_SUCCESS);
            return Write(io, Granted());
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
    EXPECT_EQ(unlocked, 4);
}

TEST_P(GrantedLocks, AreTakenBackWhenTheClientHasLeft)
{
    std::promise<void> asked;
    std::promise<void> hasLeft;
    answer = [&](IKestIO_5& io) {
        asked.set_value();
        hasLeft.get_future().wait();
        Begin(io);
        const std::string much(1 << 20, 'x');
        for (int i = 0; i < 100 && !Failed(Write(io, much)); ++i) {
        }
        (void)Write(io, Granted());
        return TAL_STATUS_SUCCESS;
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

INSTANTIATE_TEST_SUITE_P(Dialects, GrantedLocks,
                         testing::Values(Dialect::Classic, Dialect::Standard),
                         [](const auto& each) {
                             return each.param == Dialect::Classic ? "Classic" : "Standard";
                         });

TEST(LockReply, NamesTheTokenThatIsTheLocks)
{
    const std::string ending = "</a:href>\n</a:locktoken>\n</a:activelock>";
    const std::string forged = "<a:owner><a:href>opaquelocktoken:forged</a:href></a:owner>";
    struct Row {
        const char* why;
        std::string header, body, token;
    };
    const Row rows[] = {
        {"in the body", "", "<a:href>opaquelocktoken:T-1" + ending, "opaquelocktoken:T-1"},
        {"behind the owner's", "", forged + "<a:href>opaquelocktoken:T-1" + ending,
         "opaquelocktoken:T-1"},
        {"in the header", "<opaquelocktoken:T-2>", "<a:href>opaquelocktoken:T-1" + ending,
         "opaquelocktoken:T-2"},
        {"cut off", "", "<a:href>opaquelocktoken:T-1", ""},
        {"cut off in the header", "<opaquelocktoken:T-2", "", ""},
        {"longer than any", "", "<a:href>opaquelocktoken:" + std::string(160, 't') + ending, ""},
        {"another href", "", "<a:href>/Ferro/a" + ending, ""},
        {"nothing", "", "", ""},
    };
    for (const Row& row : rows) {
        LockReply reply;
        reply.NoteHead(200, row.header);
        reply.NoteBody(row.body);
        EXPECT_EQ(reply.Token(), row.token) << row.why;
    }
}

TEST(LockReply, FindsTheTokenHoweverItComes)
{
    for (const std::string& body : {std::string(kClassic), kStandard}) {
        for (size_t step = 1; step < body.size(); step = step * 3 / 2 + 1) {
            LockReply reply;
            reply.NoteHead(200, {});
            for (size_t at = 0; at < body.size(); at += step)
                reply.NoteBody(std::string_view(body).substr(at, step));
            EXPECT_EQ(reply.Token(), "opaquelocktoken:abc-1") << step;
        }
    }
}

} // namespace kestd::test
