// SPDX-License-Identifier: Apache-2.0
//
// Numbers as text, on the stack.
#pragma once

#include <charconv>

#include <kest/types.h>

namespace standard {

// The decimal text of a number, NUL-terminated.
class Decimal {
  public:
    explicit Decimal(UINT64 value)
    {
        *std::to_chars(text_, text_ + sizeof text_ - 1, value).ptr = 0;
    }
    const char* Text() const { return text_; }

  private:
    char text_[21]; // 20 digits and the terminator
};

} // namespace standard
