// SPDX-License-Identifier: Apache-2.0
//
// What the module has said in answer to a LOCK (RFC 4918 section 9.10.1), whatever became of that.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace kestd {

// Its status, and the token: that of "Lock-Token", or else of the body. Takes no memory.
class LockReply {
  public:
    void Reset() noexcept
    {
        status_ = 0;
        tailSize_ = tokenSize_ = 0;
        hasHeader_ = false;
    }
    // `header` is "Lock-Token" of the reply, empty for none.
    void NoteHead(int status, std::string_view header) noexcept;
    void NoteBody(std::string_view bytes) noexcept;
    int Status() const noexcept { return status_; }
    // With its "opaquelocktoken:"; empty when there is none, or one of more than 160 bytes.
    std::string_view Token() const noexcept { return {token_.data(), tokenSize_}; }

  private:
    void NotePiece(std::string_view bytes) noexcept;
    void Keep(std::string_view token) noexcept;

    int status_ = 0;
    bool hasHeader_ = false;
    size_t tailSize_ = 0;
    size_t tokenSize_ = 0;
    std::array<char, 512> tail_; // of the body: a token may come in several pieces
    std::array<char, 160> token_;
};

} // namespace kestd
