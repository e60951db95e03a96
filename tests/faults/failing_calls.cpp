// SPDX-License-Identifier: Apache-2.0
//
// A library to be preloaded: stands before the calls by which a program reaches the system, and
// lets the one fail that the driver has picked. Everything else passes through.
#include "tests/faults/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

using faults::Call;
using faults::Fate;
using faults::Judge;
using faults::Part;

#define EXPORT extern "C" __attribute__((visibility("default")))

// The function of this name that would have been called without this library.
#define NEXT(name)                                                                                 \
    ([]() noexcept {                                                                               \
        static const auto next = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name));     \
        return next;                                                                               \
    }())

// What a caller gave behind the named arguments, where it counts.
#define TAKE_MODE(flags)                                                                           \
    mode_t mode = 0;                                                                               \
    if (OpenKind(flags) == Call::k_create) {                                                       \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        mode = va_arg(rest, mode_t);                                                               \
        va_end(rest);                                                                              \
    }

namespace {

bool Fails(Call call) noexcept
{
    return Judge(call) == Fate::Fails;
}

Call OpenKind(int flags) noexcept
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? Call::k_create : Call::k_open;
}

} // namespace

// -- Opening and closing
// ----------------------------------------------------------------------------

EXPORT int open(const char* path, int flags, ...)
{
    TAKE_MODE(flags)
    return Fails(OpenKind(flags)) ? -1 : NEXT(open)(path, flags, mode);
}

EXPORT int open64(const char* path, int flags, ...)
{
    TAKE_MODE(flags)
    return Fails(OpenKind(flags)) ? -1 : NEXT(open64)(path, flags, mode);
}

EXPORT int openat(int at, const char* path, int flags, ...)
{
    TAKE_MODE(flags)
    return Fails(OpenKind(flags)) ? -1 : NEXT(openat)(at, path, flags, mode);
}

EXPORT int openat64(int at, const char* path, int flags, ...)
{
    TAKE_MODE(flags)
    return Fails(OpenKind(flags)) ? -1 : NEXT(openat64)(at, path, flags, mode);
}

// What a fortified program calls where no mode is given.
EXPORT int __openat_2(int at, const char* path, int flags)
{
    return Fails(OpenKind(flags)) ? -1 : NEXT(openat)(at, path, flags);
}

EXPORT int __open_2(const char* path, int flags)
{
    return Fails(OpenKind(flags)) ? -1 : NEXT(open)(path, flags);
}

// The descriptor is gone even where closing it fails.
EXPORT int close(int fd)
{
    const bool fails = Fails(Call::k_close);
    const int error = errno;
    const int result = NEXT(close)(fd);
    if (!fails)
        return result;
    errno = error;
    return -1;
}

