// SPDX-License-Identifier: Apache-2.0
//
// The queue of log lines, and the thread that writes them.
#include "platform/log_queue.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <kest/tolm.h>

namespace tolm {

bool WriteLog(int fd, std::string_view bytes) noexcept
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd entry{fd, POLLOUT, 0}; // somebody else made it not wait
            (void)poll(&entry, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

LogQueue::LogQueue(int fd, std::size_t room)
    : fd_(fd), room_(room), waiting_(new char[room]), written_(new char[room])
{
    // Signals are for the threads that wait for them, and a reader that went away is none here.
    sigset_t all;
    sigset_t old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    try {
        writer_ = std::thread([this] { Run(); });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

LogQueue::~LogQueue()
{
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    work_.notify_one();
    writer_.join();
}

void LogQueue::Put(std::string_view lines, Kind kind) noexcept
{
    const std::size_t limit = kind == Kind::Access ? room_ / 2 : room_;
    {
        const std::lock_guard lock(mutex_);
        if (lines.size() > limit || used_ > limit - lines.size()) {
            lost_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
            return;
        }
        std::memcpy(waiting_.get() + used_, lines.data(), lines.size());
        used_ += lines.size();
        if (isWriting_)
            return; // Run() looks again before it waits
    }
    work_.notify_one();
}

bool LogQueue::Flush(std::chrono::milliseconds time) noexcept
{
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, time, [this] { return used_ == 0 && lost_ == 0 && !isWriting_; });
}

void LogQueue::Run() noexcept
{
    std::unique_lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [this] { return used_ || lost_ || ends_; });
        if (!used_ && !lost_)
            return;
        std::swap(waiting_, written_);
        const std::size_t size = std::exchange(used_, 0);
        // The lines that were dropped came later than those in the buffer: their count is written
        // last.
        const std::uint64_t lost = std::exchange(lost_, 0);
        isWriting_ = true;
        lock.unlock();
        (void)WriteLog(fd_, {written_.get(), size}); // there is nowhere to report a failure
        if (lost)
            WriteLost(lost);
        lock.lock();
        isWriting_ = false;
        if (!used_ && !lost_)
            idle_.notify_all();
    }
}

void LogQueue::WriteLost(std::uint64_t lines) noexcept
{
    char text[64];
    char line[kLogLine];
    std::snprintf(text, sizeof text, "%llu log lines lost: nobody took them in time",
                  static_cast<unsigned long long>(lines));
    (void)WriteLog(fd_, {line, FormatLogLine(kLogWarning, "tolm", text, line)});
}

} // namespace tolm
