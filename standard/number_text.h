// SPDX-License-Identifier: Apache-2.0
//
// Numbers as text, on the stack.
#pragma once

#include "support/escape.h"

namespace standard {

// The decimal text of a number, NUL-terminated.
class Decimal {
  public:
    explicit Decimal(UINT64 value) { (void)U64ToAscii(value, 10, text_); }
    const char* Text() const { return text_; }

  private:
    char text_[kU64Digits];
};

} // namespace standard
