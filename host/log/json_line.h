// SPDX-License-Identifier: Apache-2.0
//
// One line of a log as a JSON object (RFC 8259).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestd {

inline constexpr size_t kMostLoggedBytes = 2048; // of one value of a client

// Appends to a text that the caller keeps; every operation throws std::bad_alloc. Names are written
// as they are.
class JsonLine {
  public:
    // Begins with the time, in UTC with milliseconds.
    JsonLine(std::string& out, uint64_t systemTime);

    // A text of a client: what is no UTF-8 becomes U+FFFD, and of a long one the first 2,048 bytes
    // are kept.
    JsonLine& Text(std::string_view name, std::string_view value);
    JsonLine& Number(std::string_view name, uint64_t value);
    void End(); // with the end of the line

  private:
    void Name(std::string_view name);

    std::string& out_;
};

} // namespace kestd
