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

namespace {

constexpr std::chrono::minutes kBetweenFailures{1};

std::uint64_t LinesOf(std::string_view lines)
{
    return static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
}

} // namespace

LogQueue::LogQueue(int fd, int reports, std::size_t room)
    : fd_(fd), reports_(reports), room_(room), waiting_(new char[room]), written_(new char[room])
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
            lost_ += LinesOf(lines);
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
        if (!WriteLog(fd_, {written_.get(), size}))
            TellFailed({written_.get(), size});
        if (lost)
            TellLost(lost, "nobody took them in time");
        lock.lock();
        isWriting_ = false;
        if (!used_ && !lost_)
            idle_.notify_all();
    }
}

void LogQueue::TellFailed(std::string_view lines) noexcept
{
    const int reason = errno;
    failed_ += LinesOf(lines);
    const auto now = std::chrono::steady_clock::now();
    if (fd_ == reports_ ||
        (toldFailed_.time_since_epoch().count() && now < toldFailed_ + kBetweenFailures))
        return; // what cannot be written cannot be told there
    char text[128];
    TellLost(std::exchange(failed_, 0), strerror_r(reason, text, sizeof text));
    toldFailed_ = now;
}

void LogQueue::TellLost(std::uint64_t lines, const char* why) const noexcept
{
    char text[200];
    char line[kLogLine];
    std::snprintf(text, sizeof text, "%llu log lines lost: %s",
                  static_cast<unsigned long long>(lines), why);
    (void)WriteLog(reports_, {line, FormatLogLine(kLogWarning, "tolm", text, line)});
}

} // namespace tolm
