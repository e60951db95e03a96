// SPDX-License-Identifier: Apache-2.0
//
// Failures that components report while a request runs: whatever the module says then, no client
// may take it for the whole truth.
#include "tests/contract/host/harness.h"

#include <cerrno>

#include "host/module/call_context.h"

namespace kestd::test {

namespace {

constexpr size_t kSoMuchThatItLeaves = 64 * 1024;

class Failures : public ServerTest {
  protected:
    static void Report(UINT16 code)
    {
        void* context = nullptr;
        ASSERT_EQ(CallContextFactory()->CreateInstance(nullptr, &IID_KestCallContext_1, &context),
                  TAL_STATUS_SUCCESS);
        EXPECT_EQ(static_cast<IKestCallContext*>(context)->ReportFailure(
                      MakeStatus(kFacilityFileStore, code)),
                  TAL_STATUS_SUCCESS);
    }
    static std::string Request(const std::string& method, const char* version = "1.1")
    {
        return method + " /Ferro/f HTTP/" + version + "\r\nHost: h\r\nContent-Length: 0\r\n\r\n";
    }
};

TEST_F(Failures, TakeThePlaceOfWhateverHasNotLeft)
{
    struct Row {
        const char* why;
        UINT16 code;
        int said;
        int told;
    };
    const Row rows[] = {
        {"a listing that a failing disk cut short", kCodeUnsuccessful, 207, 500},
        {"a file that could not be looked at", kCodeUnsuccessful, 404, 500},
        {"a failing disk is not the client's mistake", kCodeUnsuccessful, 417, 500},
        {"out of descriptors or memory", kCodeInsufficientResources, 404, 503},
        {"the module knows no other status for it", kCodeInsufficientResources, 507, 503},
        {"the database is in use", kCodeTimeout, 408, 503},
        {"a lock that stays because the disk is full", kCodeStorageFull, 404, 507},
        {"a condition that could not be judged", kCodeUnsuccessful, 412, 500},
        {"what may not be looked at is not missing", kCodeAccessDenied, 404, 403},
        {"nor is it empty", kCodeAccessDenied, 207, 403},
        {"a refusal with its own reason stands", kCodeAccessDenied, 423, 423},
        {"a commit that a lock came before", kCodeLocked, 201, 423},
        {"a code without a status of its own", 99, 200, 500},
    };
    Row row{};
    bool isBefore = false;
    module.handler = [&](IKestIO_5& io, UINT32) {
        if (isBefore)
            Report(row.code);
        SetHeader(io, "ETag", "\"1\"");
        SetHeader(io, "Transfer-Encoding", "chunked");
        io.SendHeader(row.said);
        Write(io, "some of it");
        if (!isBefore)
            Report(row.code);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (const Row& each : rows) {
        for (const bool before : {true, false}) {
            row = each;
            isBefore = before;
            SCOPED_TRACE(std::string(row.why) + (before ? ", told before" : ", told after"));
            const Answer answer = Ask(Request("PROPFIND"));
            EXPECT_EQ(answer.status, row.told);
            EXPECT_TRUE(answer.isWhole);
            EXPECT_EQ(answer.Header("Retry-After"), row.told == 503 ? "5" : "(none)");
            if (row.told != row.said) {
                EXPECT_EQ(answer.Header("ETag"), "(none)");
                EXPECT_EQ(answer.body, "");
            }
            EXPECT_EQ(Ask(Request("HEAD"), true).status, row.told);
        }
    }
}

TEST_F(Failures, AFaultOfTheSystemComesBeforeARefusal)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        Report(kCodeAccessDenied);
        Report(kCodeStorageFull);
        Report(kCodeUnsuccessful); // the first of its kind counts
        return io.SendHeader(200);
    };
    const Running running = Start();
    EXPECT_EQ(Ask(Request("PROPFIND")).status, 507);
}

TEST_F(Failures, AReplyThatNeverBeganTellsThem)
{
    module.handler = [](IKestIO_5&, UINT32) {
        Report(kCodeInsufficientResources);
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    };
    const Running running = Start();
    EXPECT_EQ(Ask(Request("PROPFIND")).status, 503);
}

TEST_F(Failures, ABrowserIsShownAnErrorPage)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Type", "text/html");
        io.SendHeader(200);
        Write(io, "<html>an empty folder</html>");
        Report(kCodeUnsuccessful);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    const Answer answer = Ask(Request("GET"));
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.Header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(answer.body, "500 Internal Server Error\n");
}

// A body that has begun is never ended as if it were whole.
TEST_F(Failures, AMessageThatHasBegunIsCut)
{
    std::string length;
    size_t wholePieces = 1;
    module.handler = [&](IKestIO_5& io, UINT32) {
        if (!length.empty())
            SetHeader(io, "Content-Length", length);
        else
            SetHeader(io, "Transfer-Encoding", "chunked");
        io.SendHeader(200);
        for (size_t i = 0; i < wholePieces; ++i)
            Write(io, std::string(kSoMuchThatItLeaves, 'x'));
        Report(kCodeUnsuccessful);
        Write(io, "</a:multistatus>");
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    for (const char* announced : {"", "65552"}) {
        length = announced;
        SCOPED_TRACE(length.empty() ? "chunked" : "with a length");
        Client client(port);
        const Answer answer = client.Ask(Request("PROPFIND"));
        EXPECT_EQ(answer.status, 200);
        EXPECT_FALSE(answer.isWhole);
        EXPECT_TRUE(client.IsClosed());
        EXPECT_EQ(answer.body.find("multistatus"), std::string::npos);
    }
}

// A client of HTTP/1.0 takes the end of the connection for the end of the body, so the end has to
// be an error.
TEST_F(Failures, AMessageThatEndsWithItsConnectionIsReset)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Transfer-Encoding", "chunked");
        io.SendHeader(207);
        Write(io, std::string(kSoMuchThatItLeaves, 'x'));
        Report(kCodeUnsuccessful);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start();
    Client client(port);
    ASSERT_TRUE(client.Send(Request("PROPFIND", "1.0")));
    char bytes[16384];
    ssize_t got = 0;
    while ((got = recv(client.Fd(), bytes, sizeof bytes, 0)) > 0) {
    }
    EXPECT_EQ(got, -1);
    EXPECT_EQ(errno, ECONNRESET);
}

} // namespace

} // namespace kestd::test
