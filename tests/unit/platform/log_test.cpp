// SPDX-License-Identifier: Apache-2.0
//
// The queue of the log: nobody who logs waits for its reader, and nothing is lost without a word.
#include "platform/log_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <kest/status.h>
#include <kest/tolm.h>

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
    LogQueue queue(pipe.writer, pipe.writer, 4096);
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
    auto queue = std::make_unique<LogQueue>(pipe.writer, pipe.writer, 64 * 1024);
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
    auto queue = std::make_unique<LogQueue>(pipe.writer, pipe.writer, 64 * 1024);
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
    LogQueue queue(pipe.writer, pipe.writer, 4096);
    Pipe::Close(pipe.reader);
    for (int i = 0; i < 100; ++i)
        queue.Put("into nothing\n", Kind::Event);
    EXPECT_TRUE(queue.Flush(seconds(60)));
}

TEST(LogQueue, TellsElsewhereWhatAFullDiskDidNotTake)
{
    const Pipe reports;
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    {
        LogQueue queue(full, reports.writer, 4096);
        queue.Put("one\ntwo\n", Kind::Access);
        EXPECT_TRUE(queue.Flush(seconds(60)));
        queue.Put("three\n", Kind::Access); // told in a minute
        EXPECT_TRUE(queue.Flush(seconds(60)));
    }
    close(full);
    const std::string told = reports.ReadSome();
    EXPECT_EQ(Lines(told), 1u);
    EXPECT_NE(told.find("tolm: 2 log lines lost: No space left on device"), std::string::npos)
        << told;
}

// The parts of the log belong to the process: each case is a process of its own.
class LogFiles : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mkdtemp(directory_), nullptr); }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string Path(const char* name) const { return std::string(directory_) + "/" + name; }
    std::string Read(const char* name) const
    {
        std::ifstream file(Path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Runs `body` in a child, which ends as a program does.
    template <class Body> static void InProcess(Body body)
    {
        const pid_t child = fork();
        if (child == 0) {
            body();
            exit(testing::Test::HasFailure());
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    static void Write(UINT32 part, std::string_view lines)
    {
        TolmLogLines(part, lines.data(), static_cast<UINT32>(lines.size()));
    }

  private:
    char directory_[32] = "/tmp/kest-log-XXXXXX";
};

TEST_F(LogFiles, EachPartHasItsOwnAndAllIsThereAtTheEnd)
{
    for (const bool isQueued : {false, true}) {
        InProcess([&] {
            umask(022);
            EXPECT_EQ(TolmLogToFile(kLogEvents, Path("events").c_str()), 0);
            EXPECT_EQ(TolmLogToFile(kLogRequests, Path("requests").c_str()), 0);
            EXPECT_EQ(TolmLogToFile(kLogAudit, Path("audit").c_str()), 0);
            if (isQueued) {
                EXPECT_EQ(TolmLogQueue(), TAL_STATUS_SUCCESS);
            }
            TolmLog(kLogInfo, "test", "without a mark");
            TolmLogMark("0a1b");
            TolmLog(kLogWarning, "test", "with one");
            TolmLogMark(nullptr);
            Write(kLogRequests, "a request\n");
            Write(kLogAudit, "a change\n");
            Write(3, "no part\n");
        });
    }
    std::string events = Read("events");
    EXPECT_EQ(Lines(events), 4u) << events; // both processes append
    EXPECT_TRUE(events.ends_with("Z warning test: with one [0a1b]\n")) << events;
    EXPECT_NE(events.find("Z info test: without a mark\n"), std::string::npos) << events;
    EXPECT_EQ(Read("requests"), "a request\na request\n");
    EXPECT_EQ(Read("audit"), "a change\na change\n");
    EXPECT_EQ(std::filesystem::status(Path("audit")).permissions(), std::filesystem::perms(0640));
}

TEST_F(LogFiles, AreOpenedAgainAfterARotation)
{
    InProcess([&] {
        EXPECT_EQ(TolmLogToFile(kLogRequests, Path("requests").c_str()), 0);
        Write(kLogRequests, "1\n");
        std::filesystem::rename(Path("requests"), Path("requests.1"));
        Write(kLogRequests, "2\n");
        TolmLogReopen();
        Write(kLogRequests, "3\n");
    });
    EXPECT_EQ(Read("requests.1"), "1\n2\n");
    EXPECT_EQ(Read("requests"), "3\n");
}

TEST_F(LogFiles, ThatCannotBeOpenedAgainAreWrittenToAsBefore)
{
    InProcess([&] {
        EXPECT_EQ(TolmLogToFile(kLogEvents, Path("events").c_str()), 0);
        std::filesystem::create_directory(Path("below"));
        EXPECT_EQ(TolmLogToFile(kLogRequests, Path("below/requests").c_str()), 0);
        std::filesystem::rename(Path("below"), Path("moved"));
        TolmLogReopen();
        Write(kLogRequests, "still\n");
    });
    EXPECT_EQ(Read("moved/requests"), "still\n");
    EXPECT_NE(Read("events").find("error tolm: cannot open the log '" + Path("below/requests") +
                                  "' again: No such file or directory\n"),
              std::string::npos)
        << Read("events");
}

TEST_F(LogFiles, OfAnUnknownPartOrFolderAreRefused)
{
    InProcess([&] {
        EXPECT_EQ(TolmLogToFile(3, Path("x").c_str()), EINVAL);
        EXPECT_EQ(TolmLogToFile(kLogAudit, Path("missing/x").c_str()), ENOENT);
    });
    EXPECT_FALSE(std::filesystem::exists(Path("x")));
}

} // namespace
} // namespace tolm
