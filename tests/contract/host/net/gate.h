// SPDX-License-Identifier: Apache-2.0
//
// Module calls that take as long as a case wants.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "tests/contract/host/harness.h"

namespace kestd::test {

// Holds module calls until it is opened.
class Gate {
  public:
    void Pass()
    {
        std::unique_lock lock(mutex_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return isOpen_; });
    }
    void WaitFor(int count)
    {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(
            changed_.wait_for(lock, std::chrono::seconds(20), [&] { return waiting_ >= count; }));
    }
    void Open()
    {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int waiting_ = 0;
    bool isOpen_ = false;
};

} // namespace kestd::test
