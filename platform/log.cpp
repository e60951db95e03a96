// SPDX-License-Identifier: Apache-2.0
//
// The log: one write per line, so that lines of several threads do not mix, or a queue that another
// thread writes. Each of its parts may have a file of its own.
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include <kest/status.h>
#include <kest/tolm.h>

#include "base/descriptor.h"
#include "base/hex.h"
#include "base/utf.h"
#include "platform/internal.h"
#include "platform/log_queue.h"

namespace {

constexpr std::size_t kQueueRoom = 512 * 1024;
constexpr std::chrono::milliseconds kLastFlush{1000}; // when the process ends
constexpr mode_t kFileMode = 0640;

// Where a part of the log goes. A file keeps its descriptor's number for good: when it is opened
// again, the new one takes the number over in one step, under whoever writes.
struct Part {
    const char* path = nullptr; // null: standard error
    int fd = STDERR_FILENO;
    std::atomic<tolm::LogQueue*> queue{nullptr}; // null: whoever logs writes
};

// Reachable to the end: threads may log while the process ends.
Part g_parts[3];
std::mutex g_mutex; // of opening files and making queues

thread_local const char* t_mark = nullptr;

void Emit(UINT32 number, std::string_view lines, tolm::LogQueue::Kind kind) noexcept
{
    const Part& part = g_parts[number];
    if (tolm::LogQueue* const queue = part.queue.load(std::memory_order_acquire))
        queue->Put(lines, kind);
    else
        (void)tolm::WriteLog(part.fd, lines); // there is nowhere to report a failure
}

base::Descriptor OpenFile(const char* path) noexcept
{
    return base::Descriptor(base::Retry([&] {
        return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, kFileMode);
    }));
}

// Whether standard error goes to the journal, which takes the severity from the start of a line.
bool IsJournal() noexcept
{
    const char* const said = std::getenv("JOURNAL_STREAM"); // "DEVICE:INODE"
    struct stat status {};
    if (!said || fstat(STDERR_FILENO, &status) != 0)
        return false;
    char text[64];
    std::snprintf(text, sizeof text, "%llu:%llu", static_cast<unsigned long long>(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino));
    return std::strcmp(said, text) == 0;
}

void FlushAll()
{
    const tolm::LogQueue* flushed = nullptr;
    for (Part& part : g_parts) {
        tolm::LogQueue* const queue = part.queue.load();
        if (queue && std::exchange(flushed, queue) != queue)
            (void)queue->Flush(kLastFlush);
    }
}

// A line in the making, bounded: a text that does not fit is cut and ends in "...".
class Line {
  public:
    explicit Line(char (&buffer)[tolm::kLogLine]) : buffer_(buffer) {}

    void Append(std::string_view text) noexcept
    {
        if (cut_)
            return;
        if (text.size() > kRoom - length_) {
            std::memcpy(buffer_ + length_, "...", 3);
            length_ += 3;
            cut_ = true;
            return;
        }
        std::memcpy(buffer_ + length_, text.data(), text.size());
        length_ += text.size();
    }

    // Control characters and bytes that are no UTF-8 are escaped: a text from a client must not
    // start a line of its own or steer a terminal.
    void AppendEscaped(std::string_view text) noexcept
    {
        std::size_t at = 0;
        while (at < text.size() && !cut_) {
            char32_t c = 0;
            const std::size_t bytes = base::DecodeCodePoint(text.substr(at), c);
            const std::size_t next = at + std::max<std::size_t>(bytes, 1);
            if (bytes != 0 && c >= 0x20 && c != 0x7F && !(c >= 0x80 && c < 0xA0)) {
                Append(text.substr(at, bytes));
            } else if (bytes != 0 && c == U'\n') {
                Append("\\n");
            } else {
                for (std::size_t i = at; i < next; ++i)
                    AppendHex(static_cast<UINT8>(text[i]));
            }
            at = next;
        }
    }

