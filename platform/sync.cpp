// SPDX-License-Identifier: Apache-2.0
//
// Mutexes, spin locks, read/write locks and interlocked operations.
#include <sched.h>

#include <atomic>
#include <limits>

#include "platform/internal.h"
#include "platform/talpl.h"
#include "platform/wait.h"

namespace tolm {
namespace {

// What tells one thread from another: the address of something that each has for itself.
thread_local char t_me;

// Recursive, and it knows its owner: a release by another thread is refused.
struct Mutex : Object {
    static constexpr Kind kKind = Kind::Mutex;
    Mutex() noexcept : Object(kKind) {}
    bool IsMine() const noexcept { return owner.load(std::memory_order_relaxed) == &t_me; }
    Lock lock;
    std::atomic<const char*> owner{nullptr}; // written by the holder only
    UINT32 depth = 0;                        // the holder's
};

// Prefers readers: a reader enters past a waiting writer. That is needed: a call that holds the
// lock for reading may take it once more further down, and would wait forever behind a writer that
// waits for the first hold. Reading is held by a call, not by a thread: a call that waits for its
// client goes on, and releases, on another one, which the C library's locks do not allow.
struct ReadWriteLock : Object {
    static constexpr Kind kKind = Kind::ReadWriteLock;
    static constexpr UINT32 kWriting = std::numeric_limits<UINT32>::max();
    ReadWriteLock() noexcept : Object(kKind) {}
    bool IsMine() const noexcept { return writer.load(std::memory_order_relaxed) == &t_me; }
    TALSTATUS Read(bool waits) noexcept;
    TALSTATUS Write(bool waits) noexcept;
    TALSTATUS Release() noexcept;

