// SPDX-License-Identifier: Apache-2.0
//
// Parts of a reply that leave from an open file.
#include <fcntl.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/contract/host/harness.h"
#include "tests/support/temporary_directory.h"
#include <kest/com.h>

namespace kestd::test {

namespace {

// Bytes that tell where they stand.
std::string Content(size_t size)
{
    std::string text;
    text.reserve(size + 16);
    for (size_t i = 0; text.size() < size; ++i)
        text += std::to_string(i) + ' ';
    text.resize(size);
    return text;
}

class SendFile : public ServerTest {
  protected:
    SendFile()
    {
        std::signal(SIGPIPE, SIG_IGN); // as the program does; sendfile(2) knows no MSG_NOSIGNAL
        test_support::WriteFile(directory_.Path() / "content", content);
        file = open((directory_.Path() / "content").c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_GE(file, 0);
    }
    ~SendFile() override { close(file); }

    static ServerSettings Standard()
    {
        ServerSettings settings = QuietSettings();
        settings.dialect = Dialect::Standard;
        return settings;
    }
    // Asks `io` for the face that sends files, and for a part of the file.
    TALSTATUS Send(IKestIO_5& io, UINT64 offset, UINT64 length)
    {
        Ref<IKestSendFile> sender;
        EXPECT_EQ(Query(&io, sender), TAL_STATUS_SUCCESS);
        UINT64 taken = 0;
        const TALSTATUS told = sender->SendFile(file, offset, length, &taken);
        sent = taken;
        return told;
    }

    const std::string content = Content(5'000'000);
    int file = -1;
    std::atomic<UINT64> sent{0}; // by the last call

  private:
    test_support::TemporaryDirectory directory_;
};

TEST_F(SendFile, GoesBetweenWhatIsWritten)
{
    std::atomic<TALSTATUS> status{TAL_STATUS_UNSUCCESSFUL};
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", std::to_string(7 + 4'000'000 + 5));
        io.SendHeader(206);
        Write(io, "before ");
        status = Send(io, 1000, 4'000'000);
        return Write(io, "after");
    };
    const Running running = Start(Standard());
    Client client(port);
    for (int i = 0; i < 2; ++i) { // the connection stays
        const Answer answer = client.Ask(kGet);
        EXPECT_EQ(status, TAL_STATUS_SUCCESS);
        EXPECT_EQ(sent, 4'000'000u);
        EXPECT_TRUE(answer.isWhole);
        EXPECT_TRUE(answer.body == "before " + content.substr(1000, 4'000'000) + "after");
    }
}

TEST_F(SendFile, ASlowClientGetsAllOfIt)
{
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", std::to_string(content.size()));
        io.SendHeader(200);
        return Send(io, 0, content.size());
    };
    const Running running = Start(Standard());
    Client client(port, 4096);
    const Answer answer = client.Ask(kGet);
    EXPECT_TRUE(answer.body == content);
}

TEST_F(SendFile, ClientsThatTakeNothingHoldNoThread)
{
    std::atomic<int> inside{0};
    module.handler = [&](IKestIO_5& io, UINT32 method) {
        if (method != KestMethodGet)
            return io.SendHeader(204);
        SetHeader(io, "Content-Length", std::to_string(content.size()));
        io.SendHeader(200);
        ++inside;
        Ref<IKestSendFile> sender;
        EXPECT_EQ(Query(&io, sender), TAL_STATUS_SUCCESS);
        UINT64 mine = 0;
        return sender->SendFile(file, 0, content.size(), &mine);
    };
    ServerSettings settings = Standard();
    settings.limits.workerThreads = 1;
    const Running running = Start(settings);
    std::vector<std::unique_ptr<Client>> slow;
    for (int i = 0; i < 30; ++i) {
        slow.push_back(std::make_unique<Client>(port, 4096));
        ASSERT_TRUE(slow.back()->Send(kGet));
    }
    while (inside < 30)
        std::this_thread::yield();
    EXPECT_EQ(Ask("OPTIONS /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n").status, 204);
    EXPECT_TRUE(slow.front()->Receive().body == content);
}

TEST_F(SendFile, EndsWhereTheFileEnds)
{
    std::atomic<TALSTATUS> status{TAL_STATUS_UNSUCCESSFUL};
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "1000");
        io.SendHeader(200);
        status = Send(io, content.size() - 10, 1000);
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start(Standard());
    Client client(port);
    const Answer answer = client.Ask(kGet);
    EXPECT_TRUE(client.IsClosed());
    Stop(); // the handler may go on behind its reply
    EXPECT_EQ(status, TAL_STATUS_SUCCESS);
    EXPECT_EQ(sent, 10u);
    EXPECT_EQ(answer.body, content.substr(content.size() - 10));
    EXPECT_FALSE(answer.isWhole);
}

