// SPDX-License-Identifier: Apache-2.0
#include "platform/file_io.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tolm {
namespace {

class File {
  public:
    explicit File(int descriptor) noexcept : descriptor_(descriptor) {}
    ~File()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int Get() const noexcept { return descriptor_; }

  private:
    int descriptor_;
};

UINT64 SystemTimeOf(const timespec& time) noexcept
{
    return 116444736000000000 + static_cast<UINT64>(time.tv_sec) * 10'000'000 +
           static_cast<UINT64>(time.tv_nsec) / 100;
}

int WriteAll(int descriptor, const std::string& text) noexcept
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return errno;
        if (written > 0)
            done += static_cast<std::size_t>(written);
    }
    return 0;
}

int FillNewFile(int descriptor, const struct stat& old, const std::string& text) noexcept
{
    // The owner first: changing it may clear permission bits.
    if (fchown(descriptor, old.st_uid, old.st_gid) != 0 && errno != EPERM)
        return errno;
    if (fchmod(descriptor, old.st_mode & 07777) != 0)
        return errno;
    if (const int error = WriteAll(descriptor, text))
        return error;
    return fsync(descriptor) == 0 ? 0 : errno;
}

} // namespace

int ReadWholeFile(const std::string& path, std::string& text, UINT64& lastWrite)
{
    const File file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); // a FIFO must not wait
    struct stat status {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    text.clear();
    for (;;) {
        char buffer[16384];
        const ssize_t got = read(file.Get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            break;
        text.append(buffer, static_cast<std::size_t>(got));
        if (text.size() > kLargestFile)
            return EFBIG;
    }
    lastWrite = SystemTimeOf(status.st_mtim);
    return 0;
}

int ReplaceFile(const std::string& path, const std::string& text, UINT64& lastWrite)
{
    struct stat old {};
    if (stat(path.c_str(), &old) != 0)
        return errno;
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    std::string temporary = path + ".XXXXXX";
    {
        const File file(mkostemp(temporary.data(), O_CLOEXEC));
        if (file.Get() < 0)
            return errno;
        int error = FillNewFile(file.Get(), old, text);
        struct stat made {};
        if (error == 0 && fstat(file.Get(), &made) != 0)
            error = errno;
        lastWrite = SystemTimeOf(made.st_mtim);
        if (error != 0) {
            unlink(temporary.c_str());
            return error;
        }
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        return error;
    }
    // The rename stands whether or not the directory can be synced.
    const File parent(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.Get() >= 0)
        fsync(parent.Get());
    return 0;
}

} // namespace tolm
