// SPDX-License-Identifier: Apache-2.0
//
// Records of varying length, packed one after the other into a caller's buffer.
#pragma once

#include <string_view>

#include <kest/dav.h>

#include "providers/filestore/metadata.h"

namespace filestore {

// Fills a buffer record by record: each `Put` appends one, or says that there is no room for it.
class Packing {
  public:
    Packing(void* buffer, UINT32 room) : buffer_(static_cast<char*>(buffer)), room_(room) {}

    [[nodiscard]] bool Put(const Property& property);
    [[nodiscard]] bool Put(const LockRecord& lock, std::string_view root, UINT64 now);

    // What the call ends with, once nothing more is put; *size is written.
    TALSTATUS Finish(UINT32* size) const;

  private:
    // Room for a record of which `head` bytes come before its text; null when there is none.
    char* Take(size_t head, size_t least, size_t text);

    char* const buffer_;
    const UINT32 room_;
    UINT32 used_ = 0;
    UINT32 last_ = 0;   // where the last record begins
    UINT32 needed_ = 0; // by a record that did not fit
};

} // namespace filestore