// Replies whose body cannot leave so take it by Write.
TEST_F(SendFile, IsRefusedWhereTheBodyHasAnotherForm)
{
    static constexpr struct {
        const char* name;
        const char* request;
        const char* length; // null: none
        int status;         // 0: not yet
    } kRows[] = {
        {"chunked", kGet, nullptr, 200},
        {"less announced", kGet, "99", 200},
        {"no number", kGet, "many", 200},
        {"no body", kGet, "100", 304},
        {"HEAD", "HEAD /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n", "100", 200},
        {"before the head", kGet, "100", 0},
    };
    for (const auto& row : kRows) {
        std::atomic<TALSTATUS> status{TAL_STATUS_SUCCESS};
        module.handler = [&](IKestIO_5& io, UINT32) {
            if (row.length)
                SetHeader(io, "Content-Length", row.length);
            if (row.status)
                io.SendHeader(row.status);
            status = Send(io, 0, 100);
            if (!row.status)
                io.SendHeader(200);
            return Write(io, content.substr(0, 100));
        };
        const Running running = Start(Standard());
        const Answer answer = Ask(row.request, std::string_view(row.name) == "HEAD");
        Stop();
        EXPECT_EQ(Code(status), kCodeNotImplemented) << row.name;
        EXPECT_EQ(sent, 0u) << row.name;
        EXPECT_TRUE(answer.isWhole) << row.name;
        server.reset();
    }
}

TEST_F(SendFile, ChecksItsArguments)
{
    std::vector<TALSTATUS> statuses;
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "0");
        io.SendHeader(200);
        Ref<IKestSendFile> sender;
        EXPECT_EQ(Query(&io, sender), TAL_STATUS_SUCCESS);
        UINT64 taken = 0;
        statuses = {sender->SendFile(-1, 0, 1, &taken), sender->SendFile(file, 0, 1, nullptr),
                    sender->SendFile(file, UINT64{1} << 63, 1, &taken),
                    sender->SendFile(file, 1, (UINT64{1} << 63) - 1, &taken)};
        return TAL_STATUS_SUCCESS;
    };
    const Running running = Start(Standard());
    EXPECT_EQ(Ask(kGet).status, 200);
    Stop();
    for (const TALSTATUS status : statuses)
        EXPECT_EQ(Code(status), kCodeInvalidParameter);
}

TEST_F(SendFile, FailsWhenTheClientLeaves)
{
    std::atomic<bool> hasFailed{false};
    module.handler = [&](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Length", "5000000000");
        io.SendHeader(200);
        TALSTATUS status = 0;
        for (int i = 0; i < 1000 && !Failed(status); ++i)
            status = Send(io, 0, content.size());
        hasFailed = Failed(status);
        return status;
    };
    const Running running = Start(Standard());
    {
        Client client(port);
        ASSERT_TRUE(client.Send(kGet));
        EXPECT_FALSE(client.Receive(true).head.empty());
    }
    server->Stop();
    EXPECT_TRUE(hasFailed);
}

} // namespace

} // namespace kestd::test
