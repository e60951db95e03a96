// SPDX-License-Identifier: Apache-2.0
//
// Memory of connections and requests.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace kestd {

// Received or gathered bytes in one piece. Takes memory only while it holds something: an idle
// connection has none. Blocks of the usual size come from and go to a small stock of each thread.
class Buffer {
  public:
    Buffer() noexcept = default;
    ~Buffer() { Release(); }
    Buffer(Buffer&& other) noexcept { *this = std::move(other); }
    Buffer& operator=(Buffer&& other) noexcept;

    const char* Data() const noexcept { return data_ + begin_; }
    size_t Size() const noexcept { return end_ - begin_; }
    std::string_view View() const noexcept { return {Data(), Size()}; }
    // Makes room for at least `size` more bytes behind the content and returns how much there is.
    // Pointers into the content become invalid. Throws std::bad_alloc.
    size_t Reserve(size_t size);
    char* Tail() noexcept { return data_ + end_; }
    size_t Room() const noexcept { return capacity_ - end_; }
    void Grew(size_t size) noexcept { end_ += size; } // bytes written at Tail
    void Append(const void* bytes, size_t size);
    void Consume(size_t size) noexcept; // takes bytes off the front
    void Clear() noexcept { begin_ = end_ = 0; }
    void Release() noexcept; // gives the memory back

  private:
    char* data_ = nullptr;
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t capacity_ = 0;
};

// Memory that lives as long as a request. Pieces are aligned for any type and never moved.
class Arena {
  public:
    // Null when the system has none left or the request has taken its bound, 16 MiB.
    void* Allocate(size_t size) noexcept;
    // A NUL-terminated copy. Throws std::bad_alloc.
    std::string_view Copy(std::string_view text);
    // Frees everything but the first block.
    void Reset() noexcept;

  private:
    struct Block {
        std::unique_ptr<char[]> bytes;
        size_t size;
    };
    std::vector<Block> blocks_;
    size_t used_ = 0; // of the last block
    size_t total_ = 0;
};

} // namespace kestd
