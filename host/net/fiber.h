// SPDX-License-Identifier: Apache-2.0
//
// Calls on stacks of their own, which stop in the middle while a client keeps them waiting.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

namespace kestd {

// One stack, and the call on it. A call may go on on another thread than it stopped on, so what is
// on its stack must hold no address of a thread-local variable (errno's included) across Suspend.
// One thread at a time.
class Fiber {
  public:
    using Work = void (*)(void* argument) noexcept;

    // As deep as handlers nest: a directory service's client, a password hash or a database beneath
    // the module. Only what is touched takes memory; below it lies a page that nobody can.
    static constexpr size_t kStackBytes = 1024 * 1024 - 4096;

    Fiber(); // throws std::bad_alloc
    ~Fiber();
    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    // Makes a call, as far as it goes without stopping. True when it has returned; then the next
    // one can start.
    [[nodiscard]] bool Start(Work work, void* argument) noexcept;
    // Goes on with a call that has stopped. True when it has returned.
    [[nodiscard]] bool Resume() noexcept;
    // For the call itself: stops. Returns on the thread that resumes it.
    void Suspend() noexcept;

    // Gives the memory back that only a deep call has needed. Not in the middle of a call.
    void Trim() noexcept;

  private:
    // What the C++ runtime keeps per thread, but belongs to the call: the exceptions in flight.
    struct Exceptions {
        void* caught = nullptr;
        unsigned int uncaught = 0;
    };
    struct Sanitizers; // what those of the build must be told
    friend struct FiberEntry;

    static void Swap(Exceptions& other) noexcept;
    static std::unique_ptr<Sanitizers> MakeSanitizers();

    const std::unique_ptr<Sanitizers> sanitizers_;
    char* const mapping_;
    void* inside_ = nullptr;  // where the call has stopped
    void* outside_ = nullptr; // where its thread goes on when it stops
    Work work_ = nullptr;
    void* argument_ = nullptr;
    bool hasReturned_ = true;
    Exceptions exceptions_;
};

// Fibers that are not in use. Takes and gives the last one first, whose memory is in the
// processor's caches.
template <size_t Most> class FiberStack {
  public:
    std::unique_ptr<Fiber> Take() noexcept
    {
        return count_ ? std::move(fibers_[--count_]) : nullptr;
    }
    // False when it is full; then the fiber is still the caller's.
    bool Give(std::unique_ptr<Fiber>& fiber) noexcept
    {
        if (count_ == Most)
            return false;
        fibers_[count_++] = std::move(fiber);
        return true;
    }

  private:
    std::array<std::unique_ptr<Fiber>, Most> fibers_;
    size_t count_ = 0;
};

inline constexpr size_t kThreadFibers = 2;
inline constexpr size_t kSharedFibers = 64;

// Fibers that the thread which made it keeps for itself, for as long as it lives; a thread without
// one shares all. It stands on the thread's stack, as BlockPool does and for the same reason.
class FiberPool {
  public:
    FiberPool() noexcept;
    ~FiberPool();
    FiberPool(const FiberPool&) = delete;
    FiberPool& operator=(const FiberPool&) = delete;

    FiberStack<kThreadFibers> fibers;

  private:
    FiberPool* const before_;
};

// A fiber that is not in use: one of the calling thread's, else one of those that all threads
// share, else a new one. Throws std::bad_alloc.
std::unique_ptr<Fiber> AcquireFiber();
// Keeps it for the next call, or not: a thread keeps kThreadFibers, all share kSharedFibers.
void ReleaseFiber(std::unique_ptr<Fiber> fiber) noexcept;
// Those that exist, in use or not.
size_t FiberCount() noexcept;

} // namespace kestd
