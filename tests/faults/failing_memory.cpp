// SPDX-License-Identifier: Apache-2.0
//
// The calls that give memory, as failing_calls.cpp does it for the rest. The C library's own names
// for them need no look-up, which would itself allocate.
#include "tests/faults/failing_calls.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

using faults::Call;
using faults::Fate;

#define EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

bool Fails(Call call) noexcept
{
    return faults::Judge(call) == Fate::Fails;
}

} // namespace

#ifdef KEST_FAIL_MEMORY // a sanitizer that brings its own allocator is left alone

EXPORT void* malloc(size_t size) noexcept
{
    return Fails(Call::k_malloc) ? nullptr : __libc_malloc(size);
}

EXPORT void* calloc(size_t count, size_t size) noexcept
{
    return Fails(Call::k_malloc) ? nullptr : __libc_calloc(count, size);
}

EXPORT void* realloc(void* old, size_t size) noexcept
{
    return Fails(Call::k_malloc) ? nullptr : __libc_realloc(old, size);
}

EXPORT void* aligned_alloc(size_t alignment, size_t size) noexcept
{
    return Fails(Call::k_malloc) ? nullptr : __libc_memalign(alignment, size);
}

EXPORT int posix_memalign(void** out, size_t alignment, size_t size) noexcept
{
    if (Fails(Call::k_malloc))
        return ENOMEM;
    void* const got = __libc_memalign(alignment, size);
    if (!got)
        return ENOMEM;
    *out = got;
    return 0;
}

#endif

EXPORT void* mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    static const auto next = reinterpret_cast<decltype(&::mmap)>(dlsym(RTLD_NEXT, "mmap"));
    return Fails(Call::k_mmap) ? MAP_FAILED : next(at, size, protection, flags, fd, offset);
}

EXPORT void* mmap64(void* at, size_t size, int protection, int flags, int fd,
                    off64_t offset) noexcept
{
    static const auto next = reinterpret_cast<decltype(&::mmap64)>(dlsym(RTLD_NEXT, "mmap64"));
    return Fails(Call::k_mmap) ? MAP_FAILED : next(at, size, protection, flags, fd, offset);
}

EXPORT void* mremap(void* old, size_t oldSize, size_t newSize, int flags, ...) noexcept
{
    static const auto next = reinterpret_cast<decltype(&::mremap)>(dlsym(RTLD_NEXT, "mremap"));
    va_list rest;
    va_start(rest, flags);
    void* const at = va_arg(rest, void*);
    va_end(rest);
    return Fails(Call::k_mmap) ? MAP_FAILED : next(old, oldSize, newSize, flags, at);
}
