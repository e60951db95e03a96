// SPDX-License-Identifier: Apache-2.0
//
// Threads that a component starts and owns through a handle.
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "platform/internal.h"
#include "platform/talpl.h"
#include "platform/wait.h"

namespace tolm {
namespace {

struct Thread : Object {
    static constexpr Kind kKind = Kind::Thread;
    Thread(TALX_THREAD_ROUTINE r, void* c) noexcept : Object(kKind), routine(r), context(c) {}

    const TALX_THREAD_ROUTINE routine;
    void* const context;
    pthread_t thread{};
    Lock lock;
    Condition changed;
    pid_t id = 0; // the kernel's, once it runs; under lock, as are the next two
    bool ended = false;
    UINT32 status = 0;
};

thread_local Thread* t_self = nullptr; // null on a thread that was not made here

void MarkEnded(void* thread)
{
    auto* self = static_cast<Thread*>(thread);
    const std::lock_guard lock(self->lock);
    self->ended = true;
    self->changed.WakeAll();
}

void* Run(void* thread)
{
    auto* self = static_cast<Thread*>(thread);
    t_self = self;
    {
        const std::lock_guard lock(self->lock);
        self->id = gettid();
        self->changed.WakeAll();
    }
    pthread_cleanup_push(MarkEnded, self); // also when the routine leaves through TalxExitThread
    const UINT32 status = self->routine(self->context);
    {
        const std::lock_guard lock(self->lock);
        self->status = status;
    }
    pthread_cleanup_pop(1);
    return nullptr;
}

} // namespace

TALSTATUS Talpl::TalxCreateThread(TALX_THREAD_ROUTINE routine, void* context, HANDLE* out)
{
    if (!routine || !out)
        return Fail(kCodeInvalidParameter);
    Thread* thread = NewObject<Thread>(routine, context);
    if (!thread)
        return Fail(kCodeInsufficientResources);
    if (pthread_create(&thread->thread, nullptr, Run, thread) != 0) {
        DeleteObject(thread);
        return Fail(kCodeInsufficientResources);
    }
    *out = thread;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxDestroyThread(HANDLE thread)
{
    auto* t = FromHandle<Thread>(thread);
    if (!t)
        return Fail(kCodeInvalidParameter);
    {
        const std::lock_guard lock(t->lock);
        if (!t->ended)
            return Fail(kCodeConflict);
    }
    pthread_join(t->thread, nullptr); // the last steps after MarkEnded
    DeleteObject(t);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxExitThread(UINT32 status)
{
    if (!t_self)
        return Fail(kCodeNotSupported);
    {
        const std::lock_guard lock(t_self->lock);
        t_self->status = status;
    }
    pthread_exit(nullptr);
}

TALSTATUS Talpl::TalxGetThreadExitStatus(HANDLE thread, UINT32* status)
{
    auto* t = FromHandle<Thread>(thread);
    if (!t || !status)
        return Fail(kCodeInvalidParameter);
    const std::lock_guard lock(t->lock);
    if (!t->ended)
        return Fail(kCodeTimeout);
    *status = t->status;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxSetThreadPriority(HANDLE thread, INT32 priority)
{
    auto* t = FromHandle<Thread>(thread);
    if (!t || priority < -20 || priority > 19)
        return Fail(kCodeInvalidParameter);
    const std::lock_guard lock(t->lock);
    t->changed.WaitFor(t->lock, kTalxForever, [&] { return t->id != 0; });
    if (t->ended)
        return Fail(kCodeNotFound);
    // On Linux the nice value belongs to the thread.
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(t->id), priority) != 0)
        return Fail(errno == EACCES || errno == EPERM ? kCodeAccessDenied : kCodeUnsuccessful);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxWaitForThreadExit(HANDLE thread, UINT32 time)
{
    auto* t = FromHandle<Thread>(thread);
    if (!t || t == t_self)
        return Fail(kCodeInvalidParameter);
    const std::lock_guard lock(t->lock);
    return t->changed.WaitFor(t->lock, time, [&] { return t->ended; }) ? TAL_STATUS_SUCCESS
                                                                       : Fail(kCodeTimeout);
}

} // namespace tolm
