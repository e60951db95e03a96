// SPDX-License-Identifier: Apache-2.0
//
// Goes through the open connections.
#include "host/server/connection_registry.h"

#include <algorithm>

#include "host/config/settings.h"

namespace kestd {

void ConnectionRegistry::Add(RegisteredConnection& connection)
{
    const std::lock_guard lock(mutex_);
    connection.next = first_;
    if (first_)
        first_->previous = &connection;
    first_ = &connection;
    ++count_;
}

void ConnectionRegistry::Remove(RegisteredConnection& connection)
{
    const std::lock_guard lock(mutex_);
    if (connection.previous)
        connection.previous->next = connection.next;
    else
        first_ = connection.next;
    if (connection.next)
        connection.next->previous = connection.previous;
    if (--count_ == 0)
        isEmpty_.notify_all();
}

int64_t ConnectionRegistry::ExpireDeadlines(int64_t now, const Limits& limits)
{
    const int64_t elapsed = expiredBefore_ ? now - expiredBefore_ : 0;
    expiredBefore_ = now;
    const bool isCrowded = Count() > limits.connections - limits.connections / 8;
    const std::lock_guard lock(mutex_);
    int64_t due = INT64_MAX;
    for (RegisteredConnection* each = first_; each; each = each->next)
        due = std::min(due, each->Check({now, elapsed, isCrowded}, limits));
    return due;
}

size_t ConnectionRegistry::CountIdle()
{
    const std::lock_guard lock(mutex_);
    size_t count = 0;
    for (const RegisteredConnection* each = first_; each; each = each->next)
        count += each->IsIdle() ? 1 : 0;
    return count;
}

void ConnectionRegistry::CloseIdle()
{
    const std::lock_guard lock(mutex_);
    for (RegisteredConnection* each = first_; each; each = each->next)
        each->ExpireIfIdle();
}

void ConnectionRegistry::CloseAll()
{
    const std::lock_guard lock(mutex_);
    for (RegisteredConnection* each = first_; each; each = each->next) {
        each->ExpireIfIdle();
        each->GiveUp();
    }
}

bool ConnectionRegistry::WaitUntilEmpty(std::chrono::milliseconds time)
{
    std::unique_lock lock(mutex_);
    return isEmpty_.wait_for(lock, time, [this] { return count_ == 0; });
}

void ConnectionRegistry::DeleteAll()
{
    while (first_)
        delete first_; // takes itself out
}

} // namespace kestd
