// SPDX-License-Identifier: Apache-2.0
//
// The file system beneath, over POSIX calls on directory descriptors.
#include "providers/filestore/posixfs.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "base/open_beneath.h"
#include "base/system_time.h"
#include "providers/filestore/linkwalk.h"
#include "providers/filestore/posixcalls.h"

namespace filestore {

using base::Retry;

namespace {

int Result(long r)
{
    return r < 0 ? errno : 0;
}

class PosixFileSystem final : public FileSystem {
  public:
    PosixFileSystem(int top, const char* name)
        : top_(top), name_(name), newFileMode_(0666 & ~ReadUmask())
    {
    }
    ~PosixFileSystem() override
    {
        for (const int directory : private_) {
            EndPrivate(directory);
            ::close(directory);
        }
        ::close(top_);
    }

    int Open(const char* path, OpenFor purpose, FileHandle* out) override
    {
        std::string real; // empty: no link is on the way
        const int error =
            OpenFrom(top_, *path ? path : ".", purpose, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS,
                     out, linkJudge_ ? &real : nullptr);
        if (error || real.empty() || linkJudge_(path, std::string_view(real).substr(1)))
            return error;
        Close(std::exchange(*out, kNoFile));
        return ENOENT;
    }
    void JudgeLinks(LinkJudge judge) override { linkJudge_ = std::move(judge); }
    void Close(FileHandle handle) override { ::close(handle); }
    int Look(const char* path, FileInfo* out) override
    {
        if (!IsOneName(path))
            return ELOOP;
        struct stat s;
        if (Retry([&] { return ::fstatat(top_, path, &s, AT_SYMLINK_NOFOLLOW); }) != 0)
            return errno;
        if (S_ISLNK(s.st_mode))
            return ELOOP;
        FromStat(s, out);
        return 0;
    }

    int Inspect(FileHandle handle, FileInfo* out) override
    {
        struct stat s;
        if (Retry([&] { return ::fstat(handle, &s); }) != 0)
            return errno;
        FromStat(s, out);
        return 0;
    }
    int InspectFully(FileHandle handle, FileInfo* out) override
    {
        return Statx(handle, "", AT_EMPTY_PATH, out);
    }
    int Read(FileHandle handle, UINT64 offset, void* buffer, size_t size, size_t* got) override
    {
        const ssize_t n =
            Retry([&] { return ::pread(handle, buffer, size, static_cast<off_t>(offset)); });
        if (n < 0)
            return errno == EBADF ? EACCES : errno; // opened by a fallback, without content
        *got = static_cast<size_t>(n);
        return 0;
    }
    int Descriptor(FileHandle handle) const noexcept override { return handle; }
    int Write(FileHandle handle, UINT64 offset, const void* buffer, size_t size) override
    {
        const char* p = static_cast<const char*>(buffer);
        while (size > 0) {
            const ssize_t n =
                Retry([&] { return ::pwrite(handle, p, size, static_cast<off_t>(offset)); });
            if (n <= 0)
                return n < 0 ? errno : ENOSPC;
            p += n;
            offset += static_cast<UINT64>(n);
            size -= static_cast<size_t>(n);
        }
        return 0;
    }
    int SetSize(FileHandle handle, UINT64 size) override
    {
        if (size > static_cast<UINT64>(std::numeric_limits<off_t>::max()))
            return EFBIG;
        return Result(Retry([&] { return ::ftruncate(handle, static_cast<off_t>(size)); }));
    }
    int SetMode(FileHandle handle, UINT32 mode) override
    {
        if (Retry([&] { return ::fchmod(handle, mode); }) == 0)
            return 0;
        if (errno != EBADF)
            return errno;
        return Result(Retry([&] { return ::chmod(ProcPath(handle).text, mode); }));
    }
    int SetOwner(FileHandle handle, UINT32 owner, UINT32 group) override
    {
        return Result(Retry([&] { return ::fchownat(handle, "", owner, group, AT_EMPTY_PATH); }));
    }
    int SetModified(FileHandle handle, UINT64 date) override
    {
        const INT64 ticks = static_cast<INT64>(date) - base::kUnixEpoch;
        INT64 seconds = ticks / base::kUnitsPerSecond;
        INT64 rest = ticks % base::kUnitsPerSecond;
        if (rest < 0) {
            rest += base::kUnitsPerSecond;
            --seconds;
        }
        const timespec times[2] = {{0, UTIME_OMIT}, {seconds, rest * 100}};
        if (Retry([&] { return ::futimens(handle, times); }) == 0)
            return 0;
        if (errno != EBADF)
            return errno;
        return Result(
            Retry([&] { return ::utimensat(AT_FDCWD, ProcPath(handle).text, times, 0); }));
    }
    int Sync(FileHandle handle, bool everything) override
    {
        return Result(Retry([&] { return everything ? ::fsync(handle) : ::fdatasync(handle); }));
    }
    int CopyContent(FileHandle from, FileHandle to, UINT64 size, const GoOn& goOn) override
    {
        // Other file systems may be mounted within, and some can: what is worth a look gets one.
        constexpr UINT64 kWorthALook = 1 << 20;
        if (size >= kWorthALook || mayClone_.load(std::memory_order_relaxed)) {
            if (Retry([&] { return ::ioctl(to, FICLONE, from); }) == 0)
                return 0;
            mayClone_.store(errno != EOPNOTSUPP && errno != ENOTTY, std::memory_order_relaxed);
        }
        UINT64 done = 0;
        while (done < size) {
            if (goOn && !goOn())
                return ECANCELED;
            const auto piece = static_cast<size_t>(std::min<UINT64>(size - done, kCopyPiece));
            off64_t in = static_cast<off64_t>(done);
            off64_t out = in;
            const ssize_t n =
                Retry([&] { return ::copy_file_range(from, &in, to, &out, piece, 0); });
            if (n > 0) {
                done += static_cast<UINT64>(n);
                continue;
            }
            // Nothing: the end, or a file whose content the kernel only makes when it is read.
            if (n == 0 || errno == ENOSYS || errno == EXDEV || errno == EOPNOTSUPP ||
                errno == EINVAL)
                return CopyByHand(from, to, done, size, goOn);
            return errno == EBADF ? EACCES : errno; // opened by a fallback, without content
        }
        return 0;
    }
    int GetTag(FileHandle handle, const char* tag, void* value, size_t room, size_t* size) override
    {
        ssize_t n = Retry([&] { return ::fgetxattr(handle, tag, value, room); });
        if (n < 0 && errno == EBADF)
            n = Retry([&] { return ::getxattr(ProcPath(handle).text, tag, value, room); });
        if (n < 0)
            return errno;
        *size = static_cast<size_t>(n);
        return 0;
    }
    int SetTag(FileHandle handle, const char* tag, const void* value, size_t size) override
    {
        if (Retry([&] { return ::fsetxattr(handle, tag, value, size, 0); }) == 0)
            return 0;
        if (errno != EBADF)
            return errno;
        return Result(
            Retry([&] { return ::setxattr(ProcPath(handle).text, tag, value, size, 0); }));
    }

