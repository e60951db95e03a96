// SPDX-License-Identifier: Apache-2.0
//
// A hold on the names of one change: see Volume::MutexOf.
#pragma once

#include <mutex>

namespace filestore {

// Holds up to two names against other changes of this process, from construction to destruction.
class NameGuard {
  public:
    NameGuard(std::mutex& name, std::mutex& other);
    explicit NameGuard(std::mutex& name) : NameGuard(name, name) {}
    ~NameGuard();
    NameGuard(const NameGuard&) = delete;
    NameGuard& operator=(const NameGuard&) = delete;

  private:
    std::mutex& first_;
    std::mutex& second_; // the same, or another
};

} // namespace filestore
