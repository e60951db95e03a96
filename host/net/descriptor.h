// SPDX-License-Identifier: Apache-2.0
//
// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace kestd {

// Closes what it holds; -1 is nothing.
class Descriptor {
  public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    ~Descriptor()
    {
        if (number_ >= 0)
            close(number_);
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Number() const noexcept { return number_; }

  private:
    int number_;
};

} // namespace kestd
