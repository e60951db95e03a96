// SPDX-License-Identifier: Apache-2.0
//
// What names a request in all logs, so that its lines are found together.
#pragma once

#include <cstddef>
#include <string_view>

namespace kestd {

class RequestId {
  public:
    static constexpr size_t kLongest = 64;

    // One that no other request of this process has had, and hardly one of another process: 16
    // hexadecimal digits. Thread-safe.
    void Make() noexcept;
    // Takes over what a proxy calls the request. False, and nothing is changed, for an empty or too
    // long text or one with anything but letters, digits, '-', '_', '.', '~' (RFC 3986
    // section 2.3).
    bool Take(std::string_view name) noexcept;
    // Ends with a terminator.
    const char* Text() const noexcept { return text_; }

  private:
    char text_[kLongest + 1] = "";
};

} // namespace kestd
