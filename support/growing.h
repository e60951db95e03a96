// SPDX-License-Identifier: Apache-2.0
//
// Arrays and texts in platform memory that grow as they are filled. One that memory was short for
// stays as it was and remembers it.
#pragma once

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

#include "support/memory.h"

// Elements move when it grows: no pointer to one survives an Append.
template <class T> class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    // False when memory is short; HasFailed() then stays true.
    bool Append(const T& element) { return Append(&element, 1); }
    bool Append(const T* elements, size_t count)
    {
        if (count == 0)
            return true;
        if (!Reserve(count))
            return false;
        std::memcpy(static_cast<void*>(memory_.get() + size_), elements, count * sizeof(T));
        size_ += count;
        return true;
    }
    // Drops what is behind the first `size` elements.
    void Cut(size_t size) { size_ = std::min(size_, size); }

    T* data() { return memory_.get(); }
    const T* data() const { return memory_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](size_t at) { return memory_[at]; }
    const T& operator[](size_t at) const { return memory_[at]; }
    T* begin() { return data(); }
    T* end() { return data() + size_; }
    const T* begin() const { return data(); }
    const T* end() const { return data() + size_; }
    T& back() { return memory_[size_ - 1]; }
    bool HasFailed() const { return failed_; }

  private:
    bool Reserve(size_t more)
    {
        if (more <= room_ - size_)
            return true;
        constexpr size_t kMost = std::numeric_limits<UINT32>::max() / sizeof(T);
        constexpr size_t kFirst = sizeof(T) > 64 ? 8 : 512 / sizeof(T);
        if (more > kMost - size_) {
            failed_ = true;
            return false;
        }
        const size_t room = std::clamp(std::max(room_ * 2, size_ + more), kFirst, kMost);
        Paged<T> memory = AllocPaged<T>(room);
        if (!memory) {
            failed_ = true;
            return false;
        }
        if (size_ != 0)
            std::memcpy(static_cast<void*>(memory.get()), memory_.get(), size_ * sizeof(T));
        memory_ = std::move(memory);
        room_ = room;
        return true;
    }

    Paged<T> memory_;
    size_t size_ = 0;
    size_t room_ = 0;
    bool failed_ = false;
};

class GrowingText : public GrowingArray<char> {
  public:
    bool Put(std::string_view text) { return Append(text.data(), text.size()); }
    std::string_view Text() const { return {data(), size()}; }
    std::string_view Text(size_t from, size_t length) const { return {data() + from, length}; }
};
