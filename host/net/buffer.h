// SPDX-License-Identifier: Apache-2.0
//
// Memory of connections and requests.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace kestd {

// Spare blocks for the buffers of the thread that made it, for as long as it lives: as many as
// requests that a thread has open at once, and a few more. A thread without one takes and gives its
// blocks at the allocator. It stands on the thread's stack: a thread-local object with a destructor
// would end the process where a thread's first use of it finds no memory.
class BlockPool {
  public:
    BlockPool() noexcept;
    ~BlockPool();
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    char* Take() noexcept;           // null when there is none
    bool Give(char* block) noexcept; // false when it is full; then the block is still the caller's

  private:
    BlockPool* const before_;
    char* blocks_[8];
    size_t count_ = 0;
};

// Received or gathered bytes in one piece. Takes memory only while it holds something: an idle
// connection has none. Blocks of the usual size come from and go to the thread's BlockPool.
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
    // Room in front of the content, for what is known last. Throws std::bad_alloc.
    void MakeHeadroom(size_t size);
    size_t Headroom() const noexcept { return begin_; }
    // Takes `size` bytes of the headroom into the content, for the caller to fill.
    char* Prepend(size_t size) noexcept { return data_ + (begin_ -= size); }
    void Truncate(size_t size) noexcept { end_ = begin_ + size; } // at most Size
    void Consume(size_t size) noexcept;                           // takes bytes off the front
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
    void* Allocate(size_t size) noexcept
    {
        const auto left = static_cast<size_t>(end_ - at_);
        if (size == 0 || size > left)
            return AllocateBlock(size);
        void* piece = at_;
        at_ += RoundUp(size); // blocks are as large as a number of such pieces
        return piece;
    }
    // Makes sure that pieces of `size` bytes in all can be had. False when there is no memory.
    [[nodiscard]] bool Reserve(size_t size) noexcept;
    // A NUL-terminated copy. Throws std::bad_alloc.
    std::string_view Copy(std::string_view text);
    // Frees everything but the first block.
    void Reset() noexcept;

  private:
    static constexpr size_t RoundUp(size_t size) noexcept
    {
        constexpr size_t kAlign = alignof(std::max_align_t);
        return (size + kAlign - 1) / kAlign * kAlign;
    }
    struct Block {
        std::unique_ptr<char[]> bytes;
        size_t size;
    };
    void* AllocateBlock(size_t size) noexcept;

    std::vector<Block> blocks_;
    char* at_ = nullptr; // the rest of the last block
    char* end_ = nullptr;
    size_t total_ = 0;
};

} // namespace kestd
