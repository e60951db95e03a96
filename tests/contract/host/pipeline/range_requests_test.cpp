// SPDX-License-Identifier: Apache-2.0
//
// GET of a part, against a module that answers as the real one does.
#include <algorithm>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

constexpr char kDate[] = "Sun, 06 Nov 1994 08:49:37 GMT";

class Ranges : public ServerTest {
  protected:
    void SetUp() override
    {
        module.handler = [this](IKestIO_5& io, UINT32) { return Serve(io); };
    }
    // The last byte of the resource is a dollar, all others are dots.
    TALSTATUS Serve(IKestIO_5& io)
    {
        asked.push_back(Header(io, "Range"));
        SetHeader(io, "Last-Modified", kDate);
        uint64_t first = 0;
        uint64_t count = size & UINT32_MAX;
        const bool isPart = asked.back() != "(none)";
        if (isPart) {
            uint64_t last = 0;
            EXPECT_EQ(std::sscanf(asked.back().c_str(), "bytes=%lu-%lu", &first, &last), 2);
            EXPECT_LE(first, uint64_t{INT32_MAX}) << "beyond what the module reads";
            if (first > size)
                return io.SendHeader(416);
            last = std::min(last == UINT32_MAX ? UINT64_MAX : last, size - 1);
            count = last + 1 - first;
            SetHeader(io, "Content-Range",
                      "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                          std::to_string(size));
        }
        SetHeader(io, "Content-Length", std::to_string(isPart ? count : size));
        TALSTATUS status = io.SendHeader(isPart ? 206 : 200);
        for (uint64_t left = count; left != 0;) {
            std::string block(std::min<uint64_t>(left, 1 << 20), '.');
            left -= block.size();
            if (first + count - left == size)
                block.back() = '$';
            ++writes;
            if (status = Write(io, block); Failed(status))
                break; // as the module does
        }
        return status;
    }
    Answer Get(const std::string& fields)
    {
        asked.clear();
        writes = 0;
        return Ask("GET /Ferro/docs/a HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n");
    }

    uint64_t size = 10;
    std::vector<std::string> asked; // the module's "Range", per call
    int writes = 0;
};

} // namespace

TEST_F(Ranges, OpenAndSuffixRangesAreClosedForTheModule)
{
    const Running running = Start();
    Answer answer = Get("Range: bytes=4-\r\n");
    EXPECT_EQ(answer.status, 206);
    EXPECT_EQ(answer.Header("Content-Range"), "bytes 4-9/10");
    EXPECT_EQ(answer.body, ".....$");
    EXPECT_TRUE(answer.isWhole);

    answer = Get("Range: bytes=-3\r\n");
    EXPECT_EQ(answer.status, 206);
    EXPECT_EQ(answer.Header("Content-Range"), "bytes 7-9/10");
    EXPECT_EQ(answer.Header("Content-Length"), "3");
    EXPECT_EQ(answer.body, "..$");
    EXPECT_EQ(asked, (std::vector<std::string>{"(none)", "bytes=7-9"}));
}

TEST_F(Ranges, RangesThatTheModuleIsNotAskedFor)
{
    const Running running = Start();
    for (const char* range : {"bytes=0-1,4-5", "bytes=5-3", "bytes=x-", "lines=0-1"}) {
        const Answer answer = Get(std::string("Range: ") + range + "\r\n");
        EXPECT_EQ(answer.status, 200) << range;
        EXPECT_EQ(answer.body, ".........$") << range;
        EXPECT_EQ(answer.Header("Content-Range"), "(none)") << range;
        EXPECT_EQ(asked, (std::vector<std::string>{"(none)"})) << range;
    }
}

TEST_F(Ranges, NothingThereIsUnsatisfiable)
{
    const Running running = Start();
    for (const char* range : {"bytes=10-", "bytes=-0"}) {
        const Answer answer = Get(std::string("Range: ") + range + "\r\n");
        EXPECT_EQ(answer.status, 416) << range;
        EXPECT_EQ(answer.Header("Content-Range"), "bytes */10") << range;
        EXPECT_EQ(answer.body, "") << range;
        EXPECT_TRUE(answer.isWhole) << range;
    }
}

TEST_F(Ranges, ConditionThatDoesNotHoldGivesTheWhole)
{
    const Running running = Start();
    EXPECT_EQ(Get(std::string("Range: bytes=4-\r\nIf-Range: ") + kDate + "\r\n").status, 206);
    for (const char* range : {"bytes=4-", "bytes=-3", "bytes=77-"}) {
        const Answer answer = Get(std::string("Range: ") + range + "\r\nIf-Range: \"tag\"\r\n");
        EXPECT_EQ(answer.status, 200) << range;
        EXPECT_EQ(answer.Header("Content-Range"), "(none)") << range;
        EXPECT_EQ(answer.Header("Content-Length"), "10") << range;
        EXPECT_EQ(answer.body, ".........$") << range;
    }
}

TEST_F(Ranges, FarRangeIsCutOutOfWhatTheModuleCanSend)
{
    size = (uint64_t{1} << 31) + (3 << 20);
    const Running running = Start();
    const std::string first = std::to_string((uint64_t{1} << 31) + (1 << 20));
    const std::string last = std::to_string((uint64_t{1} << 31) + (1 << 20) + 4);
    const Answer answer = Get("Range: bytes=" + first + "-" + last + "\r\n");
    EXPECT_EQ(answer.status, 206);
    EXPECT_EQ(answer.Header("Content-Range"),
              "bytes " + first + "-" + last + "/" + std::to_string(size));
    EXPECT_EQ(answer.body, ".....");
    EXPECT_EQ(asked, (std::vector<std::string>{"bytes=2147483647-4294967295"}));
    EXPECT_EQ(writes, 2) << "the module stops behind the part";
    EXPECT_EQ(Get("Range: bytes=-1\r\n").body, "$");
}

TEST_F(Ranges, WholeBeyond32BitsIsAskedForByARange)
{
    size = (uint64_t{1} << 32) + 5;
    const Running running = Start();
    // The client leaves early: what is of interest is at the front.
    Client client(port);
    client.Send("GET /Ferro/docs/a HTTP/1.1\r\nHost: h\r\n\r\n");
    const Answer answer = client.Receive(true);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.Header("Content-Length"), "4294967301");
    EXPECT_EQ(answer.Header("Content-Range"), "(none)");
    client.Close();
    server->Stop(); // the module has returned
    EXPECT_EQ(asked, (std::vector<std::string>{"(none)", "bytes=0-4294967295"}));
}

} // namespace kestd::test
