// SPDX-License-Identifier: Apache-2.0
#include "tests/contract/truth/failing_memory.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> g_asked{0};
std::atomic<int> g_failAt{0};
std::atomic<bool> g_lasts{false};
thread_local constinit bool t_isExempt = false;

bool Fails() noexcept
{
    const int at = g_failAt.load(std::memory_order_relaxed);
    if (at == 0 || t_isExempt)
        return false;
    const int asked = ++g_asked;
    return asked == at || (asked > at && g_lasts.load(std::memory_order_relaxed));
}

} // namespace

namespace failing_memory {

void FailAt(int number)
{
    g_failAt = 0;
    g_asked = 0;
    g_lasts = false;
    g_failAt = number;
}

void FailFrom(int number)
{
    g_failAt = 0;
    g_asked = 0;
    g_lasts = true;
    g_failAt = number;
}

bool HasFailed()
{
    return g_failAt != 0 && g_asked >= g_failAt;
}

void ExemptThisThread()
{
    t_isExempt = true;
}

} // namespace failing_memory

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// Not inlined: the compiler would see malloc'd memory meet delete, and warn.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Fails() ? nullptr : std::malloc(size ? size : 1);
}

[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

#else

// Not calloc: the C library takes from it what a thread keeps for itself, and ends the process when
// it gets none.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    if (!Fails())
        return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size)
{
    if (!Fails())
        return __libc_realloc(memory, size);
    errno = ENOMEM;
    return nullptr;
}

} // extern "C"

#endif
