// SPDX-License-Identifier: Apache-2.0
//
// The log: one write to standard error per line, so that lines of several threads do not mix, or a
// queue that another thread writes.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include <kest/status.h>
#include <kest/tolm.h>

#include "base/hex.h"
#include "base/utf.h"
#include "platform/internal.h"
#include "platform/log_queue.h"

namespace {

constexpr std::size_t kQueueRoom = 512 * 1024;
constexpr std::chrono::milliseconds kLastFlush{1000}; // when the process ends

// Reachable to the end: threads may log while the process ends.
std::atomic<tolm::LogQueue*> g_queue{nullptr};

void Emit(std::string_view lines, tolm::LogQueue::Kind kind) noexcept
{
    if (tolm::LogQueue* const queue = g_queue.load(std::memory_order_acquire))
        queue->Put(lines, kind);
    else
        (void)tolm::WriteLog(STDERR_FILENO, lines); // there is nowhere to report a failure
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
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char stamp[40];
    const std::size_t length = strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(stamp + length, sizeof stamp - length, ".%03ldZ ", now.tv_nsec / 1'000'000);

    Line line(out);
    line.Append(stamp);
    line.Append(severity >= kLogError ? "error " : severity == kLogWarning ? "warning " : "info ");
    line.AppendEscaped(component ? component : "");
    line.Append(": ");
    line.AppendEscaped(text ? text : "");
    return line.End();
}

extern "C" {

void TolmLog(UINT32 severity, const char* component, const char* text)
{
    const int kept = errno; // callers log and then look at what failed
    char line[tolm::kLogLine];
    Emit({line, tolm::FormatLogLine(severity, component, text, line)}, tolm::LogQueue::Kind::Event);
    errno = kept;
}

void TolmLogAccess(const char* lines, UINT32 size)
{
    const int kept = errno;
    Emit({lines, size}, tolm::LogQueue::Kind::Access);
    errno = kept;
}

TALSTATUS TolmLogQueue()
{
    static std::mutex mutex;
    return tolm::Guarded([] {
        const std::lock_guard lock(mutex);
        if (g_queue.load())
            return TAL_STATUS_SUCCESS;
        g_queue = new tolm::LogQueue(STDERR_FILENO, kQueueRoom);
        (void)std::atexit([] { (void)g_queue.load()->Flush(kLastFlush); });
        return TAL_STATUS_SUCCESS;
    });
}

} // extern "C"
