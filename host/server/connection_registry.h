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

struct Limits;

// A connection as its server sees it. Its operations are called by any thread while it is in the
// list, with the list's lock held.
class RegisteredConnection {
  public:
    // What the clock's thread looks at: the time, since it last looked, and whether few more
    // connections may be opened. Milliseconds.
    struct Moment {
        int64_t now;
        int64_t elapsed;
        bool isCrowded;
    };
    virtual ~RegisteredConnection() = default;

    // Ends a wait whose time is up, that keeps others out, or whose client is too slow. Returns
    // when it wants to be looked at again: the moment's time if it has to be watched. For the
    // clock's thread only.
    virtual int64_t Check(const Moment& moment, const Limits& limits) noexcept = 0;
    virtual void ExpireIfIdle() noexcept = 0; // while the server stops
    virtual bool IsIdle() const noexcept = 0; // waits for a request
    virtual void GiveUp() noexcept = 0;       // whatever it does fails from now on

    // The list's.
    RegisteredConnection* next = nullptr;
    RegisteredConnection* previous = nullptr;
};

// Thread-safe.
class ConnectionRegistry {
  public:
    // Remove comes before the socket is closed, so that whoever goes through the list can use every
    // socket in it.
    void Add(RegisteredConnection& connection);
    void Remove(RegisteredConnection& connection);
    size_t Count() const noexcept { return count_.load(std::memory_order_relaxed); }
    size_t CountIdle(); // takes time for each connection

    // Ends waits whose time is up (`now` is NowMs). Returns when the next look is due, INT64_MAX
    // for never. For one thread, at regular intervals.
    int64_t ExpireDeadlines(int64_t now, const Limits& limits);
    void CloseIdle(); // ends connections that wait for a request
    void CloseAll();  // ends every one, whatever it does
    // Waits until there are no connections. False when time is up first.
    bool WaitUntilEmpty(std::chrono::milliseconds time);
    void DeleteAll(); // no thread runs any more

  private:
    std::mutex mutex_; // guards the list
    std::condition_variable isEmpty_;
    RegisteredConnection* first_ = nullptr;
    std::atomic<size_t> count_{0};
    int64_t expiredBefore_ = 0; // when ExpireDeadlines was called last; 0 for never
};

} // namespace kestd
