// SPDX-License-Identifier: Apache-2.0
//
// What the module has said in answer to a LOCK (RFC 4918 section 9.10.1), whatever became of that.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace kestd {

// Its status, and the end of the body, where the token stands. Takes no memory.
class LockReply {
  public:
    void Reset() noexcept
    {
        status_ = 0;
        size_ = 0;
    }
    void NoteStatus(int status) noexcept { status_ = status; }
    void NoteBody(std::string_view bytes) noexcept
    {
        bytes.remove_prefix(bytes.size() - std::min(bytes.size(), tail_.size()));
        const size_t kept = std::min(size_, tail_.size() - bytes.size());
        std::memmove(tail_.data(), tail_.data() + (size_ - kept), kept);
        std::copy(bytes.begin(), bytes.end(), tail_.data() + kept);
        size_ = kept + bytes.size();
    }
    int Status() const noexcept { return status_; }
    std::string_view Tail() const noexcept { return {tail_.data(), size_}; }

  private:
    int status_ = 0;
    size_t size_ = 0;
    std::array<char, 512> tail_; // a token, and what follows it
};

// The token of the lock that a reply describes, with its "opaquelocktoken:"; empty when there is
// none.
std::string_view FindLockToken(std::string_view body) noexcept;

} // namespace kestd
