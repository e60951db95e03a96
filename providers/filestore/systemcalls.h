// SPDX-License-Identifier: Apache-2.0
//
// System calls that a signal may interrupt, and descriptors that a scope closes.
#pragma once

#include <cerrno>

#include <unistd.h>

namespace filestore {

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

// A descriptor for the length of a scope, however it ends.
class ScopedDescriptor {
  public:
    explicit ScopedDescriptor(int fd) : fd_(fd) {}
    ~ScopedDescriptor() { ::close(fd_); }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
    int Get() const { return fd_; }

  private:
    const int fd_;
};

} // namespace filestore
