// SPDX-License-Identifier: Apache-2.0
//
// A lock that was granted is told to its client when there is no more memory from then on.
#include "tests/contract/host/harness.h"
#include "tests/contract/truth/failing_memory.h"

namespace kestd::test {

namespace {

constexpr char kToken[] = "<opaquelocktoken:00000000-0000-4000-8000-000000000001>";

// Without memory of its own, unlike the harness's.
template <size_t N, size_t M>
TALSTATUS Set(IKestIO_5& io, const char (&name)[N], const char (&value)[M])
{
    return io.SetReplyHeader(const_cast<char*>(name), M - 1, const_cast<char*>(value));
}

class LockMemory : public ServerTest, public testing::WithParamInterface<size_t> {
  protected:
    void SetUp() override
    {
        failing_memory::ExemptThisThread();
        body.assign(GetParam(), 'b');
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            if (method == KestMethodUnlock) {
                ++unlocked;
                return io.SendHeader(204);
            }
            TALSTATUS end = TAL_STATUS_SUCCESS;
            (void)ReadBody(io, end);
            failing_memory::FailFrom(1); // the lock stands
            return Tell(io);
        };
        ServerSettings settings = QuietSettings();
        settings.dialect = Dialect::Standard;
        StartUntilTearDown(settings);
    }
    void TearDown() override
    {
        failing_memory::FailAt(0);
        ServerTest::TearDown();
    }
    // As the module does it: a piece of its own size at once.
    TALSTATUS Tell(IKestIO_5& io)
    {
        constexpr size_t kPiece = 8192;
        failed = Failed(Set(io, "Lock-Token", kToken)) || Failed(Set(io, "ETag", "\"v1\"")) ||
                 Failed(Set(io, "Last-Modified", "Sat, 31 Jan 2026 12:00:00 GMT")) ||
                 Failed(Set(io, "Transfer-Encoding", "chunked")) ||
                 Failed(Set(io, "Content-Type", "application/xml; charset=\"utf-8\"")) ||
                 Failed(io.SendHeader(200));
        for (size_t at = 0; at < body.size(); at += kPiece) {
            const size_t size = std::min(kPiece, body.size() - at);
            failed = failed || Failed(io.Write(static_cast<UINT32>(size),
                                               reinterpret_cast<UINT8*>(body.data()) + at));
        }
        return TAL_STATUS_SUCCESS;
    }

    std::string body;
    std::atomic<bool> failed{false};
    std::atomic<int> unlocked{0};
};

} // namespace

TEST_P(LockMemory, IsTakenBeforeTheLockIsGranted)
{
    Client client(port);
    const Answer answer =
        client.Ask("LOCK /Ferro/docs/a HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\n<x/>");
    EXPECT_TRUE(failing_memory::HasFailed() || answer.isWhole);
    failing_memory::FailAt(0);
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(answer.isWhole);
    EXPECT_EQ(answer.Header("Lock-Token"), kToken);
    EXPECT_TRUE(answer.body == body) << answer.body.size() << " bytes";
    EXPECT_TRUE(server->Stop()); // nothing comes later
    EXPECT_FALSE(failed);
    EXPECT_EQ(unlocked, 0);
}

// An owner's text has 8 KiB at most, a path as many; and one that takes more than is gathered.
INSTANTIATE_TEST_SUITE_P(Of, LockMemory, testing::Values(400, 9000, 40'000));

} // namespace kestd::test
