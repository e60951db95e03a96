// SPDX-License-Identifier: Apache-2.0
//
// Waits for many descriptors and has each served by one thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace kestd {

// Something with a descriptor.
class EventHandler {
  public:
    struct Event {
        // The other side may have sent its last, so that what is there must be read to its end.
        bool mayHaveEnded = false;
        // All threads are stuck, and one with other things to do helps out: nothing may be begun
        // that takes its time.
        bool isOverload = false;
    };
    // Something has happened at the descriptor. The calling thread holds the object from here on,
    // until it lets go of it (EventLoop::Release) or removes it.
    virtual void OnReady(Event event) noexcept = 0;

  protected:
    ~EventHandler() = default;
};

// One epoll set that any number of threads serve. Descriptors are registered once, edge-triggered:
// waiting again costs no system call. What a thread finds ready beyond its first piece of work
// stands in its queue, from which threads without work take it.
//
// A registration is in one of four states. "Event" is what epoll tells, or what Schedule makes:
//
//            Reserve             Watch, Release
//   (none) ----------> [ held ] ----------------> [ waiting ]
//      ^                |  | ^                         |
//      |     Remove     |  | |     event: OnReady      |
//      +----------------+  | +-------------------------+
//      ^             event | | Release, which then says no
//      |     Remove        v |
//      +---------- [ held, and more has come ] (a further event changes nothing)
//
// - At any time nobody or one thread holds a registration; only the holder calls its handler's
//   object, Release, Expect and Remove. So a handler needs no lock for what only it uses.
// - An event for a registration that waits makes the thread that found it the holder and calls
//   OnReady. For one that is held it is remembered: Release then returns false, and the holder
//   looks again. No event is lost, and none is told twice.
// - An event for a registration that is gone reaches nobody: its number is never used again (state
//   and generation are one atomic word; every change of state is a compare-and-exchange on it).
//
// A thread takes work in this order: what stands in the queues of others (StealWork), what epoll
// has, what was scheduled. While other threads are free it fetches one event at a time, else up to
// sixteen. A write to the wake-up descriptor, which is never read, is an edge that ends the wait of
// one thread.
class EventLoop {
  public:
    // Names a registration. None ever gets the name of another, so an event that comes late for one
    // that is gone is found out.
    using Registration = uint64_t;
    enum class Interest { Input, Output };

    // Throws std::system_error.
    EventLoop();
    ~EventLoop(); // no thread is in Run any more
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Names `handler`, which the calling thread holds; nothing comes for it before Watch. Throws
    // std::bad_alloc.
    Registration Reserve(EventHandler& handler);
    // For the holder, once: lets go and has the descriptor watched for input, in one step. What has
    // come already is told. After 0 the caller must not touch the object any more; after an error
    // (an errno value) it still holds, and nobody will come.
    [[nodiscard]] int Watch(Registration registration, int fd) noexcept;
    // Both, for a caller that goes on holding. Throws std::bad_alloc or std::system_error.
    Registration Add(int fd, EventHandler& handler);
    // For the holder: forgets the registration. Before the descriptor is closed.
    void Remove(Registration registration) noexcept;
    // For the holder: changes what it waits for. Tells what is ready already once more.
    void Expect(Registration registration, int fd, Interest interest) noexcept;
    // For the holder: stops holding. False when something came meanwhile: then the caller still
    // holds and has to look again. After true it must not touch the object any more.
    [[nodiscard]] bool Release(Registration registration) noexcept;
    // Has the object served as if something had happened, after what is ready already; never on the
    // calling thread. For anybody.
    void Schedule(Registration registration) noexcept;

    // A thread's ready events, which it works through and others may take from.
    class ReadyQueue;
    // Announces a thread that will call Run; from any thread. Throws std::bad_alloc.
    ReadyQueue& AddThread();
    void DropThread() noexcept { --threads_; } // it could not be started
    // Serves events until Stop.
    void Run(ReadyQueue& mine);
    // Serves what is ready, and what stands in batches of threads that are stuck, without waiting,
    // as long as all announced threads are busy; a bounded number, for a caller with other things
    // to do.
    void RunReady();
    void Stop() noexcept;
    bool IsStopped() const noexcept { return isStopped_.load(std::memory_order_acquire); }

    // Whether all announced threads serve something.
    bool IsFull() const noexcept { return busy_.load() >= threads_.load(); }
    unsigned Busy() const noexcept { return busy_.load(std::memory_order_relaxed); }
    // The events served so far.
    uint64_t Served() const noexcept;
    // Wakes a thread if events stand behind something that takes its time.
    void WakeIdle() noexcept;

  private:
    struct Slot;
    static constexpr unsigned kSlotBits = 10; // of one chunk
    static constexpr size_t kChunks = 4096;

    Slot& SlotOf(Registration registration) const noexcept;
    bool Register(Registration registration, int fd) noexcept;
    void Dispatch(uint64_t event, bool isOverload = false) noexcept;
    uint64_t StealWork() noexcept;
    uint64_t TakeScheduled() noexcept;
    bool Fetch(ReadyQueue& mine, int most, int timeout) noexcept;
    void ServeAll(ReadyQueue& mine) noexcept;
    void WakeThread() noexcept;

    int epoll_ = -1;
    int wakeup_ = -1;
    std::atomic<bool> isStopped_{false};
    std::atomic<unsigned> threads_{0};
    std::atomic<unsigned> busy_{0}; // threads that do not wait here
    std::atomic<ReadyQueue*> queues_{nullptr};

    std::mutex slotsMutex_; // guards the three
    std::vector<uint32_t> freeSlots_;
    uint32_t madeSlots_ = 0;
    std::vector<std::unique_ptr<Slot[]>> chunkOwners_;
    const std::unique_ptr<std::atomic<Slot*>[]> chunks_;

    std::mutex scheduledMutex_; // guards both, and what slots say of it
    Slot* firstScheduled_ = nullptr;
    Slot* lastScheduled_ = nullptr;
    std::atomic<size_t> scheduledCount_{0};
};

} // namespace kestd
