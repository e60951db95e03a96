// SPDX-License-Identifier: Apache-2.0
//
// One line per request: in the common log format, with the duration in microseconds and the
// request's identifier behind it, or as a JSON object.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace kestd {

enum class AccessLogFormat { Text, Json };

struct AccessRecord {
    std::string_view id;
    std::string_view remote;
    std::string_view user; // empty for none
    std::string_view method;
    std::string_view target; // as sent
    unsigned version = 11;
    int status = 0;
    uint64_t received = 0; // bytes of the bodies
    uint64_t sent = 0;
    std::chrono::microseconds duration{0};
    std::string_view userAgent; // JSON only
};

// Lines gather in memory and go to the log together: with the first full batch, or a moment later
// when somebody calls Flush. Thread-safe.
class AccessLog {
  public:
    AccessLog() = default;
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;
    ~AccessLog() { Flush(); }

    void Write(const AccessRecord& record, AccessLogFormat format) noexcept;
    void Flush() noexcept;

  private:
    std::mutex mutex_; // guards lines_
    std::mutex order_; // of batches
    std::string lines_;
};

// Append the line with its end. Quotes, backslashes and control characters of the client are
// escaped. `now` is a system time. Throw std::bad_alloc.
void FormatAccessLine(const AccessRecord& record, uint64_t now, std::string& out);
void FormatJsonAccessLine(const AccessRecord& record, uint64_t now, std::string& out);

} // namespace kestd
