// SPDX-License-Identifier: Apache-2.0
//
// Events. One lock guards all of them, which makes a wait for several one step: either every event
// asked for is taken, or none. Events signal rare things; what runs per request uses locks.
#include <mutex>

#include "platform/internal.h"
#include "platform/talpl.h"
#include "platform/wait.h"

namespace tolm {
namespace {

constexpr UINT32 kMostEvents = 64; // of one wait; its records are on the stack

struct Waiter;

// A waiter's entry in one event's queue.
struct QueueEntry {
    QueueEntry* next = nullptr;
    Waiter* waiter = nullptr;
};

struct Event : Object {
    static constexpr Kind kKind = Kind::Event;
    Event(bool manual, bool isSignaled) noexcept
        : Object(kKind), manualReset(manual), signaled(isSignaled)
    {
    }
    const bool manualReset;
    bool signaled;               // under g_lock, as is the queue
    QueueEntry* first = nullptr; // longest waiting first
    QueueEntry* last = nullptr;
};

struct Waiter {
    Waiter(Event* const* list, UINT32 length, bool waitsForAll) noexcept
        : events(list), count(length), all(waitsForAll)
    {
    }
    Event* const* const events;
    const UINT32 count;
    const bool all;
    bool done = false;
    UINT32 index = 0; // of the event that ended a wait for one
    Condition wake;
    QueueEntry entries[kMostEvents];
};

Lock g_lock;

void Take(Event& event) noexcept
{
    if (!event.manualReset)
        event.signaled = false;
}

// Ends the wait if what it waits for is there. Under g_lock.
bool TryFinish(Waiter& waiter) noexcept
{
    if (waiter.all) {
        for (UINT32 i = 0; i < waiter.count; ++i)
            if (!waiter.events[i]->signaled)
                return false;
        for (UINT32 i = 0; i < waiter.count; ++i)
            Take(*waiter.events[i]);
        return waiter.done = true;
    }
    for (UINT32 i = 0; i < waiter.count; ++i) {
        if (waiter.events[i]->signaled) {
            Take(*waiter.events[i]);
            waiter.index = i;
            return waiter.done = true;
        }
    }
    return false;
}

void Enqueue(Event& event, QueueEntry& entry) noexcept
{
    (event.last ? event.last->next : event.first) = &entry;
    event.last = &entry;
}

void Dequeue(Event& event, QueueEntry& entry) noexcept
{
    QueueEntry* before = nullptr;
    for (QueueEntry* p = event.first; p != &entry; p = p->next)
        before = p;
    (before ? before->next : event.first) = entry.next;
    if (event.last == &entry)
        event.last = before;
}

TALSTATUS WaitForEvents(Event* const* events, UINT32 count, bool all, UINT32 time,
                        UINT32* index) noexcept
{
    Waiter waiter(events, count, all);
    const std::lock_guard lock(g_lock);
    if (!TryFinish(waiter) && time != 0) {
        for (UINT32 i = 0; i < count; ++i) {
            waiter.entries[i].waiter = &waiter;
            Enqueue(*events[i], waiter.entries[i]);
        }
        waiter.wake.WaitFor(g_lock, time, [&] { return waiter.done; });
        for (UINT32 i = 0; i < count; ++i)
            Dequeue(*events[i], waiter.entries[i]);
    }
    if (!waiter.done)
        return Fail(kCodeTimeout);
    if (index)
        *index = waiter.index;
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS Talpl::TalxAllocEvent(BOOLEAN manualReset, BOOLEAN signaled, HANDLE* out)
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    Event* event = NewObject<Event>(manualReset != FALSE, signaled != FALSE);
    if (!event)
        return Fail(kCodeInsufficientResources);
    *out = event;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxDestroyEvent(HANDLE event)
{
    auto* e = FromHandle<Event>(event);
    if (!e)
        return Fail(kCodeInvalidParameter);
    {
        const std::lock_guard lock(g_lock);
        if (e->first)
            return Fail(kCodeConflict);
    }
    DeleteObject(e);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxResetEvent(HANDLE event)
{
    auto* e = FromHandle<Event>(event);
    if (!e)
        return Fail(kCodeInvalidParameter);
    const std::lock_guard lock(g_lock);
    e->signaled = false;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxSignalEvent(HANDLE event)
{
    auto* e = FromHandle<Event>(event);
    if (!e)
        return Fail(kCodeInvalidParameter);
    const std::lock_guard lock(g_lock);
    e->signaled = true;
    // An event that resets itself is taken by the first waiter that can use it.
    for (QueueEntry* entry = e->first; entry && e->signaled; entry = entry->next)
        if (!entry->waiter->done && TryFinish(*entry->waiter))
            entry->waiter->wake.WakeAll();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxWaitForMultipleEvents(UINT32 count, const HANDLE* events, BOOLEAN all,
                                           UINT32 time, UINT32* index)
{
    if (count == 0 || count > kMostEvents || !events)
        return Fail(kCodeInvalidParameter);
    Event* list[kMostEvents];
    for (UINT32 i = 0; i < count; ++i) {
        list[i] = FromHandle<Event>(events[i]);
        if (!list[i])
            return Fail(kCodeInvalidParameter);
    }
    return WaitForEvents(list, count, all != FALSE, time, all ? nullptr : index);
}

TALSTATUS Talpl::TalxWaitForSingleEvent(HANDLE event, UINT32 time)
{
    return TalxWaitForMultipleEvents(1, &event, FALSE, time, nullptr);
}

} // namespace tolm
