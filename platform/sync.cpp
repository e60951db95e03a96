// SPDX-License-Identifier: Apache-2.0
//
// Mutexes, spin locks, read/write locks and interlocked operations.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
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

// The C library's default prefers readers: a reader enters past a waiting writer. That is needed,
// not only fast: a thread that holds the lock for reading may take it once more further down, and
// would wait forever behind a writer that waits for the first hold.
struct ReadWriteLock : Object {
    static constexpr Kind kKind = Kind::ReadWriteLock;
    ReadWriteLock() noexcept : Object(kKind) { pthread_rwlock_init(&lock, nullptr); }
    pthread_rwlock_t lock;
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

// A failed acquire or release of the C library as a status.
TALSTATUS FromError(int error) noexcept
{
    switch (error) {
    case 0:
        return TAL_STATUS_SUCCESS;
    case EBUSY:
        return Fail(kCodeTimeout);
    case EAGAIN: // held too often
        return Fail(kCodeInsufficientResources);
    case EDEADLK:
        return Fail(kCodeConflict);
    default:
        return Fail(kCodeUnsuccessful);
    }
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
    return FromError(wait ? pthread_rwlock_rdlock(&l->lock) : pthread_rwlock_tryrdlock(&l->lock));
}

TALSTATUS Talpl::TalxAcquireLockForWriteAccess(HANDLE lock, BOOLEAN wait)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    return FromError(wait ? pthread_rwlock_wrlock(&l->lock) : pthread_rwlock_trywrlock(&l->lock));
}

TALSTATUS Talpl::TalxReleaseReadWriteLock(HANDLE lock)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    return l ? FromError(pthread_rwlock_unlock(&l->lock)) : Fail(kCodeInvalidParameter);
}

TALSTATUS Talpl::TalxDestroyReadWriteLock(HANDLE lock)
{
    auto* l = FromHandle<ReadWriteLock>(lock);
    if (!l)
        return Fail(kCodeInvalidParameter);
    if (pthread_rwlock_trywrlock(&l->lock) != 0)
        return Fail(kCodeConflict);
    pthread_rwlock_unlock(&l->lock);
    pthread_rwlock_destroy(&l->lock);
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
