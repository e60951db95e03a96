// SPDX-License-Identifier: Apache-2.0
//
// Whose turn it is to make room on a full disk: one thread removes, and the others wait for no more
// than its next removal, however many it has before it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace filestore {

// Any thread may use it.
class RoomTurns {
  public:
    class Turn {
      public:
        // Takes the turn, or waits until whoever has it has removed something or ended. `goesOn` is
        // asked four times a second meanwhile; false ends the wait.
        Turn(RoomTurns& turns, const std::function<bool()>& goesOn);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        // Whether it is this thread's; else somebody has just made room.
        explicit operator bool() const { return isMine_; }

      private:
        RoomTurns& turns_;
        bool isMine_ = false;
    };

    // Told by whoever has the turn: what waits tries its luck.
    void TellRemoved() noexcept;

  private:
    std::mutex mutex_; // guards the rest
    std::condition_variable removed_;
    bool isTaken_ = false;
    uint64_t removals_ = 0; // and turns that ended
};

} // namespace filestore
