// SPDX-License-Identifier: Apache-2.0
//
// The states of registrations, the threads' queues, and the waits in between.
#include "host/net/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace kestd {

namespace {

// Events that a thread fetches at once while no other thread is free.
constexpr int kBatch = 16;

// A registration is a place (low bits) and its generation. An event is a registration with a flag
// on top; no registration is 0, nor is any event that stands for one.
constexpr unsigned kPlaceBits = 31;
constexpr uint64_t kPlaceMask = (uint64_t{1} << kPlaceBits) - 1;
constexpr uint64_t kMayHaveEnded = uint64_t{1} << 63;

constexpr uint64_t kGone = 0;
constexpr uint64_t kFree = 1; // waits
constexpr uint64_t kHeld = 2;
constexpr uint64_t kHeldMore = 3; // and something came meanwhile
constexpr unsigned kStateBits = 2;

constexpr uint32_t GenerationOf(uint64_t registration) noexcept
{
    return static_cast<uint32_t>((registration & ~kMayHaveEnded) >> kPlaceBits);
}

constexpr uint64_t Word(uint64_t registration, uint64_t state) noexcept
{
    return uint64_t{GenerationOf(registration)} << kStateBits | state;
}

} // namespace

// The memory of a slot is never given to anything else, so that a late event may look at it.
struct EventLoop::Slot {
    std::atomic<uint64_t> word{0};   // generation and state
    EventHandler* handler = nullptr; // written before the word says that there is one
    // What is scheduled stands in a list, so that it takes no memory. Guarded by scheduledMutex_.
    Registration scheduled = 0; // 0: it does not stand in the list
    Slot* nextScheduled = nullptr;
};

class alignas(64) EventLoop::ReadyQueue {
  public:
    // For the owner, whose queue is empty.
    void Fill(const uint64_t* events, unsigned count) noexcept
    {
        for (unsigned i = 0; i < count; ++i)
            events_[i].store(events[i], std::memory_order_relaxed);
        const uint64_t round = (cursor_.load(std::memory_order_relaxed) >> 32) + 1;
        cursor_.store(round << 32 | count << 16, std::memory_order_release);
    }
    // For anybody; 0 when there is none. The round in the cursor keeps a slow taker from getting an
    // event of a later filling under the number of an earlier one.
    uint64_t Take() noexcept
    {
        uint64_t cursor = cursor_.load(std::memory_order_acquire);
        while (HasMore(cursor)) {
            const uint64_t event = events_[cursor & 0xFFFF].load(std::memory_order_relaxed);
            if (cursor_.compare_exchange_weak(cursor, cursor + 1, std::memory_order_acq_rel,
                                              std::memory_order_acquire))
                return event;
        }
        return 0;
    }
    bool IsEmpty() const noexcept { return !HasMore(cursor_.load(std::memory_order_relaxed)); }

    void CountServed() noexcept // by the owner only
    {
        served_.store(Served() + 1, std::memory_order_relaxed);
    }
    uint64_t Served() const noexcept { return served_.load(std::memory_order_relaxed); }

    ReadyQueue* next = nullptr;

  private:
    static bool HasMore(uint64_t cursor) noexcept
    {
        return (cursor & 0xFFFF) < (cursor >> 16 & 0xFFFF);
    }
    std::atomic<uint64_t> cursor_{0}; // round, count, and the number of the next
    std::atomic<uint64_t> served_{0};
    std::atomic<uint64_t> events_[kBatch]{};
};

EventLoop::EventLoop() : chunks_(std::make_unique<std::atomic<Slot*>[]>(kChunks))
{
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    wakeup_ = epoll_ < 0 ? -1 : eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET; // never read: each write is an edge that wakes one thread
    if (wakeup_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeup_, &event) != 0) {
        const int error = errno;
        for (const int fd : {epoll_, wakeup_})
            if (fd >= 0)
                close(fd);
        throw std::system_error(error, std::generic_category(), "epoll");
    }
}

EventLoop::~EventLoop()
{
    for (ReadyQueue* queue = queues_.load(); queue;) {
        ReadyQueue* const next = queue->next;
        delete queue;
        queue = next;
    }
    close(wakeup_);
    close(epoll_);
}

EventLoop::Slot& EventLoop::SlotOf(Registration registration) const noexcept
{
    const uint64_t place = registration & kPlaceMask;
    return chunks_[place >> kSlotBits].load(
        std::memory_order_acquire)[place & ((1U << kSlotBits) - 1)];
}

