// SPDX-License-Identifier: Apache-2.0
//
// System calls on files that the C library has no form of, or whose answers need translating.
#include "providers/filestore/posixcalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "base/system_time.h"

namespace filestore {

using base::Retry;

namespace {

void SetKind(FileInfo* out, UINT32 mode)
{
    out->isDirectory = S_ISDIR(mode);
    out->isRegular = S_ISREG(mode);
    out->isLink = S_ISLNK(mode);
    out->mode = mode & 07777;
}

void FromStatx(const struct statx& s, FileInfo* out)
{
    SetKind(out, s.stx_mode);
    out->owner = s.stx_uid;
    out->group = s.stx_gid;
    out->inode = s.stx_ino;
    out->size = s.stx_size;
    out->modified = base::SystemTimeOf(s.stx_mtime.tv_sec, s.stx_mtime.tv_nsec);
    out->isBirth = (s.stx_mask & STATX_BTIME) != 0;
    const auto& first = out->isBirth ? s.stx_btime : s.stx_ctime;
    out->created = std::min(out->modified, base::SystemTimeOf(first.tv_sec, first.tv_nsec));
}

} // namespace

ProcPath::ProcPath(int fd, const char* name)
{
    constexpr std::string_view kBefore = "/proc/self/fd/";
    char* at = std::copy(kBefore.begin(), kBefore.end(), text);
    char* const end = text + sizeof text - 1;
    at = std::to_chars(at, end, fd).ptr;
    if (name) {
        *at++ = '/';
        at = std::copy_n(name, std::min(std::strlen(name), static_cast<size_t>(end - at)), at);
    }
    *at = '\0';
}

void FromStat(const struct stat& s, FileInfo* out)
{
    SetKind(out, s.st_mode);
    out->owner = s.st_uid;
    out->group = s.st_gid;
    out->inode = s.st_ino;
    out->size = static_cast<UINT64>(s.st_size);
    out->modified = base::SystemTimeOf(s.st_mtim.tv_sec, s.st_mtim.tv_nsec);
    out->created = std::min(out->modified, base::SystemTimeOf(s.st_ctim.tv_sec, s.st_ctim.tv_nsec));
    out->isBirth = false;
}

int Statx(int directory, const char* name, int flags, FileInfo* out)
{
    struct statx s;
    constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
    if (Retry([&] { return ::statx(directory, name, flags, kWanted, &s); }) != 0)
        return errno;
    FromStatx(s, out);
    return 0;
}

int SpaceOf(int descriptor, UINT64* free, UINT64* total)
{
    struct statvfs s;
    if (Retry([&] { return ::fstatvfs(descriptor, &s); }) != 0)
        return errno;
    *free = static_cast<UINT64>(s.f_bavail) * s.f_frsize;
    // What the system keeps for itself is neither used nor to be had.
    *total = static_cast<UINT64>(s.f_blocks - s.f_bfree + s.f_bavail) * s.f_frsize;
    return 0;
}

ssize_t GetTagRelative(int directory, const char* name, const char* tag, void* value, size_t room)
{
    constexpr long kGetXattrAt = 464; // the number is the same on every architecture
    struct {
        UINT64 value;
        UINT32 size;
        UINT32 flags;
    } arguments{reinterpret_cast<UINT64>(value), static_cast<UINT32>(room), 0};
    static std::atomic<bool> missing{false};
    if (!missing.load(std::memory_order_relaxed)) {
        const long n = Retry([&] {
            return ::syscall(kGetXattrAt, directory, name, AT_SYMLINK_NOFOLLOW, tag, &arguments,
                             sizeof arguments);
        });
        if (n >= 0 || (errno != ENOSYS && errno != EPERM))
            return n;
        missing.store(true, std::memory_order_relaxed);
    }
    return Retry([&] { return ::lgetxattr(ProcPath(directory, name).text, tag, value, room); });
}

UINT32 ReadUmask()
{
    UINT32 mask = 022;
    if (FILE* f = std::fopen("/proc/self/status", "re")) {
        char line[256];
        while (std::fgets(line, sizeof line, f))
            if (std::strncmp(line, "Umask:", 6) == 0)
                mask = static_cast<UINT32>(std::strtoul(line + 6, nullptr, 8));
        std::fclose(f);
    }
    return mask;
}

} // namespace filestore
