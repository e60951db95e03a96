// SPDX-License-Identifier: Apache-2.0
//
// The log: one write to standard error per line, so that lines of several threads do not mix.
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <kest/tolm.h>

#include "platform/caseless.h"

namespace {

// A line in the making, bounded: a text that does not fit is cut and ends in "...".
class Line {
  public:
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
            std::size_t next = at;
            const UChar32 c = tolm::NextCodePoint(text, next);
            if (c >= 0x20 && c != 0x7F && !(c >= 0x80 && c < 0xA0)) {
                Append(text.substr(at, next - at));
            } else if (c == '\n') {
                Append("\\n");
            } else {
                for (std::size_t i = at; i < next; ++i)
                    AppendHex(static_cast<UINT8>(text[i]));
            }
            at = next;
        }
    }

    void Write() noexcept
    {
        buffer_[length_++] = '\n';
        const char* at = buffer_;
        while (length_ > 0) {
            const ssize_t written = write(STDERR_FILENO, at, length_);
            if (written < 0 && errno != EINTR)
                return; // there is nowhere to report it
            if (written > 0) {
                at += written;
                length_ -= static_cast<std::size_t>(written);
            }
        }
    }

  private:
    void AppendHex(UINT8 byte) noexcept
    {
        constexpr char kDigits[] = "0123456789ABCDEF";
        const char text[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        Append({text, sizeof text});
    }

    static constexpr std::size_t kRoom = 4096;
    char buffer_[kRoom + 8]; // room for the mark of a cut and the line's end
    std::size_t length_ = 0;
    bool cut_ = false;
};

} // namespace

extern "C" void TolmLog(UINT32 severity, const char* component, const char* text)
{
    const int kept = errno; // callers log and then look at what failed
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char stamp[40];
    const std::size_t length = strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(stamp + length, sizeof stamp - length, ".%03ldZ ", now.tv_nsec / 1'000'000);

    Line line;
    line.Append(stamp);
    line.Append(severity >= kLogError ? "error " : severity == kLogWarning ? "warning " : "info ");
    line.AppendEscaped(component ? component : "");
    line.Append(": ");
    line.AppendEscaped(text ? text : "");
    line.Write();
    errno = kept;
}
