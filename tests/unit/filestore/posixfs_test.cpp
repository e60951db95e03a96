// SPDX-License-Identifier: Apache-2.0
//
// The file system over system calls that fail: this program's own definitions of them stand before
// the C library's.
#include <cstdarg>
#include <fstream>
#include <functional>
#include <new>
#include <set>
#include <sstream>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <gtest/gtest.h>

#include "providers/filestore/posixfs.h"
#include "tests/unit/filestore/scratch.h"

namespace {

int g_calls = 0;     // made since they were counted anew
int g_interrupt = 0; // the number of the call that a signal interrupts; 0 is none

bool IsInterrupted()
{
    if (++g_calls != g_interrupt)
        return false;
    errno = EINTR;
    return true;
}

template <class F> F* Next(const char* name)
{
    return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The real one, unless the call is to be interrupted.
#define INTERRUPTIBLE(result, name, parameters, arguments)                                         \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        static auto* const real = Next<result parameters>(#name);                                  \
        return IsInterrupted() ? -1 : real arguments;                                              \
    }

INTERRUPTIBLE(int, fstatat,
              (int directory, const char* __restrict path, struct stat* __restrict out, int flags),
              (directory, path, out, flags))
INTERRUPTIBLE(int, fstat, (int fd, struct stat* out), (fd, out))
INTERRUPTIBLE(int, stat, (const char* __restrict path, struct stat* __restrict out), (path, out))
INTERRUPTIBLE(int, statx,
              (int directory, const char* __restrict path, int flags, unsigned mask,
               struct statx* __restrict out),
              (directory, path, flags, mask, out))
INTERRUPTIBLE(ssize_t, pread, (int fd, void* to, size_t size, off_t at), (fd, to, size, at))
INTERRUPTIBLE(ssize_t, pwrite, (int fd, const void* from, size_t size, off_t at),
              (fd, from, size, at))
INTERRUPTIBLE(int, fchmod, (int fd, mode_t mode), (fd, mode))
INTERRUPTIBLE(int, chmod, (const char* path, mode_t mode), (path, mode))
INTERRUPTIBLE(int, fchownat, (int directory, const char* path, uid_t owner, gid_t group, int flags),
              (directory, path, owner, group, flags))
INTERRUPTIBLE(int, futimens, (int fd, const timespec times[2]), (fd, times))
INTERRUPTIBLE(int, utimensat, (int directory, const char* path, const timespec times[2], int flags),
              (directory, path, times, flags))
INTERRUPTIBLE(int, fsync, (int fd), (fd))
INTERRUPTIBLE(int, fdatasync, (int fd), (fd))
INTERRUPTIBLE(ssize_t, copy_file_range,
              (int from, off64_t* at, int to, off64_t* out, size_t size, unsigned flags),
              (from, at, to, out, size, flags))
INTERRUPTIBLE(ssize_t, fgetxattr, (int fd, const char* name, void* value, size_t size),
              (fd, name, value, size))
INTERRUPTIBLE(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size),
              (path, name, value, size))
INTERRUPTIBLE(ssize_t, lgetxattr, (const char* path, const char* name, void* value, size_t size),
              (path, name, value, size))
INTERRUPTIBLE(int, fsetxattr, (int fd, const char* name, const void* value, size_t size, int flags),
              (fd, name, value, size, flags))
INTERRUPTIBLE(int, setxattr,
              (const char* path, const char* name, const void* value, size_t size, int flags),
              (path, name, value, size, flags))
INTERRUPTIBLE(int, linkat, (int from, const char* path, int to, const char* name, int flags),
              (from, path, to, name, flags))
INTERRUPTIBLE(int, mkdirat, (int directory, const char* name, mode_t mode), (directory, name, mode))
INTERRUPTIBLE(int, renameat2,
              (int from, const char* path, int to, const char* name, unsigned flags),
              (from, path, to, name, flags))
INTERRUPTIBLE(int, unlinkat, (int directory, const char* name, int flags), (directory, name, flags))
INTERRUPTIBLE(ssize_t, getrandom, (void* to, size_t size, unsigned flags), (to, size, flags))
INTERRUPTIBLE(ssize_t, getdents64, (int fd, void* to, size_t size), (fd, to, size))

extern "C" int openat(int directory, const char* path, int flags, ...)
{
    static auto* const real = Next<int(int, const char*, int, ...)>("openat");
    va_list rest;
    va_start(rest, flags);
    const mode_t mode =
        flags & (O_CREAT | O_TMPFILE) ? static_cast<mode_t>(va_arg(rest, unsigned)) : 0;
    va_end(rest);
    return IsInterrupted() ? -1 : real(directory, path, flags, mode);
}

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    static auto* const real = Next<int(int, unsigned long, ...)>("ioctl");
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return IsInterrupted() ? -1 : real(fd, request, argument);
}

