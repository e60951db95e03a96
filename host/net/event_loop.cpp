// SPDX-License-Identifier: Apache-2.0
#include "host/net/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace kestd {

namespace {

// Events that a thread fetches at once while no other thread is free.
constexpr int kBatch = 16;

// A ticket is a place (low bits) and its generation. An event is a ticket with a flag on top; no
// ticket is 0, nor is any event that stands for one.
constexpr unsigned kPlaceBits = 31;
constexpr uint64_t kPlaceMask = (uint64_t{1} << kPlaceBits) - 1;
constexpr uint64_t kMayHaveEnded = uint64_t{1} << 63;

constexpr uint64_t kGone = 0;
constexpr uint64_t kFree = 1; // waits
constexpr uint64_t kHeld = 2;
constexpr uint64_t kHeldMore = 3; // and something came meanwhile
constexpr unsigned kStateBits = 2;

constexpr uint32_t GenerationOf(uint64_t ticket) noexcept
{
    return static_cast<uint32_t>((ticket & ~kMayHaveEnded) >> kPlaceBits);
}

constexpr uint64_t Word(uint64_t ticket, uint64_t state) noexcept
{
    return uint64_t{GenerationOf(ticket)} << kStateBits | state;
}

} // namespace

// The memory of a slot is never given to anything else, so that a late event may look at it.
struct Poller::Slot {
    std::atomic<uint64_t> word{0}; // generation and state
    Watched* watched = nullptr;    // written before the word says that there is one
};

class alignas(64) Poller::Batch {
  public:
    // For the owner, whose batch is empty.
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

    Batch* next = nullptr;

  private:
    static bool HasMore(uint64_t cursor) noexcept
    {
        return (cursor & 0xFFFF) < (cursor >> 16 & 0xFFFF);
    }
    std::atomic<uint64_t> cursor_{0}; // round, count, and the number of the next
    std::atomic<uint64_t> served_{0};
    std::atomic<uint64_t> events_[kBatch]{};
};

Poller::Poller() : chunks_(std::make_unique<std::atomic<Slot*>[]>(kChunks))
{
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    nudge_ = epoll_ < 0 ? -1 : eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET; // never read: each write is an edge that wakes one thread
    if (nudge_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, nudge_, &event) != 0) {
        const int error = errno;
        for (const int fd : {epoll_, nudge_})
            if (fd >= 0)
                close(fd);
        throw std::system_error(error, std::generic_category(), "epoll");
    }
}

Poller::~Poller()
{
    for (Batch* batch = batches_.load(); batch;) {
        Batch* const next = batch->next;
        delete batch;
        batch = next;
    }
    close(nudge_);
    close(epoll_);
}

Poller::Slot& Poller::SlotOf(Ticket ticket) const noexcept
{
    const uint64_t place = ticket & kPlaceMask;
    return chunks_[place >> kSlotBits].load(
        std::memory_order_acquire)[place & ((1U << kSlotBits) - 1)];
}

Poller::Ticket Poller::Reserve(Watched& watched)
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
    const Ticket ticket = uint64_t{generation} << kPlaceBits | place;
    slot.watched = &watched;
    slot.word.store(Word(ticket, kHeld), std::memory_order_release);
    return ticket;
}

bool Poller::Register(Ticket ticket, int fd) noexcept
{
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
    event.data.u64 = ticket;
    return epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
}

// Free before it is known to the set: whoever gets the first event finds nobody who holds, so the
// caller need not look again.
int Poller::Watch(Ticket ticket, int fd) noexcept
{
    std::atomic<uint64_t>& word = SlotOf(ticket).word;
    word.store(Word(ticket, kFree), std::memory_order_release);
    if (Register(ticket, fd))
        return 0;
    const int error = errno;
    word.store(Word(ticket, kHeld), std::memory_order_relaxed);
    return error;
}

Poller::Ticket Poller::Add(int fd, Watched& watched)
{
    const Ticket ticket = Reserve(watched);
    if (!Register(ticket, fd)) {
        const int error = errno;
        Remove(ticket);
        throw std::system_error(error, std::generic_category(), "epoll");
    }
    return ticket;
}

// The descriptor leaves the set when it is closed.
void Poller::Remove(Ticket ticket) noexcept
{
    SlotOf(ticket).word.store(Word(ticket, kGone), std::memory_order_release);
    const std::lock_guard lock(slotsMutex_);
    freeSlots_.push_back(static_cast<uint32_t>(ticket & kPlaceMask));
}

void Poller::Expect(Ticket ticket, int fd, Interest interest) noexcept
{
    epoll_event event{};
    event.events = EPOLLET | EPOLLRDHUP; // a time limit ends a wait by ending the input
    event.events |= interest == Interest::Input ? EPOLLIN : EPOLLOUT;
    event.data.u64 = ticket;
    (void)epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event); // takes no memory, so it cannot fail
}

