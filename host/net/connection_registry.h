// SPDX-License-Identifier: Apache-2.0
//
// The open connections of one server.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace kestd {

class Connection;
struct Limits;

// Thread-safe.
class ConnectionRegistry {
  public:
    // Remove comes before the socket is closed, so that whoever goes through the list can use every
    // socket in it.
    void Add(Connection& connection);
    void Remove(Connection& connection);
    size_t Count() const noexcept { return count_.load(std::memory_order_relaxed); }

    // Ends waits whose time is up (`now` is NowMs). For one thread, at regular intervals.
    void ExpireDeadlines(int64_t now, const Limits& limits);
    void CloseIdle(); // ends connections that wait for a request
    void CloseAll();  // ends every one, whatever it does
    // Waits until there are no connections. False when time is up first.
    bool WaitUntilEmpty(std::chrono::milliseconds time);
    void DeleteAll(); // no thread runs any more

  private:
    std::mutex mutex_; // guards the list
    std::condition_variable isEmpty_;
    Connection* first_ = nullptr;
    std::atomic<size_t> count_{0};
    int64_t expiredBefore_ = 0; // when ExpireDeadlines was called last; 0 for never
};

} // namespace kestd
