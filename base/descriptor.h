// SPDX-License-Identifier: Apache-2.0
//
// File descriptors with an owner, and system calls that a signal may interrupt.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

// Closes what it holds when it goes; -1 is nothing. Leaves errno as it is.
class Descriptor {
  public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) {
            Close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const noexcept { return number_; }
    explicit operator bool() const noexcept { return number_ >= 0; }
    int Release() noexcept { return std::exchange(number_, -1); } // the caller closes it

  private:
    void Close() noexcept
    {
        if (number_ < 0)
            return;
        const int before = errno;
        close(number_); // what it tells is lost: whoever writes asks fsync
        errno = before;
    }

    int number_;
};

// Makes a system call again until no signal interrupts it. What it gave is as the last one left it,
// errno included.
template <class Call> auto Retry(Call&& call)
{
    for (;;) {
        const auto given = call();
        if (given >= 0 || errno != EINTR)
            return given;
    }
}

} // namespace base
