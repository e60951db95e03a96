// SPDX-License-Identifier: Apache-2.0
//
// The files that locks on free names have made, for as long as such a lock may be taken back: its
// client may never hear of it, and then nothing of it is to stay.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string_view>

#include <kest/types.h>

namespace filestore {

// Any thread may use it. Knows the last 256: more than can be on their way to clients. Of one that
// is forgotten the empty file stays, which loses nothing.
class LockedNames {
  public:
    // Takes no memory: the lock stands already. Of a token longer than any of the store's own
    // nothing is known.
    void Add(std::string_view token, UINT64 inode) noexcept;
    // The file that the lock has made; it is known once.
    std::optional<UINT64> Take(std::string_view token);

  private:
    static constexpr size_t kTokenBytes = 36;
    struct Made {
        std::array<char, kTokenBytes> token;
        size_t size = 0; // of the token; 0: none
        UINT64 inode = 0;
    };
    static constexpr size_t kMost = 256;

    std::mutex mutex_;
    std::array<Made, kMost> made_{};
    size_t next_ = 0;
};

} // namespace filestore
