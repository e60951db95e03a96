// SPDX-License-Identifier: Apache-2.0
//
// Log lines on their way to a descriptor that may stop taking them: whoever logs never waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include <kest/types.h>

namespace tolm {

constexpr std::size_t kLogLine = 4096 + 8; // bytes of a line with the mark of a cut and its end

// One line with time, severity and end, escaped and cut to what fits. Returns its bytes.
std::size_t FormatLogLine(UINT32 severity, const char* component, const char* text,
                          char (&out)[kLogLine]) noexcept;

// Writes all of `bytes`. False when the descriptor fails; waits while it takes nothing.
bool WriteLog(int fd, std::string_view bytes) noexcept;

class LogQueue {
  public:
    enum class Kind {
        Event,
        Access // takes at most half of the room, so that events have some left
    };

    // Starts the thread that writes to `fd`. `room` is how many bytes may wait beside those that
    // are being written, of which there are as many at most. Lost lines are counted in a line on
    // `reports`. Throws std::bad_alloc or std::system_error.
    LogQueue(int fd, int reports, std::size_t room);
    // Waits for the write that runs.
    ~LogQueue();
    LogQueue(const LogQueue&) = delete;
    LogQueue& operator=(const LogQueue&) = delete;

    // Queues whole lines, or drops and counts them where there is no room. How many were lost is
    // told in a line of its own as soon as the descriptor takes something again. Lines that it
    // fails to take are lost as well; that is told once a minute. Thread-safe.
    void Put(std::string_view lines, Kind kind) noexcept;
    // Waits until all is written. False when time is up first.
    bool Flush(std::chrono::milliseconds time) noexcept;

  private:
    void Run() noexcept;
    void TellLost(std::uint64_t lines, const char* why) const noexcept;
    void TellFailed(std::string_view lines) noexcept;

    const int fd_;
    const int reports_;
    const std::size_t room_;
    std::mutex mutex_; // guards the rest; never held during a write
    std::condition_variable work_;
    std::condition_variable idle_;
    std::unique_ptr<char[]> waiting_;
    std::unique_ptr<char[]> written_; // the writing thread's
    std::size_t used_ = 0;            // bytes of waiting_
    std::uint64_t lost_ = 0;          // lines
    bool isWriting_ = false;
    bool ends_ = false;
    std::uint64_t failed_ = 0; // lines that were not taken; the writing thread's
    std::chrono::steady_clock::time_point toldFailed_{}; // likewise
    std::thread writer_;
};

} // namespace tolm