    // "2026-11-20T14:05:01.123Z "
    void AppendTime() noexcept
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm utc{};
        gmtime_r(&now.tv_sec, &utc);
        char stamp[40];
        const std::size_t length = strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
        std::snprintf(stamp + length, sizeof stamp - length, ".%03ldZ ", now.tv_nsec / 1'000'000);
        Append(stamp);
    }

    // Returns the line's bytes.
    std::size_t End() noexcept
    {
        buffer_[length_++] = '\n';
        return length_;
    }

  private:
    void AppendHex(UINT8 byte) noexcept
    {
        const char text[] = {'\\', 'x', base::kUpperHex[byte >> 4], base::kUpperHex[byte & 15]};
        Append({text, sizeof text});
    }

    static constexpr std::size_t kRoom = tolm::kLogLine - 8;
    char (&buffer_)[tolm::kLogLine];
    std::size_t length_ = 0;
    bool cut_ = false;
};

} // namespace

std::size_t tolm::FormatLogLine(UINT32 severity, const char* component, const char* text,
                                char (&out)[kLogLine]) noexcept
{
    static const bool isJournal = IsJournal();
    Line line(out);
    if (isJournal && !g_parts[kLogEvents].path)
        line.Append(severity >= kLogError ? "<3>" : severity == kLogWarning ? "<4>" : "<6>");
    else
        line.AppendTime();
    line.Append(severity >= kLogError ? "error " : severity == kLogWarning ? "warning " : "info ");
    line.AppendEscaped(component ? component : "");
    line.Append(": ");
    line.AppendEscaped(text ? text : "");
    if (t_mark) {
        line.Append(" [");
        line.AppendEscaped(t_mark);
        line.Append("]");
    }
    return line.End();
}

extern "C" {

void TolmLog(UINT32 severity, const char* component, const char* text)
{
    const int kept = errno; // callers log and then look at what failed
    char line[tolm::kLogLine];
    Emit(kLogEvents, {line, tolm::FormatLogLine(severity, component, text, line)},
         tolm::LogQueue::Kind::Event);
    errno = kept;
}

void TolmLogLines(UINT32 part, const char* lines, UINT32 size)
{
    const int kept = errno;
    if (part < std::size(g_parts))
        Emit(part, {lines, size},
             part == kLogRequests ? tolm::LogQueue::Kind::Access : tolm::LogQueue::Kind::Event);
    errno = kept;
}

void TolmLogMark(const char* mark)
{
    t_mark = mark;
}

int TolmLogToFile(UINT32 number, const char* path)
{
    if (number >= std::size(g_parts))
        return EINVAL;
    const std::lock_guard lock(g_mutex);
    Part& part = g_parts[number];
    base::Descriptor file = OpenFile(path);
    if (!file)
        return errno;
    char* const copy = strdup(path);
    if (!copy)
        return ENOMEM;
    part.path = copy;
    part.fd = file.Release();
    return 0;
}

void TolmLogReopen()
{
    const std::lock_guard lock(g_mutex);
    for (const Part& part : g_parts) {
        if (!part.path)
            continue;
        const base::Descriptor file = OpenFile(part.path);
        if (file && dup3(file.Number(), part.fd, O_CLOEXEC) >= 0)
            continue;
        char text[PATH_MAX + 200];
        std::snprintf(text, sizeof text, "cannot open the log '%s' again: %s", part.path,
                      std::strerror(errno));
        TolmLog(kLogError, "tolm", text);
    }
}

TALSTATUS TolmLogQueue()
{
    return tolm::Guarded([] {
        const std::lock_guard lock(g_mutex);
        if (g_parts[kLogEvents].queue.load())
            return TAL_STATUS_SUCCESS;
        std::map<int, std::unique_ptr<tolm::LogQueue>> made; // by descriptor
        for (const Part& part : g_parts)
            if (auto& queue = made[part.fd]; !queue)
                queue =
                    std::make_unique<tolm::LogQueue>(part.fd, g_parts[kLogEvents].fd, kQueueRoom);
        for (Part& part : g_parts)
            part.queue = made[part.fd].get();
        for (auto& [fd, queue] : made)
            (void)queue.release();
        (void)std::atexit(&FlushAll);
        return TAL_STATUS_SUCCESS;
    });
}

} // extern "C"