EventLoop::Registration EventLoop::Reserve(EventHandler& handler)
{
    uint32_t place = 0;
    {
        const std::lock_guard lock(slotsMutex_);
        if (freeSlots_.empty()) {
            constexpr uint32_t kChunk = 1U << kSlotBits;
            const uint32_t chunk = madeSlots_ / kChunk;
            if (chunk == kChunks)
                throw std::bad_alloc();
            freeSlots_.reserve(madeSlots_ + kChunk); // giving one back cannot fail
            chunkOwners_.push_back(std::make_unique<Slot[]>(kChunk));
            chunks_[chunk].store(chunkOwners_.back().get(), std::memory_order_release);
            madeSlots_ += kChunk;
            for (uint32_t i = madeSlots_; i-- > madeSlots_ - kChunk;)
                freeSlots_.push_back(i);
        }
        place = freeSlots_.back();
        freeSlots_.pop_back();
    }
    Slot& slot = SlotOf(place);
    const uint64_t last = slot.word.load(std::memory_order_relaxed) >> kStateBits;
    const auto generation = std::max<uint32_t>(static_cast<uint32_t>(last + 1), 1);
    const Registration registration = uint64_t{generation} << kPlaceBits | place;
    slot.handler = &handler;
    slot.word.store(Word(registration, kHeld), std::memory_order_release);
    return registration;
}

bool EventLoop::Register(Registration registration, int fd) noexcept
{
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.u64 = registration;
    return epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
}

// Free before it is known to the set: whoever gets the first event finds nobody who holds, so the
// caller need not look again.
int EventLoop::Watch(Registration registration, int fd) noexcept
{
    std::atomic<uint64_t>& word = SlotOf(registration).word;
    word.store(Word(registration, kFree), std::memory_order_release);
    if (Register(registration, fd))
        return 0;
    const int error = errno;
    word.store(Word(registration, kHeld), std::memory_order_relaxed);
    return error;
}

EventLoop::Registration EventLoop::Add(int fd, EventHandler& handler)
{
    const Registration registration = Reserve(handler);
    if (!Register(registration, fd)) {
        const int error = errno;
        Remove(registration);
        throw std::system_error(error, std::generic_category(), "epoll");
    }
    return registration;
}

// The descriptor leaves the set when it is closed.
void EventLoop::Remove(Registration registration) noexcept
{
    SlotOf(registration).word.store(Word(registration, kGone), std::memory_order_release);
    const std::lock_guard lock(slotsMutex_);
    freeSlots_.push_back(static_cast<uint32_t>(registration & kPlaceMask));
}

void EventLoop::Expect(Registration registration, int fd, Interest interest) noexcept
{
    epoll_event event{};
    event.events = EPOLLET | EPOLLRDHUP; // a time limit ends a wait by ending the input
    event.events |= interest == Interest::Input ? EPOLLIN : EPOLLOUT;
    event.data.u64 = registration;
    (void)epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event); // takes no memory, so it cannot fail
}

bool EventLoop::Release(Registration registration) noexcept
{
    std::atomic<uint64_t>& word = SlotOf(registration).word;
    uint64_t expected = Word(registration, kHeld);
    if (word.compare_exchange_strong(expected, Word(registration, kFree),
                                     std::memory_order_acq_rel))
        return true;
    word.store(Word(registration, kHeld),
               std::memory_order_relaxed); // only the holder leaves kHeldMore
    return false;
}

void EventLoop::Dispatch(uint64_t event, bool isOverload) noexcept
{
    Slot& slot = SlotOf(event);
    uint64_t word = slot.word.load(std::memory_order_acquire);
    for (;;) {
        const bool isFree = word == Word(event, kFree);
        if (!isFree && word != Word(event, kHeld))
            return; // gone, or its holder knows already
        if (slot.word.compare_exchange_weak(word, Word(event, isFree ? kHeld : kHeldMore),
                                            std::memory_order_acq_rel, std::memory_order_acquire)) {
            if (isFree)
                slot.handler->OnReady({(event & kMayHaveEnded) != 0, isOverload});
            return;
        }
    }
}

void EventLoop::Schedule(Registration registration) noexcept
{
    {
        Slot& slot = SlotOf(registration);
        const std::lock_guard lock(scheduledMutex_);
        const bool stands = slot.scheduled != 0;
        slot.scheduled = std::max(slot.scheduled, registration); // the one before it is gone
        if (!stands) {
            slot.nextScheduled = nullptr;
            (lastScheduled_ ? lastScheduled_->nextScheduled : firstScheduled_) = &slot;
            lastScheduled_ = &slot;
            scheduledCount_.fetch_add(1, std::memory_order_release);
        }
    }
    WakeThread();
}