bool Poller::LetGo(Ticket ticket) noexcept
{
    std::atomic<uint64_t>& word = SlotOf(ticket).word;
    uint64_t expected = Word(ticket, kHeld);
    if (word.compare_exchange_strong(expected, Word(ticket, kFree), std::memory_order_acq_rel))
        return true;
    word.store(Word(ticket, kHeld), std::memory_order_relaxed); // only the holder leaves kHeldMore
    return false;
}

void Poller::Dispatch(uint64_t event, bool isOverload) noexcept
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
                slot.watched->OnReady({(event & kMayHaveEnded) != 0, isOverload});
            return;
        }
    }
}

void Poller::Poke(Ticket ticket) noexcept
{
    try {
        const std::lock_guard lock(pokedMutex_);
        poked_.push_back(ticket);
        pokedCount_.store(poked_.size(), std::memory_order_release);
    } catch (const std::bad_alloc&) {
        Dispatch(ticket | kMayHaveEnded); // at once instead of later
        return;
    }
    Nudge();
}

uint64_t Poller::TakePoked() noexcept
{
    if (pokedCount_.load(std::memory_order_acquire) == 0)
        return 0;
    const std::lock_guard lock(pokedMutex_);
    if (poked_.empty())
        return 0;
    const Ticket first = poked_.front();
    poked_.pop_front();
    pokedCount_.store(poked_.size(), std::memory_order_release);
    return first | kMayHaveEnded;
}

void Poller::Nudge() noexcept
{
    const uint64_t one = 1;
    (void)!write(nudge_, &one, sizeof one); // full after 2^64 of them
}

Poller::Batch& Poller::AddThread()
{
    auto* const batch = new Batch;
    batch->next = batches_.load(std::memory_order_relaxed);
    while (!batches_.compare_exchange_weak(batch->next, batch, std::memory_order_acq_rel))
        ;
    ++threads_;
    return *batch;
}

uint64_t Poller::Steal() noexcept
{
    for (Batch* batch = batches_.load(std::memory_order_acquire); batch; batch = batch->next)
        if (const uint64_t event = batch->Take())
            return event;
    return 0;
}

// Waits at most `timeout` milliseconds (-1: without end) and fills the batch. False when there was
// nothing.
bool Poller::Fetch(Batch& mine, int most, int timeout) noexcept
{
    epoll_event ready[kBatch];
    const int count = epoll_wait(epoll_, ready, most, timeout);
    uint64_t events[kBatch];
    unsigned used = 0;
    for (int i = 0; i < count; ++i) {
        const bool mayHaveEnded = (ready[i].events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
        if (ready[i].data.u64) // else it is a nudge
            events[used++] = ready[i].data.u64 | (mayHaveEnded ? kMayHaveEnded : 0);
    }
    if (used)
        mine.Fill(events, used);
    return used != 0;
}

void Poller::ServeAll(Batch& mine) noexcept
{
    while (const uint64_t event = mine.Take()) {
        Dispatch(event);
        mine.CountServed();
    }
}

void Poller::Run(Batch& mine)
{
    while (!IsStopped()) {
        uint64_t event = Steal();
        if (!event) {
            const bool isPoked = pokedCount_.load(std::memory_order_acquire) != 0;
            // While others are free, each event is better off with a thread of its own.
            const unsigned others = threads_.load(std::memory_order_relaxed) - 1;
            const bool isAlone = busy_.load(std::memory_order_relaxed) >= others;
            const bool isReady = Fetch(mine, isAlone ? kBatch : 1, isPoked ? 0 : -1);
            if (!isReady)
                event = TakePoked();
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
    Nudge(); // one thread after the other wakes and sees that it is over
}

void Poller::RunReady()
{
    Batch mine;
    const auto serve = [this](uint64_t event) {
        if (event)
            Dispatch(event, true);
        return event != 0;
    };
    while (IsFull() && serve(Steal()))
        ;
    for (int rounds = 0; rounds < 64 && IsFull() && Fetch(mine, kBatch, 0); ++rounds)
        while (serve(mine.Take()))
            ;
    // No more than there are now: some are put back for the threads that are stuck.
    for (size_t left = pokedCount_.load(std::memory_order_acquire); left && IsFull(); --left)
        (void)serve(TakePoked());
}

void Poller::Stop() noexcept
{
    isStopped_.store(true, std::memory_order_release);
    Nudge();
}

uint64_t Poller::Served() const noexcept
{
    uint64_t served = 0;
    for (Batch* batch = batches_.load(std::memory_order_acquire); batch; batch = batch->next)
        served += batch->Served();
    return served;
}

void Poller::RescueWaiting() noexcept
{
    for (Batch* batch = batches_.load(std::memory_order_acquire); batch; batch = batch->next)
        if (!batch->IsEmpty())
            return Nudge();
}

} // namespace kestd
