// SPDX-License-Identifier: Apache-2.0
//
// Memory of connections and requests, and the blocks that threads keep for it.
#include "host/net/buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

namespace kestd {

namespace {

constexpr size_t kBlock = 16 * 1024;
constexpr size_t kArenaBlock = 8 * 1024;
constexpr size_t kArenaLimit = 16 * 1024 * 1024;

constinit thread_local BlockPool* t_blockPool = nullptr; // the thread's own, if it has one

char* TakeBlock() noexcept
{
    char* const spare = t_blockPool ? t_blockPool->Take() : nullptr;
    return spare ? spare : static_cast<char*>(std::malloc(kBlock));
}

void GiveBlock(char* block) noexcept
{
    if (!t_blockPool || !t_blockPool->Give(block))
        std::free(block);
}

} // namespace

BlockPool::BlockPool() noexcept : before_(std::exchange(t_blockPool, this)) {}

BlockPool::~BlockPool()
{
    t_blockPool = before_;
    while (count_)
        std::free(blocks_[--count_]);
}

char* BlockPool::Take() noexcept
{
    return count_ ? blocks_[--count_] : nullptr;
}

bool BlockPool::Give(char* block) noexcept
{
    if (count_ == std::size(blocks_))
        return false;
    blocks_[count_++] = block;
    return true;
}

Buffer& Buffer::operator=(Buffer&& other) noexcept
{
    if (this != &other) {
        Release();
        data_ = std::exchange(other.data_, nullptr);
        begin_ = std::exchange(other.begin_, 0);
        end_ = std::exchange(other.end_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
    }
    return *this;
}

size_t Buffer::Reserve(size_t size)
{
    if (Room() >= size)
        return Room();
    const size_t used = Size();
    if (capacity_ - used >= size) {
        std::memmove(data_, data_ + begin_, used);
    } else {
        size_t capacity = std::max(kBlock, capacity_);
        while (capacity - used < size)
            capacity *= 2;
        char* data = capacity == kBlock ? TakeBlock() : static_cast<char*>(std::malloc(capacity));
        if (!data)
            throw std::bad_alloc();
        // The room in front stays where there is enough: else what grows would be moved once more.
        const size_t front = capacity - used - size >= begin_ ? begin_ : 0;
        if (used)
            std::memcpy(data + front, data_ + begin_, used);
        Release();
        data_ = data;
        capacity_ = capacity;
        begin_ = front;
        end_ = front + used;
        return Room();
    }
    begin_ = 0;
    end_ = used;
    return Room();
}

void Buffer::Append(const void* bytes, size_t size)
{
    if (size == 0)
        return;
    Reserve(size);
    std::memcpy(Tail(), bytes, size);
    end_ += size;
}

void Buffer::MakeHeadroom(size_t size)
{
    if (begin_ >= size)
        return;
    if (Size() == 0) {
        Clear();
        Reserve(size);
        begin_ = end_ = size;
        return;
    }
    Buffer moved;
    moved.Reserve(size + Size());
    moved.begin_ = moved.end_ = size;
    moved.Append(Data(), Size());
    *this = std::move(moved);
}

void Buffer::Consume(size_t size) noexcept
{
    begin_ += size;
    if (begin_ == end_)
        Clear();
}

void Buffer::Release() noexcept
{
    if (data_) {
        if (capacity_ == kBlock)
            GiveBlock(data_);
        else
            std::free(data_);
    }
    data_ = nullptr;
    begin_ = end_ = capacity_ = 0;
}

void* Arena::AllocateBlock(size_t size) noexcept
{
    if (size > kArenaLimit)
        return nullptr;
    if (size == 0)
        return Allocate(1);
    const size_t bytes = std::max(RoundUp(size), kArenaBlock);
    if (total_ + bytes > kArenaLimit)
        return nullptr;
    try {
        blocks_.push_back({std::make_unique_for_overwrite<char[]>(bytes), bytes});
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    total_ += bytes;
    at_ = blocks_.back().bytes.get();
    end_ = at_ + bytes;
    return Allocate(size);
}

bool Arena::Reserve(size_t size) noexcept
{
    if (static_cast<size_t>(end_ - at_) >= size)
        return true;
    if (!AllocateBlock(size))
        return false;
    at_ -= RoundUp(size); // the piece is for whoever comes
    return true;
}

std::string_view Arena::Copy(std::string_view text)
{
    auto* copy = static_cast<char*>(Allocate(text.size() + 1));
    if (!copy)
        throw std::bad_alloc();
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return {copy, text.size()};
}

void Arena::Reset() noexcept
{
    // A first block of another size was a single large piece; it is not worth keeping.
    const bool keepsFirst = !blocks_.empty() && blocks_.front().size == kArenaBlock;
    blocks_.resize(keepsFirst ? 1 : 0);
    total_ = keepsFirst ? kArenaBlock : 0;
    at_ = keepsFirst ? blocks_.front().bytes.get() : nullptr;
    end_ = at_ + total_;
}

} // namespace kestd
