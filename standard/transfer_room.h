// SPDX-License-Identifier: Apache-2.0
//
// Where content stands on its way between a provider and a client.
#pragma once

#include <algorithm>

#include "support/globals.h"
#include "support/memory.h"

namespace standard {

// For `most` bytes that are known to be few it is on the stack, and costs nothing; for more, a
// transfer buffer in platform memory. Never larger than a transfer buffer.
class TransferRoom {
  public:
    explicit TransferRoom(UINT64 most) : isOnStack_(most <= sizeof few_)
    {
        if (!isOnStack_)
            many_ = TransferBuffer::Allocate();
    }
    TransferRoom(const TransferRoom&) = delete;
    TransferRoom& operator=(const TransferRoom&) = delete;

    // Null when memory is short, which has been reported.
    char* Data() { return isOnStack_ ? few_ : many_.data.get(); }
    UINT32 Size() const
    {
        return isOnStack_ ? std::min<UINT32>(sizeof few_, g_RWBlockSize) : many_.size;
    }

  private:
    TransferBuffer many_;
    const bool isOnStack_;
    char few_[16 * 1024];
};

} // namespace standard
