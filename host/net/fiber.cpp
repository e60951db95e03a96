// SPDX-License-Identifier: Apache-2.0
//
// Switches stacks, and keeps those that are not in use.
#include "host/net/fiber.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cxxabi.h>
#include <mutex>
#include <new>
#include <utility>

#include <boost/context/detail/fcontext.hpp>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTD_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define KESTD_TSAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KESTD_ASAN 1
#endif
#if defined(__SANITIZE_THREAD__)
#define KESTD_TSAN 1
#endif

#ifdef KESTD_ASAN
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef KESTD_TSAN
#include <sanitizer/tsan_interface.h>
#define KESTD_NO_TSAN __attribute__((no_sanitize("thread")))
#else
#define KESTD_NO_TSAN
#endif

namespace kestd {

namespace {

namespace context = boost::context::detail;

constexpr size_t kPage = 4096;
// What of a stack stays when the rest is given back.
constexpr size_t kKept = 32 * 1024;

std::atomic<size_t> g_count{0};

char* MapStack()
{
    void* const memory = mmap(nullptr, kPage + Fiber::kStackBytes, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    if (mprotect(memory, kPage, PROT_NONE) != 0) {
        munmap(memory, kPage + Fiber::kStackBytes);
        throw std::bad_alloc();
    }
    return static_cast<char*>(memory);
}

} // namespace

// The sanitizers follow a thread by its stack. They are told of each switch just before it, and
// after it on the other side.
struct Fiber::Sanitizers {
#ifdef KESTD_ASAN
    void* insideFrames = nullptr;
    void* outsideFrames = nullptr;
    const void* outsideStack = nullptr;
    size_t outsideBytes = 0;
#endif
#ifdef KESTD_TSAN
    void* const inside = __tsan_create_fiber(0);
    void* outside = nullptr;
    ~Sanitizers()
    {
        __tsan_destroy_fiber(inside);
    }
#endif
};

struct FiberEntry {
    KESTD_NO_TSAN static void Run(context::transfer_t from) noexcept
    {
        Fiber& fiber = *static_cast<Fiber*>(from.data);
        fiber.outside_ = from.fctx;
#ifdef KESTD_ASAN
        __sanitizer_finish_switch_fiber(nullptr, &fiber.sanitizers_->outsideStack,
                                        &fiber.sanitizers_->outsideBytes);
#endif
        for (;;) {
            fiber.work_(fiber.argument_);
            fiber.hasReturned_ = true;
            fiber.Suspend();
        }
    }
};

std::unique_ptr<Fiber::Sanitizers> Fiber::MakeSanitizers()
{
#if defined(KESTD_ASAN) || defined(KESTD_TSAN)
    return std::make_unique<Sanitizers>();
#else
    return nullptr;
#endif
}

Fiber::Fiber() : sanitizers_(MakeSanitizers()), mapping_(MapStack())
{
    inside_ = context::make_fcontext(mapping_ + kPage + kStackBytes, kStackBytes, &FiberEntry::Run);
    ++g_count;
}

Fiber::~Fiber()
{
    munmap(mapping_, kPage + kStackBytes);
    --g_count;
}

// The runtime says that the address does not change within a function, so this is one of its own.
[[gnu::noinline]] void Fiber::Swap(Exceptions& other) noexcept
{
    std::swap(*reinterpret_cast<Exceptions*>(abi::__cxa_get_globals()), other);
}

bool Fiber::Start(Work work, void* argument) noexcept
{
    work_ = work;
    argument_ = argument;
    hasReturned_ = false;
    return Resume();
}

KESTD_NO_TSAN bool Fiber::Resume() noexcept
{
    Swap(exceptions_);
#ifdef KESTD_ASAN
    __sanitizer_start_switch_fiber(&sanitizers_->outsideFrames, mapping_ + kPage, kStackBytes);
#endif
#ifdef KESTD_TSAN
    sanitizers_->outside = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(sanitizers_->inside, 0);
#endif
    inside_ = context::jump_fcontext(inside_, this).fctx;
#ifdef KESTD_ASAN
    __sanitizer_finish_switch_fiber(sanitizers_->outsideFrames, nullptr, nullptr);
#endif
    Swap(exceptions_);
    return hasReturned_;
}

[[gnu::noinline]] KESTD_NO_TSAN void Fiber::Suspend() noexcept
{
#ifdef KESTD_ASAN
    __sanitizer_start_switch_fiber(&sanitizers_->insideFrames, sanitizers_->outsideStack,
                                   sanitizers_->outsideBytes);
#endif
#ifdef KESTD_TSAN
    __tsan_switch_to_fiber(sanitizers_->outside, 0);
#endif
    outside_ = context::jump_fcontext(outside_, nullptr).fctx;
#ifdef KESTD_ASAN
    __sanitizer_finish_switch_fiber(sanitizers_->insideFrames, &sanitizers_->outsideStack,
                                    &sanitizers_->outsideBytes);
#endif
}

void Fiber::Trim() noexcept
{
    (void)madvise(mapping_ + kPage, kStackBytes - kKept, MADV_DONTNEED);
}

namespace {

struct SharedFibers {
    std::mutex mutex; // guards fibers
    FiberStack<kSharedFibers> fibers;
};

constinit thread_local FiberPool* t_fiberPool = nullptr; // the thread's own, if it has one

SharedFibers& Shared() noexcept
{
    static SharedFibers shared;
    return shared;
}

} // namespace

FiberPool::FiberPool() noexcept : before_(std::exchange(t_fiberPool, this)) {}

FiberPool::~FiberPool()
{
    t_fiberPool = before_;
}

std::unique_ptr<Fiber> AcquireFiber()
{
    std::unique_ptr<Fiber> fiber = t_fiberPool ? t_fiberPool->fibers.Take() : nullptr;
    if (!fiber) {
        SharedFibers& shared = Shared();
        const std::lock_guard lock(shared.mutex);
        fiber = shared.fibers.Take();
    }
    return fiber ? std::move(fiber) : std::make_unique<Fiber>();
}

void ReleaseFiber(std::unique_ptr<Fiber> fiber) noexcept
{
    if (t_fiberPool && t_fiberPool->fibers.Give(fiber))
        return;
    fiber->Trim();
    SharedFibers& shared = Shared();
    const std::lock_guard lock(shared.mutex);
    (void)shared.fibers.Give(fiber); // else it goes
}

size_t FiberCount() noexcept
{
    return g_count.load(std::memory_order_relaxed);
}

} // namespace kestd
