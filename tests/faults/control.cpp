// SPDX-License-Identifier: Apache-2.0
//
// The side of the preloaded library that is told which call is to fail.
#include "tests/faults/failing_calls.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace faults {

namespace {

Control* g_control = nullptr;

// Reached in every call of malloc: a thread's own memory must not be allocated for them.
thread_local bool t_serves __attribute__((tls_model("initial-exec"))) = false;
thread_local bool t_inside __attribute__((tls_model("initial-exec"))) = false;

constexpr const char* kNames[] = {
#define AS_TEXT(name) #name,
    FAILING_CALLS(AS_TEXT)
#undef AS_TEXT
};
static_assert(sizeof kNames / sizeof *kNames <= kMostCalls);

__attribute__((constructor)) void Attach()
{
    const char* const path = std::getenv("KEST_FAILING_CALLS");
    if (!path)
        return;
    const int fd = static_cast<int>(open(path, O_RDWR | O_CLOEXEC));
    if (fd < 0)
        std::abort();
    void* const at = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (at == MAP_FAILED)
        std::abort();
    auto* const control = static_cast<Control*>(at);
    for (size_t i = 0; i < static_cast<size_t>(Call::Count); ++i)
        std::strncpy(control->names[i], kNames[i], kNameRoom - 1);
    control->calls = static_cast<uint32_t>(Call::Count);
    control->magic = kMagic;
    void* warm[4]; // the first walk of a stack loads a library
    (void)backtrace(warm, 4);
    g_control = control;
}

void NoteWhere(Control& control) noexcept
{
    t_inside = true;
    void* frames[kMostFrames];
    const int count = backtrace(frames, kMostFrames);
    for (int i = 0; i < count; ++i)
        control.addresses[i] = reinterpret_cast<uint64_t>(frames[i]);
    control.frames = static_cast<uint32_t>(count);
    t_inside = false;
}

Fate DecideFor(Control& control, Call call) noexcept
{
    control.counts[static_cast<size_t>(call)].fetch_add(1, std::memory_order_relaxed);
    if (!(control.mask >> static_cast<uint32_t>(call) & 1))
        return Fate::Normal;
    const uint32_t number = control.seen.fetch_add(1, std::memory_order_relaxed) + 1;
    const auto mode = static_cast<Mode>(control.mode);
    const bool goesOn = mode == Mode::FromThen || mode == Mode::ShortFrom;
    if (control.nth == 0 || (goesOn ? number < control.nth : number != control.nth))
        return Fate::Normal;
    if (control.hits.fetch_add(1, std::memory_order_relaxed) == 0)
        NoteWhere(control);
    while (mode == Mode::Stuck) // until the process ends
        pause();
    if (mode == Mode::Short || mode == Mode::ShortFrom)
        return Fate::Shortened;
    errno = control.error;
    return Fate::Fails;
}

} // namespace

Fate Judge(Call call) noexcept
{
    if (!g_control || !t_serves || t_inside || !g_control->armed.load(std::memory_order_acquire))
        return Fate::Normal;
    const int before = errno;
    const Fate fate = DecideFor(*g_control, call);
    if (fate != Fate::Fails)
        errno = before;
    return fate;
}

void MarkServing() noexcept
{
    t_serves = true;
}

} // namespace faults
