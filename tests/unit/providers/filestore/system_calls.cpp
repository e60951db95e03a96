// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/providers/filestore/system_calls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <ctime>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

std::atomic<int> g_made{0};
std::atomic<int> g_failAt{0};
std::atomic<int> g_error{0};
std::atomic<bool> g_syncs{true};
thread_local bool t_isExempt = false;

bool Fails()
{
    if (t_isExempt || ++g_made != g_failAt)
        return false;
    errno = g_error;
    return true;
}

template <class F> F* Next(const char* name)
{
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace system_calls {

void FailAt(int number, int error)
{
    g_failAt = 0;
    g_made = 0;
    g_error = error;
    g_failAt = number;
}

int Made()
{
    return g_made;
}

bool HasFailed()
{
    return g_failAt != 0 && g_made >= g_failAt;
}

void ExemptThisThread()
{
    t_isExempt = true;
}

void SyncNothing()
{
    g_syncs = false;
}

} // namespace system_calls

// The real one, unless the call is to fail.
#define FALLIBLE(result, name, parameters, arguments)                                              \
    extern "C" __attribute__((visibility("default"))) result name parameters                       \
    {                                                                                              \
        static auto* const real = Next<result parameters>(#name);                                  \
        return Fails() ? -1 : real arguments;                                                      \
    }

FALLIBLE(int, fstatat,
         (int directory, const char* __restrict path, struct stat* __restrict out, int flags),
         (directory, path, out, flags))
FALLIBLE(int, fstat, (int fd, struct stat* out), (fd, out))
FALLIBLE(int, stat, (const char* __restrict path, struct stat* __restrict out), (path, out))
FALLIBLE(int, statx,
         (int directory, const char* __restrict path, int flags, unsigned mask,
          struct statx* __restrict out),
         (directory, path, flags, mask, out))
FALLIBLE(ssize_t, pread, (int fd, void* to, size_t size, off_t at), (fd, to, size, at))
FALLIBLE(ssize_t, pwrite, (int fd, const void* from, size_t size, off_t at), (fd, from, size, at))
FALLIBLE(int, fchmod, (int fd, mode_t mode), (fd, mode))
FALLIBLE(int, chmod, (const char* path, mode_t mode), (path, mode))
FALLIBLE(int, fchownat, (int directory, const char* path, uid_t owner, gid_t group, int flags),
         (directory, path, owner, group, flags))
FALLIBLE(int, futimens, (int fd, const timespec times[2]), (fd, times))
FALLIBLE(int, utimensat, (int directory, const char* path, const timespec times[2], int flags),
         (directory, path, times, flags))
FALLIBLE(ssize_t, copy_file_range,
         (int from, off64_t* at, int to, off64_t* out, size_t size, unsigned flags),
         (from, at, to, out, size, flags))
FALLIBLE(ssize_t, fgetxattr, (int fd, const char* name, void* value, size_t size),
         (fd, name, value, size))
FALLIBLE(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size),
         (path, name, value, size))
FALLIBLE(ssize_t, lgetxattr, (const char* path, const char* name, void* value, size_t size),
         (path, name, value, size))
FALLIBLE(int, fsetxattr, (int fd, const char* name, const void* value, size_t size, int flags),
         (fd, name, value, size, flags))
FALLIBLE(int, setxattr,
         (const char* path, const char* name, const void* value, size_t size, int flags),
         (path, name, value, size, flags))
FALLIBLE(int, linkat, (int from, const char* path, int to, const char* name, int flags),
         (from, path, to, name, flags))
FALLIBLE(int, mkdirat, (int directory, const char* name, mode_t mode), (directory, name, mode))
FALLIBLE(int, renameat2, (int from, const char* path, int to, const char* name, unsigned flags),
         (from, path, to, name, flags))
FALLIBLE(int, unlinkat, (int directory, const char* name, int flags), (directory, name, flags))
FALLIBLE(ssize_t, getrandom, (void* to, size_t size, unsigned flags), (to, size, flags))
FALLIBLE(ssize_t, getdents64, (int fd, void* to, size_t size), (fd, to, size))

extern "C" __attribute__((visibility("default"))) int openat(int directory, const char* path,
                                                             int flags, ...)
{
    static auto* const real = Next<int(int, const char*, int, ...)>("openat");
    va_list rest;
    va_start(rest, flags);
    const mode_t mode =
        flags & (O_CREAT | O_TMPFILE) ? static_cast<mode_t>(va_arg(rest, unsigned)) : 0;
    va_end(rest);
    return Fails() ? -1 : real(directory, path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...)
{
    static auto* const real = Next<int(int, unsigned long, ...)>("ioctl");
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return Fails() ? -1 : real(fd, request, argument);
}

extern "C" __attribute__((visibility("default"))) long syscall(long number, ...)
{
    static auto* const real = Next<long(long, ...)>("syscall");
    va_list rest;
    va_start(rest, number);
    long a[6];
    for (long& each : a)
        each = va_arg(rest, long); // more than some have: what is there is passed on unread
    va_end(rest);
    return Fails() ? -1 : real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

// The names that libraries with 64-bit offsets use.
FALLIBLE(int, fstat64, (int fd, struct stat64* out), (fd, out))
FALLIBLE(int, stat64, (const char* __restrict path, struct stat64* __restrict out), (path, out))
FALLIBLE(int, lstat64, (const char* __restrict path, struct stat64* __restrict out), (path, out))
FALLIBLE(ssize_t, pread64, (int fd, void* to, size_t size, off64_t at), (fd, to, size, at))
FALLIBLE(ssize_t, pwrite64, (int fd, const void* from, size_t size, off64_t at),
         (fd, from, size, at))
FALLIBLE(int, ftruncate64, (int fd, off64_t size), (fd, size))

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    static auto* const real = Next<int(const char*, int, ...)>("open64");
    va_list rest;
    va_start(rest, flags);
    const mode_t mode =
        flags & (O_CREAT | O_TMPFILE) ? static_cast<mode_t>(va_arg(rest, unsigned)) : 0;
    va_end(rest);
    return Fails() ? -1 : real(path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int fcntl64(int fd, int command, ...)
{
    static auto* const real = Next<int(int, int, ...)>("fcntl64");
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return Fails() ? -1 : real(fd, command, argument);
}

extern "C" __attribute__((visibility("default"))) int fsync(int fd)
{
    static auto* const real = Next<int(int)>("fsync");
    if (Fails())
        return -1;
    return g_syncs ? real(fd) : 0;
}

extern "C" __attribute__((visibility("default"))) int fdatasync(int fd)
{
    static auto* const real = Next<int(int)>("fdatasync");
    if (Fails())
        return -1;
    return g_syncs ? real(fd) : 0;
}
