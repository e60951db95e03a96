// SPDX-License-Identifier: Apache-2.0
//
// The queue of the log: nobody who logs waits for its reader, and nothing is lost without a word.
#include "platform/log_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>

namespace tolm {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Kind = LogQueue::Kind;

struct Pipe {
    Pipe()
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader = ends[0];
        writer = ends[1];
    }
    ~Pipe()
    {
        Close(reader);
        Close(writer);
    }
    static void Close(int& fd)
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    std::string ReadSome() const
    {
        std::string text(64 * 1024, '\0');
        const ssize_t got = read(reader, text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }
    int reader = -1;
    int writer = -1;
};

std::size_t Lines(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// The sum of what the lines about lost lines say.
std::size_t Lost(const std::string& text, std::size_t& reports)
{
    constexpr std::string_view kMark = " log lines lost";
    std::size_t sum = 0;
    reports = 0;
    for (std::size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; ++at) {
        const std::size_t from = text.rfind(' ', at - 1) + 1;
        sum += std::stoul(text.substr(from, at - from));
        ++reports;
    }
    return sum;
}

TEST(LogQueue, WritesWhatItIsGivenInOrder)
{
    const Pipe pipe;
    LogQueue queue(pipe.writer, 4096);
    std::string wanted;
    for (int i = 0; i < 50; ++i) {
        const std::string line = "line " + std::to_string(i) + "\n";
        queue.Put(line, i % 2 ? Kind::Event : Kind::Access);
        wanted += line;
        EXPECT_TRUE(queue.Flush(seconds(60)));
    }
    EXPECT_EQ(pipe.ReadSome(), wanted);
}

TEST(LogQueue, NobodyWaitsForAReaderThatStopsAndEachLineIsThereOrCounted)
{
    constexpr std::size_t kLines = 20'000;
    Pipe pipe;
    auto queue = std::make_unique<LogQueue>(pipe.writer, 64 * 1024);
    for (std::size_t i = 0; i < kLines; ++i) // would never end if one waited
        queue->Put("a line of fifty bytes, as many of them are written\n", Kind::Event);
    EXPECT_FALSE(queue->Flush(milliseconds(1)));
    std::string text;
    std::thread reader([&] {
        for (std::string some; !(some = pipe.ReadSome()).empty();)
            text += some;
    });
    EXPECT_TRUE(queue->Flush(seconds(60)));
    queue.reset();
    Pipe::Close(pipe.writer);
    reader.join();
    std::size_t reports = 0;
    const std::size_t lost = Lost(text, reports);
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(Lines(text) - reports + lost, kLines);
}

TEST(LogQueue, LinesOfRequestsLeaveRoomForEvents)
{
    Pipe pipe;
    auto queue = std::make_unique<LogQueue>(pipe.writer, 64 * 1024);
    for (int i = 0; i < 4000; ++i)
        queue->Put("a request of fifty bytes, as many of them are sent\n", Kind::Access);
    queue->Put("event\n", Kind::Event);
    std::string text;
    std::thread reader([&] {
        for (std::string some; !(some = pipe.ReadSome()).empty();)
            text += some;
    });
    EXPECT_TRUE(queue->Flush(seconds(60)));
    queue.reset();
    Pipe::Close(pipe.writer);
    reader.join();
    EXPECT_NE(text.find("\nevent\n"), std::string::npos);
    EXPECT_NE(text.find(" log lines lost"), std::string::npos);
}

TEST(LogQueue, ReaderThatLeavesEndsNothing)
{
    Pipe pipe;
    LogQueue queue(pipe.writer, 4096);
    Pipe::Close(pipe.reader);
    for (int i = 0; i < 100; ++i)
        queue.Put("into nothing\n", Kind::Event);
    EXPECT_TRUE(queue.Flush(seconds(60)));
}

} // namespace
} // namespace tolm
