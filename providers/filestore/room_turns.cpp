// SPDX-License-Identifier: Apache-2.0
//
// Taking turns.
#include "providers/filestore/room_turns.h"

#include <chrono>

namespace filestore {

namespace {

constexpr std::chrono::milliseconds kLook{250}; // for a client that has left

} // namespace

RoomTurns::Turn::Turn(RoomTurns& turns, const std::function<bool()>& goesOn) : turns_(turns)
{
    std::unique_lock lock(turns_.mutex_);
    const uint64_t seen = turns_.removals_;
    while (turns_.isTaken_ && turns_.removals_ == seen && goesOn())
        (void)turns_.removed_.wait_for(lock, kLook);
    if (turns_.isTaken_ || turns_.removals_ != seen)
        return;
    turns_.isTaken_ = isMine_ = true;
}

RoomTurns::Turn::~Turn()
{
    if (!isMine_)
        return;
    {
        const std::lock_guard lock(turns_.mutex_);
        turns_.isTaken_ = false;
    }
    turns_.TellRemoved();
}

void RoomTurns::TellRemoved() noexcept
{
    {
        const std::lock_guard lock(mutex_);
        ++removals_;
    }
    removed_.notify_all();
}

} // namespace filestore