extern "C" long syscall(long number, ...)
{
    static auto* const real = Next<long(long, ...)>("syscall");
    va_list rest;
    va_start(rest, number);
    long a[6];
    for (long& each : a)
        each = va_arg(rest, long); // more than some have: what is there is passed on unread
    va_end(rest);
    return IsInterrupted() ? -1 : real(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

namespace {

using namespace filestore;

class Names final : public NameSink {
  public:
    bool OnName(std::string_view name) override
    {
        names_.emplace(name);
        return true;
    }
    const std::set<std::string>& Sorted() const { return names_; }

  private:
    std::set<std::string> names_;
};

// Every operation once or more, and what each gave.
std::string UseAll(const std::string& directory)
{
    std::ostringstream told;
    int error = 0;
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(directory.c_str(), &error);
    const auto tell = [&](const char* what, int result) {
        told << what << ' ' << result << '\n';
        return result;
    };
    OpenFile top, file, copy, nameless, located, child;
    FileInfo info;
    char bytes[64] = {};
    size_t got = 0;
    tell("open", fs->Open("", OpenFor::Directory, top.Out(*fs)));
    tell("make", fs->MakeDirectory(top.Get(), "dir"));
    tell("create", fs->CreateFile(top.Get(), "file", file.Out(*fs)));
    tell("write", fs->Write(file.Get(), 0, "content", 7));
    tell("read", fs->Read(file.Get(), 0, bytes, sizeof bytes, &got));
    told << std::string_view(bytes, got) << '\n';
    tell("mode", fs->SetMode(file.Get(), 0640));
    tell("date", fs->SetModified(file.Get(), 130'000'000'000'000'000));
    tell("sync", fs->Sync(file.Get(), false));
    tell("sync", fs->Sync(file.Get(), true));
    const int tag = fs->SetTag(file.Get(), "user.kest.test", "x", 1);
    tell("tag", tag);
    tell("tag", fs->GetTag(file.Get(), "user.kest.test", bytes, sizeof bytes, &got));
    tell("tag", fs->GetTagAt(top.Get(), "file", "user.kest.test", bytes, sizeof bytes, &got));
    tell("create", fs->CreateFile(top.Get(), "copy", copy.Out(*fs)));
    tell("copy", fs->CopyContent(file.Get(), copy.Get(), 7));
    tell("look", fs->Look("copy", &info));
    told << info.size << '\n';
    tell("inspect", fs->Inspect(file.Get(), &info));
    told << info.mode << ' ' << info.modified << '\n';
    tell("inspect", fs->InspectFully(file.Get(), &info));
    tell("inspect", fs->InspectAt(top.Get(), "file", &info));
    tell("owner", fs->SetOwner(file.Get(), info.owner, info.group));
    if (tell("nameless", fs->CreateUnnamed(top.Get(), nameless.Out(*fs))) == 0)
        tell("name", fs->GiveName(nameless.Get(), top.Get(), "named"));
    tell("locate", fs->Open("dir/../file", OpenFor::Locating, located.Out(*fs)));
    tell("mode", fs->SetMode(located.Get(), 0600));
    tell("date", fs->SetModified(located.Get(), 131'000'000'000'000'000));
    tell("tag", fs->SetTag(located.Get(), "user.kest.test", "y", 1));
    tell("tag", fs->GetTag(located.Get(), "user.kest.test", bytes, sizeof bytes, &got));
    tell("rename", fs->Rename(top.Get(), "copy", top.Get(), "taken", false));
    tell("rename", fs->Rename(top.Get(), "file", top.Get(), "taken", false));
    tell("rename", fs->Rename(top.Get(), "file", top.Get(), "taken", true));
    tell("at", fs->OpenAt(top.Get(), "taken", OpenFor::Reading, child.Out(*fs)));
    tell("lock", fs->TryLock(child.Get()));
    tell("list", [&] {
        Names names;
        const int result = fs->List(top.Get(), names);
        for (const std::string& name : names.Sorted())
            told << name << '\n';
        return result;
    }());
    tell("random", fs->Random(bytes, 16));
    told << fs->IsInPlace() << '\n';
    tell("remove", fs->RemoveFile(top.Get(), "taken"));
    tell("remove", fs->RemoveDirectory(top.Get(), "dir"));
    tell("gone", fs->Open("taken", OpenFor::Reading, child.Out(*fs)));
    return told.str();
}

size_t OpenDescriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

} // namespace

TEST(FileStorePosixFs, NothingChangesWhenASignalInterruptsAnyCall)
{
    std::string undisturbed;
    {
        const TempDirectory scratch;
        g_calls = 0;
        undisturbed = UseAll(scratch.Path());
    }
    const int calls = g_calls;
    EXPECT_GT(calls, 30);
    for (int n = 1; n <= calls; ++n) {
        const TempDirectory scratch;
        g_calls = 0;
        g_interrupt = n;
        EXPECT_EQ(undisturbed, UseAll(scratch.Path())) << "call " << n << " of " << calls;
        g_interrupt = 0;
    }
}

TEST(FileStorePosixFs, AListingThatRunsOutOfMemoryLeavesNothingOpen)
{
    class Short final : public NameSink {
      public:
        bool OnName(std::string_view) override { throw std::bad_alloc(); }
    };
    const TempDirectory scratch;
    std::ofstream(scratch.Path() / "file") << "content";
    int error = 0;
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(scratch.Path().c_str(), &error);
    OpenFile top;
    ASSERT_EQ(0, fs->Open("", OpenFor::Directory, top.Out(*fs)));
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 3; ++i) {
        Short sink;
        EXPECT_THROW((void)fs->List(top.Get(), sink), std::bad_alloc);
    }
    EXPECT_EQ(before, OpenDescriptors());
}