    std::atomic<UINT32> state{0};             // readers, or kWriting
    std::atomic<const char*> writer{nullptr}; // written by the writer only
};

struct SpinLock : Object {
    static constexpr Kind kKind = Kind::SpinLock;
    SpinLock() noexcept : Object(kKind) {}
    std::atomic<bool> held{false};
};

void Pause() noexcept
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

TALSTATUS ReadWriteLock::Read(bool waits) noexcept
{
    UINT32 now = state.load(std::memory_order_relaxed);
    for (;;) {
        if (now == kWriting) {
            if (!waits)
                return Fail(kCodeTimeout);
            if (IsMine())
                return Fail(kCodeConflict);
            state.wait(now, std::memory_order_relaxed);
            now = state.load(std::memory_order_relaxed);
        } else if (now == kWriting - 1) {
            return Fail(kCodeInsufficientResources); // held too often
        } else if (state.compare_exchange_weak(now, now + 1, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
            return TAL_STATUS_SUCCESS;
        }
    }
}

TALSTATUS ReadWriteLock::Write(bool waits) noexcept
{
    UINT32 now = 0;
    while (!state.compare_exchange_strong(now, kWriting, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
        if (!waits)
            return Fail(kCodeTimeout);
        if (now == kWriting && IsMine())
            return Fail(kCodeConflict);
        state.wait(now, std::memory_order_relaxed);
        now = 0;
    }
    writer.store(&t_me, std::memory_order_relaxed);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ReadWriteLock::Release() noexcept
{
    UINT32 now = state.load(std::memory_order_relaxed);
    if (now == kWriting) {
        if (!IsMine())
            return Fail(kCodeAccessDenied);
        writer.store(nullptr, std::memory_order_relaxed);
        state.store(0, std::memory_order_release);
        state.notify_all();
        return TAL_STATUS_SUCCESS;
    }
    do {
        if (now == 0)
            return Fail(kCodeAccessDenied);
    } while (!state.compare_exchange_weak(now, now - 1, std::memory_order_release,
                                          std::memory_order_relaxed));
    if (now == 1)
        state.notify_all(); // writers
    return TAL_STATUS_SUCCESS;
}

template <class T> TALSTATUS Make(HANDLE* out) noexcept
{
    if (!out)
        return Fail(kCodeInvalidParameter);
    T* object = NewObject<T>();
    if (!object)
        return Fail(kCodeInsufficientResources);
    *out = object;
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS Talpl::TalxAllocMutex(HANDLE* out)
{
    return Make<Mutex>(out);
}

TALSTATUS Talpl::TalxAcquireMutex(HANDLE mutex, BOOLEAN wait)
{
    auto* m = FromHandle<Mutex>(mutex);
    if (!m)
        return Fail(kCodeInvalidParameter);
    if (m->IsMine()) {
        if (m->depth == std::numeric_limits<UINT32>::max())
            return Fail(kCodeInsufficientResources);
        ++m->depth;
        return TAL_STATUS_SUCCESS;
    }
    if (wait)
        m->lock.lock();
    else if (!m->lock.try_lock())
        return Fail(kCodeTimeout);
    m->owner.store(&t_me, std::memory_order_relaxed);
    m->depth = 1;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxReleaseMutex(HANDLE mutex)
{
    auto* m = FromHandle<Mutex>(mutex);
    if (!m)
        return Fail(kCodeInvalidParameter);
    if (!m->IsMine())
        return Fail(kCodeAccessDenied);
    if (--m->depth == 0) {
        m->owner.store(nullptr, std::memory_order_relaxed);
        m->lock.unlock();
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxDestroyMutex(HANDLE mutex)
{
    auto* m = FromHandle<Mutex>(mutex);
    if (!m)
        return Fail(kCodeInvalidParameter);
    if (m->IsMine() || !m->lock.try_lock())
        return Fail(kCodeConflict);
    m->lock.unlock();
    DeleteObject(m);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxAllocReadWriteLock(HANDLE* out)
{
    return Make<ReadWriteLock>(out);
}

TALSTATUS Talpl::TalxAcquireLockForReadAccess(HANDLE lock, BOOLEAN wait)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    return l->Read(wait);
}

TALSTATUS Talpl::TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    return l->Write(wait);
}

TALSTATUS Talpl::TalxReleaseReadWriteLock(HANDLE lock)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    return l ? l->Release() : Fail(kCodeInvalidParameter);
}

TALSTATUS Talpl::TalxDestroyReadWriteLock(HANDLE lock)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    if (l->state.load(std::memory_order_acquire) != 0)
        return Fail(kCodeConflict);
    DeleteObject(l);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxAllocSpinLock(HANDLE* out)
{
    return Make<SpinLock>(out);
}

TALSTATUS Talpl::TalxAcquireSpinLock(HANDLE lock)
{
    auto* l = FromHandle<SpinLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    while (l->held.exchange(true, std::memory_order_acquire)) {
        // Watch without writing, and let the holder run if it shares this processor.
        for (UINT32 turn = 0; l->held.load(std::memory_order_relaxed); ++turn) {
            if (turn % 64 == 63)
                sched_yield();
            else
                Pause();
        }
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxReleaseSpinLock(HANDLE lock)
{
    auto* l = FromHandle<SpinLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    return l->held.exchange(false, std::memory_order_release) ? TAL_STATUS_SUCCESS
                                                              : Fail(kCodeAccessDenied);
}

TALSTATUS Talpl::TalxDestroySpinLock(HANDLE lock)
{
    auto* l = FromHandle<SpinLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    if (l->held.load(std::memory_order_acquire))
        return Fail(kCodeConflict);
    DeleteObject(l);
    return TAL_STATUS_SUCCESS;
}

UINT32 Talpl::TalxInterlockedDecrement(UINT32* value)
{
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

UINT32 Talpl::TalxInterlockedExchange(UINT32* value, UINT32 newValue)
{
    return __atomic_exchange_n(value, newValue, __ATOMIC_SEQ_CST);
}

UINT32 Talpl::TalxInterlockedIncrement(UINT32* value)
{
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

} // namespace tolm