    int InspectAt(FileHandle directory, const char* name, FileInfo* out) override
    {
        return Statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, out);
    }
    int OpenAt(FileHandle directory, const char* name, OpenFor purpose, FileHandle* out) override
    {
        return OpenFrom(directory, name, purpose, RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS, out);
    }
    int GetTagAt(FileHandle directory, const char* name, const char* tag, void* value, size_t room,
                 size_t* size) override
    {
        const ssize_t n = GetTagRelative(directory, name, tag, value, room);
        if (n < 0)
            return errno;
        *size = static_cast<size_t>(n);
        return 0;
    }
    int CreateFile(FileHandle directory, const char* name, FileHandle* out) override
    {
        constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        const int fd = Retry([&] { return ::openat(directory, name, kFlags, 0666); });
        if (fd < 0)
            return errno;
        *out = fd;
        return 0;
    }
    int CreateUnnamed(FileHandle directory, FileHandle* out) override
    {
        const int fd =
            Retry([&] { return ::openat(directory, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0666); });
        if (fd < 0) // EISDIR: from before such files were known
            return errno == EISDIR || errno == EINVAL ? EOPNOTSUPP : errno;
        *out = fd;
        return 0;
    }
    int GiveName(FileHandle file, FileHandle directory, const char* name) override
    {
        if (Retry([&] { return ::linkat(file, "", directory, name, AT_EMPTY_PATH); }) == 0)
            return 0;
        // ENOENT: before Linux 6.10 only a privileged process may name a file by its handle. Where
        // it is the directory that has gone, the other way says so, too.
        if (errno != ENOENT)
            return OfTwoDirectories(errno);
        return OfTwoDirectories(Result(Retry([&] {
            return ::linkat(AT_FDCWD, ProcPath(file).text, directory, name, AT_SYMLINK_FOLLOW);
        })));
    }
    int MakeDirectory(FileHandle directory, const char* name) override
    {
        return Result(Retry([&] { return ::mkdirat(directory, name, 0777); }));
    }
    int ReadLink(FileHandle directory, const char* name, std::string* out) override
    {
        char text[PATH_MAX];
        const ssize_t n = ::readlinkat(directory, name, text, sizeof text);
        if (n < 0)
            return errno;
        out->assign(text, static_cast<size_t>(n)); // no link is longer
        return 0;
    }
    int MakeLink(const char* text, FileHandle directory, const char* name) override
    {
        return Result(::symlinkat(text, directory, name));
    }
    int Rename(FileHandle fromDirectory, const char* from, FileHandle toDirectory, const char* to,
               bool replace) override
    {
        const auto rename = [&](unsigned flags) {
            return Retry([&] { return ::renameat2(fromDirectory, from, toDirectory, to, flags); });
        };
        if (replace)
            return OfTwoDirectories(Result(rename(0)));
        if (rename(RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS)
            return OfTwoDirectories(errno);
        return OfTwoDirectories(RenameByLink(fromDirectory, from, toDirectory, to));
    }
    int Exchange(FileHandle directory, const char* name, FileHandle otherDirectory,
                 const char* otherName) override
    {
        if (Retry([&] {
                return ::renameat2(directory, name, otherDirectory, otherName, RENAME_EXCHANGE);
            }) == 0)
            return 0;
        return errno == EINVAL || errno == ENOSYS ? EOPNOTSUPP : OfTwoDirectories(errno);
    }
    int RemoveFile(FileHandle directory, const char* name) override
    {
        return Result(Retry([&] { return ::unlinkat(directory, name, 0); }));
    }
    int RemoveDirectory(FileHandle directory, const char* name) override
    {
        return Result(Retry([&] { return ::unlinkat(directory, name, AT_REMOVEDIR); }));
    }
    int List(FileHandle directory, NameSink& sink) override
    {
        // A descriptor of its own, so that two listings of one handle do not share a position.
        const int fd =
            Retry([&] { return ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
        if (fd < 0)
            return errno;
        const base::Descriptor own(fd); // a sink can run out of memory
        return ListEntries(own.Number(), sink);
    }

    int KeepPrivate(FileHandle directory) override
    {
        private_.reserve(private_.size() + 1);
        const int own = Retry([&] { return ::fcntl(directory, F_DUPFD_CLOEXEC, 0); });
        if (own < 0)
            return errno;
        if (const int error = filestore::KeepPrivate(own)) {
            ::close(own);
            return error;
        }
        private_.push_back(own);
        return 0;
    }
    UINT32 NewFileMode() const override { return newFileMode_; }
    int TryLock(FileHandle handle) override
    {
        return Result(Retry([&] { return ::flock(handle, LOCK_EX | LOCK_NB); }));
    }
    int ExternalPath(const char* path, char* out, size_t room) override
    {
        const int n = std::snprintf(out, room, "/proc/self/fd/%d/%s", top_, path);
        return n < 0 || static_cast<size_t>(n) >= room ? ENAMETOOLONG : 0;
    }
    int Random(void* out, size_t size) override
    {
        const ssize_t got = Retry([&] { return ::getrandom(out, size, 0); });
        return got == static_cast<ssize_t>(size) ? 0 : EIO;
    }
    int Allocate(FileHandle handle, UINT64 size) override
    {
        int error = EINTR;
        while (error == EINTR)
            error = ::posix_fallocate(handle, 0, static_cast<off_t>(size));
        return error;
    }
    int FreeSpace(UINT64* free, UINT64* total) override { return SpaceOf(top_, free, total); }
    int FreeSpaceAt(const char* path, UINT64* free, UINT64* total) override
    {
        FileHandle handle = kNoFile;
        if (const int error = Open(path, OpenFor::Locating, &handle))
            return error;
        const int error = SpaceOf(handle, free, total);
        Close(handle);
        return error;
    }
    bool IsInPlace() override
    {
        struct stat own, named;
        return Retry([&] { return ::fstat(top_, &own); }) == 0 &&
               Retry([&] { return ::stat(name_.c_str(), &named); }) == 0 &&
               own.st_dev == named.st_dev && own.st_ino == named.st_ino;
    }

  private:
    static int OpenFrom(int directory, const char* path, OpenFor purpose, UINT64 resolve,
                        FileHandle* out, std::string* real = nullptr)
    {
        UINT64 flags = O_CLOEXEC;
        switch (purpose) {
        case OpenFor::Reading: // O_NONBLOCK: a pipe in the volume must not hold the thread
            flags |= O_RDONLY | O_NONBLOCK | O_NOCTTY;
            break;
        case OpenFor::Changing:
            flags |= O_RDWR | O_NONBLOCK | O_NOCTTY;
            break;
        case OpenFor::Directory:
            flags |= O_RDONLY | O_DIRECTORY;
            break;
        case OpenFor::Locating:
            flags |= O_PATH;
            break;
        }
        int fd = OpenBeneath(directory, path, flags, resolve, real);
        if (fd < 0 && errno == EACCES && purpose != OpenFor::Locating &&
            purpose != OpenFor::Changing)
            fd = OpenBeneath(directory, path, O_CLOEXEC | O_PATH | (flags & O_DIRECTORY), resolve,
                             real);
        if (fd < 0)
            return errno;
        *out = fd;
        return 0;
    }
    // A file system that cannot refuse a taken name when it renames: a second link does. What is
    // not a file cannot be linked, and the look before the rename leaves a gap in which another
    // process can take the name.
    static int RenameByLink(int fromDirectory, const char* from, int toDirectory, const char* to)
    {
        if (Retry([&] { return ::linkat(fromDirectory, from, toDirectory, to, 0); }) == 0)
            return Result(Retry([&] { return ::unlinkat(fromDirectory, from, 0); }));
        if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS && errno != EMLINK)
            return errno;
        struct stat s;
        if (Retry([&] { return ::fstatat(toDirectory, to, &s, AT_SYMLINK_NOFOLLOW); }) == 0)
            return EEXIST;
        if (errno != ENOENT)
            return errno;
        return Result(Retry([&] { return ::renameat(fromDirectory, from, toDirectory, to); }));
    }
    static bool IsOneName(const char* path)
    {
        return *path && !std::strchr(path, '/') && std::strcmp(path, "..") != 0;
    }
    // `real` as that of OpenThroughLinks; empty where no link is on the way.
    static int OpenBeneath(int directory, const char* path, UINT64 flags, UINT64 resolve,
                           std::string* real)
    {
        // A single name leads to what bears it and nowhere else, unless that is a link. The plain
        // call refuses those, and takes less time than the one that watches every step.
        if (!(flags & O_PATH) && IsOneName(path)) {
            const int fd = Retry(
                [&] { return ::openat(directory, path, static_cast<int>(flags) | O_NOFOLLOW); });
            if (fd >= 0 || (errno != ELOOP && errno != ENOTDIR))
                return fd;
        }
        // Without a link on the way the names alone say what is private.
        const int fd = base::OpenBeneath(directory, path, flags, resolve | RESOLVE_NO_SYMLINKS);
        if (fd >= 0 || errno != ELOOP || (resolve & RESOLVE_NO_SYMLINKS))
            return fd;
        return OpenThroughLinks(directory, path, static_cast<int>(flags), real);
    }
    static int ListEntries(int fd, NameSink& sink)
    {
        alignas(dirent64) char buffer[65536];
        for (;;) {
            const ssize_t bytes = Retry([&] { return ::getdents64(fd, buffer, sizeof buffer); });
            if (bytes <= 0)
                return Result(bytes);
            for (ssize_t at = 0; at < bytes;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
                at += entry->d_reclen;
                const std::string_view name = entry->d_name;
                if (name != "." && name != ".." && !sink.OnName(name))
                    return 0;
            }
        }
    }
    int CopyByHand(FileHandle from, FileHandle to, UINT64 done, UINT64 size, const GoOn& goOn)
    {
        const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyBlock]);
        if (!buffer)
            return ENOMEM;
        while (done < size) {
            if (goOn && !goOn())
                return ECANCELED;
            const auto piece = static_cast<size_t>(std::min<UINT64>(size - done, kCopyBlock));
            size_t got = 0;
            if (const int error = Read(from, done, buffer.get(), piece, &got))
                return error;
            if (got == 0)
                return EBUSY; // the source became shorter meanwhile
            if (const int error = Write(to, done, buffer.get(), got))
                return error;
            done += got;
        }
        return 0;
    }

    static constexpr size_t kCopyBlock = 262144;
    static constexpr size_t kCopyPiece = 8u << 20; // a slow disk takes less than a second for it
    const int top_;
    const std::string name_;   // as it was given
    std::vector<int> private_; // directories that no link leads into
    const UINT32 newFileMode_;
    LinkJudge linkJudge_;              // may be none
    std::atomic<bool> mayClone_{true}; // whether the last small file could share its content
};

} // namespace

std::unique_ptr<FileSystem> OpenPosixFileSystem(const char* directory, int* error)
{
    const int top = Retry([&] { return ::open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC); });
    if (top < 0) {
        *error = errno;
        return nullptr;
    }
    return std::make_unique<PosixFileSystem>(top, directory);
}

} // namespace filestore
