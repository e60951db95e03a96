// SPDX-License-Identifier: Apache-2.0
//
// Reading and replacing whole small files.
#include "platform/file_io.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/descriptor.h"
#include "base/system_time.h"

namespace tolm {
namespace {

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
    const base::Descriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); // a FIFO must not wait
    struct stat status {};
    if (file.Number() < 0 || fstat(file.Number(), &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    text.clear();
    for (;;) {
        char buffer[16384];
        const ssize_t got = read(file.Number(), buffer, sizeof buffer);
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
    lastWrite = base::SystemTimeOf(status.st_mtim);
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
        const base::Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
        if (file.Number() < 0)
            return errno;
        int error = FillNewFile(file.Number(), old, text);
        struct stat made {};
        if (error == 0 && fstat(file.Number(), &made) != 0)
            error = errno;
        lastWrite = base::SystemTimeOf(made.st_mtim);
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
    const base::Descriptor parent(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.Number() >= 0)
        fsync(parent.Number());
    return 0;
}

} // namespace tolm
