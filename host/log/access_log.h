// SPDX-License-Identifier: Apache-2.0
//
// One line per request, in the common log format with the duration behind it.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace kestd {

struct AccessRecord {
    std::string_view remote;
    std::string_view user; // empty for none
    std::string_view method;
    std::string_view target; // as sent
    unsigned version = 11;
    int status = 0;
    uint64_t bodyBytes = 0;
    std::chrono::microseconds duration{0};
};

// Lines gather in memory and go to the log together: with the first full batch, or a moment later
// when somebody calls Flush. Thread-safe.
class AccessLog {
  public:
    AccessLog() = default;
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;
    ~AccessLog() { Flush(); }

    void Write(const AccessRecord& record) noexcept;
    void Flush() noexcept;

  private:
    std::mutex mutex_; // guards lines_
    std::mutex order_; // of batches
    std::string lines_;
};

// Appends the line without its end; quotes, backslashes and control characters of the client are
// escaped.
void FormatAccessLine(const AccessRecord& record, time_t now, std::string& out);

} // namespace kestd
