// SPDX-License-Identifier: Apache-2.0
//
// Memory for the length of one call: on the stack when the size is a usual one, from the platform
// layer when it is not.
#pragma once

#include "support/memory.h"

template <UINT32 Usual> class StackOrHeapBuffer {
  public:
    StackOrHeapBuffer() = default; // the stack bytes stay as they are
    StackOrHeapBuffer(const StackOrHeapBuffer&) = delete;
    StackOrHeapBuffer& operator=(const StackOrHeapBuffer&) = delete;

    // `size` bytes, not initialised; null when memory is short. Called once.
    [[nodiscard]] char* Get(size_t size)
    {
        if (size <= Usual)
            return usual_;
        large_ = AllocPaged<char>(size);
        return large_.get();
    }

  private:
    Paged<char> large_;
    char usual_[Usual];
};