uint64_t EventLoop::TakeScheduled() noexcept
{
    if (scheduledCount_.load(std::memory_order_acquire) == 0)
        return 0;
    const std::lock_guard lock(scheduledMutex_);
    Slot* const first = firstScheduled_;
    if (!first)
        return 0;
    firstScheduled_ = first->nextScheduled;
    if (!firstScheduled_)
        lastScheduled_ = nullptr;
    scheduledCount_.fetch_sub(1, std::memory_order_release);
    return std::exchange(first->scheduled, 0) | kMayHaveEnded;
}

void EventLoop::WakeThread() noexcept
{
    const uint64_t one = 1;
    (void)!write(wakeup_, &one, sizeof one); // full after 2^64 of them
}

EventLoop::ReadyQueue& EventLoop::AddThread()
{
    auto* const queue = new ReadyQueue;
    queue->next = queues_.load(std::memory_order_relaxed);
    while (!queues_.compare_exchange_weak(queue->next, queue, std::memory_order_acq_rel))
        ;
    ++threads_;
    return *queue;
}

uint64_t EventLoop::StealWork() noexcept
{
    for (ReadyQueue* queue = queues_.load(std::memory_order_acquire); queue; queue = queue->next)
        if (const uint64_t event = queue->Take())
            return event;
    return 0;
}

// Waits at most `timeout` milliseconds (-1: without end) and fills the queue. False when there was
// nothing.
bool EventLoop::Fetch(ReadyQueue& mine, int most, int timeout) noexcept
{
    epoll_event ready[kBatch];
    const int count = epoll_wait(epoll_, ready, most, timeout);
    uint64_t events[kBatch];
    unsigned used = 0;
    for (int i = 0; i < count; ++i) {
        const bool mayHaveEnded = (ready[i].events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        if (ready[i].data.u64) // else it is a wake-up
            events[used++] = ready[i].data.u64 | (mayHaveEnded ? kMayHaveEnded : 0);
    }
    if (used)
        mine.Fill(events, used);
    return used != 0;
}

void EventLoop::ServeAll(ReadyQueue& mine) noexcept
{
    while (const uint64_t event = mine.Take()) {
        Dispatch(event);
        mine.CountServed();
    }
}

void EventLoop::Run(ReadyQueue& mine)
{
    while (!IsStopped()) {
        uint64_t event = StealWork();
        if (!event) {
            const bool isScheduled = scheduledCount_.load(std::memory_order_acquire) != 0;
            // While others are free, each event is better off with a thread of its own.
            const unsigned others = threads_.load(std::memory_order_relaxed) - 1;
            const bool isAlone = busy_.load(std::memory_order_relaxed) >= others;
            const bool isReady = Fetch(mine, isAlone ? kBatch : 1, isScheduled ? 0 : -1);
            if (!isReady)
                event = TakeScheduled();
            if (!isReady && !event)
                continue;
        }
        busy_.fetch_add(1);
        if (event) {
            Dispatch(event);
            mine.CountServed();
        }
        ServeAll(mine);
        busy_.fetch_sub(1);
    }
    WakeThread(); // one thread after the other wakes and sees that it is over
}

void EventLoop::RunReady()
{
    ReadyQueue mine;
    const auto serve = [this](uint64_t event) {
        if (event)
            Dispatch(event, true);
        return event != 0;
    };
    while (IsFull() && serve(StealWork()))
        ;
    for (int rounds = 0; rounds < 64 && IsFull() && Fetch(mine, kBatch, 0); ++rounds)
        while (serve(mine.Take()))
            ;
    // No more than there are now: some are put back for the threads that are stuck.
    for (size_t left = scheduledCount_.load(std::memory_order_acquire); left && IsFull(); --left)
        (void)serve(TakeScheduled());
}

void EventLoop::Stop() noexcept
{
    isStopped_.store(true, std::memory_order_release);
    WakeThread();
}

uint64_t EventLoop::Served() const noexcept
{
    uint64_t served = 0;
    for (ReadyQueue* queue = queues_.load(std::memory_order_acquire); queue; queue = queue->next)
        served += queue->Served();
    return served;
}

void EventLoop::WakeIdle() noexcept
{
    for (ReadyQueue* queue = queues_.load(std::memory_order_acquire); queue; queue = queue->next)
        if (!queue->IsEmpty())
            return WakeThread();
}

} // namespace kestd