EXPORT long syscall(long number, ...) noexcept
{
    long a[6];
    va_list rest;
    va_start(rest, number);
    for (long& argument : a)
        argument = va_arg(rest, long);
    va_end(rest);
    constexpr long kGetXattrAt = 464;
    if (number == SYS_openat2) {
        const auto& how = *reinterpret_cast<const open_how*>(a[2]);
        const bool creates = OpenKind(static_cast<int>(how.flags)) == Call::k_create;
        if (Fails(creates ? Call::k_create : Call::k_openat2))
            return -1;
    } else if (number == kGetXattrAt && Fails(Call::k_getxattr)) {
        return -1;
    } else if (number == SYS_getdents64 && Fails(Call::k_getdents64)) {
        return -1;
    }
    return NEXT(syscall)(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

// -- Content
// ----------------------------------------------------------------------------------------

#define READING(name, call, ...)                                                                   \
    const Fate fate = Judge(call);                                                                 \
    if (fate == Fate::Fails)                                                                       \
        return -1;                                                                                 \
    return NEXT(name)(__VA_ARGS__);

EXPORT ssize_t read(int fd, void* to,
                    size_t size){READING(read, Call::k_read, fd, to, Part(fate, size))}

EXPORT ssize_t pread(int fd, void* to, size_t size,
                     off_t at){READING(pread, Call::k_read, fd, to, Part(fate, size), at)}

EXPORT ssize_t pread64(int fd, void* to, size_t size,
                       off64_t at){READING(pread64, Call::k_read, fd, to, Part(fate, size), at)}

EXPORT ssize_t write(int fd, const void* from,
                     size_t size){READING(write, Call::k_write, fd, from, Part(fate, size))}

EXPORT ssize_t pwrite(int fd, const void* from, size_t size,
                      off_t at){READING(pwrite, Call::k_write, fd, from, Part(fate, size), at)}

EXPORT ssize_t pwrite64(int fd, const void* from, size_t size, off64_t at){
    READING(pwrite64, Call::k_write, fd, from, Part(fate, size), at)}

EXPORT ssize_t sendfile(int out, int in, off_t* at,
                        size_t size){READING(sendfile, Call::k_read, out, in, at, Part(fate, size))}

EXPORT ssize_t sendfile64(int out, int in, off64_t* at, size_t size){
    READING(sendfile64, Call::k_read, out, in, at, Part(fate, size))}

EXPORT ssize_t getdents64(int fd, void* to, size_t size) noexcept
{
    // No less than one entry with the longest name has room in.
    constexpr size_t kLeast = 512;
    const Fate fate = Judge(Call::k_getdents64);
    if (fate == Fate::Fails)
        return -1;
    const size_t part = Part(fate, size);
    return NEXT(getdents64)(fd, to, part < kLeast ? size : part);
}

EXPORT ssize_t copy_file_range(int in, off64_t* inAt, int out, off64_t* outAt, size_t size,
                               unsigned flags){READING(copy_file_range, Call::k_copy_file_range, in,
                                                       inAt, out, outAt, Part(fate, size), flags)}

EXPORT ssize_t getrandom(void* to, size_t size, unsigned flags){
    READING(getrandom, Call::k_getrandom, to, Part(fate, size), flags)}

EXPORT int fsync(int fd)
{
    return Fails(Call::k_fsync) ? -1 : NEXT(fsync)(fd);
}

EXPORT int fdatasync(int fd)
{
    return Fails(Call::k_fsync) ? -1 : NEXT(fdatasync)(fd);
}

EXPORT int ftruncate(int fd, off_t size) noexcept
{
    return Fails(Call::k_ftruncate) ? -1 : NEXT(ftruncate)(fd, size);
}

EXPORT int ftruncate64(int fd, off64_t size) noexcept
{
    return Fails(Call::k_ftruncate) ? -1 : NEXT(ftruncate64)(fd, size);
}

EXPORT int fallocate(int fd, int mode, off_t at, off_t size)
{
    return Fails(Call::k_fallocate) ? -1 : NEXT(fallocate)(fd, mode, at, size);
}

EXPORT int posix_fallocate(int fd, off_t at, off_t size)
{
    return Fails(Call::k_fallocate) ? errno : NEXT(posix_fallocate)(fd, at, size);
}

EXPORT int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return Fails(Call::k_ioctl) ? -1 : NEXT(ioctl)(fd, request, argument);
}

// Letting a lock go does not fail where there is one.
static bool LockFails(int command, const void* argument) noexcept
{
    const bool lets = (command == F_SETLK || command == F_SETLKW) &&
                      static_cast<const struct flock*>(argument)->l_type == F_UNLCK;
    return !lets && Fails(Call::k_fcntl);
}

EXPORT int fcntl(int fd, int command, ...)
{
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return LockFails(command, argument) ? -1 : NEXT(fcntl)(fd, command, argument);
}

EXPORT int fcntl64(int fd, int command, ...)
{
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return LockFails(command, argument) ? -1 : NEXT(fcntl64)(fd, command, argument);
}

EXPORT int flock(int fd, int operation) noexcept
{
    return Fails(Call::k_flock) ? -1 : NEXT(flock)(fd, operation);
}

// -- What is known of a file
// ------------------------------------------------------------------------

EXPORT int stat(const char* path, struct stat* out) noexcept
{
    return Fails(Call::k_stat) ? -1 : NEXT(stat)(path, out);
}

EXPORT int stat64(const char* path, struct stat64* out) noexcept
{
    return Fails(Call::k_stat) ? -1 : NEXT(stat64)(path, out);
}

EXPORT int lstat(const char* path, struct stat* out) noexcept
{
    return Fails(Call::k_stat) ? -1 : NEXT(lstat)(path, out);
}

EXPORT int lstat64(const char* path, struct stat64* out) noexcept
{
    return Fails(Call::k_stat) ? -1 : NEXT(lstat64)(path, out);
}

EXPORT int fstatat(int at, const char* path, struct stat* out, int flags) noexcept
{
    return Fails(Call::k_stat) ? -1 : NEXT(fstatat)(at, path, out, flags);
}

EXPORT int fstat(int fd, struct stat* out) noexcept
{
    return Fails(Call::k_fstat) ? -1 : NEXT(fstat)(fd, out);
}

EXPORT int fstat64(int fd, struct stat64* out) noexcept
{
    return Fails(Call::k_fstat) ? -1 : NEXT(fstat64)(fd, out);
}

EXPORT int statx(int at, const char* path, int flags, unsigned mask, struct statx* out) noexcept
{
    return Fails(Call::k_statx) ? -1 : NEXT(statx)(at, path, flags, mask, out);
}

EXPORT int access(const char* path, int mode) noexcept
{
    return Fails(Call::k_access) ? -1 : NEXT(access)(path, mode);
}

EXPORT int fchmod(int fd, mode_t mode) noexcept
{
    return Fails(Call::k_setattr) ? -1 : NEXT(fchmod)(fd, mode);
}

EXPORT int chmod(const char* path, mode_t mode) noexcept
{
    return Fails(Call::k_setattr) ? -1 : NEXT(chmod)(path, mode);
}

EXPORT int fchownat(int at, const char* path, uid_t owner, gid_t group, int flags) noexcept
{
    return Fails(Call::k_setattr) ? -1 : NEXT(fchownat)(at, path, owner, group, flags);
}

EXPORT int futimens(int fd, const struct timespec times[2]) noexcept
{
    return Fails(Call::k_setattr) ? -1 : NEXT(futimens)(fd, times);
}

EXPORT int utimensat(int at, const char* path, const struct timespec times[2], int flags) noexcept
{
    return Fails(Call::k_setattr) ? -1 : NEXT(utimensat)(at, path, times, flags);
}

EXPORT ssize_t fgetxattr(int fd, const char* name, void* to, size_t size) noexcept
{
    return Fails(Call::k_getxattr) ? -1 : NEXT(fgetxattr)(fd, name, to, size);
}

EXPORT ssize_t getxattr(const char* path, const char* name, void* to, size_t size) noexcept
{
    return Fails(Call::k_getxattr) ? -1 : NEXT(getxattr)(path, name, to, size);
}

EXPORT ssize_t lgetxattr(const char* path, const char* name, void* to, size_t size) noexcept
{
    return Fails(Call::k_getxattr) ? -1 : NEXT(lgetxattr)(path, name, to, size);
}

EXPORT int fsetxattr(int fd, const char* name, const void* from, size_t size, int flags) noexcept
{
    return Fails(Call::k_setxattr) ? -1 : NEXT(fsetxattr)(fd, name, from, size, flags);
}

EXPORT int setxattr(const char* path, const char* name, const void* from, size_t size,
                    int flags) noexcept
{
    return Fails(Call::k_setxattr) ? -1 : NEXT(setxattr)(path, name, from, size, flags);
}

// -- Names
// ------------------------------------------------------------------------------------------

EXPORT int rename(const char* from, const char* to) noexcept
{
    return Fails(Call::k_rename) ? -1 : NEXT(rename)(from, to);
}

EXPORT int renameat(int at, const char* from, int toAt, const char* to) noexcept
{
    return Fails(Call::k_rename) ? -1 : NEXT(renameat)(at, from, toAt, to);
}

EXPORT int renameat2(int at, const char* from, int toAt, const char* to, unsigned flags) noexcept
{
    return Fails(Call::k_rename) ? -1 : NEXT(renameat2)(at, from, toAt, to, flags);
}

EXPORT int linkat(int at, const char* from, int toAt, const char* to, int flags) noexcept
{
    return Fails(Call::k_link) ? -1 : NEXT(linkat)(at, from, toAt, to, flags);
}

EXPORT int unlink(const char* path) noexcept
{
    return Fails(Call::k_unlink) ? -1 : NEXT(unlink)(path);
}

EXPORT int unlinkat(int at, const char* path, int flags) noexcept
{
    return Fails(Call::k_unlink) ? -1 : NEXT(unlinkat)(at, path, flags);
}

EXPORT int mkdirat(int at, const char* path, mode_t mode) noexcept
{
    return Fails(Call::k_mkdir) ? -1 : NEXT(mkdirat)(at, path, mode);
}

// -- Connections and threads
// ------------------------------------------------------------------------

EXPORT ssize_t recv(int fd, void* to, size_t size,
                    int flags){READING(recv, Call::k_recv, fd, to, Part(fate, size), flags)}

EXPORT ssize_t send(int fd, const void* from, size_t size,
                    int flags){READING(send, Call::k_send, fd, from, Part(fate, size), flags)}

EXPORT ssize_t sendmsg(int fd, const struct msghdr* message, int flags)
{
    const Fate fate = Judge(Call::k_send);
    if (fate == Fate::Fails)
        return -1;
    if (fate == Fate::Normal || message->msg_iovlen == 0)
        return NEXT(sendmsg)(fd, message, flags);
    iovec first = message->msg_iov[0];
    first.iov_len = Part(fate, first.iov_len);
    msghdr part = *message;
    part.msg_iov = &first;
    part.msg_iovlen = 1;
    return NEXT(sendmsg)(fd, &part, flags);
}

EXPORT int epoll_ctl(int fd, int operation, int of, struct epoll_event* event) noexcept
{
    // Taking a descriptor out cannot fail where it is in.
    if (operation != EPOLL_CTL_DEL && Fails(Call::k_epoll))
        return -1;
    return NEXT(epoll_ctl)(fd, operation, of, event);
}

EXPORT int epoll_wait(int fd, struct epoll_event* events, int room, int timeout)
{
    faults::MarkServing();
    return NEXT(epoll_wait)(fd, events, room, timeout);
}

EXPORT int pthread_create(pthread_t* out, const pthread_attr_t* attributes, void* (*start)(void*),
                          void* argument) noexcept
{
    return Fails(Call::k_thread) ? errno : NEXT(pthread_create)(out, attributes, start, argument);
}
